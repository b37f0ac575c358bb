// Results of the last frame or cube: object records, decision rows, regression
// outputs, and the names and colours of the decisions and variables. The calls only
// check bounds and hand out pointers into the handle's buffers, which stay the
// library's and stand until the next frame or cube.

#include "classify/classifier.h"
#include "classify/regressor.h"
#include "runtime/export.h"
#include "runtime/handle.h"
#include "segment/segmenter.h"

#include <algorithm>

namespace {

// The largest class index that a record has a counter for.
constexpr unsigned MaxClassIndex = ObjectClassSlots - 1;

// Records that can be read: the segmentation's count, but no more than the handle holds. A frame that
// finished more objects than that reports the full count and keeps only the first ones.
int readableObjects(const ZelkHandle* h)
{
    return std::min(h->segmentation.count, int(h->segmentation.records.size() / ObjectRecordInts));
}

// 0 when `index` names a readable record; otherwise -161, with the last valid index
// and the one asked for.
int checkObjectIndex(ZelkHandle* h, int index)
{
    const int count = readableObjects(h);
    if (index >= 0 && index < count)
        return 0;
    return fail(h, msg::objectIndex(count - 1, index));
}

const qint32* record(const ZelkHandle* h, int index)
{
    return h->segmentation.records.data() + size_t(index) * ObjectRecordInts;
}

// Index, mode and class checks shared by the two class calls; 0 or the failing code.
// The class counters exist in 'All foreground' mode only, which needs the segmenter of
// a running acquisition.
int checkClassEntry(ZelkHandle* h, int index, unsigned classIndex)
{
    if (const int code = checkObjectIndex(h, index))
        return code;
    if (!h->segmentation.segmenter || h->segmentation.segmenter->mask() != ObjectMask::AllForeground)
        return fail(h, msg::NotAllForeground);
    if (classIndex > MaxClassIndex)
        return fail(h, msg::classIndex(index));
    return 0;
}

// The vocabulary calls describe the decisions of the project's classifier: 0 when
// there is one, otherwise -103 or -104.
int checkClassifier(ZelkHandle* h)
{
    if (!h->project)
        return fail(h, msg::NoProject);
    if (!h->project->classifier)
        return fail(h, msg::NoClassifier);
    return 0;
}

// The row of the decision image that the last frame wrote, or null when no image of
// the input width exists. The row after the wrap is the ring's last row as well.
const quint8* lastDecisionRow(const ZelkHandle* h)
{
    const QImage* image = h->ring.labels.get();
    if (!image || image->width() < h->input.width || h->ring.lastRow < 0 || h->ring.lastRow >= image->height())
        return nullptr;
    return image->constScanLine(h->ring.lastRow);
}

// The output of variable `varIndex` over the last frame, the pixels outside the
// foreground set to `maskValue` when `mask` is 1; null after a report.
float* frameRegOutputVar(ZelkHandle* h, int varIndex, int mask, float maskValue)
{
    if (!h->input.lineScan) {
        fail(h, msg::LineScanExpected);
        return nullptr;
    }
    if (!h->project) {
        fail(h, msg::NoProject);
        return nullptr;
    }
    // The index is checked against the loaded regressor; without one there is no
    // variable.
    const ZelkRegressor* regressor = h->project->regressor.get();
    const int variables = regressor ? regressor->regVarNames.size() : 0;
    if (varIndex < 0 || varIndex >= variables) {
        fail(h, msg::VariableIndex);
        return nullptr;
    }
    if (mask == 1 && !h->segmentation.enabled) {
        fail(h, msg::MaskWithoutSegmentation);
        return nullptr;
    }
    // The outputs are those of the last start, sized for its regressor and width:
    // before the first start, or after a new model, there are none to read.
    const int width = h->input.width;
    const bool outputsExist = varIndex < h->regression.variableCount && width >= 0 && h->regression.variableLine.size() >= size_t(width)
                              && h->regression.outputs.size() >= size_t(width) * size_t(h->regression.variableCount);
    if (!outputsExist) {
        fail(h, msg::NoRegressionOutput);
        return nullptr;
    }
    const float* output = h->regression.outputs.data();
    float* line = h->regression.variableLine.data();
    const size_t stride = size_t(h->regression.variableCount);
    if (mask == 0) {
        for (int i = 0; i < width; ++i)
            line[i] = output[size_t(i) * stride + size_t(varIndex)];
        return line;
    }
    // Masking reads the foreground flags of the running segmentation.
    const quint8* foreground = h->segmentation.segmenter ? h->segmentation.segmenter->foregroundTable() : nullptr;
    if (!foreground) {
        fail(h, msg::MaskWithoutSegmentation);
        return nullptr;
    }
    const quint8* decisions = lastDecisionRow(h);
    if (!decisions) {
        fail(h, msg::NoDecisionImage);
        return nullptr;
    }
    for (int i = 0; i < width; ++i)
        line[i] = foreground[decisions[i]] ? output[size_t(i) * stride + size_t(varIndex)] : maskValue;
    return line;
}

} // namespace

