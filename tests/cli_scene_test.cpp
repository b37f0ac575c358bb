// The command-line program on a small synthetic belt scene: the objects it reports are
// the objects the scene holds, where they lie and what they are made of, its outputs
// agree with each other, and bad input fails with a message and a non-zero status.

#include "cli_process.h"
#include "modelwriter/envelope_writer.h"
#include "scene/scene.h"
#include "spectral_fixtures.h"

#include <QFile>
#include <QImage>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMap>
#include <QTemporaryDir>
#include <cmath>
#include <gtest/gtest.h>
#include <memory>

namespace {

using cliprocess::Outcome;
using cliprocess::readCsv;
using cliprocess::zelk;

class BeltScene : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        scene::Options o;
        o.width = 200;
        o.lines = 520;
        o.bands = 64;
        o.objects = 14;
        o.seed = 11;
        o.trainingSpectra = 1200;
        o.heldOutSpectra = 800;
        dir_ = new QTemporaryDir;
        scene_ = new scene::Scene(o);
        QString error;
        ASSERT_TRUE(scene_->write(dir_->path(), &error)) << qPrintable(error);
    }
    static void TearDownTestSuite()
    {
        delete scene_;
        delete dir_;
    }
    static QString path(const QString& name) { return dir_->filePath(name); }
    static QStringList runArguments()
    {
        return {"run", path("model.zelk"), path("scene.hdr"), "--white", path("whiteReference.hdr"), "--dark",
                path("darkReference.hdr"), "--out", path("out")};
    }

    static QTemporaryDir* dir_;
    static scene::Scene* scene_;
};

QTemporaryDir* BeltScene::dir_ = nullptr;
scene::Scene* BeltScene::scene_ = nullptr;

TEST_F(BeltScene, ReportsEachObjectAtItsPlaceWithItsMaterial)
{
    const scene::Scene& s = *scene_;
    bool foreign = false;
    for (const scene::SceneObject& o : s.objects())
        foreign = foreign || !s.materials()[o.material].trained;
    ASSERT_TRUE(foreign) << "the scene should hold a material the model does not know";

    const Outcome run = zelk(runArguments());
    ASSERT_EQ(run.status, 0) << qPrintable(run.err);
    EXPECT_TRUE(run.err.isEmpty()) << "no progress bar off a terminal: " << qPrintable(run.err);
    EXPECT_TRUE(run.out.contains(QStringLiteral("objects: %1 (").arg(s.objects().size()))) << qPrintable(run.out);

    const auto found = readCsv(path("out/scene_objects.csv"));
    ASSERT_EQ(found.size(), s.objects().size());
    std::vector<bool> taken(found.size(), false);
    for (const scene::SceneObject& truth : s.objects()) {
        const scene::Material& m = s.materials()[truth.material];
        size_t best = 0;
        double distance = 1e9;
        for (size_t i = 0; i < found.size(); ++i) {
            const double d = std::hypot(found[i]["centroid_line"].toDouble() - truth.line, found[i]["centroid_column"].toDouble() - truth.column);
            if (d < distance) {
                distance = d;
                best = i;
            }
        }
        SCOPED_TRACE(QStringLiteral("object %1 (%2) at line %3, column %4").arg(truth.id).arg(m.name).arg(truth.line).arg(truth.column).toStdString());
        EXPECT_LE(distance, 1.5);
        EXPECT_FALSE(taken[best]);
        taken[best] = true;
        EXPECT_EQ(found[best]["decision_name"], m.trained ? m.name : QStringLiteral("Unseen in training"));
        // The rim's mixed pixels belong to the object too, so it is no smaller than its core.
        EXPECT_GE(found[best]["pixels"].toInt(), truth.pixels * 9 / 10);
        EXPECT_LE(found[best]["pixels"].toInt(), truth.pixels * 2);
    }

    // The JSON file holds the same records.
    QFile jsonFile(path("out/scene_objects.json"));
    ASSERT_TRUE(jsonFile.open(QIODevice::ReadOnly));
    const QJsonArray objects = QJsonDocument::fromJson(jsonFile.readAll()).object()["objects"].toArray();
    ASSERT_EQ(size_t(objects.size()), found.size());
    for (int i = 0; i < objects.size(); ++i) {
        const QJsonObject o = objects[i].toObject();
        EXPECT_EQ(o["centroid"].toObject()["line"].toInt(), found[size_t(i)]["centroid_line"].toInt());
        EXPECT_EQ(o["decision_name"].toString(), found[size_t(i)]["decision_name"]);
    }

    // The decision image has a row per line in the order of the lines: each object's
    // box is mostly the colour of its decision.
    const QImage image(path("out/scene_decisions.png"));
    ASSERT_EQ(image.size(), QSize(s.options().width, s.options().lines));
    QMap<QString, QRgb> colours;
    for (const scene::Material& m : s.materials())
        colours[m.name] = m.colour.rgb();
    colours[QStringLiteral("Unseen in training")] = qRgb(255, 170, 0);
    for (const auto& o : found) {
        QMap<QRgb, int> inBox;
        for (int y = o["first_line"].toInt(); y <= o["last_line"].toInt(); ++y)
            for (int x = o["first_column"].toInt(); x <= o["last_column"].toInt(); ++x)
                if (image.pixel(x, y) != colours["belt"])
                    ++inBox[image.pixel(x, y)];
        QRgb most = 0;
        for (auto it = inBox.cbegin(); it != inBox.cend(); ++it)
            if (it.value() > inBox.value(most))
                most = it.key();
        EXPECT_EQ(most, colours[o["decision_name"]]) << qPrintable(o["decision_name"]);
    }
}

