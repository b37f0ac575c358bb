// Reflectance correction: the state of a reference pair, its validity, and its
// application to scans of every layout, with the references found beside a scan.

#include "classify/resampler.h"
#include "modelwriter/compressed_cube_writer.h"
#include "spectral/correction.h"
#include "spectral/image_family.h"
#include "spectral_fixtures.h"

#include <gtest/gtest.h>

using fixtures::cube;
using fixtures::sample;

namespace {

std::unique_ptr<ZelkSpectralCube> scanOf(int columns, int lines, int bands)
{
    return cube(DataUInt16, LayoutBIL, columns, lines, bands, [](int c, int l, int b) { return 100 + c + 10 * l + 3 * b; });
}

std::unique_ptr<ZelkSpectralCube> reference(quint32 layout, int columns, int lines, int bands, double level)
{
    return cube(DataFloat, layout, columns, lines, bands, [=](int c, int l, int b) { return level + c + 2 * l + b; });
}

std::unique_ptr<ZelkCorrection> pair(std::unique_ptr<ZelkSpectralCube> white, std::unique_ptr<ZelkSpectralCube> dark)
{
    auto c = std::make_unique<ZelkCorrection>();
    c->white = std::move(white);
    c->dark = std::move(dark);
    return c;
}

} // namespace

TEST(CorrectionState, FollowsTheReferencesAndTheScan)
{
    const auto scan = scanOf(6, 4, 3);
    // Neither reference: no correction. One of them: not set.
    ZelkCorrection none;
    EXPECT_EQ(none.deriveState(*scan), 0);
    EXPECT_EQ(none.state, ZelkCorrection::NoCorrection);
    auto whiteOnly = pair(reference(LayoutBIP, 1, 1, 3, 900), nullptr);
    EXPECT_EQ(whiteOnly->deriveState(*scan), -1);
    EXPECT_EQ(whiteOnly->state, -1);
    EXPECT_EQ(whiteOnly->isValid(1), -4202);

    // A one-pixel pair is a point, whatever the scan's size.
    auto point = pair(reference(LayoutBIP, 1, 1, 3, 900), reference(LayoutBIP, 1, 1, 3, 10));
    EXPECT_EQ(point->deriveState(*scanOf(50, 70, 3)), 0);
    EXPECT_EQ(point->state, ZelkCorrection::Point);

    // One line of the scan's width in the same layout is a frame.
    for (quint32 layout : {LayoutBIL, LayoutBIP}) {
        auto frame = pair(reference(layout, 6, 1, 3, 900), reference(layout, 6, 1, 3, 10));
        EXPECT_EQ(frame->deriveState(*scan), 0);
        EXPECT_EQ(frame->state, ZelkCorrection::Frame);
    }
    // Mixed layouts fall through to the lines: they only fit a scan of one line.
    auto mixed = pair(reference(LayoutBIL, 6, 1, 3, 900), reference(LayoutBIP, 6, 1, 3, 10));
    EXPECT_EQ(mixed->deriveState(*scan), 4); // the scan's lines, not an error code
    EXPECT_EQ(mixed->state, -1);
    EXPECT_EQ(mixed->deriveState(*scanOf(6, 1, 3)), 0);
    EXPECT_EQ(mixed->state, ZelkCorrection::Cube);

    // Another width leaves the state where it was and gives the scan's columns.
    auto narrow = pair(reference(LayoutBIL, 5, 1, 3, 900), reference(LayoutBIL, 5, 1, 3, 10));
    EXPECT_EQ(narrow->deriveState(*scan), 6);
    EXPECT_EQ(narrow->state, -1);

    auto full = pair(reference(LayoutBIP, 6, 4, 3, 900), reference(LayoutBIP, 6, 4, 3, 10));
    EXPECT_EQ(full->deriveState(*scan), 0);
    EXPECT_EQ(full->state, ZelkCorrection::Cube);
}

