// Scan loaders of the image classes: each camera's file names, reference rules, failure
// texts, and the crop that comes last.

#include "spectral/image_family.h"
#include "spectral_fixtures.h"

#include <QFile>
#include <QImage>
#include <QtEndian>
#include <cmath>
#include <gtest/gtest.h>

using fixtures::sample;

namespace {

// Collects what an image displays and the progress it reports.
struct Listener {
    explicit Listener(ZelkImage& image)
    {
        QObject::connect(&image, &ZelkImage::displayMessage, [this](const QString& m) { messages.append(m); });
        QObject::connect(&image, &ZelkImage::progressChanged, [this](const QString& t, int v) { progress.append({t, v}); });
    }
    QStringList messages;
    QList<QPair<QString, int>> progress;
};

auto scanCounts = [](int c, int l, int b) { return 1000 + 7 * c + (l % 50) + 100 * b; };
auto whiteCounts = [](int c, int l, int b) { return 3000 + 11 * c + 5 * l + 50 * b; };
auto darkCounts = [](int c, int l, int b) { return 60 + c + 3 * l + b; };

class Scans : public testing::Test {
protected:
    QString path(const QString& name) const { return dir.filePath(name); }
    QTemporaryDir tmp;
    QDir dir{tmp.path()};
};

// (x - min dark) / (max white - min dark) over the lines of uint16 references.
float maxMin(float x, int column, int band, int whiteLines, int darkLines, float offset = 0)
{
    float w = 0, d = 1e9f;
    for (int l = 0; l < whiteLines; ++l)
        w = std::max(w, float(whiteCounts(column, l, band)));
    for (int l = 0; l < darkLines; ++l)
        d = std::min(d, float(darkCounts(column, l, band)));
    return (x - d) * (1.0f / (w - d + offset));
}

} // namespace

TEST_F(Scans, HeadwallAppliesBrightestWhiteAndDarkestDarkInBlocks)
{
    ASSERT_TRUE(fixtures::writeUInt16Scan(path("scan"), ".bin", 3, 250, 2, scanCounts));
    ASSERT_TRUE(fixtures::writeUInt16Scan(path("whiteReference"), ".bin", 3, 3, 2, whiteCounts));
    ASSERT_TRUE(fixtures::writeUInt16Scan(path("darkReference"), ".bin", 3, 2, 2, darkCounts));
    ZelkImageHeadwall image("scan");
    Listener listener(image);
    ASSERT_EQ(image.readMetaData(tmp.path()), 0);
    const auto cube = image.loadCube(tmp.path());
    ASSERT_TRUE(cube);
    EXPECT_FALSE(image.externallyCorrected);
    EXPECT_TRUE(image.references.white && image.references.dark);
    ASSERT_EQ(cube->dataType, quint32(DataFloat));
    ASSERT_EQ(cube->layout, quint32(LayoutBIP));
    for (int l : {0, 99, 100, 249})
        for (int c = 0; c < 3; ++c)
            for (int b = 0; b < 2; ++b)
                EXPECT_FLOAT_EQ(float(sample(*cube, c, l, b)), maxMin(scanCounts(c, l, b), c, b, 3, 2));
    // Blocks of 100, 100 and 50 lines.
    const QList<QPair<QString, int>> expected{
        {"Importing cube...", 0}, {"Importing cube...", 40}, {"Importing cube...", 80}, {"Importing cube...", 100}, {"Done.", 100}};
    EXPECT_EQ(listener.progress, expected);
}

TEST_F(Scans, ReferencesMeetTheScanBeforeTheCrop)
{
    ASSERT_TRUE(fixtures::writeUInt16Scan(path("scan"), ".bin", 4, 5, 2, scanCounts));
    ASSERT_TRUE(fixtures::writeUInt16Scan(path("whiteReference"), ".bin", 4, 1, 2, whiteCounts));
    ASSERT_TRUE(fixtures::writeUInt16Scan(path("darkReference"), ".bin", 4, 1, 2, darkCounts));
    ZelkImageHeadwall image("scan");
    ASSERT_EQ(image.readMetaData(tmp.path()), 0);
    ASSERT_EQ(image.crop(2, 1, 2, 3), 0);
    const auto cube = image.loadCube(tmp.path());
    ASSERT_TRUE(cube);
    ASSERT_EQ(cube->columns, 2);
    ASSERT_EQ(cube->lines, 3);
    // A one-line white is used as it is: the column of the full scan picks its value.
    EXPECT_FLOAT_EQ(float(sample(*cube, 1, 2, 1)), maxMin(scanCounts(3, 3, 1), 3, 1, 1, 1));
    // A region that does not fit the scan gives no cube.
    image.cropA = 3;
    EXPECT_FALSE(image.loadCube(tmp.path()));
}

