// zelk run on cubes that would give a plausible but wrong result if taken as they come:
// wavelengths that are not the model's, a header whose own data file is missing, values
// scaled or marked as no data, and a run stopped by Ctrl-C. The model classifies by
// band 1: near 10 is "leaf" (decision 1), near 0 "bg" (0) (model_files.h); its bands lie at 900, 1000,
// 1100 and 1200 nm.

#include "cli_process.h"
#include "model_files.h"
#include "spectral/envi_header.h"
#include "spectral_fixtures.h"

#include <QElapsedTimer>
#include <QImage>
#include <QJsonDocument>
#include <QJsonObject>
#include <QThread>
#include <QtEndian>
#include <gtest/gtest.h>
#include <csignal>

namespace {

using cliprocess::readCsv;
using cliprocess::zelk;

constexpr int Width = 8, Lines = 30, Bands = 4;

// A leaf of 3 x 3 pixels at columns 2-4, lines 3-5; objects close at line 20.
double leafScene(int c, int l, int b)
{
    return b == 1 && c >= 2 && c <= 4 && l >= 3 && l <= 5 ? 10 : 0;
}

class CliChecks : public ::testing::Test {
protected:
    void SetUp() override { model_ = modelfiles::writeModel(dir_, modelfiles::lineScanProject(Width)); }
    QString path(const QString& name) const { return dir_.filePath(name); }
    // Writes NAME.hdr and NAME.raw of the leaf scene with further header lines.
    void writeScene(const QString& name, const QString& extra, const fixtures::SampleFn& value = leafScene)
    {
        ASSERT_TRUE(fixtures::writeUInt16Scan(path(name), ".raw", Width, Lines, Bands, value, "bil", extra));
    }
    cliprocess::Outcome run(const QString& cube, const QStringList& more = {})
    {
        return zelk(QStringList{"run", model_, cube, "--out", path("out")} + more);
    }

