// The capture-directory layout: "<scan>/capture/<scan>.hdr|.raw" with "DARKREF_<scan>" and
// "WHITEREF_<scan>" beside it, and a ".png" picture in the scan directory.

#include "compute/backend.h"
#include "spectral/envi_header.h"
#include "spectral/image_family.h"
#include "spectral/scan_correction.h"

#include <QTransform>
#include <cmath>

ZelkImageSpecim::ZelkImageSpecim(const QString& name, QObject* parent)
    : ZelkImageFile(name, parent, 1, "")
{
}

QString ZelkImageSpecim::captureDirectory(const QString& directory) const
{
    return QDir(QDir(directory).filePath(cubeName)).filePath(QStringLiteral("capture"));
}

int ZelkImageSpecim::readMetaData(const QString& directory)
{
    const QDir capture(captureDirectory(directory));
    QString path;
    for (const QString& file : capture.entryList({QStringLiteral("*.hdr")}, QDir::Files, QDir::Name))
        if (!file.startsWith(QLatin1String("DARKREF_")) && !file.startsWith(QLatin1String("WHITEREF_"))) {
            path = capture.filePath(file);
            break;
        }
    if (path.isEmpty())
        path = capture.filePath(cubeName + QStringLiteral(".hdr"));
    const EnviHeader header = EnviHeader::read(path);
    if (header.isNull()) {
        report(-1, QStringLiteral("Cannot open .hdr file: %1").arg(path));
        return -1;
    }
    if (readEnviFields(header, path, EnviRule::Plain) != 0)
        return -1;
    Q_EMIT displayMessage(QStringLiteral("Image \"%1\" added (\"%2\") width=%3 height=%4 bands=%5")
                              .arg(cubeName, path)
                              .arg(imageInt1)
                              .arg(imageInt2)
                              .arg(bandCount));
    return 0;
}

QImage ZelkImageSpecim::loadPreview(const QString& directory)
{
    QImage picture(QDir(QDir(directory).filePath(cubeName)).filePath(cubeName + QStringLiteral(".png")));
    if (picture.isNull())
        return picture;
    // The camera writes its picture with lines and columns exchanged: turn it when its
    // orientation differs from the scan's, then bring it to the scan's full size.
    const QSize full = cropped ? QSize(cropWidth, cropHeight) : QSize(width, height);
    const bool pictureWide = picture.width() > picture.height(), scanWide = full.width() > full.height();
    if (full.width() != full.height() && picture.width() != picture.height() && pictureWide != scanWide)
        picture = picture.transformed(QTransform().rotate(90));
    if (full.isValid() && !full.isEmpty() && picture.size() != full)
        picture = picture.scaled(full, Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
    if (cropped && picture.size() != QSize(imageInt1, imageInt2))
        picture = picture.copy(cropA, cropB, cropC, cropD);
    return picture;
}

namespace {

std::unique_ptr<ZelkSpectralCube> readReference(const QString& base, const EnviHeader& header, int columns, int bands)
{
    if (header.isNull())
        return nullptr;
    const int lines = header.fields().lines;
    const int type = header.fields().dataType;
    const int readerType = type == 12 ? 1 : type == 4 ? 2 : 0;
    if (readerType == 0 || lines <= 0 || columns <= 0 || bands <= 0)
        return nullptr;
    int status = 0;
    qint64 bytes = 0;
    std::unique_ptr<char[]> buffer = rawfile::readRaw(base + QStringLiteral(".raw"), readerType, 0, false, &status, &bytes);
    auto cube = std::make_unique<ZelkSpectralCube>(readerType == 1 ? DataUInt16 : DataFloat, LayoutBIL);
    cube->columns = columns;
    cube->lines = lines;
    cube->bands = bands;
    // The header's lines with the scan's width and bands must be in the file.
    if (!buffer || bytes < cube->sampleCount() * sampleBytes(cube->dataType))
        return nullptr;
    cube->setData(std::move(buffer), bytes);
    return cube;
}

} // namespace

std::unique_ptr<ZelkSpectralCube> ZelkImageSpecim::loadReference(const QString& directory, const QString& prefix, int columns, int bands) const
{
    const QString base = QDir(captureDirectory(directory)).filePath(prefix + cubeName);
    return readReference(base, EnviHeader::read(base + QStringLiteral(".hdr")), columns, bands);
}

std::unique_ptr<ZelkSpectralCube> ZelkImageSpecim::loadReference(const QString& directory, const QString& prefix) const
{
    const QString base = QDir(captureDirectory(directory)).filePath(prefix + cubeName);
    const EnviHeader header = EnviHeader::read(base + QStringLiteral(".hdr"));
    return readReference(base, header, header.fields().samples, header.fields().bands);
}

std::unique_ptr<ZelkSpectralCube> ZelkImageSpecim::loadCube(const QString& directory)
{
    const QString base = QDir(captureDirectory(directory)).filePath(cubeName);
    auto cube = std::make_unique<ZelkSpectralCube>();
    if (cube->load(base, QStringLiteral(".hdr"), QStringLiteral(".raw"), false) != 0) {
        setError(-1, cube->loadMessage);
        Q_EMIT displayMessage(QStringLiteral("<font color=\"red\"><b>Error loading image:</b></font>\n %2").arg(cube->loadMessage));
        return nullptr;
    }
    // Without both references there is no scan: nothing is reported.
    const std::unique_ptr<ZelkSpectralCube> dark = loadReference(directory, QStringLiteral("DARKREF_"), cube->columns, cube->bands);
    const std::unique_ptr<ZelkSpectralCube> white = loadReference(directory, QStringLiteral("WHITEREF_"), cube->columns, cube->bands);
    if (!dark || !white)
        return nullptr;

    const compute::DeviceScope scope(device);
    QVector<float> w, d;
    if (!scancorrection::level(*white, scancorrection::Reduction::Mean, &w) ||
        !scancorrection::level(*dark, scancorrection::Reduction::Mean, &d))
        return nullptr;
    QVector<float> gain(w.size());
    for (int i = 0; i < w.size(); ++i)
        gain[i] = 1.0f / std::fabs(w[i] - d[i]);
    if (!scancorrection::apply(*cube, d, gain, true, [this](const QString& text, int percent) { Q_EMIT progressChanged(text, percent); }))
        return nullptr;
    if (!cropToRegion(*cube))
        return nullptr;
    return cube;
}
