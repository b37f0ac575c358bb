// Scans kept as one TIFF image per band in a directory named after the scan.

#include "spectral/image_family.h"

#include <QImageReader>
#include <QRegularExpression>
#include <cmath>
#include <cstring>

ZelkImageTiffBands::ZelkImageTiffBands(const QString& name, QObject* parent, int type)
    : ZelkImageFile(name, parent, type, "")
{
}

QString ZelkImageTiffBands::bandFile(const QDir& scanDir, int band) const
{
    const QStringList files = scanDir.entryList({bandPattern(scanDir, band)}, QDir::Files, QDir::Name);
    return files.isEmpty() ? QString() : scanDir.filePath(files.first());
}

namespace {

const QStringList TiffFilter{QStringLiteral("*.tif*")};

// Copies a band image into one plane, as grey values: 16-bit pictures keep their values,
// others give 0 to 255.
void copyGrey(const QImage& picture, quint16* plane)
{
    const int w = picture.width(), h = picture.height();
    if (picture.format() == QImage::Format_Grayscale16) {
        for (int y = 0; y < h; ++y)
            std::memcpy(plane + qint64(y) * w, picture.constScanLine(y), size_t(w) * 2);
        return;
    }
    const QImage grey = picture.convertToFormat(QImage::Format_Grayscale8);
    for (int y = 0; y < h; ++y) {
        const uchar* row = grey.constScanLine(y);
        for (int x = 0; x < w; ++x)
            plane[qint64(y) * w + x] = row[x];
    }
}

} // namespace

std::unique_ptr<ZelkSpectralCube> ZelkImageTiffBands::loadCube(const QString& directory)
{
    const QDir scanDir(QDir(directory).filePath(cubeName));
    const int bands = scanDir.entryList(TiffFilter, QDir::Files).size();
    if (bands == 0)
        return nullptr;
    auto cube = std::make_unique<ZelkSpectralCube>(DataUInt16, LayoutBSQ);
    cube->bands = bands;
    cube->columns = cropped ? cropWidth : width;
    cube->lines = cropped ? cropHeight : height;

    Q_EMIT progressChanged(QStringLiteral("Importing cube..."), 0);
    const int step = int(std::roundf(bands * 5 / 100.0f));
    int reported = 0;
    for (int band = 1; band <= bands; ++band) {
        const QString file = bandFile(scanDir, band);
        if (file.isEmpty()) {
            report(-1, QStringLiteral("Band image not found: %1").arg(scanDir.filePath(bandPattern(scanDir, band))));
            return nullptr;
        }
        const QImage picture(file);
        if (picture.isNull()) {
            report(-1, QStringLiteral("Cannot load band image %1").arg(file));
            return nullptr;
        }
        if (band == 1 && (cube->columns <= 0 || cube->lines <= 0)) {
            // An image that has not read its meta-data takes the size of its first band.
            cube->columns = picture.width();
            cube->lines = picture.height();
        }
        if (band == 1 && cube->allocate(cube->sampleCount()) != 0) {
            report(cube->errorCode, cube->errorText);
            return nullptr;
        }
        if (picture.size() != QSize(cube->columns, cube->lines)) {
            report(-1, QStringLiteral("Band image %1 is %2 x %3, the scan %4 x %5")
                           .arg(file).arg(picture.width()).arg(picture.height()).arg(cube->columns).arg(cube->lines));
            return nullptr;
        }
        copyGrey(picture, cube->samples<quint16>() + qint64(band - 1) * cube->columns * cube->lines);
        if (band - reported > step) {
            Q_EMIT progressChanged(QStringLiteral("Importing cube..."), int(std::lround(100.0 * band / bands)));
            reported = band;
        }
    }
    if (!cropToRegion(*cube))
        return nullptr;
    return cube;
}

ZelkImageSpectrocam::ZelkImageSpectrocam(const QString& name, QObject* parent)
    : ZelkImageTiffBands(name, parent, 12)
{
}

QString ZelkImageSpectrocam::bandPattern(const QDir&, int band) const
{
    return QStringLiteral("*_F%1_*.tif*").arg(band);
}

ZelkImageTiffStack::ZelkImageTiffStack(const QString& name, QObject* parent)
    : ZelkImageTiffBands(name, parent, 6)
{
}

QString ZelkImageTiffStack::bandPattern(const QDir& scanDir, int band) const
{
    return QStringLiteral("%1_ch_%2_w_*.tif*").arg(scanDir.dirName()).arg(band, 4, 10, QLatin1Char('0'));
}

int ZelkImageTiffStack::readMetaData(const QString& directory)
{
    const QString path = QDir(directory).filePath(cubeName);
    const QDir scanDir(path);
    if (!scanDir.exists()) {
        report(-1, QStringLiteral("Scan directory does not exist '%1'").arg(path));
        return -1;
    }
    const int bands = scanDir.entryList(TiffFilter, QDir::Files).size();
    const QRegularExpression wavelengthPattern(QStringLiteral("_(\\d+).tif$"));
    QVector<double> list;
    QSize size;
    for (int band = 1; band <= std::max(bands, 1); ++band) {
        const QString file = bandFile(scanDir, band);
        if (file.isEmpty()) {
            report(-1, QStringLiteral("Band image not found: %1").arg(scanDir.filePath(bandPattern(scanDir, band))));
            return -1;
        }
        QImageReader reader(file);
        if (!reader.canRead() || !reader.size().isValid()) {
            report(-1, QStringLiteral("Cannot load band image %1").arg(file));
            return -1;
        }
        if (band == 1)
            size = reader.size();
        const QRegularExpressionMatch m = wavelengthPattern.match(QFileInfo(file).fileName());
        if (!m.hasMatch()) {
            report(-1, QStringLiteral("Cannot read wavelength from band image '%1'").arg(file));
            return -1;
        }
        list.append(m.captured(1).toDouble());
    }
    imageInt1 = width = size.width();
    imageInt2 = height = size.height();
    bandCount = bands;
    wavelengths = list;
    Q_EMIT displayMessage(sizeReport());
    return 0;
}
