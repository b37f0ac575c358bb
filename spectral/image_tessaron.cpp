// Scans of ".trf" raw files or ".trz" compressed files, corrected by a ZelkCorrection whose
// references come from the scan's binary header or from reference scans beside it.

#include "classify/resampler.h"
#include "compute/backend.h"
#include "spectral/bin_header.h"
#include "spectral/decompressor.h"
#include "spectral/envi_header.h"
#include "spectral/image_family.h"
#include "spectral/load_messages.h"

#include <QDebug>
#include <QFile>
#include <QFileInfo>
#include <functional>
#include <limits>
#include <new>

ZelkImageTessaron::ZelkImageTessaron(const QString& name, QObject* parent)
    : ZelkImageEnviScan(name, parent, 19, EnviRule::Plain, ".trf", true, false)
{
}

ZelkImageTessaron::~ZelkImageTessaron() = default;

int ZelkImageTessaron::readMoreFields(const EnviHeader& header, const QString&, bool)
{
    const int flag = header.headerInt(QStringLiteral(";ZelkCompressedImage"));
    compressed = flag > 0;
    if (compressed) {
        fullCubeBytes = header.headerInt(QStringLiteral(";ZelkFullCubeSizeBytes"));
        storedCubeBytes = header.headerInt(QStringLiteral(";ZelkCompressedImageSizeBytes"));
        return 0;
    }
    // The camera writes data types 1, 4, 5 and 12; a scan of another has no size to show.
    const int type = header.fields().dataType;
    const bool written = type == 1 || type == 4 || type == 5 || type == 12;
    const int sample = written ? header.fields().sampleBytes() : 0;
    const qint64 bytes = qint64(width) * height * bandCount * sample;
    // The fields are 32-bit: a larger cube has no size to show.
    fullCubeBytes = storedCubeBytes = bytes <= std::numeric_limits<int>::max() ? int(bytes) : -1;
    return 0;
}

// ---------------------------------------------------------------------------------------
// Finding the references.

namespace {

struct ReferenceSpec {
    QString base;
    QString extension;
    int missingCode;
    QString missingText; // %1: the header looked for
    QString loadText;    // %1: the path
};

// Loads a white and a dark reference into a new correction, or stores the first failure
// through `fail` and gives null. With `reduce`, a reference of several lines becomes one.
std::unique_ptr<ZelkCorrection> loadPair(const ReferenceSpec (&specs)[2], bool reduce, const std::function<void(int, const QString&)>& fail)
{
    auto correction = std::make_unique<ZelkCorrection>();
    for (int i = 0; i < 2; ++i) {
        const ReferenceSpec& s = specs[i];
        const QString header = s.base + QStringLiteral(".hdr");
        if (!QFileInfo::exists(header)) {
            fail(s.missingCode, s.missingText.arg(header));
            return nullptr;
        }
        auto cube = std::make_unique<ZelkSpectralCube>();
        if (cube->load(s.base, QStringLiteral(".hdr"), s.extension, true) != 0) {
            fail(s.missingCode - 1, s.loadText.arg(s.base + s.extension));
            return nullptr;
        }
        if (reduce && cube->lines > 1) {
            const int result = cube->reduce();
            qInfo().noquote() << QStringLiteral("loadcor: scan, reduce: %1:%2").arg(result).arg(cube->errorText);
        }
        (i == 0 ? correction->white : correction->dark) = std::move(cube);
        (i == 0 ? correction->whiteInfo : correction->darkInfo) = correction::loadedFrom(s.base + s.extension);
    }
    return correction;
}

} // namespace

std::unique_ptr<ZelkCorrection> ZelkImageTessaron::findScanCorrection(const QDir& directory)
{
    const QString base = directory.filePath(cubeName);
    const ReferenceSpec specs[2] = {
        {base + QStringLiteral("_whiteref"), QStringLiteral(".trf"), -3802, QStringLiteral("White reference file '%1' not found"),
         QStringLiteral("Cannot load white reference file ('%1')")},
        {base + QStringLiteral("_darkref"), QStringLiteral(".trf"), -3804, QStringLiteral("Dark reference file '%1' not present"),
         QStringLiteral("Cannot load dark reference file ('%1')")},
    };
    // A short reference scan becomes one line, its mean.
    return loadPair(specs, true, [this](int code, const QString& message) { setError(code, message); });
}

