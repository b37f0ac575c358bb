// The frame path of projects with a regressor. The frame is staged once, converted to
// float and corrected on all of its bands, on the run's device; the classifier takes
// its bands from that staged frame, the regressor maps every pixel's full spectrum onto
// its output variables, and the tracker averages those per object. With resampling,
// the camera's frame is first interpolated onto the project's bands.

#include "classify/classifier.h"
#include "classify/regressor.h"
#include "compute/backend.h"
#include "model/processing_setup.h"
#include "runtime/acquisition.h"
#include "runtime/export.h"
#include "runtime/handle.h"
#include "segment/segmenter.h"

namespace {

// The checks of a BIP frame, which the regressor cannot take: it needs the pixels of a
// band side by side, as BIL frames hold them.
int refuseBip(ZelkHandle* h)
{
    if (h->inputDataType != DataFloat)
        return fail(h, msg::UnsupportedDataType);
    if (h->correctionEnabled)
        return fail(h, msg::BipCorrection);
    return fail(h, msg::RegressionNeedsBil);
}

int refuseLayout(ZelkHandle* h)
{
    return fail(h, msg::unsupportedFrameLayout(h->inputDataLayout));
}

bool perPixelCorrection(const ZelkHandle* h)
{
    return h->correctionEnabled && !h->meanCorrection;
}

// The bands of the frames that reach the classifier and the regressor: the project's
// after resampling, else the camera's.
int chainBands(const ZelkHandle* h)
{
    if (framePathOf(h->project->processingSetup) == FramePath::Resampling)
        return h->resampler ? h->resampler->destBands : -1;
    return h->inputBands;
}

// Everything the frame will touch, checked before anything is written: the run may
// have been changed under it (input width, references, resampler, segmentation are
// all settable during an acquisition).
int checkRun(ZelkHandle* h, int bands)
{
    const ZelkProject& p = *h->project;
    const ZelkClassifier* c = p.classifier.get();
    const ZelkRegressor* r = p.regressor.get();
    const qint64 width = h->inputWidth, samples = width * bands;
    if (!c || !c->kernel || !r || width <= 0 || bands <= 0 || c->frameWidth != width || !h->labelImage
        || h->labelImage->width() != width)
        return fail(h, msg::FrameWidthChanged);
    if (h->ringNext < 0 || h->ringNext >= h->labelImage->height())
        return fail(h, msg::NoRing);
    const compute::StagedFrame* staged = r->stagedFrame();
    if (!staged || staged->pixels() != width || staged->bands() != bands || h->regVarCount != r->regVarNames.size()
        || qint64(h->regOutput.size()) != width * h->regVarCount)
        return fail(h, msg::framesNotPrepared(width, bands));
    if (perPixelCorrection(h) && (h->darkRef.size() != samples || h->gainRef.size() != samples))
        return fail(h, msg::CorrectionInfo);
    ZelkSegmenter* s = h->segmentationEnabled ? h->segmenter : nullptr;
    if (s && (s->width() != width || s->valuesPerPixel() != h->regVarCount))
        return fail(h, msg::SegmentationNotPrepared);
    return 0;
}

// Stages `in` into the regressor's frame: as float, or (in - dark) * gain with per-pixel
// references. The frame and both references hold the pixels of one band after another.
int stageFrame(ZelkHandle* h, const void* in, compute::SampleType type)
{
    const bool correct = perPixelCorrection(h);
    const QVector<float> none;
    if (!h->project->regressor->stagedFrame()->stage(in, type, correct ? h->darkRef : none, correct ? h->gainRef : none))
        return fail(h, msg::StagingFailed);
    return 0;
}

// The staged frame through classifier, regressor and tracker.
int runChain(ZelkHandle* h, int bands)
{
    ZelkProject& p = *h->project;
    ZelkClassifier& c = *p.classifier;
    if (!c.kernel->classifyFrame(*p.regressor->stagedFrame(), h->labelImage->scanLine(h->ringNext)))
        return fail(h, msg::frameMisfit(bands));

    h->objCount = 0;
    if (!p.regressor->predictStaged(h->regOutput.data()))
        return fail(h, msg::regressorMisfit(bands));
    if (!h->segmentationEnabled || !h->segmenter)
        return 0;
    const quint8* row = h->labelImage->constScanLine(h->ringNext);
    const int tracked = h->regVarCount == 1 ? h->segmenter->trackValue(row, h->regOutput.data())
                                            : h->segmenter->trackValues(row, h->regOutput.data());
    if (tracked != 0)
        return failWithoutText(tracked); // the tracker reports no text of its own
    return reportObjects(h, true, msg::TooManyObjectsInFrame);
}

} // namespace

