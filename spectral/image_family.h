#pragma once
// The camera formats. Each class fixes its type code, where its data file lies, how its
// meta-data reads and how its scan loads; the formats that store more than the common
// image head read their tail here.

#include "spectral/correction.h"
#include "spectral/image.h"

#include <QDir>
#include <QMap>
#include <QPoint>
#include <QSize>
#include <functional>

class EnviHeader;
class ZelkResampler;

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

// A scan stored as a raw file with an ENVI header beside it.
class ZelkImageEnviScan : public ZelkImageFile {
public:
    int readMetaData(const QString& directory) override;
    // Loads "<directory>/<cubeName>" with ".hdr" and the format's cube extension, lets the
    // format work on it, and crops it to the image's region last.
    std::unique_ptr<ZelkSpectralCube> loadCube(const QString& directory) override;

protected:
    ZelkImageEnviScan(const QString& name, QObject* parent, int type, EnviRule rule, const char* cubeExtension, bool search,
                      bool warnLoadMessage);
    // What a format reads beyond the common fields: 0, or -1 after a report.
    virtual int readMoreFields(const EnviHeader&, const QString& /*path*/, bool /*wavelengthsRead*/) { return 0; }
    // Work on a freshly loaded cube at full size; false drops it and gives no cube.
    virtual bool afterLoad(ZelkSpectralCube&, const QString& /*base*/) { return true; }
    // Whether the cube name marks a reference scan of the camera rather than an image.
    virtual bool isReferenceName() const { return false; }
    // Displays a failed load of the scan with the cube's load message.
    void reportLoadFailure(const ZelkSpectralCube& cube);

    EnviRule rule_;
    QString cubeExtension_;
    bool search_;
    bool warnLoadMessage_;
};

#define ZELK_ENVI_IMAGE_CLASS(Name, type, rule, extension, search, warn)                                               \
    class Name : public ZelkImageEnviScan {                                                                            \
    public:                                                                                                            \
        explicit Name(const QString& name = QString(), QObject* parent = nullptr)                                     \
            : ZelkImageEnviScan(name, parent, type, EnviRule::rule, extension, search, warn)                           \
        {                                                                                                              \
        }                                                                                                              \
    };

ZELK_ENVI_IMAGE_CLASS(ZelkImageIMEC, 3, RequiredDefaults, ".raw", true, true)
ZELK_ENVI_IMAGE_CLASS(ZelkImageCubertENVI, 9, NoDefaults, ".cue", false, false)
ZELK_ENVI_IMAGE_CLASS(ZelkImageCorning, 13, RequiredDefaults, ".hsi", false, true)
ZELK_ENVI_IMAGE_CLASS(ZelkImageENVI, 14, Plain, ".raw", true, false)
ZELK_ENVI_IMAGE_CLASS(ZelkImageUnispectral, 18, Plain, ".raw", false, true)
ZELK_ENVI_IMAGE_CLASS(ZelkImageSiliosENVI, 21, Plain, ".bin", true, false)
#undef ZELK_ENVI_IMAGE_CLASS

// The cube file is the scan's name itself; the preview is a ".jpg" beside it.
class ZelkImageHyspex : public ZelkImageEnviScan {
public:
    explicit ZelkImageHyspex(const QString& name = QString(), QObject* parent = nullptr);
    QImage loadPreview(const QString& directory) override;
};

class ZelkImageSpecImIQ : public ZelkImageEnviScan {
public:
    explicit ZelkImageSpecImIQ(const QString& name = QString(), QObject* parent = nullptr);
    float maxValue = -1.0f; // the camera's white level, from "max value"

protected:
    int readMoreFields(const EnviHeader& header, const QString& path, bool wavelengthsRead) override;
};

// Formats whose scans come in counts with white and dark reference scans beside them.
// The references are reduced over their lines (brightest white, darkest dark) and
// applied to the whole scan, which becomes float BIP.
class ZelkImageReferenced : public ZelkImageEnviScan {
public:
    // What the reference search leaves behind.
    struct References {
        std::unique_ptr<ZelkSpectralCube> white;
        std::unique_ptr<ZelkSpectralCube> dark;
        int errorCode = 0;
        QString errorText; // "code: message"
        bool scanSpecific = false; // the pair was named after the scan
    };
    References references;