std::unique_ptr<ZelkCorrection> ZelkImageTessaron::findDirectoryCorrection(const QDir& directory)
{
    const QString scanHeader = directory.filePath(cubeName + QStringLiteral(".hdr"));
    if (!QFileInfo::exists(scanHeader)) {
        setError(-3802, QStringLiteral("Scan not found (%1)").arg(scanHeader));
        return nullptr;
    }
    const ReferenceSpec specs[2] = {
        {directory.filePath(QStringLiteral("whiteref")), QStringLiteral(".bin"), -3802,
         QStringLiteral("White reference file 'whiteref.hdr' not present (got '%1')"), QStringLiteral("Cannot load white reference file ('%1')")},
        {directory.filePath(QStringLiteral("darkref")), QStringLiteral(".bin"), -3804,
         QStringLiteral("Dark reference file 'darkref.hdr' not present (got '%1')"), QStringLiteral("Cannot load dark reference file ('%1')")},
    };
    return loadPair(specs, false, [this](int code, const QString& message) { setError(code, message); });
}

std::unique_ptr<ZelkCorrection> ZelkImageTessaron::loadCorrection(const QDir& directory, const ZelkSpectralCube& scan)
{
    const QString base = directory.filePath(cubeName);
    QByteArray meta;
    ZelkSpectralCube probe; // reads the binary header without touching the scan
    std::unique_ptr<ZelkCorrection> correction;
    if (probe.loadBinaryHeader(base, QStringLiteral(".hdr"), QStringLiteral(".trf"), &meta) == 0) {
        correction = std::make_unique<ZelkCorrection>();
        ZelkBinHeader tokens;
        if (tokens.init(meta) == 0) {
            correction->white = tokens.whiteReference(scan.bands);
            correction->dark = tokens.darkReference(scan.bands);
        }
        if (correction->white)
            correction->whiteInfo = QStringLiteral("Point spectrum");
        if (correction->dark)
            correction->darkInfo = QStringLiteral("Point spectrum");
        correction->source = ZelkCorrection::SourceScanHeader;
    } else if ((correction = findScanCorrection(directory))) {
        correction->source = ZelkCorrection::SourceScanFiles;
    } else if ((correction = findDirectoryCorrection(directory))) {
        correction->source = ZelkCorrection::SourceDirectoryFiles;
    } else {
        const QString last = imageErrorMsg;
        setError(-3808, QStringLiteral("Did not find scan-specific correction or directory-specific correction. Scan cannot be loaded ('%1')").arg(last));
        return nullptr;
    }
    correction->deriveState(scan); // the state tells the outcome
    qInfo().noquote() << QStringLiteral("impc: loadcor whitelevel=%1").arg(double(correction->whiteLevel));
    return correction;
}

int ZelkImageTessaron::setCorrection(std::unique_ptr<ZelkCorrection> correction)
{
    correction_ = std::move(correction);
    return 0;
}

// ---------------------------------------------------------------------------------------
// Applying the correction.

namespace {

// R = (X - D) * G over a cube whose band b of pixel (c, l) stands at base(c, l) + b * stride.
template <class T>
void correctSamples(const ZelkSpectralCube& cube, const float* d, const float* g, int refColumns, int refLines, float* out)
{
    const int columns = cube.columns, lines = cube.lines, bands = cube.bands;
    const T* in = cube.samples<T>();
    qint64 stride = 1;
    if (cube.layout == LayoutBIL)
        stride = columns;
    else if (cube.layout == LayoutBSQ)
        stride = qint64(lines) * columns;
    for (int l = 0; l < lines; ++l)
        for (int c = 0; c < columns; ++c) {
            const T* x = in + cube.indexOf(c, l, 0);
            const qint64 k = (qint64(refLines > 1 ? l : 0) * refColumns + (refColumns > 1 ? c : 0)) * bands;
            float* r = out + (qint64(l) * columns + c) * bands;
            for (int b = 0; b < bands; ++b)
                r[b] = (float(x[b * stride]) - d[k + b]) * g[k + b];
        }
}

} // namespace

