// Scans in counts with white and dark reference scans beside them.

#include "spectral/image_family.h"
#include "spectral/load_messages.h"
#include "spectral/scan_correction.h"

#include <QFileInfo>

ZelkImageReferenced::ZelkImageReferenced(const QString& name, QObject* parent, int type, float gainOffset, bool allowBip)
    : ZelkImageEnviScan(name, parent, type, EnviRule::Strict, ".bin", true, false)
    , gainOffset_(gainOffset)
    , allowBip_(allowBip)
{
}

int ZelkImageReferenced::fail(int code, const QString& message)
{
    references.errorCode = code;
    references.errorText = QStringLiteral("%1: %2").arg(code).arg(message);
    return setError(code, message);
}

bool ZelkImageReferenced::afterLoad(ZelkSpectralCube& cube, const QString& base)
{
    if (cube.dataType == DataUInt16) {
        externallyCorrected = false;
        const int code = correct(cube, base);
        if (code != 0)
            reportCorrectionFailure(code); // the scan goes on in counts
    } else if (cube.dataType == DataFloat) {
        externallyCorrected = true;
    } else {
        Q_EMIT displayMessage(loadmessages::typeWarning());
        externallyCorrected = true;
    }
    return true;
}

void ZelkImageReferenced::reportCorrectionFailure(int code)
{
    Q_EMIT displayMessage(loadmessages::correctionError(code, references.errorText));
}

int ZelkImageReferenced::loadReferencePair(const ReferenceFile& white, const ReferenceFile& dark)
{
    auto loadOne = [this](const ReferenceFile& file, int missingCode, std::unique_ptr<ZelkSpectralCube>* out) {
        QString chosen;
        for (const QString& base : file.bases)
            if (QFileInfo::exists(base + QStringLiteral(".hdr"))) {
                chosen = base;
                break;
            }
        if (chosen.isEmpty())
            return fail(missingCode, file.missingText.arg(file.bases.value(0) + QStringLiteral(".hdr")));
        auto cube = std::make_unique<ZelkSpectralCube>();
        if (cube->load(chosen, QStringLiteral(".hdr"), file.extension, true) != 0)
            return fail(missingCode - 1, file.loadText.arg(chosen));
        *out = std::move(cube);
        return 0;
    };
    references.white.reset();
    references.dark.reset();
    if (int code = loadOne(white, -3802, &references.white))
        return code;
    return loadOne(dark, -3804, &references.dark);
}

int ZelkImageReferenced::findScanReferences(const QString& scanBase)
{
    const int code = loadReferencePair(
        {{scanBase + QStringLiteral("_whiteref"), scanBase + QStringLiteral("_White")}, QStringLiteral(".bin"),
         QStringLiteral("White reference file '%1' not found"), QStringLiteral("Cannot load white reference file ('%1')")},
        {{scanBase + QStringLiteral("_darkref"), scanBase + QStringLiteral("_Dark")}, QStringLiteral(".bin"),
         QStringLiteral("Dark reference file '%1' not present"), QStringLiteral("Cannot load dark reference file ('%1')")});
    references.scanSpecific = code == 0;
    return code;
}

int ZelkImageReferenced::findDirectoryReferences(const QString& directory)
{
    const QDir dir(directory);
    const int code = loadReferencePair(
        {{dir.filePath(QStringLiteral("whiteref")), dir.filePath(QStringLiteral("White"))}, QStringLiteral(".bin"),
         QStringLiteral("White reference file 'whiteref.hdr' not present (got '%1')"),
         QStringLiteral("Cannot load white reference file ('%1')")},
        {{dir.filePath(QStringLiteral("darkref")), dir.filePath(QStringLiteral("Dark"))}, QStringLiteral(".bin"),
         QStringLiteral("Dark reference file 'darkref.hdr' not present (got '%1')"),
         QStringLiteral("Cannot load dark reference file ('%1')")});
    references.scanSpecific = false;
    return code;
}

int ZelkImageReferenced::findAnyReferences(const QString& scanBase)
{
    if (findScanReferences(scanBase) == 0)
        return 0;
    if (findDirectoryReferences(QFileInfo(scanBase).absolutePath()) == 0)
        return 0;
    const QString last = references.errorText;
    return fail(-3808, QStringLiteral("Did not find scan-specific correction or directory-specific correction. Scan cannot be loaded ('%1')").arg(last));
}