TEST_F(Scans, HeadwallReportsMissingAndMismatchedReferences)
{
    ASSERT_TRUE(fixtures::writeUInt16Scan(path("scan"), ".bin", 3, 4, 2, scanCounts));
    ZelkImageHeadwall image("scan");
    Listener listener(image);
    auto loadExpecting = [&](int code, const QString& text) {
        listener.messages.clear();
        const auto cube = image.loadCube(tmp.path());
        ASSERT_TRUE(cube); // the scan is kept in counts
        EXPECT_EQ(cube->dataType, quint32(DataUInt16));
        EXPECT_EQ(image.references.errorCode, code);
        EXPECT_EQ(image.references.errorText, QStringLiteral("%1: %2").arg(code).arg(text));
        EXPECT_EQ(listener.messages.value(0),
                  QStringLiteral("<font color=\"red\"><b>Error %1 when loading image: %1</b></font>\n %1: %2").arg(code).arg(text));
    };
    loadExpecting(-3802, QStringLiteral("White reference file 'whiteReference.hdr' not present (got '%1')").arg(path("whiteReference.hdr")));
    ASSERT_TRUE(fixtures::writeUInt16Scan(path("whiteReference"), ".bin", 3, 2, 2, whiteCounts));
    loadExpecting(-3804, QStringLiteral("Dark reference file 'darkReference.hdr' not present (got '%1')").arg(path("darkReference.hdr")));
    ASSERT_TRUE(modelwriter::writeFile(path("darkReference.hdr"), modelwriter::enviHeaderText({3, 2, 2, 12, "bil", {}, {}, {}})));
    loadExpecting(-3805, QStringLiteral("Cannot load dark reference file ('%1')").arg(path("darkReference")));
    ASSERT_TRUE(fixtures::writeUInt16Scan(path("darkReference"), ".bin", 3, 2, 2, darkCounts, "bip"));
    loadExpecting(-3806, "Unsupported data layout or data type for correction (BIL and uint16 are required)");
    ASSERT_TRUE(fixtures::writeUInt16Scan(path("darkReference"), ".bin", 2, 2, 2, darkCounts));
    loadExpecting(-3807, "Scan and correction scans must have identical width and band count.");
    EXPECT_FALSE(image.references.white || image.references.dark);
    ASSERT_TRUE(fixtures::writeFloatScan(path("darkReference"), ".bin", 3, 2, 2, darkCounts));
    loadExpecting(-3809, "A float reference must have one line (white 2, dark 2 lines)");

    ZelkSpectralCube scan;
    EXPECT_EQ(image.correct(scan, path("nothing")), -3801);
    EXPECT_EQ(image.references.errorText, QStringLiteral("-3801: Scan header file not found '%1'").arg(path("nothing.hdr")));
}

TEST_F(Scans, FloatReferencesAreUsedAsTheyStand)
{
    ASSERT_TRUE(fixtures::writeUInt16Scan(path("scan"), ".bin", 3, 4, 2, scanCounts));
    ASSERT_TRUE(fixtures::writeFloatScan(path("whiteReference"), ".bin", 3, 1, 2, [](int, int, int) { return 2500.5; }));
    ASSERT_TRUE(fixtures::writeUInt16Scan(path("darkReference"), ".bin", 3, 1, 2, [](int, int, int) { return 500; }));
    ZelkImageHeadwall image("scan");
    const auto cube = image.loadCube(tmp.path());
    ASSERT_TRUE(cube);
    EXPECT_FLOAT_EQ(float(sample(*cube, 2, 3, 1)), (float(scanCounts(2, 3, 1)) - 500.0f) * (1.0f / 2000.5f));
}

