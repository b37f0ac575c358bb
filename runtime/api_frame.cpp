// One camera line per call: classification into the ring of decision rows, then the
// object tracker, then the records of the objects it finished.

#include "runtime/acquisition.h"
#include "runtime/export.h"
#include "runtime/handle.h"

#include <QElapsedTimer>
#include <algorithm>

namespace {

// Marks an object's centroid with a cross of 255 in the ring: an arm of 11 pixels along
// its row and one of 10 rows down through it, both clipped to the ring. The row is
// counted back from the newest one without wrapping, so a centroid before the ring's
// seam is not drawn.
void markObject(ZelkHandle* h, const qint32* record)
{
    QImage& ring = *h->ring.labels;
    const int width = ring.width(), rows = ring.height();
    const qint64 c = record[objectfield::CentroidColumn];
    const qint64 r = h->ring.nextRow - (qint64(h->ring.frameCount) - record[objectfield::CentroidLine]);
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
    block.pixels = h->input.width;
    block.bands = h->input.fullBandFrames ? h->input.bands : c.bandIndex.size();
    switch (h->input.layout) {
    case InputLayout::BIL:
        if (h->input.sampleType != InputType::UInt16 && h->input.sampleType != InputType::Float)
            return fail(h, msg::UnsupportedDataType);
        block.type = h->input.sampleType == InputType::UInt16 ? compute::SampleType::U16 : compute::SampleType::F32;
        block.layout = compute::SpectraLayout::PixelsByBands;
        break;
    case InputLayout::BIP:
        if (h->input.sampleType != InputType::Float)
            return fail(h, msg::UnsupportedDataType);
        if (h->correction.enabled)
            return fail(h, msg::BipCorrection);
        block.type = compute::SampleType::F32;
        block.layout = compute::SpectraLayout::BandsByPixels;
        break;
    default:
        block.pixels = 0; // cubes stored band after band are no frames: nothing to classify
    }

    if (block.pixels > 0) {
        if (!c.kernel || c.frameWidth != h->input.width || h->ring.labels->width() != h->input.width)
            return fail(h, msg::FrameWidthChanged);
        if (h->ring.nextRow >= h->ring.labels->height())
            return fail(h, msg::NoRing);
        if (!c.kernel->classifySamples(block, h->ring.labels->scanLine(h->ring.nextRow)))
            return fail(h, msg::frameMisfit(block.bands));
    }

    h->segmentation.count = 0;
    if (!h->segmentation.enabled || !h->segmentation.segmenter)
        return 0;
    const quint8* row = h->ring.labels->constScanLine(h->ring.nextRow);
    int tracked = 0;
    switch (h->segmentation.segmenter->mask()) {
    case ObjectMask::EachDecision: tracked = h->segmentation.segmenter->trackDecisions(row); break;
    case ObjectMask::AllForeground: tracked = h->segmentation.segmenter->trackForeground(row); break;
    }
    if (tracked == -1)
        return failWithoutText(ZELK_E_FAILED); // the tracker reports no text of its own
    return reportObjects(h, true, msg::TooManyObjectsInFrame);
}

// A frame that fails, even by an exception, still takes its row of the ring and counts
// in the statistics.
int processFrame(ZelkHandle* h, const void* frame)
{
    if (!frame)
        return failGlobal(msg::NullPointer);
    if (!h->isAcquiring())
        return fail(h, msg::NotAcquiring);
    QElapsedTimer timer;
    timer.start();
    int (*variant)(ZelkHandle*, const void*) = nullptr;
    switch (h->framePath) {
    case FramePath::Classifier: variant = classifyFrame; break;
    case FramePath::Regression: variant = regressFrame; break;
    case FramePath::Resampling: variant = resampleFrame; break;
    case FramePath::Refused: return fail(h, msg::UnsupportedProcessingSetup);
    }

    const int result = guarded<int>(h, RunningCall::name(), InternalErrorCode, [&] { return variant(h, frame); });
    h->ring.lastRow = h->ring.nextRow;
    if (++h->ring.nextRow == h->ring.rows)
        h->ring.nextRow = 0;
    h->accountTime(double(timer.nsecsElapsed()) / 1e6);
    return result;
}

} // namespace

int reportObjects(ZelkHandle* h, bool markInRing, const Text& overflow)
{
    const ZelkSegmenter& s = *h->segmentation.segmenter;
    const int n = s.objectCount();
    h->segmentation.count = n;
    for (int i = 0; i < n; ++i) {
        ++h->segmentation.serial;
        if (i >= h->segmentation.maxObjects)
            return fail(h, overflow);
        const qint32* from = s.object(i);
        qint32* to = h->segmentation.records.data() + qint64(i) * ObjectRecordInts;
        if (s.mask() == ObjectMask::AllForeground)
            std::copy_n(from + objectfield::ClassSizes, ObjectClassSlots, to + objectfield::ClassSizes);
        to[objectfield::Number] = h->segmentation.serial;
        std::copy_n(from + 1, 8, to + 1);
        if (markInRing)
            markObject(h, to);
    }
    return 0;
}

extern "C" ZELK_API int zelk_ProcessFrame(ZelkHandle* h, const void* frame)
{
    return exported("zelk_ProcessFrame", h, [&] { return processFrame(h, frame); });
}