    // Corrects the uint16 scan loaded from `name` (its path without extension) in place:
    // 0, or -3801 ... -3809 with the reason in `references`.
    int correct(ZelkSpectralCube& scan, const QString& name);

    // The reference finders. Scan-specific: "<scan>_whiteref" or "<scan>_White", then
    // "<scan>_darkref" or "<scan>_Dark". Directory-specific: "whiteref" or "White", then
    // "darkref" or "Dark", in `directory`. Each file pair is ".hdr" and ".bin"; the second
    // name is tried only when the first has no header. 0, or -3802 ... -3805.
    int findScanReferences(const QString& scanBase);
    int findDirectoryReferences(const QString& directory);
    // Both finders in that order; -3808 when neither finds a pair.
    int findAnyReferences(const QString& scanBase);

protected:
    ZelkImageReferenced(const QString& name, QObject* parent, int type, float gainOffset, bool allowBip);
    // Finds and loads the pair that belongs to the scan at `name`: 0 or a code.
    virtual int findReferences(const QString& name) = 0;
    bool afterLoad(ZelkSpectralCube& cube, const QString& base) override;
    // Displays a failed correction.
    virtual void reportCorrectionFailure(int code);

    // One reference file: candidate paths without extension, and the texts for a missing
    // header (%1 the header looked for) and a failed load (%1 the path).
    struct ReferenceFile {
        QStringList bases;
        QString extension;
        QString missingText;
        QString loadText;
    };
    int loadReferencePair(const ReferenceFile& white, const ReferenceFile& dark);
    int fail(int code, const QString& message);

    float gainOffset_;
    bool allowBip_;
};

// "whiteReference" and "darkReference" in the scan's directory.
class ZelkImageHeadwall : public ZelkImageReferenced {
public:
    explicit ZelkImageHeadwall(const QString& name = QString(), QObject* parent = nullptr);

protected:
    int findReferences(const QString& name) override;
    bool isReferenceName() const override;
};

// "Response Correction.bil" and "Dark Correction.bil" in the scan's directory.
class ZelkImageResonon : public ZelkImageReferenced {
public:
    explicit ZelkImageResonon(const QString& name = QString(), QObject* parent = nullptr);

protected:
    int findReferences(const QString& name) override;
    bool isReferenceName() const override;
};

// References named after the scan, else in its directory; BIL or BIP throughout, and a
// small offset in the gain so that a dead pixel does not divide by zero.
class ZelkImageInnospec : public ZelkImageReferenced {
public:
    explicit ZelkImageInnospec(const QString& name = QString(), QObject* parent = nullptr);

protected:
    int findReferences(const QString& name) override;
    bool isReferenceName() const override;
    void reportCorrectionFailure(int code) override;
};

// A scan directory named after the image with a "capture" subdirectory, holding the scan
// and its "DARKREF_" and "WHITEREF_" reference scans.
class ZelkImageSpecim : public ZelkImageFile {
public:
    explicit ZelkImageSpecim(const QString& name = QString(), QObject* parent = nullptr);
    QString extraText;

    int readMetaData(const QString& directory) override;
    QImage loadPreview(const QString& directory) override;
    std::unique_ptr<ZelkSpectralCube> loadCube(const QString& directory) override;

    // "<directory>/<cubeName>/capture".
    QString captureDirectory(const QString& directory) const;
    // The reference with that prefix ("DARKREF_" or "WHITEREF_") in the capture
    // directory: a BIL cube of `columns` and `bands` with the lines of its header, uint16
    // or float by its "data type" (12 or 4); null when it cannot be read or is too short.
    std::unique_ptr<ZelkSpectralCube> loadReference(const QString& directory, const QString& prefix, int columns, int bands) const;
    // The same at the columns and bands of the reference's own header.
    std::unique_ptr<ZelkSpectralCube> loadReference(const QString& directory, const QString& prefix) const;

protected:
    void loadTail(QDataStream& in) override;
};

