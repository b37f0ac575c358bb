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
    if (h->labelImage && (h->labelImage->width() != h->inputWidth || h->labelImage->height() != height))
        h->labelImage.reset();
    if (h->labelImage)
        return true;
    if (h->inputWidth <= 0 || height <= 0)
        return false;
    auto image = std::make_unique<QImage>(h->inputWidth, height, QImage::Format_Indexed8);
    if (image->isNull())
        return false;
    if (c.colourTable.size() < 256)
        c.colourTable.resize(256);
    c.colourTable[255] = int(0xFFFFFFFFu);
    QVector<QRgb> table(256);
    for (int i = 0; i < 256; ++i)
        table[i] = QRgb(c.colourTable[i]);
    image->setColorTable(table);
    h->labelImage = std::move(image);
    return true;
}

// The references reduced to the classifier's bands, pixel by pixel.
bool selectCorrection(ZelkHandle* h, const ZelkClassifier& c)
{
    const qint64 width = h->inputWidth, bands = c.totalBands;
    if (width <= 0 || h->darkRef.size() != width * bands || h->gainRef.size() != width * bands)
        return false;
    const int n = c.bandIndex.size();
    h->darkSel.resize(int(width * n));
    h->gainSel.resize(int(width * n));
    for (int i = 0; i < n; ++i) {
        const int b = c.bandIndex[i];
        if (b < 0 || b >= bands)
            return false;
        std::copy_n(h->darkRef.constData() + b * width, width, h->darkSel.data() + i * width);
        std::copy_n(h->gainRef.constData() + b * width, width, h->gainSel.data() + i * width);
    }
    return true;
}

// The kernel of a line-scan run: frames of all bands or of the classifier's bands,
// corrected in the stage or, for mean references, in the projection. The regression
// variants hand it frames that they have corrected on all bands already.
int prepareLineScanKernel(ZelkHandle* h, ZelkClassifier& c)
{
    compute::InputStage stage;
    stage.width = h->inputWidth;
    if (h->correctionEnabled && h->meanCorrection) {
        if (foldCorrection(c, h->whiteMean, h->darkMean, c.bandIndex.size(), c.bandIndex.constData()) != 0) {
            c.lastError = msg::CorrectionInfo.text;
            return -1;
        }
        return prepareKernel(c, *h->backend, h->classRow, stage);
    }
    if (h->fullBandFrames)
        stage.bands = c.bandIndex;
    if (h->correctionEnabled && !regressionFrames(h)) {
        stage.dark = h->darkSel;
        stage.gain = h->gainSel;
    }
    return prepareKernel(c, *h->backend, h->classRow, stage);
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
    if (h->acquiring)
        return fail(h, msg::AlreadyAcquiring);

    h->classRow = c.roc ? c.roc->classRow(c.classCount()) : QVector<float>();
    h->frameCount = h->ringNext = h->ringLast = h->objectSerial = 0;
    h->algTimeMs = h->segTimeMs = 0;

    if (h->segmentationEnabled) {
        ZelkSegmenter* s = p.segmenter.get();
        if (!s)
            return fail(h, msg::NoSegmenter);
        if (!s->isCompiled() && s->compile() != 0) {
            h->segmenter = nullptr;
            return fail(h, msg::segmentationCannotProceed(s->lastErrorCode(), s->lastErrorText()));
        }
        h->segmenter = s;
    }
    if (h->inputDataType == 0) {
        const int type = zelk_GetInputDataType(h);
        if (type >= 0)
            h->inputDataType = type;
        if (type < 1)
            return fail(h, msg::TypeNotSet);
    }
    if (h->inputDataLayout == 0) {
        const int layout = zelk_GetInputDataLayout(h);
        if (layout >= 0)
            h->inputDataLayout = layout;
        if (layout < 1)
            return fail(h, msg::LayoutNotSet);
    }

    const qint64 width = qMax(0, h->inputWidth);
    if (p.regressor) {
        h->regVarCount = p.regressor->regVarNames.size();
        h->regOutput.resize(size_t(width * h->regVarCount));
        h->regVarLine.resize(size_t(width));
    } else {
        h->regVarCount = 0;
        h->regOutput = {};
        h->regVarLine = {};
    }
    if (h->segmenter)
        if (const int r = h->segmenter->prepareSegmenter(h->lineScan, h->inputWidth, h->regVarCount))
            return failWithoutText(r);

    if (!h->lineScan) {
        h->warmupFrames = 0;
        const qint64 pixels = width * qMax(0, h->inputHeight);
        if (pixels > std::numeric_limits<int>::max() || !makeLabelImage(h, c, h->inputHeight))
            return fail(h, msg::noDecisionImage(h->inputWidth, h->inputHeight));
        h->cubeDecisions.assign(size_t(pixels), 0);
        h->roiDecisions.assign(size_t(pixels), 0);
        h->objectMap.assign(size_t(pixels), 0);
        h->classObjectMap.assign(size_t(pixels), 0);
    } else {
        if (h->correctionEnabled && !h->meanCorrection && !selectCorrection(h, c))
            return fail(h, msg::CorrectionInfoUnnamed);
        if (!makeLabelImage(h, c, h->ringRows))
            return fail(h, msg::noDecisionImage(h->inputWidth, h->ringRows));
    }

    c.frameWidth = h->inputWidth;
    const int prepared = h->lineScan ? prepareLineScanKernel(h, c) : prepareCubeKernel(h, c);
    if (prepared != 0)
        return fail(h, msg::classifierRefused(c.lastError));
    if (const int refused = prepareFrameVariant(h))
        return refused;
    h->acquiring = true;
    return 0;
}

int stop(ZelkHandle* h)
{
    if (!h->acquiring)
        return fail(h, msg::NotAcquiring);
    h->acquiring = false;
    h->segmenter = nullptr;

    const int n = h->warmupFrames > 0 ? h->frameCount - h->warmupFrames : h->frameCount;
    const double a = h->algTimeMs / double(n);
    QString text;
    if (h->lineScan) {
        text = msg::lineTimes("alg", a, h->algTimeMs, h->frameCount, h->warmupFrames);
        if (h->segTimeMs > 0)
            text += msg::lineTimes("seg", h->segTimeMs / double(n), h->segTimeMs, h->frameCount, h->warmupFrames);
    } else {
        text = msg::cubeTimes(a, h->frameCount, h->warmupFrames);
    }
    logToHandle(h, text);
    h->errorCode = 0;
    return 0;
}

} // namespace

void accountTime(ZelkHandle* h, double milliseconds)
{
    if (h->warmupFrames <= h->frameCount)
        h->algTimeMs += milliseconds;
    ++h->frameCount;
}

extern "C" ZELK_API int zelk_StartAcquisition(ZelkHandle* h)
{
    return exported("zelk_StartAcquisition", h, [&] { return start(h); });
}

extern "C" ZELK_API int zelk_StopAcquisition(ZelkHandle* h)
{
    return exported("zelk_StopAcquisition", h, [&] { return stop(h); });
}
