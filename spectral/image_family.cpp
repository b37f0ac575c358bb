#include "spectral/image_family.h"
#include "spectral/envi_header.h"
#include "spectral/load_messages.h"

#include <QFile>
#include <QFileInfo>
#include <QImageReader>
#include <QRegularExpression>
#include <QtEndian>

ZelkImageFile::ZelkImageFile(const QString& name, QObject* parent, int type, const char* suffix)
    : ZelkImage(name, parent)
    , suffix_(QLatin1String(suffix))
{
    imageType = type;
}

// ---------------------------------------------------------------------------------------
// Scans with an ENVI header.

ZelkImageEnviScan::ZelkImageEnviScan(const QString& name, QObject* parent, int type, EnviRule rule, const char* cubeExtension,
                                     bool search, bool warnLoadMessage)
    : ZelkImageFile(name, parent, type, ".hdr")
    , rule_(rule)
    , cubeExtension_(QLatin1String(cubeExtension))
    , search_(search)
    , warnLoadMessage_(warnLoadMessage)
{
}

int ZelkImageEnviScan::readMetaData(const QString& directory)
{
    const QString path = besideScan(directory, QStringLiteral(".hdr"));
    // A header that cannot be read fails at its first field.
    const EnviHeader header = EnviHeader::read(path);
    bool wavelengthsRead = false;
    if (readEnviFields(header, path, rule_, &wavelengthsRead) != 0 || readMoreFields(header, path, wavelengthsRead) != 0)
        return -1;
    Q_EMIT displayMessage(sizeReport());
    return 0;
}

void ZelkImageEnviScan::reportLoadFailure(const ZelkSpectralCube& cube)
{
    setError(-1, cube.loadMessage);
    Q_EMIT displayMessage(loadmessages::loadError(cubeName, cube.loadMessage));
}

std::unique_ptr<ZelkSpectralCube> ZelkImageEnviScan::loadCube(const QString& directory)
{
    const QString base = QDir(directory).filePath(cubeName);
    if (isReferenceName()) {
        Q_EMIT displayMessage(loadmessages::referenceScan());
        return nullptr;
    }
    auto cube = std::make_unique<ZelkSpectralCube>();
    if (cube->load(base, QStringLiteral(".hdr"), cubeExtension_, search_) != 0) {
        reportLoadFailure(*cube);
        return nullptr;
    }
    if (!afterLoad(*cube, base))
        return nullptr;
    if (warnLoadMessage_ && !cube->loadMessage.isEmpty())
        Q_EMIT displayMessage(loadmessages::loadWarning(cube->loadMessage));
    // Last, so that references always meet the scan at its full size.
    if (!cropToRegion(*cube))
        return nullptr;
    return cube;
}

ZelkImageHyspex::ZelkImageHyspex(const QString& name, QObject* parent)
    : ZelkImageEnviScan(name, parent, 2, EnviRule::Plain, "", false, false)
{
}

QImage ZelkImageHyspex::loadPreview(const QString& directory)
{
    QImage picture(besideScan(directory, QStringLiteral(".jpg")));
    if (!picture.isNull() && cropped && picture.size() != QSize(imageInt1, imageInt2))
        picture = picture.copy(cropA, cropB, cropC, cropD);
    return picture;
}

ZelkImageSpecImIQ::ZelkImageSpecImIQ(const QString& name, QObject* parent)
    : ZelkImageEnviScan(name, parent, 7, EnviRule::Plain, ".dat", false, false)
{
}

int ZelkImageSpecImIQ::readMoreFields(const EnviHeader& header, const QString& path, bool)
{
    const int value = header.headerInt(QStringLiteral("max value"));
    if (value < 0) {
        report(-1, QStringLiteral("Cannot retrieve 'max value' from meta-data file: %1").arg(path));
        return -1;
    }
    maxValue = float(value);
    return 0;
}

// ---------------------------------------------------------------------------------------
// Fixed cameras and formats read elsewhere.

ZelkImageMatlab::ZelkImageMatlab(const QString& name, QObject* parent)
    : ZelkImageFile(name, parent, 5, ".mat")
{
}

ZelkImageCubert::ZelkImageCubert(const QString& name, QObject* parent)
    : ZelkImageFile(name, parent, 4, "_cube.tiff")
{
    imageFactor = 20.0f;
}

