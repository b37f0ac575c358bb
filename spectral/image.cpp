#include "spectral/image.h"
#include "spectral/decompressor.h"
#include "spectral/envi_header.h"
#include "spectral/mask_stream.h"
#include "spectral/spectral_cube.h"

#include <QDir>
#include <algorithm>
#include <cstring>

ZelkImage::ZelkImage(const QString& name, QObject* parent)
    : QObject(parent)
    , cubeName(name)
{
}

ZelkImage::~ZelkImage() = default;

int ZelkImage::readMetaData(const QString&)
{
    return -1;
}

QImage ZelkImage::loadPreview(const QString&)
{
    return QImage();
}

QString ZelkImage::cubeFileName(const QString&) const
{
    return QString();
}

std::unique_ptr<ZelkSpectralCube> ZelkImage::loadCube(const QString&)
{
    return nullptr;
}

void ZelkImage::report(int code, const QString& message)
{
    setError(code, message);
    Q_EMIT displayMessage(message);
}

int ZelkImage::setError(int code, const QString& message)
{
    imageError = code;
    imageErrorMsg = QStringLiteral("%1: %2").arg(code).arg(message);
    return code;
}

QString ZelkImage::besideScan(const QString& directory, const QString& suffix) const
{
    return QDir(directory).filePath(cubeName + suffix);
}

// ---------------------------------------------------------------------------------------
// ENVI header fields shared by the meta-data readers.

int ZelkImage::readEnviFields(const EnviHeader& header, const QString& path, EnviRule rule, bool* wavelengthsRead)
{
    if (wavelengthsRead)
        *wavelengthsRead = false;
    auto missing = [&](const char* text) {
        report(-1, QString::fromLatin1(text).arg(path));
        return -1;
    };
    const bool strict = rule == EnviRule::Strict;
    auto positive = [&](int value, const char* field) {
        if (!strict || value > 0)
            return true;
        report(-1, QStringLiteral("The '%1' value must be a positive integer (file: %2)").arg(QLatin1String(field), path));
        return false;
    };

    const EnviFields& fields = header.fields();
    const int samples = fields.samples;
    if (samples < 0)
        return missing("Cannot retrieve 'samples' from meta-data file: %1");
    if (!positive(samples, "samples"))
        return -1;
    const int bands = fields.bands;
    if (bands < 0)
        return missing("Cannot retrieve 'bands' from meta-data file: %1");
    if (!positive(bands, "bands"))
        return -1;
    // The band list is made from this count when the file has none: a count no camera
    // delivers is refused before anything is allocated.
    constexpr int MaxBands = 1 << 20;
    if (bands > MaxBands) {
        report(-1, QStringLiteral("The 'bands' value %1 is larger than %2 (file: %3)").arg(bands).arg(MaxBands).arg(path));
        return -1;
    }
    const int lines = fields.lines;
    if (lines < 0)
        return missing("Cannot retrieve 'lines' from meta-data file: %1");
    if (!positive(lines, "lines"))
        return -1;
    if (strict && fields.dataType < 0) {
        report(-1, QStringLiteral("Cannot find 'data type' field in .hdr file"));
        return -1;
    }
    imageInt1 = width = samples;
    bandCount = bands;
    imageInt2 = height = lines;

    if (std::optional<QVector<double>> list = fields.wavelengthsFor(bandCount)) {
        wavelengths = *list;
        if (wavelengthsRead)
            *wavelengthsRead = true;
    } else {
        Q_EMIT displayMessage(QStringLiteral("Cannot retrieve 'Wavelength' array from meta-data file: %1").arg(path));
        QVector<double> numbers(bandCount);
        for (int i = 0; i < bandCount; ++i)
            numbers[i] = i;
        wavelengths = numbers;
    }

    std::optional<QVector<double>> defaults;
    if (rule == EnviRule::RequiredDefaults)
        defaults = header.headerDoubles(QStringLiteral("default bands"), 3);
    else if (rule != EnviRule::NoDefaults)
        defaults = header.headerDoubleList(QStringLiteral("default bands"));
    if (defaults && defaults->size() == 3)
        for (int i = 0; i < 3; ++i)
            defaultBands[i] = int(defaults->at(i));
    return 0;
}

QString ZelkImage::sizeReport() const
{
    return QStringLiteral("Image \"%1\" width=%2 height=%3 bands=%4").arg(cubeName).arg(imageInt1).arg(imageInt2).arg(bandCount);
}