TEST_F(Scans, HeadwallTakesOtherDataTypesAsCorrected)
{
    ZelkImageHeadwall image("scan");
    Listener listener(image);
    ASSERT_TRUE(fixtures::writeFloatScan(path("scan"), ".bin", 3, 2, 2, scanCounts));
    auto cube = image.loadCube(tmp.path());
    ASSERT_TRUE(cube);
    EXPECT_TRUE(image.externallyCorrected);
    EXPECT_TRUE(listener.messages.isEmpty());

    modelwriter::EnviScan bytes{3, 2, 2, 1, "bil", QByteArray(12, 7), {}, {}};
    ASSERT_TRUE(modelwriter::writeEnviScan(path("scan"), ".bin", bytes));
    image.externallyCorrected = false;
    cube = image.loadCube(tmp.path());
    ASSERT_TRUE(cube);
    EXPECT_EQ(cube->dataType, quint32(DataUInt8));
    EXPECT_TRUE(image.externallyCorrected);
    EXPECT_EQ(listener.messages, QStringList{"<font color=\"yellow\"><b>Warning: UINT16 or float data type expected. Cube considered as externally corrected.</b></font>"});
}

TEST_F(Scans, ReferenceScansAreNotImages)
{
    ZelkImageHeadwall white("run/whiteReference"), lower("run/whitereference");
    Listener listener(white);
    EXPECT_FALSE(white.loadCube(tmp.path()));
    EXPECT_EQ(listener.messages, QStringList{"<font color=\"red\"><b>To open correction files, use ENVI project type.</b></font>"});
    Listener other(lower); // the comparison keeps case: this one is looked for as a scan
    EXPECT_FALSE(lower.loadCube(tmp.path()));
    EXPECT_TRUE(other.messages.value(0).startsWith("<font color=\"red\"><b>Error loading image run/whitereference:</b></font>\n "));
    ZelkImageResonon resonon("Dark Correction");
    Listener r(resonon);
    EXPECT_FALSE(resonon.loadCube(tmp.path()));
    EXPECT_EQ(r.messages.value(0), "<font color=\"red\"><b>To open correction files, use ENVI project type.</b></font>");
    ZelkImageInnospec innospec("a_darkref");
    Listener i(innospec);
    EXPECT_FALSE(innospec.loadCube(tmp.path()));
    EXPECT_EQ(i.messages.size(), 1);
}

TEST_F(Scans, ResononReadsItsCorrectionFilesBesideTheScan)
{
    ASSERT_TRUE(fixtures::writeUInt16Scan(path("scan"), ".bin", 3, 4, 2, scanCounts));
    ZelkImageResonon image("scan");
    ASSERT_TRUE(image.loadCube(tmp.path()));
    EXPECT_EQ(image.references.errorText,
              QStringLiteral("-3802: White reference file 'Response correction.bil.hdr' not present (got '%1')").arg(path("Response Correction.bil.hdr")));
    ASSERT_TRUE(fixtures::writeUInt16Scan(path("Response Correction.bil"), "", 3, 2, 2, whiteCounts));
    ASSERT_TRUE(image.loadCube(tmp.path()));
    EXPECT_EQ(image.references.errorText,
              QStringLiteral("-3804: Dark reference file 'Dark Correction.bil.hdr' not present (got '%1')").arg(path("Dark Correction.bil.hdr")));
    ASSERT_TRUE(fixtures::writeUInt16Scan(path("Dark Correction.bil"), "", 3, 2, 2, darkCounts));
    const auto cube = image.loadCube(tmp.path());
    ASSERT_TRUE(cube);
    EXPECT_FLOAT_EQ(float(sample(*cube, 1, 3, 1)), maxMin(scanCounts(1, 3, 1), 1, 1, 2, 2));
}

