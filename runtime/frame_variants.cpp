// The frame path of projects with a regressor. The frame is staged once, converted to
// float and corrected on all of its bands, on the run's device; the classifier takes
// its bands from that staged frame, the regressor maps every pixel's full spectrum onto
// its output variables, and the tracker averages those per object. With resampling,
// the camera's frame is first interpolated onto the project's bands.

#include "classify/classifier.h"
#include "classify/regressor.h"
#include "compute/backend.h"
#include "runtime/acquisition.h"
#include "runtime/boundary.h"
#include "runtime/handle.h"
#include "runtime/report.h"
#include "segment/segmenter.h"


namespace {

const char* const overflowText = "zelk_ProcessFrame: Max number of objects per frame reached";

int frameFailure(ZelkHandle* h, const QString& reason)
{
    return setHandleError(h, InternalErrorCode, QStringLiteral("zelk_ProcessFrame: %1").arg(reason));
}

int unsupportedType(ZelkHandle* h)
{
    return setHandleError(h, ZELK_E_DATA_FORMAT, QStringLiteral("zelk_ProcessFrame: Unsupported data type."));
}

// The checks of a BIP frame, which the regressor cannot take: it needs the pixels of a
// band side by side, as BIL frames hold them.
int refuseBip(ZelkHandle* h)
{
    if (h->inputDataType != 2)
        return unsupportedType(h);
    if (h->correctionEnabled)
        return setHandleError(h, ZELK_E_BIP_CORRECTION, QStringLiteral("zelk_ProcessFrame: Correction not supported for the BIP frame layout type"));
    return setHandleError(h, ZELK_E_DATA_FORMAT, QStringLiteral("zelk_ProcessFrame: Regression needs frames in the BIL layout."));
}

int refuseLayout(ZelkHandle* h)
{
    return setHandleError(h, ZELK_E_DATA_FORMAT, QStringLiteral("zelk_ProcessFrame: Unsupported data layout (%1).").arg(h->inputDataLayout));
}

bool perPixelCorrection(const ZelkHandle* h)
{
    return h->correctionEnabled && !h->meanCorrection;
}

// The bands of the frames that reach the classifier and the regressor: the project's
// after resampling, else the camera's.
int chainBands(const ZelkHandle* h)
{
    if (h->project->processingSetup == 9)
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
        return frameFailure(h, QStringLiteral("Frame width changed during acquisition."));
    if (h->ringNext < 0 || h->ringNext >= h->labelImage->height())
        return frameFailure(h, QStringLiteral("The decision image holds no ring of rows."));
    const compute::StagedFrame* staged = r->stagedFrame();
    if (!staged || staged->pixels() != width || staged->bands() != bands || h->regVarCount != r->regVarNames.size()
        || qint64(h->regOutput.size()) != width * h->regVarCount)
        return frameFailure(h, QStringLiteral("Frames of %1 pixels and %2 bands were not prepared at the start.").arg(width).arg(bands));
    if (perPixelCorrection(h) && (h->darkRef.size() != samples || h->gainRef.size() != samples))
        return setHandleError(h, ZELK_E_CORRECTION_INFO, QStringLiteral("zelk_ProcessFrame: Invalid correction information"));
    ZelkSegmenter* s = h->segmentationEnabled ? h->segmenter : nullptr;
    if (s && (s->width() != width || s->valuesPerPixel() != h->regVarCount))
        return frameFailure(h, QStringLiteral("Segmentation was not prepared for the regression outputs."));
    return 0;
}

// Stages `in` into the regressor's frame: as float, or (in - dark) * gain with per-pixel
// references. The frame and both references hold the pixels of one band after another.
int stageFrame(ZelkHandle* h, const void* in, compute::SampleType type)
{
    const bool correct = perPixelCorrection(h);
    const QVector<float> none;
    if (!h->project->regressor->stagedFrame()->stage(in, type, correct ? h->darkRef : none, correct ? h->gainRef : none))
        return frameFailure(h, QStringLiteral("The compute device failed to stage the frame."));
    return 0;
}

// The staged frame through classifier, regressor and tracker.
int runChain(ZelkHandle* h, int bands)
{
    ZelkProject& p = *h->project;
    ZelkClassifier& c = *p.classifier;
    if (!c.kernel->classifyFrame(*p.regressor->stagedFrame(), h->labelImage->scanLine(h->ringNext)))
        return frameFailure(h, QStringLiteral("Frame does not fit the classifier (%1 bands)").arg(bands));

    h->objCount = 0;
    if (!p.regressor->predictStaged(h->regOutput.data()))
        return frameFailure(h, QStringLiteral("Frame does not fit the regressor (%1 bands)").arg(bands));
    if (!h->segmentationEnabled || !h->segmenter)
        return 0;
    const quint8* row = h->labelImage->constScanLine(h->ringNext);
    const int tracked = h->regVarCount == 1 ? h->segmenter->trackValue(row, h->regOutput.data())
                                            : h->segmenter->trackValues(row, h->regOutput.data());
    if (tracked != 0)
        return tracked;
    return reportObjects(h, true, overflowText);
}

} // namespace