bool ZelkImage::cropToRegion(ZelkSpectralCube& cube)
{
    if (!cropped || (cube.columns == width && cube.lines == height))
        return true;
    cube.crop(cropA, cropB, cropC, cropD, true);
    if (cube.columns == cropC && cube.lines == cropD)
        return true;
    report(-1, QStringLiteral("The image's region %1,%2 of %3 x %4 does not lie inside the scan of %5 x %6")
                   .arg(cropA).arg(cropB).arg(cropC).arg(cropD).arg(cube.columns).arg(cube.lines));
    return false;
}

// ---------------------------------------------------------------------------------------
// Labels, crop and uncrop.

QImage ZelkImage::labelImage()
{
    labelsTaken = true;
    if (!imageBlob.isEmpty()) {
        const QImage image = maskstream::decode(imageBlob);
        if (!image.isNull())
            return image;
    }
    // No mask yet, or one that cannot be read: an empty mask of the image's size.
    return maskruns::blank(std::max(width, 0), std::max(height, 0));
}

void ZelkImage::setLabelImage(const QImage& image)
{
    imageBlob = maskstream::encode(image);
    labelsTaken = false;
}

namespace {

// Object labels keep six integers each; the first four are the box: x, y, width, height.
constexpr int LabelFields = 6;

void removeAt(std::optional<QStringList>& list, int index)
{
    if (list && index < list->size())
        list->removeAt(index);
}

} // namespace

int ZelkImage::crop(int x, int y, int w, int h)
{
    if (x < 0 || y < 0 || w < 0 || h < 0 || qint64(x) + w > width || qint64(y) + h > height)
        return -1;
    if (!cropped) {
        cropWidth = width;
        cropHeight = height;
        cropA = cropB = 0;
    }
    // A region of a region is stored against the whole scan.
    cropped = true;
    cropA += x;
    cropB += y;
    cropC = w;
    cropD = h;
    if (!imageBlob.isEmpty())
        imageBlob = maskstream::crop(imageBlob, x, y, w, h);

    // An object stays only when its box lies wholly inside; a dropped one takes its note
    // and name along. Going backwards keeps the indices of the lists valid.
    const int objects = std::min(objectLabelCount, int(objectLabelTable.size() / LabelFields));
    QVector<int> kept;
    for (int i = objects - 1; i >= 0; --i) {
        const int* box = objectLabelTable.constData() + i * LabelFields;
        if (box[0] >= x && box[1] >= y && qint64(box[0]) + box[2] <= qint64(x) + w && qint64(box[1]) + box[3] <= qint64(y) + h) {
            kept.insert(0, LabelFields, 0);
            std::copy_n(box, LabelFields, kept.begin());
            kept[0] -= x;
            kept[1] -= y;
        } else {
            removeAt(objectLabelNotes, i);
            removeAt(objectLabelNames, i);
        }
    }
    if (objects > 0) {
        objectLabelTable = kept;
        objectLabelCount = int(kept.size() / LabelFields);
    }

    if (pointAnnotations) {
        QList<ZelkPointAnnotation> inside;
        for (ZelkPointAnnotation a : *pointAnnotations) {
            if (a.x < x || a.y < y || a.x >= qint64(x) + w || a.y >= qint64(y) + h)
                continue;
            a.x -= x;
            a.y -= y;
            inside.append(a);
        }
        pointAnnotations = inside;
    }

    width = w;
    height = h;
    imageInt1 = int(w * imageFactor);
    imageInt2 = int(h * imageFactor);
    return 0;
}

void ZelkImage::uncrop()
{
    if (!cropped)
        return;
    const QImage region = labelImage();
    QImage full = maskruns::blank(cropWidth, cropHeight);
    // Rows are copied as far as they fit; a region stored inconsistently loses the rest.
    const int rows = std::min(region.height(), cropHeight - cropB);
    const int columns = std::min(region.width(), cropWidth - cropA);
    for (int row = 0; row < rows && columns > 0; ++row)
        std::memcpy(full.scanLine(cropB + row) + cropA, region.constScanLine(row), size_t(columns));
    setLabelImage(full);

    const int objects = std::min(objectLabelCount, int(objectLabelTable.size() / LabelFields));
    for (int i = 0; i < objects; ++i) {
        objectLabelTable[i * LabelFields] += cropA;
        objectLabelTable[i * LabelFields + 1] += cropB;
    }
    if (pointAnnotations)
        for (ZelkPointAnnotation& a : *pointAnnotations) {
            a.x += cropA;
            a.y += cropB;
        }
    width = cropWidth;
    height = cropHeight;
    imageInt1 = int(width * imageFactor);
    imageInt2 = int(height * imageFactor);
    cropped = false;
}
