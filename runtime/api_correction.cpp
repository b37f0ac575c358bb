// Loading white and dark references into the handle. What a load leaves is the dark
// level `darkRef` and the gain `gainRef`, which turn the counts of a frame into
// reflectance as (x - dark) * gain; both hold width by bands values with the pixel
// index running fastest, the shape that the acquisition start reduces to the
// classifier's bands. Three camera families keep their references in three ways, so
// that the call has three loaders.
//
// A loader reports a failure in one of two ways: in the handle's correction pair
// (correction.loaderError, correction.loaderErrorText), or straight in the handle. The call then
// publishes the pair in any case, so that a report made straight in the handle is
// replaced by the pair's older content: the caller reads the last reference failure
// that was kept, while the returned code tells what went wrong now.
//
// The references are built completely before the handle's are replaced, so that a
// failed load leaves the earlier correction in use.

#include "runtime/export.h"
#include "runtime/handle.h"
#include "runtime/processing_setup.h"
#include "spectral/camera_kinds.h"
#include "spectral/envi_header.h"
#include "spectral/image_family.h"
#include "spectral/scan_correction.h"

#include <QDir>
#include <QFileInfo>
#include <limits>

namespace {

// The largest reference that a float vector holds.
constexpr qint64 MaxReferenceValues = std::numeric_limits<int>::max() / int(sizeof(float));

using scancorrection::Reduction;

// Keeps a failure in the correction pair, which the call publishes.
int keep(ZelkHandle* h, const Text& t)
{
    h->correction.loaderError = t.code;
    h->correction.loaderErrorText = spelled(t);
    return t.code;
}

void install(ZelkHandle* h, QVector<float> dark, QVector<float> gain)
{
    h->correction.darkRef = std::move(dark);
    h->correction.gainRef = std::move(gain);
    h->correction.enabled = true;
}

// ---------------------------------------------------------------------------------------
// Camera type 10: "whiteReference" and "darkReference" in the directory, BIL. A uint16
// reference is reduced over its lines to its brightest white and darkest dark; a float
// one is taken as it stands. The gain carries no white level.

int pairLevel(ZelkHandle* h, const ZelkSpectralCube& scan, Reduction how, QVector<float>* out)
{
    if (scan.dataType != DataUInt16 && scan.dataType != DataFloat)
        return keep(h, msg::referenceType(scan.dataType));
    // A float reference is not reduced, so it must be one line already: the frame path
    // subtracts one value per pixel and band.
    if (!scancorrection::level(scan, how, out))
        return keep(h, msg::referenceLinesForFrames(scan.lines));
    return 0;
}

int loadReferencePair(ZelkHandle* h, const QString& directory, const char* name)
{
    if (name)
        return failWithoutText(ZELK_E_FAILED);
    h->correction.whiteScan.reset();
    h->correction.darkScan.reset();

    struct Side {
        const char* file;
        Text (*missing)(const QString& path);
        Text (*failed)(const QString& path, const QString& details);
        std::unique_ptr<ZelkSpectralCube>& scan;
    };
    const Side sides[2] = {
        {"whiteReference", msg::whiteMissing, msg::whiteUnloadable, h->correction.whiteScan},
        {"darkReference", msg::darkMissing, msg::darkUnloadable, h->correction.darkScan},
    };
    const QDir dir(directory);
    for (const Side& side : sides) {
        const QString path = dir.absoluteFilePath(QLatin1String(side.file));
        if (!QFileInfo::exists(path + QStringLiteral(".hdr")))
            return keep(h, side.missing(path));
        side.scan = std::make_unique<ZelkSpectralCube>();
        if (side.scan->load(path, QStringLiteral(".hdr"), QStringLiteral(".bin"), false) != 0)
            return keep(h, side.failed(path, side.scan->loadMessage));
    }
    if (!h->correction.whiteScan || !h->correction.darkScan)
        return keep(h, msg::BothReferencesNeeded);

    const ZelkSpectralCube &white = *h->correction.whiteScan, &dark = *h->correction.darkScan;
    int refused = 0;
    if (white.layout != LayoutBIL || dark.layout != LayoutBIL)
        refused = keep(h, msg::ReferenceLayoutNotBil);
    else if (white.columns != dark.columns || white.bands != dark.bands)
        refused = keep(h, msg::ReferencesDiffer);
    if (refused) {
        h->correction.whiteScan.reset();
        h->correction.darkScan.reset();
        return refused;
    }

    QVector<float> w, d;
    if (const int r = pairLevel(h, white, Reduction::Max, &w))
        return r;
    if (const int r = pairLevel(h, dark, Reduction::Min, &d))
        return r;
    QVector<float> gain = correction::gainOf(w, d, 1.0f);
    install(h, std::move(d), std::move(gain));
    return 0;
}

// ---------------------------------------------------------------------------------------
// The capture folder of a scan: "DARKREF_<name>" and "WHITEREF_<name>" beside the scan,
// each reduced over its lines to its darkest dark and brightest white. The gain carries
// no white level.

int loadCaptureReferences(ZelkHandle* h, const QString& directory, const QString& name)
{
    ZelkImageSpecim image(name);
    if (image.readMetaData(directory) != 0)
        return fail(h, msg::ScanMetadata);

    const std::unique_ptr<ZelkSpectralCube> dark = image.loadReference(directory, QStringLiteral("DARKREF_"));
    if (!dark)
        return keep(h, msg::DarkReferenceUnreadable);
    const std::unique_ptr<ZelkSpectralCube> white = image.loadReference(directory, QStringLiteral("WHITEREF_"));
    if (!white)
        return keep(h, msg::WhiteReferenceUnreadable);
    if (white->bands != dark->bands)
        return fail(h, msg::BandCountsDiffer);
    // References of two widths cannot be subtracted from each other.
    if (white->columns != dark->columns)
        return keep(h, msg::ReferencesDiffer);

    // A float reference can only be taken as it stands, that is with one line.
    QVector<float> w, d;
    if (!scancorrection::level(*dark, Reduction::Min, &d))
        return keep(h, msg::DarkReferenceUnreadable);
    if (!scancorrection::level(*white, Reduction::Max, &w))
        return keep(h, msg::WhiteReferenceUnreadable);
    QVector<float> gain = correction::gainOf(w, d, 1.0f);

    if (h->correction.meansOnly) {
        // One level per band: the mean over the pixels of the line.
        const int columns = white->columns, bands = white->bands;
        QVector<float> whiteMean(bands, 0.0f), darkMean(bands, 0.0f);
        for (int b = 0; b < bands; ++b) {
            double ws = 0, ds = 0;
            for (int c = 0; c < columns; ++c) {
                ws += w[b * columns + c];
                ds += d[b * columns + c];
            }
            whiteMean[b] = float(ws / columns);
            darkMean[b] = float(ds / columns);
        }
        h->correction.whiteMean = whiteMean;
        h->correction.darkMean = darkMean;
    }
    install(h, std::move(d), std::move(gain));
    return 0;
}

// ---------------------------------------------------------------------------------------
// Camera type 19: the references that a scan's image finds for it (spectra in the
// scan's own header, files named after the scan, or files in its directory), with the
// white level of the correction in the gain: (x - dark) * level / (white - dark).

int loadCorrectionScan(ZelkHandle* h, const QString& directory, const QString& name)
{
    ZelkImageTessaron image(name);
    const QDir dir(directory);
    ZelkSpectralCube scan;
    if (scan.load(dir.absoluteFilePath(name), QStringLiteral(".hdr"), QStringLiteral(".trf"), false) != 0 || !scan.loadMessage.isEmpty())
        return fail(h, msg::correctionScanUnloadable(name, scan.loadMessage));

    std::unique_ptr<ZelkCorrection> found = image.loadCorrection(dir, scan);
    if (!found)
        return fail(h, msg::correctionUnloadable(name, image.imageError, image.imageErrorMsg));
    image.setCorrection(std::move(found));
    if (h->resampling.enabled && (!h->resampling.resampler || image.resampleReferences(*h->resampling.resampler) != 0))
        return failWithoutText(ZELK_E_CORRECTION_SCAN); // the call publishes the correction pair

    ZelkCorrection& c = *image.correction();
    if (c.state == ZelkCorrection::NotSet)
        return fail(h, msg::CorrectionInfoUnnamed);
    if (c.state == ZelkCorrection::NoCorrection)
        return 0;
    if (c.isValid(1) != 0)
        return fail(h, msg::correctionNotValid(1));
    if (h->input.lineScan && c.state != ZelkCorrection::Frame)
        return keep(h, msg::correctionForFrames(c.state == ZelkCorrection::Point ? QStringLiteral("point") : QStringLiteral("cube")));

    const ZelkSpectralCube &white = *c.white, &dark = *c.dark;
    QString refused;
    if (const int r = c.checkReferences(&refused))
        return keep(h, msg::referencesRefused(r, refused));
    if (!white.holdsSamples() || !dark.holdsSamples())
        return keep(h, msg::CorrectionInfoUnnamed);

    const int bands = white.bands;
    QVector<float> d, gain;
    switch (c.state) {
    case ZelkCorrection::Frame:
        // One value per pixel and band, the pixel index fastest, whatever the layout of
        // the references.
        if (qint64(white.columns) * bands > MaxReferenceValues)
            return keep(h, msg::CorrectionInfoUnnamed);
        c.levels(white.columns, 1, true, &d, &gain);
        break;
    case ZelkCorrection::Point: {
        // The spectrum repeated over every pixel of the scan, band fastest.
        const qint64 n = qint64(scan.columns) * scan.lines * bands;
        if (n > MaxReferenceValues)
            return keep(h, msg::CorrectionInfoUnnamed);
        QVector<float> spectrumDark, spectrumGain;
        c.levels(1, 1, false, &spectrumDark, &spectrumGain);
        d.resize(int(n));
        gain.resize(int(n));
        for (qint64 i = 0; i < n; ++i) {
            d[int(i)] = spectrumDark[int(i % bands)];
            gain[int(i)] = spectrumGain[int(i % bands)];
        }
        break;
    }
    default:
        // A whole cube, band fastest, then columns, then lines.
        if (white.sampleCount() > MaxReferenceValues)
            return keep(h, msg::CorrectionInfoUnnamed);
        c.levels(white.columns, white.lines, false, &d, &gain);
    }
    install(h, std::move(d), std::move(gain));
    return 0;
}

int loadCorrection(ZelkHandle* h, const char* directoryName, const char* name)
{
    if (!h->project)
        return fail(h, msg::NoProject);
    ZelkProject& p = *h->project;
    const QString directory = QString::fromLatin1(directoryName);
    int result = 0;
    switch (cameraKind(p.projectType, p.acqType).correction) {
    case CorrectionLoader::ReferencePair: result = loadReferencePair(h, directory, name); break;
    case CorrectionLoader::CorrectionScan: result = loadCorrectionScan(h, directory, QString::fromLatin1(name)); break;
    case CorrectionLoader::CaptureFolder: result = loadCaptureReferences(h, directory, QString::fromLatin1(name)); break;
    }
    if (result != 0) {
        setHandleError(h, h->correction.loaderError, h->correction.loaderErrorText);
        return result;
    }
    // A project of none of the parts keeps its set-up.
    const ProcessingSetup corrected = setupOfParts(p, true);
    if (!h->resampling.enabled && h->correction.enabled && corrected != ProcessingSetup::None)
        p.processingSetup = int(corrected);
    return 0;
}

} // namespace

extern "C" ZELK_API int zelk_LoadCorrection(ZelkHandle* h, const char* directory, const char* name)
{
    return exported("zelk_LoadCorrection", h, [&] { return loadCorrection(h, directory, name); });
}