bool regressionFrames(const ZelkHandle* h)
{
    if (!h->lineScan || !h->project)
        return false;
    const int setup = h->project->processingSetup;
    return setup == 3 || setup == 7 || setup == 9;
}

int prepareFrameVariant(ZelkHandle* h)
{
    if (!regressionFrames(h)) {
        h->resampledFrame = {};
        return 0;
    }
    ZelkProject& p = *h->project;
    const int width = h->inputWidth;
    const bool resampling = p.processingSetup == 9;
    QString why;
    if (resampling) {
        ZelkResampler* r = h->resampler.get();
        if (!r || !r->resamplerReady || r->width != width || r->sourceBands != h->inputBands)
            return setHandleError(h, ZELK_E_RESAMPLING, QStringLiteral("zelk_StartAcquisition: Resampling does not fit the frames "
                                                          "(%1 pixels of %2 bands).").arg(width).arg(h->inputBands));
        if (!r->prepareFrames(*h->backend, &why))
            return setHandleError(h, ZELK_E_RESAMPLING, QStringLiteral("zelk_StartAcquisition: Resampling cannot run (%1).").arg(why));
    }
    const int bands = chainBands(h);
    why = QStringLiteral("no regression model");
    if (!p.regressor || !p.regressor->prepareFrames(h->backend, width, bands, &why))
        return setHandleError(h, ZELK_E_REGRESSION, QStringLiteral("zelk_StartAcquisition: Regression model cannot run (%1).").arg(why));
    const qint64 samples = qint64(width) * bands;
    if (perPixelCorrection(h) && (h->darkRef.size() != samples || h->gainRef.size() != samples))
        return setHandleError(h, ZELK_E_CORRECTION_INFO, QStringLiteral("Invalid correction information"));
    h->resampledFrame.assign(resampling ? size_t(samples) : 0, 0);
    return 0;
}

int regressFrame(ZelkHandle* h, const void* frame)
{
    if (h->inputDataLayout == 1)
        return refuseBip(h);
    if (h->inputDataLayout != 2)
        return refuseLayout(h);
    if (h->inputDataType != 1 && h->inputDataType != 2)
        return unsupportedType(h);
    const int bands = chainBands(h);
    if (const int refused = checkRun(h, bands))
        return refused;
    if (const int failed = stageFrame(h, frame, h->inputDataType == 1 ? compute::SampleType::U16 : compute::SampleType::F32))
        return failed;
    return runChain(h, bands);
}

int resampleFrame(ZelkHandle* h, const void* frame)
{
    if (h->inputDataLayout == 1)
        return refuseBip(h);
    if (h->inputDataLayout != 2)
        return refuseLayout(h);
    if (h->inputDataType == 2)
        return -1; // float frames are not resampled; nothing is written
    if (h->inputDataType != 1)
        return unsupportedType(h);
    ZelkResampler* r = h->resampler.get();
    const int bands = chainBands(h);
    if (!r || !r->resamplerReady || r->width != h->inputWidth || r->sourceBands != h->inputBands
        || qint64(h->resampledFrame.size()) != qint64(h->inputWidth) * bands)
        return frameFailure(h, QStringLiteral("The resampler does not fit the frames."));
    if (const int refused = checkRun(h, bands))
        return refused;
    // A resampler set during the run gets its kernel with its first frame, on the run's
    // device.
    QString why;
    if (!r->framesPrepared() && !r->prepareFrames(*h->backend, &why))
        return frameFailure(h, QStringLiteral("Resampling cannot run (%1).").arg(why));
    if (!r->resampleFrame(static_cast<const quint16*>(frame), h->resampledFrame.data()))
        return frameFailure(h, QStringLiteral("The compute device failed to resample the frame."));
    if (const int failed = stageFrame(h, h->resampledFrame.data(), compute::SampleType::U16))
        return failed;
    return runChain(h, bands);
}
