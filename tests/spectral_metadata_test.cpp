// Meta-data of the image classes: the ENVI rules, the fields that some cameras add, the
// fixed cameras, the mosaic registration, and the previews.

#include "spectral/image_family.h"
#include "spectral_fixtures.h"

#include <QImage>
#include <gtest/gtest.h>

namespace {

class MetaData : public testing::Test {
protected:
    QString path(const QString& name) const { return dir.filePath(name); }
    void header(const QString& name, const QString& text) { ASSERT_TRUE(modelwriter::writeFile(path(name + ".hdr"), text.toLatin1())); }
    // Runs readMetaData and returns the result with the last text displayed.
    std::pair<int, QString> read(ZelkImage& image)
    {
        QString last;
        auto c = QObject::connect(&image, &ZelkImage::displayMessage, [&](const QString& m) { last = m; });
        const int result = image.readMetaData(tmp.path());
        QObject::disconnect(c);
        return {result, last};
    }
    QTemporaryDir tmp;
    QDir dir{tmp.path()};
};

const QString Sizes = QStringLiteral("ENVI\nsamples = 640\nlines = 480\nbands = 3\ndata type = 12\ninterleave = bil\n");

} // namespace

TEST_F(MetaData, EnviRuleOneReadsSizeWavelengthsAndDefaultBands)
{
    header("scan", Sizes + "wavelength = {400.5, 500, 600}\ndefault bands = {3, 2.7, 1}\n");
    ZelkImageENVI image("scan");
    EXPECT_EQ(read(image), std::make_pair(0, QStringLiteral("Image \"scan\" width=640 height=480 bands=3")));
    EXPECT_EQ(image.width, 640);
    EXPECT_EQ(image.imageInt1, 640);
    EXPECT_EQ(image.height, 480);
    EXPECT_EQ(image.imageInt2, 480);
    EXPECT_EQ(image.bandCount, 3);
    EXPECT_EQ(*image.wavelengths, (QVector<double>{400.5, 500, 600}));
    EXPECT_EQ(image.defaultBands[1], 2);
}

TEST_F(MetaData, MissingWavelengthsBecomeBandNumbers)
{
    header("scan", Sizes + "default bands = {3, 2}\n");
    ZelkImageENVI image("scan");
    QStringList shown;
    QObject::connect(&image, &ZelkImage::displayMessage, [&](const QString& m) { shown.append(m); });
    EXPECT_EQ(image.readMetaData(tmp.path()), 0);
    EXPECT_EQ(*image.wavelengths, (QVector<double>{0, 1, 2}));
    EXPECT_EQ(shown.value(0), QStringLiteral("Cannot retrieve 'Wavelength' array from meta-data file: %1").arg(path("scan.hdr")));
    EXPECT_EQ(image.defaultBands[0], -1); // two entries are not taken
}

TEST_F(MetaData, RequiredFieldsAreReportedInOrder)
{
    ZelkImageENVI image("scan");
    header("scan", "samples = 4\n");
    EXPECT_EQ(read(image), std::make_pair(-1, QStringLiteral("Cannot retrieve 'bands' from meta-data file: %1").arg(path("scan.hdr"))));
    header("scan", "samples = 4\nbands = 2\n");
    EXPECT_EQ(read(image), std::make_pair(-1, QStringLiteral("Cannot retrieve 'lines' from meta-data file: %1").arg(path("scan.hdr"))));
    header("scan", "samples = 4\nbands = 2000000000\nlines = 1\n");
    EXPECT_EQ(read(image), std::make_pair(-1, QStringLiteral("The 'bands' value 2000000000 is larger than 1048576 (file: %1)").arg(path("scan.hdr"))));
    ZelkImageENVI none("none");
    EXPECT_EQ(read(none), std::make_pair(-1, QStringLiteral("Cannot retrieve 'samples' from meta-data file: %1").arg(path("none.hdr"))));
}

TEST_F(MetaData, DefaultBandsDependOnTheRule)
{
    header("scan", Sizes + "default bands = {5, 6, 7, 8}\n");
    ZelkImageENVI plain("scan");
    ZelkImageIMEC listOfThree("scan");
    ZelkImageCubertENVI without("scan");
    ASSERT_EQ(read(plain).first, 0);
    ASSERT_EQ(read(listOfThree).first, 0);
    EXPECT_EQ(plain.defaultBands[0], -1); // four entries are not three
    EXPECT_EQ(listOfThree.defaultBands[2], 7);
    header("scan", Sizes + "default bands = {5, 6, 7}\n");
    ASSERT_EQ(read(without).first, 0);
    EXPECT_EQ(without.defaultBands[0], -1);
}

