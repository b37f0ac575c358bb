// The files of zelk run for the small models of the C interface's tests: the regression
// cube of a line-scan model with a regressor, and a snapshot model's cube handed in
// whole. Leaf pixels have band 1 at 10, the others at 0 (model_files.h).

#include "cli_process.h"
#include "model_files.h"
#include "spectral/envi_header.h"
#include "spectral_fixtures.h"

#include <QImage>
#include <QJsonDocument>
#include <QJsonObject>
#include <QtEndian>
#include <gtest/gtest.h>

namespace {

using cliprocess::readCsv;
using cliprocess::zelk;

constexpr int Width = 8;
const QRgb Leaf = qRgb(0, 200, 0), Background = qRgb(10, 20, 30);

// A rectangle of leaf pixels; band 3 varies a little, the others carry large values.
struct Patch {
    int firstColumn, lastColumn, firstLine, lastLine;
    bool leaf(int c, int l) const { return c >= firstColumn && c <= lastColumn && l >= firstLine && l <= lastLine; }
    double operator()(int c, int l, int b) const
    {
        switch (b) {
        case 1: return leaf(c, l) ? 10 : 0;
        case 3: return ((c + l) % 4) * 0.25;
        default: return 1000 + 10 * b + c;
        }
    }
};

TEST(CliRun, WritesTheRegressionCubeAndTheObjectMeans)
{
    QTemporaryDir dir;
    const QString model = modelfiles::writeModel(dir, modelfiles::regressionProject(Width));
    // Objects close in passes every 20 lines, so the recording runs on past the patch.
    const int lines = 30;
    const Patch patch{2, 4, 3, 5};
    ASSERT_TRUE(fixtures::writeFloatScan(dir.filePath("belt"), ".raw", Width, lines, 4, patch));

    const auto run = zelk({"run", model, dir.filePath("belt.hdr"), "--out", dir.filePath("out")});
    ASSERT_EQ(run.status, 0) << qPrintable(run.err);
    EXPECT_TRUE(run.out.contains("objects: 1 (1 leaf)")) << qPrintable(run.out);
    EXPECT_TRUE(run.out.contains("regression outputs: " + dir.filePath("out/belt_regression.hdr"))) << qPrintable(run.out);

    // fat = (x3 - 1) * 2, water = fat - (x1 - 2) * 0.5 + 100, band after band per line.
    const EnviHeader header = EnviHeader::read(dir.filePath("out/belt_regression.hdr"));
    EXPECT_EQ(header.headerInt("samples"), Width);
    EXPECT_EQ(header.headerInt("lines"), lines);
    EXPECT_EQ(header.headerInt("bands"), 2);
    EXPECT_EQ(header.headerInt("data type"), 4);
    EXPECT_EQ(header.headerWord("interleave"), "bil");
    EXPECT_TRUE(header.text().contains("band names = {fat, water}"));
    QFile raw(dir.filePath("out/belt_regression.bin"));
    ASSERT_TRUE(raw.open(QIODevice::ReadOnly));
    const QByteArray bytes = raw.readAll();
    ASSERT_EQ(bytes.size(), Width * lines * 2 * 4);
    double fatSum = 0, waterSum = 0;
    for (int l = 0; l < lines; ++l)
        for (int c = 0; c < Width; ++c) {
            const double fat = (patch(c, l, 3) - 1) * 2, water = fat - (patch(c, l, 1) - 2) * 0.5 + 100;
            const char* at = bytes.constData() + (l * 2 * Width + c) * 4;
            EXPECT_NEAR(qFromLittleEndian<float>(at), fat, 1e-3) << "line " << l << " column " << c;
            EXPECT_NEAR(qFromLittleEndian<float>(at + Width * 4), water, 1e-3) << "line " << l << " column " << c;
            if (patch.leaf(c, l)) {
                fatSum += fat;
                waterSum += water;
            }
        }

    const auto objects = readCsv(dir.filePath("out/belt_objects.csv"));
    ASSERT_EQ(objects.size(), 1u);
    EXPECT_EQ(objects[0]["decision_name"], "leaf");
    EXPECT_EQ(objects[0]["centroid_line"], "4");
    EXPECT_EQ(objects[0]["centroid_column"], "3");
    EXPECT_EQ(objects[0]["pixels"], "9");
    EXPECT_NEAR(objects[0]["fat"].toDouble(), fatSum / 9, 1e-3);
    EXPECT_NEAR(objects[0]["water"].toDouble(), waterSum / 9, 1e-3);

    // The label map holds each pixel's decision code and nothing drawn over it; its
    // palette and text name the decisions.
    const QImage image(dir.filePath("out/belt_decisions.png"));
    ASSERT_EQ(image.size(), QSize(Width, lines));
    ASSERT_EQ(image.format(), QImage::Format_Indexed8);
    for (int l = 0; l < lines; ++l)
        for (int c = 0; c < Width; ++c)
            ASSERT_EQ(image.pixelIndex(c, l), patch.leaf(c, l) ? 1 : 0) << "line " << l << " column " << c;
    EXPECT_EQ(image.pixel(3, 4), Leaf);
    EXPECT_EQ(image.pixel(7, 20), Background);
    EXPECT_EQ(image.text("decisions"), "0\tbg\t#0a141e\n1\tleaf\t#00c800");
    // The overview shows the same with the object's box and a legend beside it.
    const QImage overview(dir.filePath("out/belt_overview.png"));
    EXPECT_GT(overview.width(), Width);
    EXPECT_EQ(overview.pixel(3, 4), qRgb(255, 255, 255)); // the centroid's mark
    EXPECT_EQ(overview.pixel(6, 20), Background);

    const auto info = zelk({"info", model});
    ASSERT_EQ(info.status, 0) << qPrintable(info.err);
    EXPECT_TRUE(info.out.contains("2 variables: fat, water")) << qPrintable(info.out);

    // The library's diagnostics of the load reach standard error with --verbose only.
    EXPECT_FALSE(run.err.contains("RegOutput invalidated")) << qPrintable(run.err);
    const auto verbose = zelk({"info", model, "--verbose"});
    EXPECT_TRUE(verbose.err.contains("RegOutput invalidated")) << qPrintable(verbose.err);
}

TEST(CliRun, HandsASnapshotCubeInWhole)
{
    QTemporaryDir dir;
    modelwriter::Project p = modelfiles::lineScanProject();
    p.type = 3; // float cubes of 8 x 100 pixels, pixel after pixel
    const QString model = modelfiles::writeModel(dir, p);
    const Patch patch{4, 6, 40, 44};
    // Band after band on disk: the program reorders the samples into the model's layout.
    ASSERT_TRUE(fixtures::writeFloatScan(dir.filePath("tile"), ".bsq", Width, 100, 4, patch, "bsq"));

    const auto run = zelk({"run", model, dir.filePath("tile.hdr"), "--out", dir.filePath("out")});
    ASSERT_EQ(run.status, 0) << qPrintable(run.err);
    EXPECT_TRUE(run.out.contains("8 x 100 pixels classified")) << qPrintable(run.out);
    const auto objects = readCsv(dir.filePath("out/tile_objects.csv"));
    ASSERT_EQ(objects.size(), 1u);
    EXPECT_EQ(objects[0]["decision_name"], "leaf");
    EXPECT_EQ(objects[0]["centroid_line"], "42");
    EXPECT_EQ(objects[0]["centroid_column"], "5");
    EXPECT_EQ(objects[0]["pixels"], "15");

    QFile json(dir.filePath("out/tile_objects.json"));
    ASSERT_TRUE(json.open(QIODevice::ReadOnly));
    EXPECT_EQ(QJsonDocument::fromJson(json.readAll()).object()["kind"].toString(), "snapshot");
    const QImage image(dir.filePath("out/tile_decisions.png"));
    ASSERT_EQ(image.size(), QSize(Width, 100));
    EXPECT_EQ(image.pixel(5, 42), Leaf);
    EXPECT_EQ(image.pixel(4, 40), Leaf);
    EXPECT_EQ(image.pixel(0, 0), Background);

    // A snapshot model takes cubes of its own size only; references are for lines.
    ASSERT_TRUE(fixtures::writeFloatScan(dir.filePath("short"), ".bsq", Width, 50, 4, patch, "bsq"));
    const auto small = zelk({"run", model, dir.filePath("short.hdr")});
    EXPECT_EQ(small.status, 1);
    EXPECT_TRUE(small.err.contains("the model takes cubes of 8 x 100 pixels, the cube is 8 x 50")) << qPrintable(small.err);
    const auto info = zelk({"info", model});
    EXPECT_TRUE(info.out.contains("snapshot: one cube per call")) << qPrintable(info.out);
}

} // namespace