TEST(CorrectionState, BandCountsMustMatchTheScan)
{
    const auto scan = scanOf(6, 4, 3);
    auto shortWhite = pair(reference(LayoutBIP, 1, 1, 2, 900), reference(LayoutBIP, 1, 1, 3, 10));
    EXPECT_EQ(shortWhite->deriveState(*scan), -4206);
    EXPECT_EQ(shortWhite->state, -1);
    EXPECT_EQ(shortWhite->lastMessage, "-4206: White ref has different band count (2) than the cube (3)");
    auto longDark = pair(reference(LayoutBIP, 1, 1, 3, 900), reference(LayoutBIP, 1, 1, 4, 10));
    EXPECT_EQ(longDark->deriveState(*scan), -4206);
    EXPECT_EQ(longDark->lastMessage, "-4206: Dark ref has different band count (4) than the cube (3)");
}

TEST(CorrectionValidity, EveryOutcomeHasItsCodeAndText)
{
    auto check = [](ZelkCorrection& c, int mode, int code, const char* text) {
        EXPECT_EQ(c.isValid(mode), code);
        EXPECT_EQ(c.lastError, code);
        EXPECT_EQ(c.lastMessage, QStringLiteral("%1: %2").arg(code).arg(QLatin1String(text)));
    };
    auto point = pair(reference(LayoutBIP, 1, 1, 3, 900), reference(LayoutBIP, 1, 1, 3, 10));
    point->state = ZelkCorrection::Point;
    check(*point, -1, -4201, "Unknown correction algorithm");
    check(*point, 1, 0, "Valid correction state (point)");
    check(*point, 2, -4203, "Invalid correction"); // only algorithm 1 exists

    ZelkCorrection none;
    check(none, 1, -4202, "Correction state not set");
    none.state = ZelkCorrection::NoCorrection;
    check(none, 1, 0, "Valid correction state (no correction)");

    auto frame = pair(reference(LayoutBIL, 6, 1, 3, 900), reference(LayoutBIL, 6, 1, 3, 10));
    frame->state = ZelkCorrection::Frame;
    check(*frame, 1, 0, "Valid correction state (frame)");
    auto oneColumn = pair(reference(LayoutBIL, 1, 1, 3, 900), reference(LayoutBIL, 6, 1, 3, 10));
    oneColumn->state = ZelkCorrection::Frame;
    check(*oneColumn, 1, -4203, "Invalid correction");

    auto full = pair(reference(LayoutBIP, 6, 4, 3, 900), reference(LayoutBIP, 6, 4, 3, 10));
    full->state = ZelkCorrection::Cube;
    check(*full, 1, 0, "Valid correction state (cube)");
    full->state = ZelkCorrection::Frame; // a cube pair does not pass for a frame
    check(*full, 1, -4203, "Invalid correction");

    auto bands = pair(reference(LayoutBIP, 1, 1, 3, 900), reference(LayoutBIP, 1, 1, 4, 10));
    bands->state = ZelkCorrection::Point;
    check(*bands, 1, -4204, "White and dark references have different band count");
}

TEST(CorrectionLevels, FlattenTheReferencesInEitherOrder)
{
    // A frame pair of 2 columns and 3 bands, BIL: white = 900 + c + b, dark = 10 + c + b.
    auto c = pair(reference(LayoutBIL, 2, 1, 3, 900), reference(LayoutBIL, 2, 1, 3, 10));
    c->whiteLevel = 0.5f;
    QVector<float> dark, gain;
    c->levels(2, 1, false, &dark, &gain);
    ASSERT_EQ(dark.size(), 6);
    ASSERT_EQ(gain.size(), 6);
    // Band fastest: pixel 1, band 2 stands at 1 * 3 + 2.
    EXPECT_FLOAT_EQ(dark[5], 13.0f);
    EXPECT_FLOAT_EQ(dark[1], 11.0f);
    EXPECT_FLOAT_EQ(gain[5], 0.5f / (903.0f - 13.0f));
    // Pixel fastest: band 2, pixel 1 stands at 2 * 2 + 1.
    c->levels(2, 1, true, &dark, &gain);
    EXPECT_FLOAT_EQ(dark[5], 13.0f);
    EXPECT_FLOAT_EQ(dark[1], 11.0f);
    EXPECT_FLOAT_EQ(dark[2], 11.0f); // band 1 of pixel 0
    EXPECT_FLOAT_EQ(gain[2], 0.5f / (901.0f - 11.0f));
}