TEST_F(Scans, InnospecPrefersReferencesNamedAfterTheScan)
{
    ASSERT_TRUE(fixtures::writeUInt16Scan(path("scan"), ".bin", 3, 4, 2, scanCounts));
    ZelkImageInnospec image("scan");
    Listener listener(image);
    ASSERT_TRUE(image.loadCube(tmp.path()));
    EXPECT_EQ(image.references.errorCode, -3808);
    EXPECT_EQ(image.references.errorText,
              QStringLiteral("-3808: Did not find scan-specific correction or directory-specific correction. Scan cannot be loaded "
                             "('-3802: White reference file 'whiteref.hdr' not present (got '%1')')")
                  .arg(path("whiteref.hdr")));
    EXPECT_TRUE(listener.messages.value(0).startsWith("<font color=\"red\"><b>Error -3808 when loading image: scan</b></font>\n -3808: "));

    // Directory references, with the second name of each pair.
    ASSERT_TRUE(fixtures::writeUInt16Scan(path("White"), ".bin", 3, 1, 2, whiteCounts));
    ASSERT_TRUE(fixtures::writeUInt16Scan(path("darkref"), ".bin", 3, 1, 2, darkCounts));
    auto cube = image.loadCube(tmp.path());
    ASSERT_TRUE(cube);
    EXPECT_FALSE(image.references.scanSpecific);
    EXPECT_FLOAT_EQ(float(sample(*cube, 2, 1, 0)), maxMin(scanCounts(2, 1, 0), 2, 0, 1, 1, 1e-06f));

    // A complete pair named after the scan wins.
    ASSERT_TRUE(fixtures::writeUInt16Scan(path("scan_whiteref"), ".bin", 3, 1, 2, [](int, int, int) { return 4000; }));
    ASSERT_TRUE(fixtures::writeUInt16Scan(path("scan_Dark"), ".bin", 3, 1, 2, [](int, int, int) { return 40; }));
    cube = image.loadCube(tmp.path());
    ASSERT_TRUE(cube);
    EXPECT_TRUE(image.references.scanSpecific);
    EXPECT_FLOAT_EQ(float(sample(*cube, 0, 0, 0)), (float(scanCounts(0, 0, 0)) - 40.0f) * (1.0f / (3960.0f + 1e-06f)));
}

TEST_F(Scans, InnospecSurvivesADeadPixelAndAcceptsBip)
{
    ASSERT_TRUE(fixtures::writeUInt16Scan(path("scan"), ".bin", 2, 2, 2, scanCounts, "bip"));
    ASSERT_TRUE(fixtures::writeUInt16Scan(path("scan_whiteref"), ".bin", 2, 1, 2, [](int c, int, int) { return c == 0 ? 500 : 3000; }, "bip"));
    ASSERT_TRUE(fixtures::writeUInt16Scan(path("scan_darkref"), ".bin", 2, 1, 2, [](int, int, int) { return 500; }, "bip"));
    ZelkImageInnospec image("scan");
    const auto cube = image.loadCube(tmp.path());
    ASSERT_TRUE(cube);
    ASSERT_EQ(image.references.errorCode, 0);
    // White equal to dark: a gain of 1 / 1e-06, not infinity.
    EXPECT_FLOAT_EQ(float(sample(*cube, 0, 1, 1)), (float(scanCounts(0, 1, 1)) - 500.0f) * 1000000.0f);
    EXPECT_FLOAT_EQ(float(sample(*cube, 1, 1, 1)), (float(scanCounts(1, 1, 1)) - 500.0f) * (1.0f / (2500.0f + 1e-06f)));

    // Headwall keeps to BIL.
    ASSERT_TRUE(fixtures::writeUInt16Scan(path("whiteReference"), ".bin", 2, 1, 2, whiteCounts, "bip"));
    ASSERT_TRUE(fixtures::writeUInt16Scan(path("darkReference"), ".bin", 2, 1, 2, darkCounts, "bip"));
    ZelkImageHeadwall headwall("scan");
    ASSERT_TRUE(headwall.loadCube(tmp.path()));
    EXPECT_EQ(headwall.references.errorCode, -3806);
}

// ---------------------------------------------------------------------------------------