// Counts run as if they were reflectance: the model rejects nearly every pixel, and the
// run says so with a failing status, its outputs written all the same.
TEST_F(BeltScene, ARunThatRejectsNearlyEverythingFails)
{
    const Outcome run = zelk({"run", path("model.zelk"), path("scene.hdr"), "--ignore-value-range", "--out", path("counts")});
    EXPECT_EQ(run.status, 1);
    EXPECT_TRUE(run.err.contains("100% of the pixels were rejected as 'Unseen in training'")) << qPrintable(run.err);
    EXPECT_TRUE(run.err.contains("--white")) << qPrintable(run.err);
    EXPECT_TRUE(QFile::exists(path("counts/scene_decisions.png")));
    // The column names of the record file have no spaces.
    QFile csv(path("counts/scene_objects.csv"));
    ASSERT_TRUE(csv.open(QIODevice::ReadOnly));
    EXPECT_FALSE(csv.readLine().contains(' '));
}

TEST_F(BeltScene, InfoAndBenchDescribeAndRunTheModel)
{
    const Outcome info = zelk({"info", path("model.zelk")});
    ASSERT_EQ(info.status, 0) << qPrintable(info.err);
    for (const char* line : {"revision 17", "type 10, line-scan", "200 x 1 pixels, 64 bands", "F 6 features, K 12 centres, C 4 classes; 60 of 64 bands (2-61)",
                             "1  hazelnut", "4  Unseen in training    #ffaa00", "900.00 - 1700.00 nm",
                             "foreground: hazelnut, shell, stone, Unseen in training; background: belt", "smallest object 40 px"})
        EXPECT_TRUE(info.out.contains(QLatin1String(line))) << line << "\n" << qPrintable(info.out);

    const Outcome bench = zelk({"bench", path("model.zelk"), "--frames", "20"});
    ASSERT_EQ(bench.status, 0) << qPrintable(bench.err);
    EXPECT_TRUE(bench.out.contains(QLatin1String("200 x 1 pixels x 64 bands, float BIL"))) << qPrintable(bench.out);
}

TEST_F(BeltScene, BadInputFailsWithAMessage)
{
    using fixtures::writeFloatScan;
    using fixtures::writeUInt16Scan;
    auto value = [](int c, int, int b) { return 100.0 + c + b; };
    ASSERT_TRUE(writeUInt16Scan(path("narrow"), ".bin", 8, 2, 3, value));
    ASSERT_TRUE(writeFloatScan(path("floats"), ".bin", 8, 2, 64, value));
    ASSERT_TRUE(writeUInt16Scan(path("headless"), ".bin", 8, 2, 64, value));
    ASSERT_TRUE(QFile::remove(path("headless.bin")));
    // Sizes whose product overflows 64 bits.
    ASSERT_TRUE(modelwriter::writeFile(path("huge.hdr"), "ENVI\nsamples = 2000000000\nlines = 2000000000\nbands = 64\n"
                                                       "data type = 12\ninterleave = bil\n"));
    // A model whose envelope fails its integrity check: the library loads nothing and
    // answers -1 without a text.
    ASSERT_TRUE(QFile::copy(path("model.zelk"), path("damaged.zelk")));
    {
        QFile damaged(path("damaged.zelk"));
        ASSERT_TRUE(damaged.open(QIODevice::ReadWrite));
        ASSERT_TRUE(damaged.seek(damaged.size() - 1));
        const char last = damaged.peek(1).at(0);
        ASSERT_TRUE(damaged.putChar(char(last ^ 0x5A)));
    }

    const QString model = path("model.zelk"), cube = path("scene.hdr");
    const QStringList references{"--white", path("whiteReference.hdr"), "--dark", path("darkReference.hdr")};
    struct Case {
        QStringList args;
        int status;
        const char* message;
    };
    const Case cases[] = {
        // The library's own text and code.
        {{"run", path("missing.zelk"), cube}, 1, "zelk_LoadModel: File cannot be opened (-113)"},
        {{"info", cube}, 1, "zelk_LoadModel: Wrong file format (-111)"},
        {{"info", path("damaged.zelk")}, 1, "is not a usable model"},
        {{"run", model, cube, "--white", path("narrow.hdr"), "--dark", path("darkReference.hdr")}, 1, "references were refused: Correction scans must have identical width and band count. (-132)"},
        // The cube against the model.
        {{"run", model, path("narrow.hdr")}, 1, "the model takes 64 bands"},
        {{"run", model, path("headless.hdr")}, 1, "headless.hdr has no data file: none of headless, headless.raw"},
        {{"run", model, path("huge.hdr")}, 1, "are more than this reader takes"},
        {QStringList{"run", model, path("floats.hdr")} + references, 1, "takes 16-bit counts with its references"},
        // Counts where the model takes reflectance, for want of references.
        {{"run", model, cube}, 1, "scene.hdr cannot hold reflectance: 100% of its values exceed 2"},
        // The command line.
        {{"run", model, cube, "--white", path("whiteReference.hdr")}, 2, "--white and --dark go together"},
        {{"run", model, cube, "--min-size", "0"}, 2, "--min-size takes a whole number"},
        {{"run", model, cube, "--colour", "red"}, 2, "unknown option --colour"},
        {{"run", model}, 2, "needs a model and a cube"},
        {{"frobnicate"}, 2, "there is no command 'frobnicate'"},
    };
    for (const Case& c : cases) {
        const Outcome o = zelk(c.args);
        EXPECT_EQ(o.status, c.status) << qPrintable(c.args.join(' '));
        EXPECT_TRUE(o.err.contains(QLatin1String(c.message))) << qPrintable(c.args.join(' ')) << "\n" << qPrintable(o.err);
        EXPECT_TRUE(o.out.isEmpty()) << qPrintable(o.out);
    }
}

} // namespace