    QTemporaryDir dir_;
    QString model_;
};

TEST_F(CliChecks, WavelengthsMustBeTheModelsInOrderRangeAndUnits)
{
    struct Case {
        const char* header;
        int status;
        const char* message;
    };
    const Case cases[] = {
        {"wavelength units = Nanometers\nwavelength = {900, 1000, 1100, 1200}", 0, ""},
        {"wavelength units = Micrometers\nwavelength = {0.9, 1.0, 1.1, 1.2}", 0, ""},
        {"wavelength units = nm\nwavelength = {9.02e2, 1000, 1100, 1200}", 0, ""},
        // Without units, values this small are micrometres.
        {"wavelength = {0.9, 1.0, 1.1, 1.2}", 0, ""},
        {"wavelength = {900, 1000, 1100, 1200}", 0, ""},
        {"wavelength units = nm\nwavelength = {1200, 1100, 1000, 900}", 1, "run from 1200.0 down to 900.0 nm, the model's from 900.0 up to 1200.0 nm: the band order is reversed"},
        {"wavelength units = nm\nwavelength = {1000, 1100, 1200, 1300}", 1, "band 0 lies at 1000.0 nm, the model's at 900.0 nm, more than half a band step (50.0 nm) apart"},
        {"wavelength units = Micrometers\nwavelength = {900, 1000, 1100, 1200}", 1, "band 3 lies at 1200000.0 nm, the model's at 1200.0 nm"},
        {"wavelength units = Nanometers\nwavelength = {0.9, 1.0, 1.1, 1.2}", 1, "band 3 lies at 1.2 nm, the model's at 1200.0 nm"},
        {"wavelength units = Wavenumber\nwavelength = {900, 1000, 1100, 1200}", 1, "in 'Wavenumber', which cannot be compared with the model's nanometres"},
        {"wavelength = {900, 1000, 1100}", 1, "lists 3 wavelengths for 4 bands"},
    };
    int i = 0;
    for (const Case& c : cases) {
        const QString name = QStringLiteral("cube%1").arg(i++);
        writeScene(name, QString::fromLatin1(c.header) + QLatin1Char('\n'));
        const auto o = run(path(name + ".hdr"));
        SCOPED_TRACE(c.header);
        EXPECT_EQ(o.status, c.status) << qPrintable(o.err);
        EXPECT_TRUE(o.err.contains(QLatin1String(c.message))) << qPrintable(o.err);
        if (c.status == 0)
            EXPECT_TRUE(o.out.contains("objects: 1 (1 leaf)")) << qPrintable(o.out);
        else
            EXPECT_TRUE(o.err.contains("--ignore-wavelengths") || o.err.contains("lists 3")) << qPrintable(o.err);
    }

    // The override runs the reversed cube as it is, and says so.
    const auto forced = run(path("cube5.hdr"), {"--ignore-wavelengths"});
    EXPECT_EQ(forced.status, 0) << qPrintable(forced.err);
    EXPECT_TRUE(forced.err.contains("not compared")) << qPrintable(forced.err);
    // A cube that states no wavelengths cannot be checked: a note says so.
    writeScene("bare", QString());
    const auto bare = run(path("bare.hdr"));
    EXPECT_EQ(bare.status, 0) << qPrintable(bare.err);
    EXPECT_TRUE(bare.err.contains("states no wavelengths; its bands are taken as the model's (900.0 up to 1200.0 nm)")) << qPrintable(bare.err);
}

TEST_F(CliChecks, TheDataFileIsFoundByNameAndNamed)
{
    const QByteArray bil = modelwriter::uint16Bytes(fixtures::samplesOf<quint16>("bil", Width, Lines, Bands, leafScene));
    const QByteArray bip = modelwriter::uint16Bytes(fixtures::samplesOf<quint16>("bip", Width, Lines, Bands, leafScene));
    // scene.bil.hdr lost its scene.bil; scene.bip, of the same size, has a header of its own.
    ASSERT_TRUE(modelwriter::writeEnviScan(path("scene.bil"), "", {Width, Lines, Bands, 12, "bil", bil, {}, {}}));
    ASSERT_TRUE(modelwriter::writeEnviScan(path("scene.bip"), "", {Width, Lines, Bands, 12, "bip", bip, {}, {}}));
    ASSERT_TRUE(QFile::remove(path("scene.bil")));
    const auto lost = run(path("scene.bil.hdr"));
    EXPECT_EQ(lost.status, 1);
    EXPECT_TRUE(lost.err.contains("scene.bil.hdr has no data file: none of scene.bil, scene, scene.raw")) << qPrintable(lost.err);

    // Its own header finds scene.bip by name, and so does the data file named directly.
    for (const QString& given : {path("scene.bip.hdr"), path("scene.bip")}) {
        const auto o = run(given);
        EXPECT_EQ(o.status, 0) << qPrintable(o.err);
        EXPECT_TRUE(o.out.contains("data " + path("scene.bip") + "\n")) << qPrintable(o.out);
        EXPECT_TRUE(o.out.contains("objects: 1 (1 leaf)")) << qPrintable(o.out);
    }

    // The file of the conventional name wins over one of the right size.
    ASSERT_TRUE(modelwriter::writeEnviScan(path("tile"), ".img", {Width, Lines, Bands, 12, "bil", bil, {}, {}}));
    ASSERT_TRUE(modelwriter::writeFile(path("tile.bin"), QByteArray(bil.size(), '\0')));
    const auto img = run(path("tile.hdr"));
    EXPECT_TRUE(img.out.contains("data " + path("tile.img") + "\n")) << qPrintable(img.out);

    // Only when no file has such a name, the one file of the right size, and the
    // summary says so.
    ASSERT_TRUE(modelwriter::writeEnviScan(path("odd"), ".cube", {Width, Lines, Bands, 12, "bil", bil, {}, {}}));
    const auto odd = run(path("odd.hdr"));
    EXPECT_EQ(odd.status, 0) << qPrintable(odd.err);
    EXPECT_TRUE(odd.out.contains("data " + path("odd.cube") + " (found by its size")) << qPrintable(odd.out);
    ASSERT_TRUE(modelwriter::writeFile(path("odd.copy"), bil));
    const auto two = run(path("odd.hdr"));
    EXPECT_EQ(two.status, 1);
    EXPECT_TRUE(two.err.contains("2 files beside it hold its 1920 bytes")) << qPrintable(two.err);

    // A short data file is refused with its name and both sizes.
    ASSERT_TRUE(modelwriter::writeEnviScan(path("short"), ".raw", {Width, Lines, Bands, 12, "bil", bil.left(1000), {}, {}}));
    const auto shortFile = run(path("short.hdr"));
    EXPECT_EQ(shortFile.status, 1);
    EXPECT_TRUE(shortFile.err.contains("the data file " + path("short.raw") + " is too short: " + path("short.raw") +
                                       " holds 1000 bytes, the header " + path("short.hdr") + " describes 1920"))
        << qPrintable(shortFile.err);
    const auto shortGiven = run(path("short.raw"));
    EXPECT_TRUE(shortGiven.err.contains("it holds 1000 bytes, the header " + path("short.hdr") + " describes 1920")) << qPrintable(shortGiven.err);
}

TEST_F(CliChecks, ScaleFactorAndIgnoreValueAreHonoured)
{
    // Reflectance stored as whole numbers: band 1 of the leaf at 10 000 for 10.
    auto scaled = [](int c, int l, int b) { return c == 7 && l < 10 ? 65535 : leafScene(c, l, b) * 1000; };
    writeScene("scaled", "reflectance scale factor = 1000\ndata ignore value = 65535\n", scaled);
    const auto o = run(path("scaled.hdr"));
    ASSERT_EQ(o.status, 0) << qPrintable(o.err);
    const auto objects = readCsv(path("out/scaled_objects.csv"));
    ASSERT_EQ(objects.size(), 1u);
    EXPECT_EQ(objects[0]["decision_name"], "leaf");
    EXPECT_EQ(objects[0]["pixels"], "9");

    // The pixels at the ignore value carry the label "no data" in the label map.
    const QImage labels(path("out/scaled_decisions.png"));
    ASSERT_EQ(labels.format(), QImage::Format_Indexed8);
    EXPECT_EQ(labels.pixelIndex(7, 0), 255);
    EXPECT_EQ(labels.pixelIndex(7, 9), 255);
    EXPECT_EQ(labels.pixelIndex(7, 10), 0); // bg
    EXPECT_EQ(labels.pixelIndex(3, 4), 1);  // leaf
    EXPECT_TRUE(labels.text("decisions").endsWith("255\tno data\t#000000")) << qPrintable(labels.text("decisions"));

    // A cube of reflectance cannot be corrected by references.
    writeScene("reference", QString());
    const auto corrected = run(path("scaled.hdr"), {"--white", path("reference.hdr"), "--dark", path("reference.hdr")});
    EXPECT_EQ(corrected.status, 1);
    EXPECT_TRUE(corrected.err.contains("holds reflectance (its header states a reflectance scale factor)")) << qPrintable(corrected.err);
}

// Ctrl-C during a long recording: the outputs hold the lines done, with headers that
// say so, and the objects found until then.
TEST_F(CliChecks, AnInterruptedRunWritesWhatItHasDone)
{
    model_ = modelfiles::writeModel(dir_, modelfiles::regressionProject(Width));
    const int lines = 600000;
    QByteArray line(Width * Bands * 2, '\0');
    {
        modelwriter::EnviScan scan{Width, lines, Bands, 12, "bil", {}, {}, {}};
        ASSERT_TRUE(modelwriter::writeFile(path("long.hdr"), modelwriter::enviHeaderText(scan)));
        QFile raw(path("long.raw"));
        ASSERT_TRUE(raw.open(QIODevice::WriteOnly));
        for (int l = 0; l < lines; ++l) {
            for (int c = 0; c < Width; ++c)
                qToLittleEndian<quint16>(quint16(leafScene(c, l, 1)), line.data() + (Width + c) * 2);
            ASSERT_EQ(raw.write(line), line.size());
        }
    }

    QProcess p;
    p.start(QStringLiteral(ZELK_CLI), {"run", model_, path("long.hdr"), "--out", path("out")});
    ASSERT_TRUE(p.waitForStarted());
    // Interrupted once the frame loop writes regression outputs, after line 20.
    QElapsedTimer waited;
    waited.start();
    while (QFileInfo(path("out/long_regression.bin")).size() < 40 * Width * 8 && waited.elapsed() < 60000 && p.state() == QProcess::Running)
        QThread::msleep(20);
    ASSERT_EQ(::kill(pid_t(p.processId()), SIGINT), 0);
    ASSERT_TRUE(p.waitForFinished(60000));
    const QString out = QString::fromLocal8Bit(p.readAllStandardOutput());
    ASSERT_EQ(p.exitStatus(), QProcess::NormalExit);
    EXPECT_EQ(p.exitCode(), 130) << qPrintable(p.readAllStandardError());

    const EnviHeader header = EnviHeader::read(path("out/long_regression.hdr"));
    const int done = header.headerInt("lines");
    EXPECT_GT(done, 20);
    EXPECT_LT(done, lines);
    EXPECT_EQ(QFileInfo(path("out/long_regression.bin")).size(), qint64(done) * Width * 2 * 4);
    EXPECT_TRUE(out.contains(QStringLiteral("interrupted after %1 of %2 lines").arg(done).arg(lines))) << qPrintable(out);
    EXPECT_EQ(QImage(path("out/long_decisions.png")).height(), done);
    QFile json(path("out/long_objects.json"));
    ASSERT_TRUE(json.open(QIODevice::ReadOnly));
    const QJsonObject root = QJsonDocument::fromJson(json.readAll()).object();
    EXPECT_EQ(root["lines"].toInt(), done);
    EXPECT_TRUE(root["interrupted"].toBool());
    const auto objects = readCsv(path("out/long_objects.csv"));
    ASSERT_EQ(objects.size(), 1u);
    EXPECT_EQ(objects[0]["pixels"], "9");
}

TEST(CliCommandLine, HelpVersionAndOptionsAsUsual)
{
    for (const QStringList& args : {QStringList{"--help"}, QStringList{"help"}, QStringList{"help", "run"}, QStringList{"run", "--help"},
                                    QStringList{"info", "-h"}}) {
        const auto o = zelk(args);
        EXPECT_EQ(o.status, 0) << qPrintable(args.join(' '));
        EXPECT_TRUE(o.out.startsWith("usage: zelk")) << qPrintable(o.out);
    }
    EXPECT_TRUE(zelk({"help", "run"}).out.contains("--ignore-wavelengths"));
    const auto version = zelk({"--version"});
    EXPECT_EQ(version.status, 0);
    EXPECT_TRUE(version.out.startsWith("zelk 5.1 (")) << qPrintable(version.out);
    const auto unknown = zelk({"frobnicate"});
    EXPECT_EQ(unknown.status, 2);
    EXPECT_TRUE(unknown.err.startsWith("zelk: there is no command 'frobnicate'")) << qPrintable(unknown.err);
    const auto unknownHelp = zelk({"help", "frobnicate"});
    EXPECT_EQ(unknownHelp.status, 2);
    EXPECT_TRUE(unknownHelp.err.contains("there is no command 'frobnicate'")) << qPrintable(unknownHelp.err);
}

TEST_F(CliChecks, OptionsTakeAnEqualsSign)
{
    writeScene("belt", QString());
    const auto o = zelk({"run", model_, path("belt.hdr"), "--out=" + path("elsewhere"), "--min-size=2"});
    EXPECT_EQ(o.status, 0) << qPrintable(o.err);
    EXPECT_TRUE(QFile::exists(path("elsewhere/belt_objects.csv")));
    const auto bad = zelk({"run", model_, path("belt.hdr"), "--min-size=0"});
    EXPECT_EQ(bad.status, 2);
    EXPECT_TRUE(bad.err.contains("--min-size takes a whole number from 1")) << qPrintable(bad.err);
    const auto flag = zelk({"run", model_, path("belt.hdr"), "--ignore-wavelengths=yes"});
    EXPECT_EQ(flag.status, 2);
    EXPECT_TRUE(flag.err.contains("--ignore-wavelengths takes no value")) << qPrintable(flag.err);
}

} // namespace