TEST_F(Scans, SpecimUsesTheMeanOfItsCaptureReferences)
{
    ASSERT_TRUE(dir.mkpath("scan/capture"));
    const QString capture = path("scan/capture/");
    ASSERT_TRUE(fixtures::writeUInt16Scan(capture + "scan", ".raw", 3, 4, 2, scanCounts));
    ASSERT_TRUE(fixtures::writeUInt16Scan(capture + "DARKREF_scan", ".raw", 3, 2, 2, [](int c, int l, int) { return 100 + c + l; }));
    // A float white that lies below the dark in column 2: the absolute value applies.
    ASSERT_TRUE(fixtures::writeFloatScan(capture + "WHITEREF_scan", ".raw", 3, 2, 2, [](int c, int l, int) { return c == 2 ? 50.0 + l : 2000.0 + l; }));
    ZelkImageSpecim image("scan");
    Listener listener(image);
    ASSERT_EQ(image.readMetaData(tmp.path()), 0);
    EXPECT_EQ(listener.messages.last(),
              QStringLiteral("Image \"scan\" added (\"%1\") width=3 height=4 bands=2").arg(capture + "scan.hdr"));
    const auto cube = image.loadCube(tmp.path());
    ASSERT_TRUE(cube);
    const float d0 = 100.5f, w0 = 2000.5f, d2 = 102.5f, w2 = 50.5f;
    EXPECT_FLOAT_EQ(float(sample(*cube, 0, 3, 1)), std::fabs(float(scanCounts(0, 3, 1)) - d0) * (1.0f / std::fabs(w0 - d0)));
    EXPECT_FLOAT_EQ(float(sample(*cube, 2, 1, 0)), std::fabs(float(scanCounts(2, 1, 0)) - d2) * (1.0f / std::fabs(w2 - d2)));

    // A reference of another data type is a failed read, reported by nothing.
    modelwriter::EnviScan ints{3, 2, 2, 2, "bil", QByteArray(24, 1), {}, {}};
    ASSERT_TRUE(modelwriter::writeEnviScan(capture + "DARKREF_scan", ".raw", ints));
    listener.messages.clear();
    EXPECT_FALSE(image.loadCube(tmp.path()));
    EXPECT_TRUE(listener.messages.isEmpty());
    // A reference file shorter than its header is refused too.
    ASSERT_TRUE(fixtures::writeUInt16Scan(capture + "DARKREF_scan", ".raw", 2, 2, 2, darkCounts));
    EXPECT_FALSE(image.loadReference(tmp.path(), "DARKREF_", 3, 2));

    ZelkImageSpecim missing("none");
    Listener m(missing);
    EXPECT_FALSE(missing.loadCube(tmp.path()));
    EXPECT_TRUE(m.messages.value(0).startsWith("<font color=\"red\"><b>Error loading image:</b></font>\n Cannot load meta-data file"));
}

// ---------------------------------------------------------------------------------------

namespace {

bool writeBand(const QString& file, int width, int height, int seed, bool sixteenBit)
{
    QImage picture(width, height, sixteenBit ? QImage::Format_Grayscale16 : QImage::Format_Grayscale8);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            const int v = seed + 3 * x + 5 * y;
            if (sixteenBit)
                reinterpret_cast<quint16*>(picture.scanLine(y))[x] = quint16(v);
            else
                picture.scanLine(y)[x] = uchar(v);
        }
    return picture.save(file, "TIFF");
}

} // namespace

TEST_F(Scans, TiffStackReadsOneImagePerBand)
{
    ASSERT_TRUE(dir.mkdir("stack"));
    ASSERT_TRUE(writeBand(path("stack/stack_ch_0001_w_450.tif"), 4, 3, 1000, true));
    ASSERT_TRUE(writeBand(path("stack/stack_ch_0002_w_500.tif"), 4, 3, 2000, true));
    ASSERT_TRUE(writeBand(path("stack/stack_ch_0003_w_550.tiff"), 4, 3, 20, false));
    ZelkImageTiffStack image("stack");
    Listener listener(image);
    const auto cube = image.loadCube(tmp.path());
    ASSERT_TRUE(cube);
    EXPECT_EQ(cube->layout, quint32(LayoutBSQ));
    EXPECT_EQ(cube->dataType, quint32(DataUInt16));
    ASSERT_EQ(cube->bands, 3);
    EXPECT_EQ(sample(*cube, 3, 2, 0), 1000 + 9 + 10);
    EXPECT_EQ(sample(*cube, 1, 1, 1), 2000 + 3 + 5);
    EXPECT_EQ(sample(*cube, 2, 0, 2), 26);
    // More than round(3 * 5 / 100) = 0 bands between two reports: after every band.
    const QList<QPair<QString, int>> expected{
        {"Importing cube...", 0}, {"Importing cube...", 33}, {"Importing cube...", 67}, {"Importing cube...", 100}};
    EXPECT_EQ(listener.progress, expected);

    // Its meta-data: the size of the first band, the wavelengths from the names; the
    // third band's ".tiff" has no wavelength for the pattern.
    EXPECT_EQ(image.readMetaData(tmp.path()), -1);
    EXPECT_EQ(image.imageErrorMsg, QStringLiteral("-1: Cannot read wavelength from band image '%1'").arg(path("stack/stack_ch_0003_w_550.tiff")));
    ASSERT_TRUE(QFile::rename(path("stack/stack_ch_0003_w_550.tiff"), path("stack/stack_ch_0003_w_550.tif")));
    ASSERT_EQ(image.readMetaData(tmp.path()), 0);
    EXPECT_EQ(image.width, 4);
    EXPECT_EQ(image.height, 3);
    EXPECT_EQ(*image.wavelengths, (QVector<double>{450, 500, 550}));

    ASSERT_TRUE(QFile::rename(path("stack/stack_ch_0002_w_500.tif"), path("stack/stack_ch_0005_w_500.tif")));
    EXPECT_FALSE(image.loadCube(tmp.path()));
    EXPECT_EQ(listener.messages.last(), QStringLiteral("Band image not found: %1").arg(path("stack/stack_ch_0002_w_*.tif*")));
    EXPECT_EQ(image.readMetaData(tmp.path()), -1);
    ZelkImageTiffStack none("absent");
    EXPECT_EQ(none.readMetaData(tmp.path()), -1);
    EXPECT_EQ(none.imageErrorMsg, QStringLiteral("-1: Scan directory does not exist '%1'").arg(path("absent")));
}