TEST(CorrectionLevels, RefuseReferencesTheyCannotRead)
{
    QString message;
    auto usable = pair(reference(LayoutBIL, 2, 1, 3, 900), reference(LayoutBIL, 2, 1, 3, 10));
    usable->state = ZelkCorrection::Frame;
    EXPECT_EQ(usable->checkReferences(&message), 0);

    // A cube correction reads its references in BIP order.
    auto cubeInBil = pair(reference(LayoutBIP, 2, 2, 3, 900), reference(LayoutBIL, 2, 2, 3, 10));
    cubeInBil->state = ZelkCorrection::Cube;
    EXPECT_EQ(cubeInBil->checkReferences(&message), -4305);
    EXPECT_EQ(message.toStdString(), "BIP cube reference expected, got 2");

    auto bytes = pair(reference(LayoutBIL, 2, 1, 3, 900), cube(DataUInt8, LayoutBIL, 2, 1, 3, [](int, int, int) { return 1; }));
    bytes->state = ZelkCorrection::Frame;
    EXPECT_EQ(bytes->checkReferences(&message), -4306);
    EXPECT_EQ(message.toStdString(), "Dark cube reference should have float data type, got 3");
}

TEST(CorrectionInfo, LongPathsKeepTheirEnd)
{
    EXPECT_EQ(correction::loadedFrom("/a/b.trf"), "Loaded from /a/b.trf");
    EXPECT_EQ(correction::loadedFrom("/a/very/long/path/to/a/scan/with/references.trf"), "Loaded from .../to/a/scan/with/references.trf");
}

// ---------------------------------------------------------------------------------------
// Application to a cube.

namespace {

struct Shape {
    int columns, lines, bands;
};

// Installs a correction of the state with references made for the shape, and checks the
// corrected scan against r = v (x - d) / (w - d) at every sample.
void expectCorrected(ZelkCorrection::State state, quint32 refLayout, quint32 refType, quint32 type, quint32 layout, Shape s)
{
    SCOPED_TRACE(testing::Message() << "state " << state << " ref layout " << refLayout << " type " << type << " layout " << layout);
    const int refColumns = state == ZelkCorrection::Point ? 1 : s.columns;
    const int refLines = state == ZelkCorrection::Cube ? s.lines : 1;
    auto whiteValue = [](int c, int l, int b) { return 3000 + 7 * c + 5 * l + 11 * b; };
    auto darkValue = [](int c, int l, int b) { return 40 + c + 2 * l + b; };
    auto x = [](int c, int l, int b) { return 500 + 13 * c + 17 * l + 19 * b; };

    ZelkImageTessaron image("scan");
    auto c = pair(cube(refType, refLayout, refColumns, refLines, s.bands, whiteValue),
                  cube(refType, refLayout, refColumns, refLines, s.bands, darkValue));
    c->state = state;
    image.setCorrection(std::move(c));
    auto scan = cube(type, layout, s.columns, s.lines, s.bands, x);
    ASSERT_EQ(image.correctCube(*scan, 1), 0) << image.imageErrorMsg.toStdString();
    ASSERT_EQ(scan->dataType, quint32(DataFloat));
    ASSERT_EQ(scan->layout, quint32(LayoutBIP));
    for (int l = 0; l < s.lines; ++l)
        for (int col = 0; col < s.columns; ++col)
            for (int b = 0; b < s.bands; ++b) {
                const int rc = refColumns > 1 ? col : 0, rl = refLines > 1 ? l : 0;
                const float expected = fixtures::reflectance(0.95f, float(x(col, l, b)), float(whiteValue(rc, rl, b)), float(darkValue(rc, rl, b)));
                ASSERT_FLOAT_EQ(float(sample(*scan, col, l, b)), expected) << col << "," << l << "," << b;
            }
}

} // namespace