extern "C" ZELK_API int zelk_GetObjCount(ZelkHandle* h)
{
    return exported("zelk_GetObjCount", h, [&] { return h->segmentation.count; });
}

extern "C" ZELK_API int zelk_GetObjDataInt(ZelkHandle* h, int index, int** out)
{
    return exported(msg::GetObjDataInt, h, [&] {
        if (const int code = checkObjectIndex(h, index))
            return code;
        if (!out)
            return fail(h, msg::NullPointer);
        *out = h->segmentation.records.data() + size_t(index) * ObjectRecordInts;
        return 0;
    });
}

extern "C" ZELK_API int zelk_GetObjDataClassSize(ZelkHandle* h, int index, unsigned classIndex)
{
    return exported("zelk_GetObjDataClassSize", h, [&] {
        if (const int code = checkClassEntry(h, index, classIndex))
            return code;
        return int(record(h, index)[objectfield::ClassSizes + classIndex]);
    });
}

extern "C" ZELK_API float zelk_GetObjDataClassFrac(ZelkHandle* h, int index, unsigned classIndex)
{
    return exported(msg::GetObjDataClassFrac, h, [&] {
        if (const int code = checkClassEntry(h, index, classIndex))
            return float(code);
        const qint32* r = record(h, index);
        const qint32 pixels = r[objectfield::PixelCount];
        if (pixels == 0)
            return 0.0f;
        return float(r[objectfield::ClassSizes + classIndex]) / float(pixels);
    });
}

extern "C" ZELK_API int zelk_GetObjDataRegOutput(ZelkHandle* h, int index, float** out)
{
    return exported(msg::GetObjDataRegOutput, h, [&] {
        if (const int code = checkObjectIndex(h, index))
            return code;
        // The means are the segmenter's own table. Between runs the handle no longer
        // borrows the segmenter, and the project's one still holds the last run's means.
        const ZelkSegmenter* segmenter = h->segmentation.segmenter;
        if (!segmenter && h->project)
            segmenter = h->project->segmenter.get();
        const float* means = segmenter ? segmenter->objectMeans() : nullptr;
        // Rows of the table are valuesPerPixel long; the caller reads the regression's variable count of them.
        if (!means || h->regression.variableCount < 1 || segmenter->valuesPerPixel() != h->regression.variableCount)
            return fail(h, msg::NoObjectRegOutputs);
        if (!out)
            return fail(h, msg::NullPointer);
        *out = const_cast<float*>(means) + size_t(index) * size_t(h->regression.variableCount);
        return 0;
    });
}

extern "C" ZELK_API unsigned char* zelk_GetFrameDecisions(ZelkHandle* h)
{
    return exported("zelk_GetFrameDecisions", h, [&]() -> unsigned char* {
        if (!h->input.lineScan) {
            fail(h, msg::LineScanExpected);
            return nullptr;
        }
        if (!lastDecisionRow(h)) {
            fail(h, msg::NoDecisionImage);
            return nullptr;
        }
        return h->ring.labels->scanLine(h->ring.lastRow);
    });
}