TEST_F(Scans, SpectrocamFindsBandsByFilterNumber)
{
    ASSERT_TRUE(dir.mkdir("cam"));
    ASSERT_TRUE(writeBand(path("cam/shot_F2_x.tif"), 2, 2, 7, false));
    ASSERT_TRUE(writeBand(path("cam/shot_F1_x.tif"), 2, 2, 1, false));
    ZelkImageSpectrocam image("cam");
    EXPECT_EQ(image.readMetaData(tmp.path()), -1); // no meta-data of its own
    const auto cube = image.loadCube(tmp.path());
    ASSERT_TRUE(cube);
    EXPECT_EQ(sample(*cube, 1, 1, 0), 1 + 3 + 5);
    EXPECT_EQ(sample(*cube, 1, 1, 1), 7 + 3 + 5);
    // A band of another size is refused.
    ASSERT_TRUE(writeBand(path("cam/shot_F2_x.tif"), 3, 2, 7, false));
    EXPECT_FALSE(image.loadCube(tmp.path()));
    ZelkImageSpectrocam empty("nothing");
    EXPECT_FALSE(empty.loadCube(tmp.path()));
}

TEST_F(Scans, CubertReadsItsFixedBlockWithoutAHeader)
{
    QByteArray file(8, 'x');
    QVector<quint16> values(50 * 50 * 138);
    for (int i = 0; i < values.size(); ++i)
        values[i] = quint16(i % 4000);
    file += modelwriter::uint16Bytes(values);
    ASSERT_TRUE(modelwriter::writeFile(path("cam_cube.tiff"), file));
    ZelkImageCubert image("cam");
    auto cube = image.loadCube(tmp.path());
    ASSERT_TRUE(cube);
    EXPECT_EQ(cube->layout, quint32(LayoutBIP));
    EXPECT_EQ(cube->dataType, quint32(DataFloat));
    EXPECT_EQ(sample(*cube, 0, 0, 137), 137);
    EXPECT_EQ(sample(*cube, 49, 49, 137), (50 * 50 * 138 - 1) % 4000);

    ASSERT_TRUE(modelwriter::writeFile(path("cam_cube.tiff"), file.left(690007)));
    cube = image.loadCube(tmp.path());
    ASSERT_TRUE(cube);
    EXPECT_EQ(cube->sampleCount(), 0);
    EXPECT_EQ(cube->data(), nullptr);
}

TEST_F(Scans, FormatsWithoutAReaderGiveNoScan)
{
    const auto empty = ZelkImageCubertTiff("x").loadCube(tmp.path());
    ASSERT_TRUE(empty);
    EXPECT_EQ(empty->data(), nullptr);
    EXPECT_FALSE(ZelkImageSilios("x").loadCube(tmp.path()));
    EXPECT_FALSE(ZelkImageMatlab("x").loadCube(tmp.path()));
    ZelkImageCubertCU3 cu3("x");
    Listener listener(cu3);
    EXPECT_FALSE(cu3.loadCube(tmp.path()));
    EXPECT_EQ(cu3.imageError, -1);
    EXPECT_EQ(listener.messages, QStringList{QString()});
}

// ---------------------------------------------------------------------------------------