TEST(CorrectCube, MatchesThePlainFormulaForEveryStateAndLayout)
{
    const Shape shape{5, 3, 4};
    const std::pair<quint32, quint32> inputs[] = {{DataUInt16, LayoutBIP}, {DataUInt16, LayoutBIL}, {DataUInt16, LayoutBSQ},
                                                  {DataFloat, LayoutBIP},  {DataFloat, LayoutBSQ}};
    for (auto [type, layout] : inputs) {
        expectCorrected(ZelkCorrection::Point, LayoutBIP, DataFloat, type, layout, shape);
        expectCorrected(ZelkCorrection::Frame, LayoutBIL, DataUInt16, type, layout, shape);
        expectCorrected(ZelkCorrection::Frame, LayoutBIP, DataFloat, type, layout, shape);
        expectCorrected(ZelkCorrection::Cube, LayoutBIP, DataFloat, type, layout, shape);
        expectCorrected(ZelkCorrection::Cube, LayoutBIP, DataUInt16, type, layout, shape);
    }
    // A float BIL scan is corrected when its columns equal its bands.
    for (auto state : {ZelkCorrection::Point, ZelkCorrection::Frame, ZelkCorrection::Cube})
        expectCorrected(state, LayoutBIP, DataFloat, DataFloat, LayoutBIL, {4, 3, 4});
}

TEST(CorrectCube, StateZeroLeavesTheScanInCounts)
{
    ZelkImageTessaron image("scan");
    auto c = std::make_unique<ZelkCorrection>();
    c->state = ZelkCorrection::NoCorrection;
    image.setCorrection(std::move(c));
    auto scan = scanOf(4, 2, 3);
    EXPECT_EQ(image.correctCube(*scan, 1), 0);
    EXPECT_EQ(scan->dataType, quint32(DataUInt16));
    EXPECT_EQ(scan->layout, quint32(LayoutBIL));
    EXPECT_EQ(sample(*scan, 3, 1, 2), 100 + 3 + 10 + 6);
}

TEST(CorrectCube, RefusesWhatItCannotApplyAndLeavesTheScan)
{
    auto failure = [](std::unique_ptr<ZelkCorrection> c, std::unique_ptr<ZelkSpectralCube> scan, int code, const char* text) {
        ZelkImageTessaron image("scan");
        if (c)
            image.setCorrection(std::move(c));
        const quint32 type = scan->dataType, layout = scan->layout;
        const double first = scan->sampleCount() ? sample(*scan, 0, 0, 0) : 0;
        EXPECT_EQ(image.correctCube(*scan, 1), code) << text;
        EXPECT_EQ(image.imageError, code);
        EXPECT_EQ(image.imageErrorMsg, QStringLiteral("%1: %2").arg(code).arg(QLatin1String(text)));
        EXPECT_EQ(scan->dataType, type);
        EXPECT_EQ(scan->layout, layout);
        if (scan->sampleCount())
            EXPECT_EQ(sample(*scan, 0, 0, 0), first);
    };
    auto frame = [](quint32 layout, quint32 type, int columns, int bands) {
        auto c = pair(cube(type, layout, columns, 1, bands, [](int, int, int) { return 900; }),
                      cube(type, layout, columns, 1, bands, [](int, int, int) { return 10; }));
        c->state = ZelkCorrection::Frame;
        return c;
    };
    failure(nullptr, scanOf(4, 2, 3), -4304, "Invalid correction information");
    auto unset = std::make_unique<ZelkCorrection>();
    failure(std::move(unset), scanOf(4, 2, 3), -4304, "Invalid correction information");
    auto oneColumn = frame(LayoutBIL, DataFloat, 1, 3);
    oneColumn->state = ZelkCorrection::Frame; // a frame of one column is not valid
    failure(std::move(oneColumn), scanOf(4, 2, 3), -4302, "Correction not valid (1)");

    // A BIL cube pair (-4305) and a white cube of bytes (-4306) are refused in
    // api_correction_test.cpp with the same texts.
    auto byteDark = pair(reference(LayoutBIP, 4, 2, 3, 900), cube(DataUInt8, LayoutBIP, 4, 2, 3, [](int, int, int) { return 2; }));
    byteDark->state = ZelkCorrection::Cube;
    failure(std::move(byteDark), scanOf(4, 2, 3), -4306, "Dark cube reference should have float data type, got 3");

    failure(frame(LayoutBIL, DataFloat, 4, 3), cube(DataUInt8, LayoutBIL, 4, 2, 3, [](int, int, int) { return 7; }), -1,
            "Unsupported data type in trf file correction (got 3)");
    failure(frame(LayoutBIL, DataFloat, 4, 3), cube(DataFloat, LayoutBIL, 4, 2, 3, [](int, int, int) { return 7; }), -4307,
            "Float BIL cube must have as many columns as bands (got 4 columns, 3 bands)");
    // References made for another scan do not reach past their buffers.
    failure(frame(LayoutBIL, DataFloat, 4, 3), scanOf(9, 2, 3), -4308, "Correction references do not fit the cube (9 columns, 2 lines, 3 bands)");
}