int ZelkImageTessaron::correctCube(ZelkSpectralCube& cube, int mode)
{
    ZelkCorrection* c = correction_.get();
    if (!c || c->state == ZelkCorrection::NotSet)
        return setError(-4304, QStringLiteral("Invalid correction information"));
    if (c->state == ZelkCorrection::NoCorrection)
        return 0;
    if (c->isValid(mode) != 0)
        return setError(-4302, QStringLiteral("Correction not valid (%1)").arg(mode));

    const compute::DeviceScope scope(device);
    const ZelkSpectralCube& white = *c->white;
    const ZelkSpectralCube& dark = *c->dark;
    QString refused;
    if (const int r = c->checkReferences(&refused))
        return setError(r, refused);

    // The references must have the shape that the state applies to this cube.
    const int refColumns = c->state == ZelkCorrection::Point ? 1 : cube.columns;
    const int refLines = c->state == ZelkCorrection::Cube ? cube.lines : 1;
    for (const ZelkSpectralCube* ref : {&white, &dark})
        if (ref->columns != refColumns || ref->lines != refLines || ref->bands != cube.bands || !ref->holdsSamples())
            return setError(-4308, QStringLiteral("Correction references do not fit the cube (%1 columns, %2 lines, %3 bands)")
                                       .arg(cube.columns).arg(cube.lines).arg(cube.bands));

    if (cube.layout != LayoutBIP && cube.layout != LayoutBIL && cube.layout != LayoutBSQ)
        return 0;
    if (cube.dataType != DataUInt16 && cube.dataType != DataFloat)
        return setError(-1, QStringLiteral("Unsupported data type in trf file correction (got %1)").arg(cube.dataType));
    // A float BIL cube is read with its columns and bands exchanged and turned back, which
    // only fits the references when both counts agree.
    if (cube.layout == LayoutBIL && cube.dataType == DataFloat && cube.columns != cube.bands)
        return setError(-4307, QStringLiteral("Float BIL cube must have as many columns as bands (got %1 columns, %2 bands)")
                                   .arg(cube.columns).arg(cube.bands));
    if (!cube.holdsSamples())
        return setError(-4308, QStringLiteral("Correction references do not fit the cube (%1 columns, %2 lines, %3 bands)")
                                   .arg(cube.columns).arg(cube.lines).arg(cube.bands));

    // D and G in BIP order over the references' own columns and lines.
    QVector<float> d, g;
    c->levels(refColumns, refLines, false, &d, &g);

    const qint64 count = cube.sampleCount();
    std::unique_ptr<char[]> buffer(new (std::nothrow) char[size_t(std::max<qint64>(count * 4, 1))]);
    if (!buffer)
        return setError(-32023, QStringLiteral("Cannot allocate memory"));
    auto* out = reinterpret_cast<float*>(buffer.get());
    if (cube.dataType == DataUInt16)
        correctSamples<quint16>(cube, d.constData(), g.constData(), refColumns, refLines, out);
    else
        correctSamples<float>(cube, d.constData(), g.constData(), refColumns, refLines, out);
    cube.setData(std::move(buffer), count * 4);
    cube.dataType = DataFloat;
    cube.layout = LayoutBIP;
    return 0;
}

int ZelkImageTessaron::resampleReferences(const ZelkResampler& resampler, int packedDevice)
{
    ZelkCorrection* c = correction_.get();
    if (!c || c->state != ZelkCorrection::Frame || !c->white || !c->dark || !resampler.resamplerReady)
        return -1;
    const compute::DeviceScope scope(packedDevice);
    int status = 0;
    // Both are resampled before either is replaced, so that a failure keeps the pair.
    std::unique_ptr<ZelkSpectralCube> white = c->white->resampled(resampler, &status);
    if (!white)
        return status;
    std::unique_ptr<ZelkSpectralCube> dark = c->dark->resampled(resampler, &status);
    if (!dark)
        return status;
    c->white = std::move(white);
    c->dark = std::move(dark);
    return 0;
}