class ZelkImageMatlab : public ZelkImageFile {
public:
    explicit ZelkImageMatlab(const QString& name = QString(), QObject* parent = nullptr);
    QString variableName;
    int readMetaData(const QString&) override { return 0; }

protected:
    void loadTail(QDataStream& in) override;
};

// A fixed camera of 50 by 50 pixels and 138 bands whose scan is read at a fixed place of
// its file.
class ZelkImageCubert : public ZelkImageFile {
public:
    explicit ZelkImageCubert(const QString& name = QString(), QObject* parent = nullptr);
    int readMetaData(const QString& directory) override;
    QImage loadPreview(const QString& directory) override;
    std::unique_ptr<ZelkSpectralCube> loadCube(const QString& directory) override;

    static constexpr int Columns = 50, Lines = 50, Bands = 138;
    static constexpr qint64 SampleOffset = 8;
};

class ZelkImageCubertTiff : public ZelkImageFile {
public:
    explicit ZelkImageCubertTiff(const QString& name = QString(), QObject* parent = nullptr);
    // Nothing is read: an empty cube.
    std::unique_ptr<ZelkSpectralCube> loadCube(const QString& directory) override;
};

// A fixed camera of 426 by 339 pixels and 8 bands, whose filter centres stand in a text
// file named after the first part of the scan's name.
class ZelkImageSilios : public ZelkImageFile {
public:
    explicit ZelkImageSilios(const QString& name = QString(), QObject* parent = nullptr);
    int readMetaData(const QString& directory) override;
};

// One TIFF image per band in a directory named after the scan.
class ZelkImageTiffBands : public ZelkImageFile {
public:
    std::unique_ptr<ZelkSpectralCube> loadCube(const QString& directory) override;
    // The name filter of band `band`, counted from 1, in the scan directory `scanDir`.
    virtual QString bandPattern(const QDir& scanDir, int band) const = 0;
    // The file of band `band`, or an empty string.
    QString bandFile(const QDir& scanDir, int band) const;

protected:
    ZelkImageTiffBands(const QString& name, QObject* parent, int type);
};

class ZelkImageSpectrocam : public ZelkImageTiffBands {
public:
    explicit ZelkImageSpectrocam(const QString& name = QString(), QObject* parent = nullptr);
    QString bandPattern(const QDir& scanDir, int band) const override;
};

class ZelkImageTiffStack : public ZelkImageTiffBands {
public:
    explicit ZelkImageTiffStack(const QString& name = QString(), QObject* parent = nullptr);
    QString bandPattern(const QDir& scanDir, int band) const override;
    int readMetaData(const QString& directory) override;
};

// Bands stand in the camera's sequence order in the file; the sorted wavelengths, the
// file's own list and the gains are kept so that cubes can be reordered.
class ZelkImageSENOP : public ZelkImageEnviScan {
public:
    explicit ZelkImageSENOP(const QString& name = QString(), QObject* parent = nullptr);
    QVector<double> fileWavelengths;
    QVector<double> sequenceOrder; // file band i belongs at position sequenceOrder[i]
    std::optional<QVector<double>> gains;

    // Moves the planes of a BSQ uint16 cube (`bands` planes of `planeSize` samples) into
    // the sequence order, using `spare` as room for one plane. False, with nothing moved,
    // when the order is not a permutation of the bands.
    bool reorderBands(quint16* planes, qint64 planeSize, int bands, quint16* spare) const;
    // out = in times the gain of its band, plane by plane; a gain of 0 gives zeros. False
    // when the image has no gain for each band.
    bool applyGains(const quint16* planes, qint64 planeSize, int bands, float* out) const;

protected:
    void loadTail(QDataStream& in) override;
    int readMoreFields(const EnviHeader& header, const QString& path, bool wavelengthsRead) override;
    bool afterLoad(ZelkSpectralCube& cube, const QString& base) override;
};