TEST(CorrectCube, AnUnknownLayoutIsLeftAlone)
{
    ZelkImageTessaron image("scan");
    auto c = pair(reference(LayoutBIP, 1, 1, 3, 900), reference(LayoutBIP, 1, 1, 3, 10));
    c->state = ZelkCorrection::Point;
    image.setCorrection(std::move(c));
    auto scan = scanOf(4, 2, 3);
    scan->layout = 0;
    EXPECT_EQ(image.correctCube(*scan, 1), 0);
    EXPECT_EQ(scan->dataType, quint32(DataUInt16));
}

TEST(CorrectCube, AFailedCallKeepsTheCorrectionUsable)
{
    ZelkImageTessaron image("scan");
    auto c = pair(reference(LayoutBIP, 1, 1, 3, 900), reference(LayoutBIP, 1, 1, 3, 10));
    c->state = ZelkCorrection::Point;
    image.setCorrection(std::move(c));
    auto bad = cube(DataUInt8, LayoutBIP, 2, 2, 3, [](int, int, int) { return 1; });
    EXPECT_EQ(image.correctCube(*bad, 1), -1);
    auto good = scanOf(2, 2, 3);
    EXPECT_EQ(image.correctCube(*good, 1), 0);
    EXPECT_FLOAT_EQ(float(sample(*good, 1, 1, 2)), fixtures::reflectance(0.95f, 100 + 1 + 10 + 6, 902, 12));
}

TEST(MaskCube, ZeroesTheSpectraOutsideTheMask)
{
    ZelkImageTessaron image("scan");
    image.maskImage = QImage(3, 2, QImage::Format_Indexed8);
    image.maskImage.setColorCount(256);
    const int mask[2][3] = {{1, 0, 5}, {0, 0, 9}};
    for (int y = 0; y < 2; ++y)
        for (int x = 0; x < 3; ++x)
            image.maskImage.setPixel(x, y, uint(mask[y][x]));
    auto scan = cube(DataFloat, LayoutBIP, 3, 2, 4, [](int c, int l, int b) { return 1 + c + 3 * l + 10 * b; });
    ASSERT_EQ(image.maskCube(*scan), 0);
    for (int y = 0; y < 2; ++y)
        for (int x = 0; x < 3; ++x)
            for (int b = 0; b < 4; ++b)
                EXPECT_EQ(sample(*scan, x, y, b), mask[y][x] ? 1 + x + 3 * y + 10 * b : 0);

    auto counts = scanOf(3, 2, 4);
    EXPECT_EQ(image.maskCube(*counts), -1);
    EXPECT_EQ(image.imageErrorMsg, "-1: Cube is required to be BIP float, got 2,1.");
    auto other = cube(DataFloat, LayoutBIP, 4, 2, 4, [](int, int, int) { return 1; });
    EXPECT_EQ(image.maskCube(*other), -1); // a mask of another size is not applied
    EXPECT_EQ(sample(*other, 1, 0, 0), 1);
}