int ZelkImageCubert::readMetaData(const QString&)
{
    imageInt1 = imageInt2 = 1000;
    width = Columns;
    height = Lines;
    bandCount = Bands;
    imageFactor = 20.0f;
    QVector<double> list(Bands);
    for (int i = 0; i < Bands; ++i)
        list[i] = 450.0 + 4.0 * i;
    wavelengths = list;
    return 0;
}

QImage ZelkImageCubert::loadPreview(const QString& directory)
{
    const QImage picture(besideScan(directory, QStringLiteral("_pan.tiff")));
    return picture.size() == QSize(imageInt1, imageInt2) ? picture : QImage();
}

std::unique_ptr<ZelkSpectralCube> ZelkImageCubert::loadCube(const QString& directory)
{
    // The camera's size is fixed: the samples stand at a fixed place, and the header of
    // the file is not read. A file too short for them leaves an empty cube.
    auto cube = std::make_unique<ZelkSpectralCube>(DataFloat, LayoutBIP);
    const qint64 count = qint64(Columns) * Lines * Bands;
    QFile file(cubeFileName(directory));
    if (!file.open(QIODevice::ReadOnly) || !file.seek(SampleOffset))
        return cube;
    const QByteArray bytes = file.read(count * 2);
    if (bytes.size() != count * 2)
        return cube;
    if (cube->allocate(count) != 0)
        return cube;
    float* out = cube->samples<float>();
    for (qint64 i = 0; i < count; ++i)
        out[i] = float(qFromLittleEndian<quint16>(bytes.constData() + 2 * i));
    cube->columns = Columns;
    cube->lines = Lines;
    cube->bands = Bands;
    if (!cropToRegion(*cube))
        return nullptr;
    return cube;
}

ZelkImageCubertTiff::ZelkImageCubertTiff(const QString& name, QObject* parent)
    : ZelkImageFile(name, parent, 11, ".tiff")
{
}

std::unique_ptr<ZelkSpectralCube> ZelkImageCubertTiff::loadCube(const QString&)
{
    return std::make_unique<ZelkSpectralCube>();
}

ZelkImageSilios::ZelkImageSilios(const QString& name, QObject* parent)
    : ZelkImageFile(name, parent, 15, ".tiff")
{
}

namespace {

// The filter centres of a Silios text file, exactly `count` of them, or none.
std::optional<QVector<double>> siliosWavelengths(const QString& path, int count)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return std::nullopt;
    const QString text = QString::fromLatin1(file.read(1 << 20));
    const QRegularExpression re(QStringLiteral("Filter's centering \\(nm\\) :([\\d ]+)\\r\\n"), QRegularExpression::CaseInsensitiveOption);
    const QRegularExpressionMatch m = re.match(text);
    if (!m.hasMatch())
        return std::nullopt;
    QVector<double> list;
    for (const QString& part : m.captured(1).split(QLatin1Char(' '), Qt::SkipEmptyParts)) {
        if (list.size() == count)
            break;
        bool ok = false;
        const double value = part.toDouble(&ok);
        if (ok)
            list.append(value);
    }
    if (list.size() != count)
        return std::nullopt;
    return list;
}

} // namespace

int ZelkImageSilios::readMetaData(const QString& directory)
{
    imageInt1 = width = 426;
    imageInt2 = height = 339;
    bandCount = 8;
    imageFactor = 1.0f;
    std::optional<QVector<double>> list;
    const QRegularExpressionMatch m = QRegularExpression(QStringLiteral("^([^_]+)_")).match(cubeName);
    if (m.hasMatch())
        list = siliosWavelengths(QDir(directory).filePath(m.captured(1) + QStringLiteral(".txt")), bandCount);
    wavelengths = list ? *list : QVector<double>{651, 688, 728, 769, 805, 845, 885, 925};
    return 0;
}

ZelkImageCubertCU3::ZelkImageCubertCU3(const QString& name, QObject* parent)
    : ZelkImageFile(name, parent, 20, ".hdr")
{
}

int ZelkImageCubertCU3::readMetaData(const QString& directory)
{
    // A receiver of the signal fills the image and the code.
    setError(-1, QString());
    Q_EMIT fillMetaData(directory, this);
    return imageError;
}

std::unique_ptr<ZelkSpectralCube> ZelkImageCubertCU3::loadCube(const QString&)
{
    report(-1, QString());
    return nullptr;
}