TEST_F(Scans, SenopCubesAreReorderedAndScaled)
{
    // File band i belongs at position order[i]; gains in sorted wavelength order.
    ASSERT_TRUE(fixtures::writeUInt16Scan(path("scan"), ".dat", 2, 2, 3, [](int c, int l, int b) { return 100 * (b + 1) + c + 2 * l; }, "bsq",
                                          "Wavelength = {600, 400, 500}\nsenop sequence order = {2, 0, 1}\n"
                                          "data gain values = {0.5, 2, 0}\n"));
    ZelkImageSENOP image("scan");
    ASSERT_EQ(image.readMetaData(tmp.path()), 0);
    EXPECT_EQ(*image.wavelengths, (QVector<double>{400, 500, 600}));
    EXPECT_EQ(image.fileWavelengths, (QVector<double>{600, 400, 500}));
    EXPECT_EQ(*image.gains, (QVector<double>{2, 0, 0.5}));
    const auto cube = image.loadCube(tmp.path());
    ASSERT_TRUE(cube);
    ASSERT_EQ(cube->dataType, quint32(DataFloat));
    // Position 0 holds file band 1 (x2), position 1 file band 2 (x0), position 2 file band 0 (x0.5).
    EXPECT_FLOAT_EQ(float(sample(*cube, 1, 1, 0)), 2.0f * (200 + 3));
    EXPECT_FLOAT_EQ(float(sample(*cube, 1, 1, 1)), 0.0f);
    EXPECT_FLOAT_EQ(float(sample(*cube, 1, 1, 2)), 0.5f * (100 + 3));
}

TEST(SenopBands, ReorderFollowsEveryCycleOfTheOrder)
{
    ZelkImageSENOP image;
    auto reorder = [&](QVector<double> order) {
        image.sequenceOrder = order;
        std::vector<quint16> planes;
        for (int b = 0; b < order.size(); ++b)
            planes.insert(planes.end(), {quint16(b), quint16(10 + b)}); // two samples per plane
        quint16 spare[2];
        const bool ok = image.reorderBands(planes.data(), 2, order.size(), spare);
        std::vector<int> firsts;
        for (int b = 0; b < order.size(); ++b)
            firsts.push_back(planes[size_t(2 * b)]);
        return std::make_pair(ok, firsts);
    };
    EXPECT_EQ(reorder({1, 0}), std::make_pair(true, std::vector<int>{1, 0}));
    EXPECT_EQ(reorder({2, 0, 1}), std::make_pair(true, std::vector<int>{1, 2, 0}));
    EXPECT_EQ(reorder({1, 2, 0}), std::make_pair(true, std::vector<int>{2, 0, 1}));
    EXPECT_EQ(reorder({1, 0, 3, 4, 2}), std::make_pair(true, std::vector<int>{1, 0, 4, 2, 3}));
    EXPECT_EQ(reorder({0, 0, 1}), std::make_pair(false, std::vector<int>{0, 1, 2})); // not a permutation: untouched
    EXPECT_EQ(reorder({0, 3, 1}), std::make_pair(false, std::vector<int>{0, 1, 2}));
}

TEST_F(Scans, EnviFormatsLoadWithTheirExtensionsAndWarnings)
{
    // ENVI searches for a raw file of the right size; Unispectral does not, and shows its
    // load message.
    ASSERT_TRUE(fixtures::writeUInt16Scan(path("scan"), ".img", 2, 2, 2, scanCounts));
    ZelkImageENVI envi("scan");
    Listener e(envi);
    const auto cube = envi.loadCube(tmp.path());
    ASSERT_TRUE(cube);
    EXPECT_EQ(sample(*cube, 1, 1, 1), scanCounts(1, 1, 1));
    EXPECT_TRUE(e.messages.isEmpty());
    ZelkImageUnispectral uni("scan");
    Listener u(uni);
    EXPECT_FALSE(uni.loadCube(tmp.path()));
    EXPECT_EQ(u.messages.value(0),
              "<font color=\"red\"><b>Error loading image scan:</b></font>\n Did not find cube file with '.raw' extension.");
    ZelkImageIMEC imec("scan");
    Listener i(imec);
    ASSERT_TRUE(imec.loadCube(tmp.path()));
    ASSERT_EQ(i.messages.size(), 1);
    EXPECT_TRUE(i.messages[0].startsWith("<font color=\"yellow\">Did not find cube file with '.raw' extension. Searching...Found matching"));

    // Hyspex: the cube file is the scan's name itself.
    ASSERT_TRUE(fixtures::writeUInt16Scan(path("hys"), "", 2, 2, 2, scanCounts));
    ZelkImageHyspex hyspex("hys");
    ASSERT_TRUE(hyspex.loadCube(tmp.path()));
}