TEST(ResampleReferences, MovesAFramePairToTheTargetGrid)
{
    QVector<double> source{400, 500, 600}, target{450, 550};
    ZelkResampler resampler;
    ASSERT_EQ(resampler.init(4, ZelkBandSet(&source), ZelkBandSet(&target)), 0);

    ZelkImageTessaron image("scan");
    auto frame = [] {
        auto c = pair(cube(DataUInt16, LayoutBIL, 4, 1, 3, [](int c, int, int b) { return 1000 + 100 * b + c; }),
                      cube(DataUInt16, LayoutBIL, 4, 1, 3, [](int, int, int b) { return 10 + 2 * b; }));
        c->state = ZelkCorrection::Frame;
        return c;
    };
    image.setCorrection(frame());
    ASSERT_EQ(image.resampleReferences(resampler, 65536), 0);
    ASSERT_EQ(image.correction()->white->bands, 2);
    EXPECT_EQ(sample(*image.correction()->white, 2, 0, 0), 1052); // halfway between 1002 and 1102
    EXPECT_EQ(sample(*image.correction()->dark, 0, 0, 1), 13);

    // A point pair, or a resampler that is not ready, is refused.
    auto point = pair(reference(LayoutBIP, 1, 1, 3, 900), reference(LayoutBIP, 1, 1, 3, 10));
    point->state = ZelkCorrection::Point;
    image.setCorrection(std::move(point));
    EXPECT_EQ(image.resampleReferences(resampler, 65536), -1);
    image.setCorrection(frame());
    EXPECT_EQ(image.resampleReferences(ZelkResampler(), 65536), -1);

    // A pair of another width fails in the resampler and stays as it was.
    auto wide = pair(cube(DataUInt16, LayoutBIL, 6, 1, 3, [](int, int, int) { return 900; }),
                     cube(DataUInt16, LayoutBIL, 6, 1, 3, [](int, int, int) { return 9; }));
    wide->state = ZelkCorrection::Frame;
    image.setCorrection(std::move(wide));
    EXPECT_LT(image.resampleReferences(resampler, 65536), 0);
    EXPECT_EQ(image.correction()->white->bands, 3);
    EXPECT_EQ(image.correction()->dark->bands, 3);
}

// ---------------------------------------------------------------------------------------
// Finding the references of a ".trf" scan.

namespace {

auto counts = [](int c, int l, int b) { return 1000 + 10 * c + 100 * l + b; };

class TrfScans : public testing::Test {
protected:
    QString path(const QString& name) const { return dir.filePath(name); }
    // A scan of 4 columns, 3 lines, 2 bands; with spectra, they stand in its binary header.
    void writeScan(const QString& name, const QVector<float>& white = {}, const QVector<float>& dark = {})
    {
        modelwriter::EnviScan s;
        s.samples = 4, s.lines = 3, s.bands = 2, s.dataType = 12;
        s.data = modelwriter::uint16Bytes(fixtures::samplesOf<quint16>("bil", 4, 3, 2, counts));
        if (!white.isEmpty())
            s.binaryHeader = modelwriter::referenceHeader(white, dark);
        ASSERT_TRUE(modelwriter::writeEnviScan(path(name), ".trf", s));
    }
    void loadScan() { ASSERT_EQ(scan.load(path("scan"), ".hdr", ".trf", true), 0); }
    QTemporaryDir tmp;
    QDir dir{tmp.path()};
    ZelkImageTessaron image{"scan"};
    ZelkSpectralCube scan;
};

} // namespace

TEST_F(TrfScans, ReferencesInTheBinaryHeaderArePointSpectra)
{
    writeScan("scan", {3000, 3100}, {20, 30});
    loadScan();
    const auto c = image.loadCorrection(dir, scan);
    ASSERT_TRUE(c);
    EXPECT_EQ(c->source, ZelkCorrection::SourceScanHeader);
    EXPECT_EQ(c->state, ZelkCorrection::Point);
    EXPECT_EQ(c->whiteInfo, "Point spectrum");
    EXPECT_EQ(c->darkInfo, "Point spectrum");
    EXPECT_EQ(sample(*c->white, 0, 0, 1), 3100);
    EXPECT_EQ(sample(*c->dark, 0, 0, 0), 20); // the dark offset counts floats
    EXPECT_EQ(sample(*c->dark, 0, 0, 1), 30);
}

