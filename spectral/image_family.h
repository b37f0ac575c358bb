#pragma once
// The camera formats. Each class fixes its type code and where its data file lies;
// the formats that store more than the common image head read their tail here.

#include "spectral/image.h"

// A format whose data file is the scan's name with a fixed suffix, or the scan's name
// itself when the suffix is empty.
class ZelkImageFile : public ZelkImage {
public:
    QString cubeFileName(const QString& directory) const override { return besideScan(directory, suffix_); }

protected:
    ZelkImageFile(const QString& name, QObject* parent, int type, const char* suffix);

private:
    QString suffix_;
};

#define ZELK_IMAGE_CLASS(Name, type, suffix)                                                                           \
    class Name : public ZelkImageFile {                                                                                \
    public:                                                                                                            \
        explicit Name(const QString& name = QString(), QObject* parent = nullptr)                                     \
            : ZelkImageFile(name, parent, type, suffix)                                                                \
        {                                                                                                              \
        }                                                                                                              \
    };

ZELK_IMAGE_CLASS(ZelkImageHyspex, 2, ".hdr")
ZELK_IMAGE_CLASS(ZelkImageIMEC, 3, ".hdr")
ZELK_IMAGE_CLASS(ZelkImageTiffStack, 6, "")
ZELK_IMAGE_CLASS(ZelkImageSpecImIQ, 7, ".hdr")
ZELK_IMAGE_CLASS(ZelkImageCubertENVI, 9, ".hdr")
ZELK_IMAGE_CLASS(ZelkImageHeadwall, 10, ".hdr")
ZELK_IMAGE_CLASS(ZelkImageCubertTiff, 11, ".tiff")
ZELK_IMAGE_CLASS(ZelkImageSpectrocam, 12, "")
ZELK_IMAGE_CLASS(ZelkImageCorning, 13, ".hdr")
ZELK_IMAGE_CLASS(ZelkImageENVI, 14, ".hdr")
ZELK_IMAGE_CLASS(ZelkImageSilios, 15, ".tiff")
ZELK_IMAGE_CLASS(ZelkImageInnospec, 16, ".hdr")
ZELK_IMAGE_CLASS(ZelkImageResonon, 17, ".hdr")
ZELK_IMAGE_CLASS(ZelkImageUnispectral, 18, ".hdr")
ZELK_IMAGE_CLASS(ZelkImageSiliosENVI, 21, ".hdr")
ZELK_IMAGE_CLASS(ZelkImageAgrowing, 22, ".jpg")
#undef ZELK_IMAGE_CLASS

class ZelkImageSpecim : public ZelkImageFile {
public:
    explicit ZelkImageSpecim(const QString& name = QString(), QObject* parent = nullptr);
    QString extraText;

protected:
    void loadTail(QDataStream& in) override;
};

class ZelkImageMatlab : public ZelkImageFile {
public:
    explicit ZelkImageMatlab(const QString& name = QString(), QObject* parent = nullptr);
    QString variableName;

protected:
    void loadTail(QDataStream& in) override;
};

class ZelkImageCubert : public ZelkImageFile {
public:
    explicit ZelkImageCubert(const QString& name = QString(), QObject* parent = nullptr);
};

// Bands stand in the camera's sequence order in the file; the sorted wavelengths, the
// file's own list and the gains are kept so that cubes can be reordered.
class ZelkImageSENOP : public ZelkImageFile {
public:
    explicit ZelkImageSENOP(const QString& name = QString(), QObject* parent = nullptr);
    QVector<double> fileWavelengths;
    QVector<double> sequenceOrder;
    std::optional<QVector<double>> gains;

protected:
    void loadTail(QDataStream& in) override;
};

class ZelkImageTessaron : public ZelkImageFile {
public:
    explicit ZelkImageTessaron(const QString& name = QString(), QObject* parent = nullptr);
    bool compressed = false;
    QImage maskImage;
};

// Its meta-data and scans come from an outside component through two signals.
class ZelkImageCubertCU3 : public ZelkImageFile {
    Q_OBJECT
public:
    explicit ZelkImageCubertCU3(const QString& name = QString(), QObject* parent = nullptr);

Q_SIGNALS:
    void fillMetaData(QString directory, ZelkImageCubertCU3* image);
    void loadSpectralCubeCU3(QString directory, ZelkImageCubertCU3* image, ZelkSpectralCube** cube);
};

// The image class that a project type reads its images with; null outside 1 to 22.
// Type 13 reads ENVI images, although its own class exists.
std::unique_ptr<ZelkImage> makeImage(int projectType, QObject* parent = nullptr);