TEST_F(MetaData, StrictRuleWantsPositiveSizesAndADataType)
{
    ZelkImageHeadwall image("scan");
    header("scan", "samples = 0\nlines = 3\nbands = 2\ndata type = 12\n");
    EXPECT_EQ(read(image), std::make_pair(-1, QStringLiteral("The 'samples' value must be a positive integer (file: %1)").arg(path("scan.hdr"))));
    header("scan", "samples = 4\nlines = 0\nbands = 2\ndata type = 12\n");
    EXPECT_EQ(read(image), std::make_pair(-1, QStringLiteral("The 'lines' value must be a positive integer (file: %1)").arg(path("scan.hdr"))));
    header("scan", "samples = 4\nlines = 3\nbands = 2\n");
    EXPECT_EQ(read(image), std::make_pair(-1, QStringLiteral("Cannot find 'data type' field in .hdr file")));
    ZelkImageENVI lenient("scan");
    header("scan", "samples = 0\nlines = 3\nbands = 2\n");
    EXPECT_EQ(read(lenient).first, 0);
}

TEST_F(MetaData, CameraSpecificFields)
{
    ZelkImageSpecImIQ iq("scan");
    header("scan", Sizes);
    EXPECT_EQ(read(iq), std::make_pair(-1, QStringLiteral("Cannot retrieve 'max value' from meta-data file: %1").arg(path("scan.hdr"))));
    header("scan", Sizes + "max value = 4095\n");
    EXPECT_EQ(read(iq).first, 0);
    EXPECT_EQ(iq.maxValue, 4095.0f);

    ZelkImageSENOP senop("scan");
    header("scan", Sizes + "wavelength = {500, 400, 600}\n");
    EXPECT_EQ(read(senop), std::make_pair(-1, QStringLiteral("Cannot load 'senop sequence order' field from .hdr file: %1").arg(path("scan.hdr"))));
    QStringList shown;
    QObject::connect(&senop, &ZelkImage::displayMessage, [&](const QString& m) { shown.append(m); });
    header("scan", Sizes + "wavelength = {500, 400, 600}\nsenop sequence order = {1, 0, 2}\n");
    EXPECT_EQ(senop.readMetaData(tmp.path()), 0); // missing gains only warn
    EXPECT_EQ(shown.value(0), QStringLiteral("<font color=\"yellow\"><b>Cannot load 'data gain values' from the .hdr file: %1</b></font>")
                                  .arg(path("scan.hdr")));
    EXPECT_FALSE(senop.gains);
    EXPECT_EQ(*senop.wavelengths, (QVector<double>{400, 500, 600}));
    EXPECT_EQ(senop.fileWavelengths, (QVector<double>{500, 400, 600}));
}

TEST_F(MetaData, TessaronSizesFollowTheCompressionFlag)
{
    ZelkImageTessaron image("scan");
    header("scan", Sizes + ";ZelkCompressedImage = 0\n;ZelkFullCubeSizeBytes = 7\n");
    ASSERT_EQ(read(image).first, 0);
    EXPECT_FALSE(image.compressed);
    EXPECT_EQ(image.fullCubeBytes, 640 * 480 * 3 * 2);
    EXPECT_EQ(image.storedCubeBytes, 640 * 480 * 3 * 2);
    header("scan", QString(Sizes).replace("data type = 12", "data type = 5"));
    ASSERT_EQ(read(image).first, 0);
    EXPECT_EQ(image.fullCubeBytes, 640 * 480 * 3 * 8);
    header("scan", Sizes + ";ZelkCompressedImage = 1\n;ZelkFullCubeSizeBytes = 1843200\n;ZelkCompressedImageSizeBytes = 5000\n");
    ASSERT_EQ(read(image).first, 0);
    EXPECT_TRUE(image.compressed);
    EXPECT_EQ(image.fullCubeBytes, 1843200);
    EXPECT_EQ(image.storedCubeBytes, 5000);
}