TEST_F(TrfScans, ScanReferencesAreReducedToOneLine)
{
    writeScan("scan");
    ASSERT_TRUE(fixtures::writeUInt16Scan(path("scan_whiteref"), ".trf", 4, 3, 2, [](int c, int l, int) { return 3000 + c + 2 * l; }));
    ASSERT_TRUE(fixtures::writeUInt16Scan(path("scan_darkref"), ".trf", 4, 2, 2, [](int, int l, int b) { return 10 + l + b; }));
    loadScan();
    const auto c = image.loadCorrection(dir, scan);
    ASSERT_TRUE(c);
    EXPECT_EQ(c->source, ZelkCorrection::SourceScanFiles);
    EXPECT_EQ(c->state, ZelkCorrection::Frame);
    EXPECT_EQ(c->white->lines, 1);
    EXPECT_EQ(sample(*c->white, 3, 0, 0), 3005); // mean of 3003, 3005, 3007
    EXPECT_EQ(sample(*c->dark, 0, 0, 1), 12);     // 11.5 rounded away from zero
    EXPECT_TRUE(c->whiteInfo.startsWith("Loaded from ..."));
    EXPECT_TRUE(c->whiteInfo.endsWith("scan_whiteref.trf"));
}

TEST_F(TrfScans, DirectoryReferencesComeLast)
{
    writeScan("scan");
    ASSERT_TRUE(fixtures::writeFloatScan(path("whiteref"), ".bin", 4, 1, 2, [](int, int, int) { return 3000; }, "bip"));
    ASSERT_TRUE(fixtures::writeFloatScan(path("darkref"), ".bin", 4, 1, 2, [](int, int, int) { return 50; }, "bip"));
    loadScan();
    auto c = image.loadCorrection(dir, scan);
    ASSERT_TRUE(c);
    EXPECT_EQ(c->source, ZelkCorrection::SourceDirectoryFiles);
    EXPECT_EQ(c->state, ZelkCorrection::Frame);

    // The scan-specific pair wins when it is complete.
    ASSERT_TRUE(fixtures::writeUInt16Scan(path("scan_whiteref"), ".trf", 4, 1, 2, [](int, int, int) { return 3000; }));
    ASSERT_TRUE(fixtures::writeUInt16Scan(path("scan_darkref"), ".trf", 4, 1, 2, [](int, int, int) { return 50; }));
    c = image.loadCorrection(dir, scan);
    ASSERT_TRUE(c);
    EXPECT_EQ(c->source, ZelkCorrection::SourceScanFiles);
}

TEST_F(TrfScans, MissingReferencesNameTheLastFailure)
{
    writeScan("scan");
    ASSERT_TRUE(fixtures::writeFloatScan(path("whiteref"), ".bin", 4, 1, 2, [](int, int, int) { return 3000; }));
    loadScan();

    // An installed correction survives a search that finds nothing.
    auto installed = pair(reference(LayoutBIP, 1, 1, 2, 900), reference(LayoutBIP, 1, 1, 2, 10));
    installed->state = ZelkCorrection::Point;
    ZelkCorrection* before = installed.get();
    image.setCorrection(std::move(installed));

    EXPECT_FALSE(image.loadCorrection(dir, scan));
    EXPECT_EQ(image.imageError, -3808);
    EXPECT_EQ(image.imageErrorMsg,
              QStringLiteral("-3808: Did not find scan-specific correction or directory-specific correction. Scan cannot be loaded "
                             "('-3804: Dark reference file 'darkref.hdr' not present (got '%1')')")
                  .arg(path("darkref.hdr")));
    EXPECT_EQ(image.correction(), before);

    EXPECT_FALSE(image.findScanCorrection(dir));
    EXPECT_EQ(image.imageErrorMsg, QStringLiteral("-3802: White reference file '%1' not found").arg(path("scan_whiteref.hdr")));
    ZelkImageTessaron missing("other");
    EXPECT_FALSE(missing.findDirectoryCorrection(dir));
    EXPECT_EQ(missing.imageErrorMsg, QStringLiteral("-3802: Scan not found (%1)").arg(path("other.hdr")));
    // A header without its data file cannot be loaded.
    ASSERT_TRUE(modelwriter::writeFile(path("scan_whiteref.hdr"), modelwriter::enviHeaderText({4, 1, 2, 12, "bil", {}, {}, {}})));
    EXPECT_FALSE(image.findScanCorrection(dir));
    EXPECT_EQ(image.imageError, -3803);
}