int ZelkImageTessaron::maskCube(ZelkSpectralCube& cube)
{
    if (cube.layout != LayoutBIP || cube.dataType != DataFloat) {
        setError(-1, QStringLiteral("Cube is required to be BIP float, got %1,%2.").arg(cube.layout).arg(cube.dataType));
        return -1;
    }
    if (maskImage.size() != QSize(cube.columns, cube.lines) || !cube.holdsSamples()) {
        setError(-1, QStringLiteral("Mask of %1 x %2 does not match the cube of %3 x %4.")
                         .arg(maskImage.width()).arg(maskImage.height()).arg(cube.columns).arg(cube.lines));
        return -1;
    }
    const QImage mask = maskImage.format() == QImage::Format_Indexed8 || maskImage.format() == QImage::Format_Grayscale8
                            ? maskImage
                            : maskImage.convertToFormat(QImage::Format_Grayscale8);
    float* samples = cube.samples<float>();
    const int w = mask.width(), bands = cube.bands;
    for (int y = 0; y < mask.height(); ++y) {
        const uchar* row = mask.constScanLine(y);
        for (int x = 0; x < w; ++x)
            if (row[x] == 0)
                std::fill_n(samples + (qint64(y) * w + x) * bands, bands, 0.0f);
    }
    return 0;
}

// ---------------------------------------------------------------------------------------

std::unique_ptr<ZelkSpectralCube> ZelkImageTessaron::loadCube(const QString& directory)
{
    const QDir dir(directory);
    const QString base = dir.filePath(cubeName);
    std::unique_ptr<ZelkSpectralCube> cube;
    if (compressed) {
        QFile file(base + QStringLiteral(".trz"));
        if (!file.open(QIODevice::ReadOnly)) {
            setError(-1, QStringLiteral("Cannot open file '%1'").arg(file.fileName()));
            Q_EMIT displayMessage(loadmessages::loadError(cubeName, QStringLiteral("Cannot open file '%1'").arg(file.fileName())));
            return nullptr;
        }
        const QByteArray bytes = file.readAll();
        ZelkDecompressor decompressor;
        if (decompressor.decompress(bytes.constData(), bytes.size()) != 0) {
            setError(decompressor.errorCode, decompressor.errorText);
            Q_EMIT displayMessage(loadmessages::loadError(cubeName, decompressor.errorText));
            return nullptr;
        }
        cube = std::move(decompressor.cube);
        maskImage = *decompressor.mask;
    } else {
        cube = std::make_unique<ZelkSpectralCube>();
        if (cube->load(base, QStringLiteral(".hdr"), cubeExtension_, search_) != 0) {
            reportLoadFailure(*cube);
            return nullptr;
        }
    }

    // Correction, mask, crop: in this order, so that references meet the full scan.
    std::unique_ptr<ZelkCorrection> found = loadCorrection(dir, *cube);
    if (!found) {
        Q_EMIT displayMessage(loadmessages::titledError("Error loading correction", cubeName, imageError, imageErrorMsg));
    } else {
        setCorrection(std::move(found));
        if (correctCube(*cube, 1) != 0) {
            Q_EMIT displayMessage(loadmessages::titledError(compressed ? "Error correcting compressed image" : "Error correcting image",
                                                            cubeName, imageError, imageErrorMsg));
        } else if (compressed && cube->dataType == DataFloat && cube->layout == LayoutBIP && maskCube(*cube) != 0) {
            // A scan left in counts is already zero outside its mask.
            Q_EMIT displayMessage(loadmessages::titledError("Error correcting compressed image", cubeName, imageError, imageErrorMsg));
        }
    }
    if (!cropToRegion(*cube))
        return nullptr;
    return cube;
}