// A ".trf" raw scan, or a ".trz" compressed one, with its references inside the scan's
// binary header or in files beside it. A compressed scan brings a mask.
class ZelkImageTessaron : public ZelkImageEnviScan {
public:
    explicit ZelkImageTessaron(const QString& name = QString(), QObject* parent = nullptr);
    ~ZelkImageTessaron() override;
    bool compressed = false;
    QImage maskImage;

    std::unique_ptr<ZelkSpectralCube> loadCube(const QString& directory) override;

    // Finds the references of the scan: from the tokens of its binary header, else from
    // "<scan>_whiteref" and "<scan>_darkref", else from "whiteref" and "darkref" in the
    // directory. The new correction has its state derived for `scan`; null when nothing
    // was found, with the reason in the image's error pair.
    std::unique_ptr<ZelkCorrection> loadCorrection(const QDir& directory, const ZelkSpectralCube& scan);
    std::unique_ptr<ZelkCorrection> findScanCorrection(const QDir& directory);
    std::unique_ptr<ZelkCorrection> findDirectoryCorrection(const QDir& directory);
    // Installs a correction, replacing the earlier one. 0.
    int setCorrection(std::unique_ptr<ZelkCorrection> correction);
    ZelkCorrection* correction() const { return correction_.get(); }

    // Applies the installed correction to the cube, which becomes float BIP; a state 0
    // leaves it untouched. 0, or a negative code in the image's error pair.
    int correctCube(ZelkSpectralCube& cube, int mode = 1);
    // Moves both references of a frame correction to the resampler's band grid: 0, -1
    // for a correction or resampler that is not fit, or the status of the resampling
    // that failed, in which case both references stay as they were.
    int resampleReferences(const ZelkResampler& resampler, int device);
    // Zeroes every spectrum of a float BIP cube whose mask value is 0: 0 or -1.
    int maskCube(ZelkSpectralCube& cube);

protected:
    int readMoreFields(const EnviHeader& header, const QString& path, bool wavelengthsRead) override;

private:
    std::unique_ptr<ZelkCorrection> correction_;
};

// Meta-data and scans come from an outside component through two signals.
class ZelkImageCubertCU3 : public ZelkImageFile {
    Q_OBJECT
public:
    explicit ZelkImageCubertCU3(const QString& name = QString(), QObject* parent = nullptr);
    int readMetaData(const QString& directory) override;
    std::unique_ptr<ZelkSpectralCube> loadCube(const QString& directory) override;

Q_SIGNALS:
    void fillMetaData(QString directory, ZelkImageCubertCU3* image);
    void loadSpectralCubeCU3(QString directory, ZelkImageCubertCU3* image, ZelkSpectralCube** cube);
};

// A mosaic camera: one picture holds a grid of tiles, each the scene through other
// filters and slightly shifted. The tiles are registered against the first by phase
// correlation, and a cube is cut from the tiles at the registered origins.
struct ZelkAgrowingSubImage {
    int tile = 0;    // index in the grid, row after row
    int channel = 0; // colour plane of the mosaic: 0 red, 1 green, 2 blue
};

struct ZelkAgrowingCamera {
    QList<QSize> mosaicSizes; // sizes of the mosaic picture this camera delivers
    int tileRows = 0;
    int tileCols = 0;
    QList<ZelkAgrowingSubImage> subImages; // one per band
    QVector<double> extra;
    QVector<double> wavelengths; // one per band
};

class ZelkImageAgrowing : public ZelkImageFile {
public:
    using CameraTable = QMap<QString, ZelkAgrowingCamera>;
    explicit ZelkImageAgrowing(const QString& name = QString(), QObject* parent = nullptr);

    ZelkAgrowingCamera camera;
    QVector<QPoint> tileOrigins; // registered origin of each tile, row after row

    // The library has no source of camera types: the table is empty and the call fails.
    int readMetaData(const QString& directory) override;
    // The registration against a given table, for the mosaic at cubeFileName().
    int readMetaData(const QString& directory, const CameraTable& cameras);
    // The same on a mosaic already in memory.
    int registerMosaic(const QImage& mosaic, const CameraTable& cameras);
    std::unique_ptr<ZelkSpectralCube> loadCube(const QString& directory) override;
};
