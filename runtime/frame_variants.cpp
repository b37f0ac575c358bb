// The frame path of projects with a regressor. The frame is staged once, converted to
// float and corrected on all of its bands, on the run's device; the classifier takes
// its bands from that staged frame, the regressor maps every pixel's full spectrum onto
// its output variables, and the tracker averages those per object. With resampling,
// the camera's frame is first interpolated onto the project's bands.

#include "classify/classifier.h"
#include "classify/regressor.h"
#include "compute/backend.h"
#include "runtime/acquisition.h"
#include "runtime/export.h"
#include "runtime/handle.h"
#include "segment/segmenter.h"

namespace {

// The checks of a BIP frame, which the regressor cannot take: it needs the pixels of a
// band side by side, as BIL frames hold them.
int refuseBip(ZelkHandle* h)
{
    if (h->input.sampleType != InputType::Float)
        return fail(h, msg::UnsupportedDataType);
    if (h->correction.enabled)
        return fail(h, msg::BipCorrection);
    return fail(h, msg::RegressionNeedsBil);
}

int refuseLayout(ZelkHandle* h)
{
    return fail(h, msg::unsupportedFrameLayout(int(h->input.layout)));
}

bool perPixelCorrection(const ZelkHandle* h)
{
    return h->correction.enabled && !h->correction.meansOnly;
}

// The references that frames are staged with: the per-pixel ones, or none (empty)
// without a correction or with one mean spectrum each.
struct FrameReferences {
    const QVector<float>& dark;
    const QVector<float>& gain;
};

FrameReferences frameReferences(const ZelkHandle* h)
{
    static const QVector<float> none;
    if (perPixelCorrection(h))
        return {h->correction.darkRef, h->correction.gainRef};
    return {none, none};
}

// The bands of the frames that reach the classifier and the regressor: the project's
// after resampling, else the camera's.
int chainBands(const ZelkHandle* h)
{
    if (h->framePath == FramePath::Resampling)
        return h->resampling.resampler ? h->resampling.resampler->destBands : -1;
    return h->input.bands;
}

// Everything the frame will touch, checked before anything is written: the run may
// have been changed under it (input width, references, resampler, segmentation are
// all settable during an acquisition).
int checkRun(ZelkHandle* h, int bands)
{
    const ZelkProject& p = *h->project;
    const ZelkClassifier* c = p.classifier.get();
    const ZelkRegressor* r = p.regressor.get();
    const qint64 width = h->input.width, samples = width * bands;
    if (!c || !c->kernel || !r || width <= 0 || bands <= 0 || c->frameWidth != width || !h->ring.labels
        || h->ring.labels->width() != width)
        return fail(h, msg::FrameWidthChanged);
    if (h->ring.nextRow < 0 || h->ring.nextRow >= h->ring.labels->height())
        return fail(h, msg::NoRing);
    const compute::StagedFrame* staged = r->stagedFrame();
    if (!staged || staged->pixels() != width || staged->bands() != bands || h->regression.variableCount != r->regVarNames.size()
        || qint64(h->regression.outputs.size()) != width * h->regression.variableCount)
        return fail(h, msg::framesNotPrepared(width, bands));
    if (perPixelCorrection(h) && (h->correction.darkRef.size() != samples || h->correction.gainRef.size() != samples))
        return fail(h, msg::CorrectionInfo);
    ZelkSegmenter* s = h->segmentation.enabled ? h->segmentation.segmenter : nullptr;
    if (s && (s->width() != width || s->valuesPerPixel() != h->regression.variableCount))
        return fail(h, msg::SegmentationNotPrepared);
    return 0;
}

// Stages `in` into the regressor's frame: as float, or (in - dark) * gain with per-pixel
// references. The frame and both references hold the pixels of one band after another.
int stageFrame(ZelkHandle* h, const void* in, compute::SampleType type)
{
    const FrameReferences references = frameReferences(h);
    if (!h->project->regressor->stagedFrame()->stage(in, type, references.dark, references.gain))
        return fail(h, msg::StagingFailed);
    return 0;
}

// The staged frame through classifier, regressor and tracker.
int runChain(ZelkHandle* h, int bands)
{
    ZelkProject& p = *h->project;
    ZelkClassifier& c = *p.classifier;
    if (!c.kernel->classifyFrame(*p.regressor->stagedFrame(), h->ring.labels->scanLine(h->ring.nextRow)))
        return fail(h, msg::frameMisfit(bands));

    h->segmentation.count = 0;
    if (!p.regressor->predictStaged(h->regression.outputs.data()))
        return fail(h, msg::regressorMisfit(bands));
    if (!h->segmentation.enabled || !h->segmentation.segmenter)
        return 0;
    const quint8* row = h->ring.labels->constScanLine(h->ring.nextRow);
    const int tracked = h->regression.variableCount == 1 ? h->segmentation.segmenter->trackValue(row, h->regression.outputs.data())
                                            : h->segmentation.segmenter->trackValues(row, h->regression.outputs.data());
    if (tracked != 0)
        return failWithoutText(tracked); // the tracker reports no text of its own
    return reportObjects(h, true, msg::TooManyObjectsInFrame);
}

} // namespace