extern "C" ZELK_API unsigned char* zelk_GetCubeDecisions(ZelkHandle* h)
{
    return exported("zelk_GetCubeDecisions", h, [&]() -> unsigned char* {
        if (h->input.lineScan) {
            fail(h, msg::SnapshotExpected);
            return nullptr;
        }
        // Null before the first start, and when the buffer was made for a smaller cube
        // than the current input size (a model loaded since).
        const qint64 pixels = qint64(h->input.width) * h->input.height;
        if (h->cube.decisions.empty() || qint64(h->cube.decisions.size()) < pixels)
            return nullptr;
        return h->cube.decisions.data();
    });
}

extern "C" ZELK_API float* zelk_GetFrameRegOutputVar(ZelkHandle* h, int varIndex, int mask, float maskValue)
{
    return exported("zelk_GetFrameRegOutputVar", h, [&] { return frameRegOutputVar(h, varIndex, mask, maskValue); });
}

extern "C" ZELK_API int zelk_GetDecCount(ZelkHandle* h)
{
    return exported("zelk_GetDecCount", h, [&] {
        if (const int code = checkClassifier(h))
            return code;
        return h->project->classifier->decisionCount();
    });
}

extern "C" ZELK_API const char* zelk_GetDecName(ZelkHandle* h, int index)
{
    return exported("zelk_GetDecName", h, [&]() -> const char* {
        if (checkClassifier(h))
            return nullptr;
        const ZelkClassifier* classifier = h->project->classifier.get();
        if (index < 0 || index >= classifier->decisionCount()) {
            fail(h, msg::DecisionIndex);
            return nullptr;
        }
        logToHandle(h, classifier->decisionName(index));
        return h->error.text.data();
    });
}

extern "C" ZELK_API int zelk_GetDecColor(ZelkHandle* h, int index, unsigned char* r, unsigned char* g, unsigned char* b)
{
    return exported("zelk_GetDecColor", h, [&] {
        if (const int code = checkClassifier(h))
            return code;
        const ZelkClassifier* classifier = h->project->classifier.get();
        if (index < 0 || index >= classifier->decisionCount())
            return fail(h, msg::DecisionIndex);
        if (!r || !g || !b)
            return fail(h, msg::NullPointer);
        // The rejected decision has a fixed orange; the classes take their colour from
        // the classifier's table as 0xRRGGBB. A table too short for a class gives black.
        quint32 colour = 0xFFAA00u;
        if (index < classifier->classCount())
            colour = index < classifier->colourTable.size() ? quint32(classifier->colourTable.at(index)) : 0u;
        *r = quint8(colour >> 16);
        *g = quint8(colour >> 8);
        *b = quint8(colour);
        return 0;
    });
}

extern "C" ZELK_API int zelk_GetRegVarCount(ZelkHandle* h)
{
    return exported("zelk_GetRegVarCount", h, [&] {
        if (!h->project)
            return fail(h, msg::NoProject);
        const ZelkRegressor* regressor = h->project->regressor.get();
        return regressor ? regressor->regVarNames.size() : 0;
    });
}

extern "C" ZELK_API const char* zelk_GetRegVarName(ZelkHandle* h, int index)
{
    return exported("zelk_GetRegVarName", h, [&]() -> const char* {
        if (!h->project) {
            fail(h, msg::NoProject);
            return nullptr;
        }
        const ZelkRegressor* regressor = h->project->regressor.get();
        if (!regressor) {
            // Reported in the process-wide pair; the handle's error stays as it was.
            failGlobal(msg::NoRegressor);
            return nullptr;
        }
        if (index < 0 || index >= regressor->regVarNames.size()) {
            fail(h, msg::variableIndex(index));
            return nullptr;
        }
        logToHandle(h, regressor->regVarNames.at(index));
        return h->error.text.data();
    });
}