int ZelkImageReferenced::correct(ZelkSpectralCube& scan, const QString& name)
{
    const QString header = name + QStringLiteral(".hdr");
    if (!QFileInfo::exists(header))
        return fail(-3801, QStringLiteral("Scan header file not found '%1'").arg(header));
    references.white.reset();
    references.dark.reset();
    if (int code = findReferences(name))
        return code;
    const ZelkSpectralCube& white = *references.white;
    const ZelkSpectralCube& dark = *references.dark;

    auto all = [&](quint32 layout) { return scan.layout == layout && white.layout == layout && dark.layout == layout; };
    auto usable = [](const ZelkSpectralCube& c) { return c.dataType == DataUInt16 || c.dataType == DataFloat; };
    if (!(all(LayoutBIL) || (allowBip_ && all(LayoutBIP))) || scan.dataType != DataUInt16 || !usable(white) || !usable(dark))
        return fail(-3806, QStringLiteral("Unsupported data layout or data type for correction (BIL and uint16 are required)"));
    if (white.columns != scan.columns || dark.columns != scan.columns || white.bands != scan.bands || dark.bands != scan.bands) {
        references.white.reset();
        references.dark.reset();
        return fail(-3807, QStringLiteral("Scan and correction scans must have identical width and band count."));
    }

    QVector<float> w, d;
    if (!scancorrection::level(white, scancorrection::Reduction::Max, &w) ||
        !scancorrection::level(dark, scancorrection::Reduction::Min, &d))
        return fail(-3809, QStringLiteral("A float reference must have one line (white %1, dark %2 lines)").arg(white.lines).arg(dark.lines));
    QVector<float> gain(w.size());
    for (int i = 0; i < w.size(); ++i)
        gain[i] = 1.0f / (w[i] - d[i] + gainOffset_);
    const bool done = scancorrection::apply(scan, d, gain, false, [this](const QString& text, int percent) {
        Q_EMIT progressChanged(text, percent);
    });
    if (!done)
        return fail(-3810, QStringLiteral("The scan's samples do not fill its %1 x %2 x %3 size").arg(scan.columns).arg(scan.lines).arg(scan.bands));
    return 0;
}

// ---------------------------------------------------------------------------------------

ZelkImageHeadwall::ZelkImageHeadwall(const QString& name, QObject* parent)
    : ZelkImageReferenced(name, parent, 10, 0.0f, false)
{
}

bool ZelkImageHeadwall::isReferenceName() const
{
    return cubeName.endsWith(QLatin1String("whiteReference")) || cubeName.endsWith(QLatin1String("darkReference"));
}

int ZelkImageHeadwall::findReferences(const QString& name)
{
    const QDir dir = QFileInfo(name).absoluteDir();
    return loadReferencePair({{dir.filePath(QStringLiteral("whiteReference"))}, QStringLiteral(".bin"),
                              QStringLiteral("White reference file 'whiteReference.hdr' not present (got '%1')"),
                              QStringLiteral("Cannot load white reference file ('%1')")},
                             {{dir.filePath(QStringLiteral("darkReference"))}, QStringLiteral(".bin"),
                              QStringLiteral("Dark reference file 'darkReference.hdr' not present (got '%1')"),
                              QStringLiteral("Cannot load dark reference file ('%1')")});
}

ZelkImageResonon::ZelkImageResonon(const QString& name, QObject* parent)
    : ZelkImageReferenced(name, parent, 17, 0.0f, false)
{
}

bool ZelkImageResonon::isReferenceName() const
{
    return cubeName.endsWith(QLatin1String("Dark Correction")) || cubeName.endsWith(QLatin1String("Response Correction"));
}

int ZelkImageResonon::findReferences(const QString& name)
{
    // The reference is the ".bil" file itself, with its header at ".bil.hdr".
    const QDir dir = QFileInfo(name).absoluteDir();
    return loadReferencePair({{dir.filePath(QStringLiteral("Response Correction.bil"))}, QString(),
                              QStringLiteral("White reference file 'Response correction.bil.hdr' not present (got '%1')"),
                              QStringLiteral("Cannot load white reference file ('%1')")},
                             {{dir.filePath(QStringLiteral("Dark Correction.bil"))}, QString(),
                              QStringLiteral("Dark reference file 'Dark Correction.bil.hdr' not present (got '%1')"),
                              QStringLiteral("Cannot load dark reference file ('%1')")});
}

ZelkImageInnospec::ZelkImageInnospec(const QString& name, QObject* parent)
    : ZelkImageReferenced(name, parent, 16, 1e-06f, true)
{
}

bool ZelkImageInnospec::isReferenceName() const
{
    return cubeName.endsWith(QLatin1String("whiteref")) || cubeName.endsWith(QLatin1String("darkref"));
}

int ZelkImageInnospec::findReferences(const QString& name)
{
    return findAnyReferences(name);
}

void ZelkImageInnospec::reportCorrectionFailure(int code)
{
    Q_EMIT displayMessage(loadmessages::namedCorrectionError(code, cubeName, references.errorText));
}
