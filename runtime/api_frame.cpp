// One camera line per call: classification into the ring of decision rows, then the
// object tracker, then the records of the objects it finished.

#include "model/processing_setup.h"
#include "runtime/acquisition.h"
#include "runtime/boundary.h"
#include "runtime/handle.h"
#include "runtime/report.h"

#include <QElapsedTimer>
#include <algorithm>

namespace {

int frameFailure(ZelkHandle* h, const QString& reason)
{
    return setHandleError(h, InternalErrorCode, QStringLiteral("zelk_ProcessFrame: %1").arg(reason));
}

// Marks an object's centroid with a cross of 255 in the ring: an arm of 11 pixels along
// its row and one of 10 rows down through it, both clipped to the ring. The row is
// counted back from the newest one without wrapping, so a centroid before the ring's
// seam is not drawn.
void markObject(ZelkHandle* h, const qint32* record)
{
    QImage& ring = *h->labelImage;
    const int width = ring.width(), rows = ring.height();
    const qint64 c = record[objectfield::CentroidColumn];
    const qint64 r = h->ringNext - (qint64(h->frameCount) - record[objectfield::CentroidLine]);
    if (r >= 0 && r < rows) {
        const qint64 from = std::max<qint64>(c - 5, 0), to = std::min<qint64>(c + 5, width - 1);
        if (from <= to)
            std::fill(ring.scanLine(int(r)) + from, ring.scanLine(int(r)) + to + 1, quint8(255));
    }
    if (c < 0 || c >= width)
        return;
    for (qint64 row = r - 5; row < r + 5; ++row) {
        if (row < 0 || row >= rows)
            break;
        ring.scanLine(int(row))[c] = 255;
    }
}

int classifyFrame(ZelkHandle* h, const void* frame)
{
    ZelkClassifier& c = *h->project->classifier;
    compute::SampleBlock block;
    block.data = frame;
    block.pixels = h->inputWidth;
    block.bands = h->fullBandFrames ? h->inputBands : c.bandIndex.size();
    switch (h->inputDataLayout) {
    case LayoutBIL:
        if (h->inputDataType != DataUInt16 && h->inputDataType != DataFloat)
            return setHandleError(h, ZELK_E_DATA_FORMAT, QStringLiteral("zelk_ProcessFrame: Unsupported data type."));
        block.type = h->inputDataType == DataUInt16 ? compute::SampleType::U16 : compute::SampleType::F32;
        block.layout = compute::SpectraLayout::PixelsByBands;
        break;
    case LayoutBIP:
        if (h->inputDataType != DataFloat)
            return setHandleError(h, ZELK_E_DATA_FORMAT, QStringLiteral("zelk_ProcessFrame: Unsupported data type."));
        if (h->correctionEnabled)
            return setHandleError(h, ZELK_E_BIP_CORRECTION, QStringLiteral("zelk_ProcessFrame: Correction not supported for the BIP frame layout type"));
        block.type = compute::SampleType::F32;
        block.layout = compute::SpectraLayout::BandsByPixels;
        break;
    default:
        block.pixels = 0; // cubes stored band after band are no frames: nothing to classify
    }

    if (block.pixels > 0) {
        if (!c.kernel || c.frameWidth != h->inputWidth || h->labelImage->width() != h->inputWidth)
            return frameFailure(h, QStringLiteral("Frame width changed during acquisition."));
        if (h->ringNext >= h->labelImage->height())
            return frameFailure(h, QStringLiteral("The decision image holds no ring of rows."));
        if (!c.kernel->classifySamples(block, h->labelImage->scanLine(h->ringNext)))
            return frameFailure(h, QStringLiteral("Frame does not fit the classifier (%1 bands)").arg(block.bands));
    }

    h->objCount = 0;
    if (!h->segmentationEnabled || !h->segmenter)
        return 0;
    const quint8* row = h->labelImage->constScanLine(h->ringNext);
    int tracked = 0;
    switch (h->segmenter->mask()) {
    case ObjectMask::EachDecision: tracked = h->segmenter->trackDecisions(row); break;
    case ObjectMask::AllForeground: tracked = h->segmenter->trackForeground(row); break;
    }
    if (tracked == -1)
        return -1;
    return reportObjects(h, true, "zelk_ProcessFrame: Max number of objects per frame reached");
}

} // namespace

int reportObjects(ZelkHandle* h, bool markInRing, const char* overflowText)
{
    const ZelkSegmenter& s = *h->segmenter;
    const int n = s.objectCount();
    h->objCount = n;
    for (int i = 0; i < n; ++i) {
        ++h->objectSerial;
        if (i >= h->maxObjects)
            return setHandleError(h, ZELK_E_TOO_MANY_OBJECTS, QLatin1String(overflowText));
        const qint32* from = s.object(i);
        qint32* to = h->objects.data() + qint64(i) * ObjectRecordInts;
        if (s.mask() == ObjectMask::AllForeground)
            std::copy_n(from + objectfield::ClassSizes, ObjectClassSlots, to + objectfield::ClassSizes);
        to[objectfield::Number] = h->objectSerial;
        std::copy_n(from + 1, 8, to + 1);
        if (markInRing && h->markObjects)
            markObject(h, to);
    }
    return 0;
}

extern "C" ZELK_API int zelk_ProcessFrame(ZelkHandle* h, const void* frame)
{
    if (!h || !frame)
        return setGlobalError(ZELK_E_NULL_POINTER, QStringLiteral("zelk_ProcessFrame: Passing NULL pointer."));
    if (!h->acquiring)
        return setHandleError(h, ZELK_E_NOT_ACQUIRING, QStringLiteral("zelk_ProcessFrame: Acquisition not running."));
    QElapsedTimer timer;
    timer.start();
    int (*variant)(ZelkHandle*, const void*) = nullptr;
    switch (framePathOf(h->project->processingSetup)) {
    case FramePath::Classifier: variant = classifyFrame; break;
    case FramePath::Regression: variant = regressFrame; break;
    case FramePath::Resampling: variant = resampleFrame; break;
    case FramePath::Refused: return setHandleError(h, ZELK_E_NOT_ACQUIRING, QStringLiteral("zelk_ProcessFrame: Unsupported processing setup."));
    }

    const int result = guarded<int>(h, "zelk_ProcessFrame", InternalErrorCode, [&] { return variant(h, frame); });
    h->ringLast = h->ringNext;
    if (++h->ringNext == h->ringRows)
        h->ringNext = 0;
    accountTime(h, double(timer.nsecsElapsed()) / 1e6);
    return result;
}