TEST_F(MetaData, FixedCameras)
{
    ZelkImageCubert cubert("c");
    ASSERT_EQ(read(cubert).first, 0);
    EXPECT_EQ(cubert.imageInt1, 1000);
    EXPECT_EQ(cubert.width, 50);
    EXPECT_EQ(cubert.bandCount, 138);
    EXPECT_EQ(cubert.wavelengths->size(), 138);
    EXPECT_EQ(cubert.wavelengths->last(), 450.0 + 4.0 * 137);

    const QVector<double> fallback{651, 688, 728, 769, 805, 845, 885, 925};
    ZelkImageSilios silios("cam_0001");
    ASSERT_EQ(read(silios).first, 0);
    EXPECT_EQ(silios.width, 426);
    EXPECT_EQ(silios.height, 339);
    EXPECT_EQ(*silios.wavelengths, fallback);
    ASSERT_TRUE(modelwriter::writeFile(path("cam.txt"), "Sensor\r\nFILTER'S CENTERING (NM) : 500 510  520 530 540 550 560 570\r\nend\r\n"));
    ASSERT_EQ(read(silios).first, 0);
    EXPECT_EQ(*silios.wavelengths, (QVector<double>{500, 510, 520, 530, 540, 550, 560, 570}));
    ASSERT_TRUE(modelwriter::writeFile(path("cam.txt"), "Filter's centering (nm) : 500 510 520\r\n"));
    ASSERT_EQ(read(silios).first, 0);
    EXPECT_EQ(*silios.wavelengths, fallback); // too few entries
    ZelkImageSilios noPart("cam");            // no "_": no file name
    ASSERT_EQ(read(noPart).first, 0);
    EXPECT_EQ(*noPart.wavelengths, fallback);

    EXPECT_EQ(ZelkImageMatlab("m").readMetaData(tmp.path()), 0);
    EXPECT_EQ(ZelkImageCubertTiff("t").readMetaData(tmp.path()), -1);
    EXPECT_EQ(ZelkImageSpectrocam("s").readMetaData(tmp.path()), -1);

    ZelkImageCubertCU3 cu3("u");
    EXPECT_EQ(cu3.readMetaData(tmp.path()), -1); // nobody answered
    QObject::connect(&cu3, &ZelkImageCubertCU3::fillMetaData, [&](const QString& d, ZelkImageCubertCU3* image) {
        EXPECT_EQ(d, tmp.path());
        image->width = 9;
        image->imageError = 0;
    });
    EXPECT_EQ(cu3.readMetaData(tmp.path()), 0);
    EXPECT_EQ(cu3.width, 9);
}

TEST_F(MetaData, SpecimReadsTheScanHeaderOfItsCaptureDirectory)
{
    ZelkImageSpecim image("scan");
    EXPECT_EQ(read(image), std::make_pair(-1, QStringLiteral("Cannot open .hdr file: %1").arg(path("scan/capture/scan.hdr"))));
    ASSERT_TRUE(dir.mkpath("scan/capture"));
    header("scan/capture/DARKREF_scan", "samples = 1\nlines = 1\nbands = 1\n");
    header("scan/capture/take", Sizes);
    EXPECT_EQ(read(image),
              std::make_pair(0, QStringLiteral("Image \"scan\" added (\"%1\") width=640 height=480 bands=3").arg(path("scan/capture/take.hdr"))));
    EXPECT_EQ(image.width, 640);
}

// ---------------------------------------------------------------------------------------
// Mosaic registration.

namespace {

constexpr int TileSize = 16;

// A 2 by 2 mosaic of 16-pixel tiles; tile (r, c) is a texture shifted circularly by
// shift[r][c], grey in all three planes and brighter from tile to tile.
QImage mosaic(const QPoint shift[2][2])
{
    quint32 seed = 12345;
    int texture[TileSize][TileSize];
    for (auto& row : texture)
        for (int& v : row) {
            seed = seed * 1103515245u + 12345u;
            v = int((seed >> 16) % 60);
        }
    QImage picture(2 * TileSize, 2 * TileSize, QImage::Format_RGB32);
    for (int r = 0; r < 2; ++r)
        for (int c = 0; c < 2; ++c)
            for (int y = 0; y < TileSize; ++y)
                for (int x = 0; x < TileSize; ++x) {
                    const int sx = ((x - shift[r][c].x()) % TileSize + TileSize) % TileSize;
                    const int sy = ((y - shift[r][c].y()) % TileSize + TileSize) % TileSize;
                    const int v = texture[sy][sx] * (1 + r + c);
                    picture.setPixel(c * TileSize + x, r * TileSize + y, qRgb(v, v / 2, v / 3));
                }
    return picture;
}

ZelkAgrowingCamera camera(QSize size, QVector<double> wavelengths)
{
    ZelkAgrowingCamera cam;
    cam.mosaicSizes = {QSize(10, 10), size};
    cam.tileRows = cam.tileCols = 2;
    cam.subImages = {{1, 0}, {2, 2}};
    cam.wavelengths = wavelengths;
    return cam;
}

} // namespace