TEST_F(TrfScans, TheImageLoadsAndCorrectsItsScan)
{
    writeScan("scan", {3000, 3100}, {20, 30});
    ASSERT_EQ(image.readMetaData(tmp.path()), 0);
    EXPECT_FALSE(image.compressed);
    EXPECT_EQ(image.fullCubeBytes, 4 * 3 * 2 * 2);
    ASSERT_EQ(image.crop(1, 1, 2, 2), 0);
    const auto cube = image.loadCube(tmp.path());
    ASSERT_TRUE(cube);
    // Corrected at full size, then cut to the region.
    EXPECT_EQ(cube->columns, 2);
    EXPECT_EQ(cube->lines, 2);
    EXPECT_EQ(cube->layout, quint32(LayoutBIP));
    const float white[2] = {3000, 3100}, dark[2] = {20, 30};
    for (int l = 0; l < 2; ++l)
        for (int c = 0; c < 2; ++c)
            for (int b = 0; b < 2; ++b)
                EXPECT_FLOAT_EQ(float(sample(*cube, c, l, b)), fixtures::reflectance(0.95f, counts(c + 1, l + 1, b), white[b], dark[b]));
}

TEST_F(TrfScans, ACompressedScanIsCorrectedThenMasked)
{
    modelwriter::CompressedCube cc;
    cc.width = 3, cc.height = 2, cc.bands = 2;
    cc.mask = {1, 0, 1, 1, 1, 0};
    cc.samples = fixtures::samplesOf<quint16>("bil", 3, 2, 2, counts);
    ASSERT_TRUE(modelwriter::writeFile(path("scan.trz"), modelwriter::writeCompressedCube(cc)));
    ASSERT_TRUE(modelwriter::writeFile(path("scan.hdr"),
                                       "ENVI\nsamples = 3\nlines = 2\nbands = 2\ninterleave = bil\ndata type = 12\n"
                                       ";ZelkCompressedImage = 1\n;ZelkFullCubeSizeBytes = 24\n;ZelkCompressedImageSizeBytes = 90\n"));
    ASSERT_TRUE(fixtures::writeUInt16Scan(path("whiteref"), ".bin", 3, 1, 2, [](int, int, int) { return 4000; }, "bip"));
    ASSERT_TRUE(fixtures::writeUInt16Scan(path("darkref"), ".bin", 3, 1, 2, [](int, int, int) { return 100; }, "bip"));

    ASSERT_EQ(image.readMetaData(tmp.path()), 0);
    EXPECT_TRUE(image.compressed);
    EXPECT_EQ(image.fullCubeBytes, 24);
    EXPECT_EQ(image.storedCubeBytes, 90);
    const auto cube = image.loadCube(tmp.path());
    ASSERT_TRUE(cube);
    ASSERT_EQ(cube->dataType, quint32(DataFloat));
    for (int y = 0; y < 2; ++y)
        for (int x = 0; x < 3; ++x)
            for (int b = 0; b < 2; ++b) {
                const float expected = cc.mask[y * 3 + x] ? fixtures::reflectance(0.95f, counts(x, y, b), 4000, 100) : 0.0f;
                EXPECT_FLOAT_EQ(float(sample(*cube, x, y, b)), expected);
            }
}
