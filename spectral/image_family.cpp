#include "spectral/image_family.h"

ZelkImageFile::ZelkImageFile(const QString& name, QObject* parent, int type, const char* suffix)
    : ZelkImage(name, parent)
    , suffix_(QLatin1String(suffix))
{
    imageType = type;
}

ZelkImageSpecim::ZelkImageSpecim(const QString& name, QObject* parent)
    : ZelkImageFile(name, parent, 1, "")
{
}

ZelkImageMatlab::ZelkImageMatlab(const QString& name, QObject* parent)
    : ZelkImageFile(name, parent, 5, ".mat")
{
}

ZelkImageCubert::ZelkImageCubert(const QString& name, QObject* parent)
    : ZelkImageFile(name, parent, 4, "_cube.tiff")
{
    imageFactor = 20.0f;
}

ZelkImageSENOP::ZelkImageSENOP(const QString& name, QObject* parent)
    : ZelkImageFile(name, parent, 8, ".hdr")
{
}

ZelkImageTessaron::ZelkImageTessaron(const QString& name, QObject* parent)
    : ZelkImageFile(name, parent, 19, ".hdr")
{
}

ZelkImageCubertCU3::ZelkImageCubertCU3(const QString& name, QObject* parent)
    : ZelkImageFile(name, parent, 20, ".hdr")
{
}

std::unique_ptr<ZelkImage> makeImage(int projectType, QObject* parent)
{
    switch (projectType) {
    case 1: return std::make_unique<ZelkImageSpecim>(QString(), parent);
    case 2: return std::make_unique<ZelkImageHyspex>(QString(), parent);
    case 3: return std::make_unique<ZelkImageIMEC>(QString(), parent);
    case 4: return std::make_unique<ZelkImageCubert>(QString(), parent);
    case 5: return std::make_unique<ZelkImageMatlab>(QString(), parent);
    case 6: return std::make_unique<ZelkImageTiffStack>(QString(), parent);
    case 7: return std::make_unique<ZelkImageSpecImIQ>(QString(), parent);
    case 8: return std::make_unique<ZelkImageSENOP>(QString(), parent);
    case 9: return std::make_unique<ZelkImageCubertENVI>(QString(), parent);
    case 10: return std::make_unique<ZelkImageHeadwall>(QString(), parent);
    case 11: return std::make_unique<ZelkImageCubertTiff>(QString(), parent);
    case 12: return std::make_unique<ZelkImageSpectrocam>(QString(), parent);
    case 13: // read as ENVI images on purpose
    case 14: return std::make_unique<ZelkImageENVI>(QString(), parent);
    case 15: return std::make_unique<ZelkImageSilios>(QString(), parent);
    case 16: return std::make_unique<ZelkImageInnospec>(QString(), parent);
    case 17: return std::make_unique<ZelkImageResonon>(QString(), parent);
    case 18: return std::make_unique<ZelkImageUnispectral>(QString(), parent);
    case 19: return std::make_unique<ZelkImageTessaron>(QString(), parent);
    case 20: return std::make_unique<ZelkImageCubertCU3>(QString(), parent);
    case 21: return std::make_unique<ZelkImageSiliosENVI>(QString(), parent);
    case 22: return std::make_unique<ZelkImageAgrowing>(QString(), parent);
    default: return nullptr;
    }
}