bool regressionFrames(const ZelkHandle* h)
{
    if (!h->lineScan || !h->project)
        return false;
    const FramePath path = framePathOf(h->project->processingSetup);
    return path == FramePath::Regression || path == FramePath::Resampling;
}

int prepareFrameVariant(ZelkHandle* h)
{
    if (!regressionFrames(h)) {
        h->resampledFrame = {};
        return 0;
    }
    ZelkProject& p = *h->project;
    const int width = h->inputWidth;
    const bool resampling = framePathOf(p.processingSetup) == FramePath::Resampling;
    QString why;
    if (resampling) {
        ZelkResampler* r = h->resampler.get();
        if (!r || !r->resamplerReady || r->width != width || r->sourceBands != h->inputBands)
            return fail(h, msg::resamplingMisfit(width, h->inputBands));
        if (!r->prepareFrames(*h->backend, &why))
            return fail(h, msg::resamplingCannotStart(why));
    }
    const int bands = chainBands(h);
    why = msg::NoRegressionModel;
    if (!p.regressor || !p.regressor->prepareFrames(h->backend, width, bands, &why))
        return fail(h, msg::regressionCannotRun(why));
    const qint64 samples = qint64(width) * bands;
    if (perPixelCorrection(h) && (h->darkRef.size() != samples || h->gainRef.size() != samples))
        return fail(h, msg::CorrectionInfoUnnamed);
    h->resampledFrame.assign(resampling ? size_t(samples) : 0, 0);
    return 0;
}

int regressFrame(ZelkHandle* h, const void* frame)
{
    if (h->inputDataLayout == LayoutBIP)
        return refuseBip(h);
    if (h->inputDataLayout != LayoutBIL)
        return refuseLayout(h);
    if (h->inputDataType != DataUInt16 && h->inputDataType != DataFloat)
        return fail(h, msg::UnsupportedDataType);
    const int bands = chainBands(h);
    if (const int refused = checkRun(h, bands))
        return refused;
    if (const int failed = stageFrame(h, frame, h->inputDataType == DataUInt16 ? compute::SampleType::U16 : compute::SampleType::F32))
        return failed;
    return runChain(h, bands);
}

int resampleFrame(ZelkHandle* h, const void* frame)
{
    if (h->inputDataLayout == LayoutBIP)
        return refuseBip(h);
    if (h->inputDataLayout != LayoutBIL)
        return refuseLayout(h);
    if (h->inputDataType == DataFloat)
        return failWithoutText(ZELK_E_FAILED); // float frames are not resampled; nothing is written
    if (h->inputDataType != DataUInt16)
        return fail(h, msg::UnsupportedDataType);
    ZelkResampler* r = h->resampler.get();
    const int bands = chainBands(h);
    if (!r || !r->resamplerReady || r->width != h->inputWidth || r->sourceBands != h->inputBands
        || qint64(h->resampledFrame.size()) != qint64(h->inputWidth) * bands)
        return fail(h, msg::ResamplerMisfit);
    if (const int refused = checkRun(h, bands))
        return refused;
    // A resampler set during the run gets its kernel with its first frame, on the run's
    // device.
    QString why;
    if (!r->framesPrepared() && !r->prepareFrames(*h->backend, &why))
        return fail(h, msg::resamplingCannotRun(why));
    if (!r->resampleFrame(static_cast<const quint16*>(frame), h->resampledFrame.data()))
        return fail(h, msg::ResamplingFailed);
    if (const int failed = stageFrame(h, h->resampledFrame.data(), compute::SampleType::U16))
        return failed;
    return runChain(h, bands);
}