bool regressionFrames(const ZelkHandle* h)
{
    if (!h->input.lineScan || !h->project)
        return false;
    return h->framePath == FramePath::Regression || h->framePath == FramePath::Resampling;
}

int prepareFrameVariant(ZelkHandle* h)
{
    if (!regressionFrames(h)) {
        h->resampling.frame = {};
        return 0;
    }
    ZelkProject& p = *h->project;
    const int width = h->input.width;
    const bool resampling = h->framePath == FramePath::Resampling;
    QString why;
    if (resampling) {
        ZelkResampler* r = h->resampling.resampler.get();
        if (!r || !r->resamplerReady || r->width != width || r->sourceBands != h->input.bands)
            return fail(h, msg::resamplingMisfit(width, h->input.bands));
        if (!r->prepareFrames(*h->computeDevices.opened, &why))
            return fail(h, msg::resamplingCannotStart(why));
    }
    const int bands = chainBands(h);
    why = msg::NoRegressionModel;
    if (!p.regressor || !p.regressor->prepareFrames(h->computeDevices.opened, width, bands, &why))
        return fail(h, msg::regressionCannotRun(why));
    const qint64 samples = qint64(width) * bands;
    if (perPixelCorrection(h) && (h->correction.darkRef.size() != samples || h->correction.gainRef.size() != samples))
        return fail(h, msg::CorrectionInfoUnnamed);
    h->resampling.frame.assign(resampling ? size_t(samples) : 0, 0);
    return 0;
}

int regressFrame(ZelkHandle* h, const void* frame)
{
    if (h->input.layout == InputLayout::BIP)
        return refuseBip(h);
    if (h->input.layout != InputLayout::BIL)
        return refuseLayout(h);
    if (h->input.sampleType != InputType::UInt16 && h->input.sampleType != InputType::Float)
        return fail(h, msg::UnsupportedDataType);
    const int bands = chainBands(h);
    if (const int refused = checkRun(h, bands))
        return refused;
    if (const int failed = stageFrame(h, frame, h->input.sampleType == InputType::UInt16 ? compute::SampleType::U16 : compute::SampleType::F32))
        return failed;
    return runChain(h, bands);
}

int resampleFrame(ZelkHandle* h, const void* frame)
{
    if (h->input.layout == InputLayout::BIP)
        return refuseBip(h);
    if (h->input.layout != InputLayout::BIL)
        return refuseLayout(h);
    if (h->input.sampleType == InputType::Float)
        return failWithoutText(ZELK_E_FAILED); // float frames are not resampled; nothing is written
    if (h->input.sampleType != InputType::UInt16)
        return fail(h, msg::UnsupportedDataType);
    ZelkResampler* r = h->resampling.resampler.get();
    const int bands = chainBands(h);
    if (!r || !r->resamplerReady || r->width != h->input.width || r->sourceBands != h->input.bands
        || qint64(h->resampling.frame.size()) != qint64(h->input.width) * bands)
        return fail(h, msg::ResamplerMisfit);
    if (const int refused = checkRun(h, bands))
        return refused;
    // A resampler set during the run gets its kernel with its first frame, on the run's
    // device.
    QString why;
    if (!r->framesPrepared() && !r->prepareFrames(*h->computeDevices.opened, &why))
        return fail(h, msg::resamplingCannotRun(why));
    // Resampled and staged on the run's device: a device frame goes up once.
    const FrameReferences references = frameReferences(h);
    if (!r->stageFrame(*h->project->regressor->stagedFrame(), static_cast<const quint16*>(frame), h->resampling.frame.data(),
                       references.dark, references.gain))
        return fail(h, msg::ResamplingFailed);
    return runChain(h, bands);
}
