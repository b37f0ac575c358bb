// Starting and stopping an acquisition. The start checks what a run needs, allocates
// every buffer of the run and builds the classifier's kernel for the chosen device, so
// that the frame and cube calls allocate nothing of their own.

#include "compute/backend.h"
#include "runtime/acquisition.h"
#include "runtime/export.h"
#include "runtime/handle.h"

#include <limits>

namespace {

// The decision image: `height` rows of the frame width, shown in the classifier's
// colours with 255 (the mark of a finished object) in white. An image of the same size
// survives, rows and all.
bool makeLabelImage(ZelkHandle* h, ZelkClassifier& c, int height)
{
    if (h->ring.labels && (h->ring.labels->width() != h->input.width || h->ring.labels->height() != height))
        h->ring.labels.reset();
    if (h->ring.labels)
        return true;
    if (h->input.width <= 0 || height <= 0)
        return false;
    auto image = std::make_unique<QImage>(h->input.width, height, QImage::Format_Indexed8);
    if (image->isNull())
        return false;
    if (c.colourTable.size() < 256)
        c.colourTable.resize(256);
    c.colourTable[255] = int(0xFFFFFFFFu);
    QVector<QRgb> table(256);
    for (int i = 0; i < 256; ++i)
        table[i] = QRgb(c.colourTable[i]);
    image->setColorTable(table);
    h->ring.labels = std::move(image);
    return true;
}

// The references reduced to the classifier's bands, pixel by pixel.
bool selectCorrection(ZelkHandle* h, const ZelkClassifier& c)
{
    const qint64 width = h->input.width, bands = c.totalBands;
    if (width <= 0 || h->correction.darkRef.size() != width * bands || h->correction.gainRef.size() != width * bands)
        return false;
    const int n = c.bandIndex.size();
    h->correction.darkSelected.resize(int(width * n));
    h->correction.gainSelected.resize(int(width * n));
    for (int i = 0; i < n; ++i) {
        const int b = c.bandIndex[i];
        if (b < 0 || b >= bands)
            return false;
        std::copy_n(h->correction.darkRef.constData() + b * width, width, h->correction.darkSelected.data() + i * width);
        std::copy_n(h->correction.gainRef.constData() + b * width, width, h->correction.gainSelected.data() + i * width);
    }
    return true;
}

// The kernel of a line-scan run: frames of all bands or of the classifier's bands,
// corrected in the stage or, for mean references, in the projection. The regression
// variants hand it frames that they have corrected on all bands already.
int prepareLineScanKernel(ZelkHandle* h, ZelkClassifier& c)
{
    compute::InputStage stage;
    stage.width = h->input.width;
    if (h->correction.enabled && h->correction.meansOnly) {
        if (foldCorrection(c, h->correction.whiteMean, h->correction.darkMean, c.bandIndex.size(), c.bandIndex.constData()) != 0) {
            c.lastError = msg::CorrectionInfo.text;
            return -1;
        }
        return prepareKernel(c, *h->computeDevices.opened, h->operatingPoint, stage);
    }
    if (h->input.fullBandFrames)
        stage.bands = c.bandIndex;
    if (h->correction.enabled && !regressionFrames(h)) {
        stage.dark = h->correction.darkSelected;
        stage.gain = h->correction.gainSelected;
    }
    return prepareKernel(c, *h->computeDevices.opened, h->operatingPoint, stage);
}

int start(ZelkHandle* h)
{
    if (!h->project)
        return fail(h, msg::NoProject);
    ZelkProject& p = *h->project;
    if (!p.classifier) {
        fail(h, msg::NoClassifier);
        return ZELK_E_NO_PROJECT; // deliberate: the code of a missing project; callers test for it
    }
    ZelkClassifier& c = *p.classifier;
    if (h->isAcquiring())
        return fail(h, msg::AlreadyAcquiring);

    h->framePath = framePathOf(p.processingSetup);
    h->operatingPoint = c.roc ? c.roc->classRow(c.classCount()) : QVector<float>();
    h->ring.frameCount = h->ring.nextRow = h->ring.lastRow = h->segmentation.serial = 0;
    h->timing.classifyMs = h->timing.segmentMs = 0;

    if (h->segmentation.enabled) {
        ZelkSegmenter* s = p.segmenter.get();
        if (!s)
            return fail(h, msg::NoSegmenter);
        if (!s->isCompiled() && s->compile() != 0) {
            h->segmentation.segmenter = nullptr;
            return fail(h, msg::segmentationCannotProceed(s->lastErrorCode(), s->lastErrorText()));
        }
        h->segmentation.segmenter = s;
    }
    if (h->input.sampleType == InputType::Undefined) {
        const int type = zelk_GetInputDataType(h);
        if (type >= 0)
            h->input.sampleType = InputType(type);
        if (type < 1)
            return fail(h, msg::TypeNotSet);
    }
    if (h->input.layout == InputLayout::Undefined) {
        const int layout = zelk_GetInputDataLayout(h);
        if (layout >= 0)
            h->input.layout = InputLayout(layout);
        if (layout < 1)
            return fail(h, msg::LayoutNotSet);
    }

    const qint64 width = qMax(0, h->input.width);
    if (p.regressor) {
        h->regression.variableCount = p.regressor->regVarNames.size();
        h->regression.outputs.resize(size_t(width * h->regression.variableCount));
        h->regression.variableLine.resize(size_t(width));
    } else {
        h->regression.variableCount = 0;
        h->regression.outputs = {};
        h->regression.variableLine = {};
    }
    if (h->segmentation.segmenter)
        if (const int r = h->segmentation.segmenter->prepareSegmenter(h->input.lineScan, h->input.width, h->regression.variableCount))
            return failWithoutText(r);

    if (!h->input.lineScan) {
        h->timing.warmupFrames = 0;
        const qint64 pixels = width * qMax(0, h->input.height);
        if (pixels > std::numeric_limits<int>::max() || !makeLabelImage(h, c, h->input.height))
            return fail(h, msg::noDecisionImage(h->input.width, h->input.height));
        h->cube.decisions.assign(size_t(pixels), 0);
        h->roi.decisions.assign(size_t(pixels), 0);
        h->segmentation.objectMap.assign(size_t(pixels), 0);
        h->segmentation.classObjectMap.assign(size_t(pixels), 0);
    } else {
        if (h->correction.enabled && !h->correction.meansOnly && !selectCorrection(h, c))
            return fail(h, msg::CorrectionInfoUnnamed);
        if (!makeLabelImage(h, c, h->ring.rows))
            return fail(h, msg::noDecisionImage(h->input.width, h->ring.rows));
    }

    c.frameWidth = h->input.width;
    const int prepared = h->input.lineScan ? prepareLineScanKernel(h, c) : prepareCubeKernel(h, c);
    if (prepared != 0)
        return fail(h, msg::classifierRefused(c.lastError));
    if (const int refused = prepareFrameVariant(h))
        return refused;
    h->setAcquiring(true);
    return 0;
}

int stop(ZelkHandle* h)
{
    if (!h->isAcquiring())
        return fail(h, msg::NotAcquiring);
    h->setAcquiring(false);
    h->segmentation.segmenter = nullptr;

    const int n = h->timing.warmupFrames > 0 ? h->ring.frameCount - h->timing.warmupFrames : h->ring.frameCount;
    const double a = h->timing.classifyMs / double(n);
    QString text;
    if (h->input.lineScan) {
        text = msg::lineTimes("alg", a, h->timing.classifyMs, h->ring.frameCount, h->timing.warmupFrames);
        if (h->timing.segmentMs > 0)
            text += msg::lineTimes("seg", h->timing.segmentMs / double(n), h->timing.segmentMs, h->ring.frameCount, h->timing.warmupFrames);
    } else {
        text = msg::cubeTimes(a, h->ring.frameCount, h->timing.warmupFrames);
    }
    logToHandle(h, text);
    h->error.code = 0;
    return 0;
}

} // namespace

extern "C" ZELK_API int zelk_StartAcquisition(ZelkHandle* h)
{
    return exported("zelk_StartAcquisition", h, [&] { return start(h); });
}

extern "C" ZELK_API int zelk_StopAcquisition(ZelkHandle* h)
{
    return exported("zelk_StopAcquisition", h, [&] { return stop(h); });
}
