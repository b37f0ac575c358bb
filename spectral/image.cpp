#include "spectral/image.h"
#include "spectral/spectral_cube.h"

#include <QDir>

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
    imageError = code;
    imageErrorMsg = QStringLiteral("%1: %2").arg(code).arg(message);
    Q_EMIT displayMessage(message);
}

QString ZelkImage::besideScan(const QString& directory, const QString& suffix) const
{
    return QDir(directory).filePath(cubeName + suffix);
}