TEST_F(MetaData, MosaicTilesAreRegisteredAgainstTheFirst)
{
    const QPoint shift[2][2] = {{{0, 0}, {2, 1}}, {{-3, 2}, {1, -1}}};
    const QImage picture = mosaic(shift);
    ZelkImageAgrowing::CameraTable table;
    table["a"] = camera(QSize(32, 32), {1, 2, 3});
    table["b"] = camera(QSize(32, 32), {700, 800});
    table["c"] = camera(QSize(64, 32), {5});

    ZelkImageAgrowing image("mosaic");
    QStringList shown;
    QObject::connect(&image, &ZelkImage::displayMessage, [&](const QString& m) { shown.append(m); });
    ASSERT_EQ(image.registerMosaic(picture, table), 0) << image.imageErrorMsg.toStdString();
    EXPECT_EQ(shown.mid(0, 2), (QStringList{"Using camera type a", "Using camera type b"}));
    EXPECT_EQ(image.bandCount, 2); // the last match stands
    // Origins (0,0), (18,1), (-3,18), (17,15), moved right by 3.
    EXPECT_EQ(image.tileOrigins, (QVector<QPoint>{{3, 0}, {21, 1}, {0, 18}, {20, 15}}));
    // The window every tile supplies: min(21-3, 32-21, 20-0, 32-20) by min(18-0, 15-1, 32-18, 32-15).
    EXPECT_EQ(image.width, 11);
    EXPECT_EQ(image.height, 14);
    EXPECT_EQ(shown.last(), "Image \"mosaic\" width=11 height=14 bands=2");

    // The cube: the window of each sub-image's tile, in its colour plane.
    ASSERT_TRUE(picture.save(path("mosaic.jpg"), "PNG"));
    const auto cube = image.loadCube(tmp.path());
    ASSERT_TRUE(cube);
    EXPECT_EQ(cube->dataType, quint32(DataUInt8));
    EXPECT_EQ(cube->layout, quint32(LayoutBIP));
    ASSERT_EQ(cube->bands, 2);
    for (int l : {0, 13})
        for (int c : {0, 10}) {
            EXPECT_EQ(fixtures::sample(*cube, c, l, 0), qRed(picture.pixel(21 + c, 1 + l)));
            EXPECT_EQ(fixtures::sample(*cube, c, l, 1), qBlue(picture.pixel(0 + c, 18 + l)));
        }

    // The same through the file, and a mosaic of no known size.
    ZelkImageAgrowing fromFile("mosaic");
    ASSERT_EQ(fromFile.readMetaData(tmp.path(), table), 0);
    EXPECT_EQ(fromFile.tileOrigins, image.tileOrigins);
    table.remove("a");
    table.remove("b");
    EXPECT_EQ(fromFile.registerMosaic(picture, table), -1);
    EXPECT_EQ(fromFile.imageErrorMsg, "-1: Unable to detect camera type");
}

TEST_F(MetaData, WithoutCameraTypesAMosaicHasNoMetaData)
{
    ZelkImageAgrowing image("mosaic");
    EXPECT_EQ(read(image), std::make_pair(-1, QStringLiteral("No valid camera types found in zelk.ini")));
    EXPECT_FALSE(image.loadCube(tmp.path()));
}

// ---------------------------------------------------------------------------------------
// Previews.

TEST_F(MetaData, PreviewsAreCheckedAgainstTheImage)
{
    QImage picture(8, 6, QImage::Format_RGB32);
    for (int y = 0; y < 6; ++y)
        for (int x = 0; x < 8; ++x)
            picture.setPixel(x, y, qRgb(10 * x, 10 * y, 0));
    ASSERT_TRUE(picture.save(path("h.jpg"), "PNG"));
    ZelkImageHyspex hyspex("h");
    hyspex.width = hyspex.imageInt1 = 8;
    hyspex.height = hyspex.imageInt2 = 6;
    EXPECT_EQ(hyspex.loadPreview(tmp.path()).size(), QSize(8, 6));
    ASSERT_EQ(hyspex.crop(2, 1, 3, 4), 0);
    const QImage cut = hyspex.loadPreview(tmp.path());
    ASSERT_EQ(cut.size(), QSize(3, 4));
    EXPECT_EQ(cut.pixel(0, 0), picture.pixel(2, 1));

    ZelkImageCubert cubert("c");
    cubert.readMetaData(tmp.path());
    ASSERT_TRUE(QImage(1000, 1000, QImage::Format_Grayscale8).save(path("c_pan.tiff"), "TIFF"));
    EXPECT_EQ(cubert.loadPreview(tmp.path()).size(), QSize(1000, 1000));
    ASSERT_TRUE(QImage(50, 50, QImage::Format_Grayscale8).save(path("c_pan.tiff"), "TIFF"));
    EXPECT_TRUE(cubert.loadPreview(tmp.path()).isNull());

    // The camera's picture stands on its side: it is turned to the scan's orientation.
    ASSERT_TRUE(dir.mkdir("s"));
    ASSERT_TRUE(picture.save(path("s/s.png"), "PNG"));
    ZelkImageSpecim specim("s");
    specim.width = specim.imageInt1 = 6;
    specim.height = specim.imageInt2 = 8;
    const QImage turned = specim.loadPreview(tmp.path());
    ASSERT_EQ(turned.size(), QSize(6, 8));
    EXPECT_EQ(turned.pixel(5, 0), picture.pixel(0, 0)); // a quarter turn clockwise
}
