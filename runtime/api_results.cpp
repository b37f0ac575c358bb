// Results of the last frame or cube: object records, decision rows, regression
// outputs, and the names and colours of the decisions and variables. The calls only
// check bounds and hand out pointers into the handle's buffers, which stay the
// library's and stand until the next frame or cube.

#include "classify/classifier.h"
#include "classify/regressor.h"
#include "runtime/boundary.h"
#include "runtime/handle.h"
#include "runtime/report.h"
#include "segment/segmenter.h"

#include <algorithm>

namespace {

// The largest class index that a record has a counter for.
constexpr unsigned MaxClassIndex = ObjectClassSlots - 1;

QString text(const char* function, const char* what)
{
    return QStringLiteral("%1: %2").arg(QLatin1String(function), QLatin1String(what));
}

// Records that can be read: objCount, but no more than the handle holds. A frame that
// finished more objects than that reports the full count and keeps only the first ones.
int readableObjects(const ZelkHandle* h)
{
    return std::min(h->objCount, int(h->objects.size() / ObjectRecordInts));
}

// 0 when `index` names a readable record; otherwise the handle error -161 in the text
// of `function`, which gives the last valid index and the one asked for.
int checkObjectIndex(ZelkHandle* h, const char* function, int index)
{
    const int count = readableObjects(h);
    if (index >= 0 && index < count)
        return 0;
    return setHandleError(h, ZELK_E_OBJECT_INDEX, QStringLiteral("%1: Object index out of bounds (0..%2 got %3)")
                                       .arg(QLatin1String(function)).arg(count - 1).arg(index));
}

const qint32* record(const ZelkHandle* h, int index)
{
    return h->objects.data() + size_t(index) * ObjectRecordInts;
}

// Index, mode and class checks shared by the two class calls; 0 or the failing code.
// The class counters exist in 'All foreground' mode only, which needs the segmenter of
// a running acquisition.
int checkClassEntry(ZelkHandle* h, const char* function, int index, unsigned classIndex)
{
    if (const int code = checkObjectIndex(h, function, index))
        return code;
    if (!h->segmenter || h->segmenter->mask() != ObjectMask::AllForeground)
        return setHandleError(h, ZELK_E_NOT_ALL_FOREGROUND, text(function, "Segmentation not set to required 'All foreground' mode."));
    if (classIndex > MaxClassIndex)
        // The message shows the object index, not the class index.
        return setHandleError(h, ZELK_E_CLASS_INDEX, QStringLiteral("%1: Class index out of bounds (0..20, got %2)")
                                           .arg(QLatin1String(function)).arg(index));
    return 0;
}

// The vocabulary calls describe the decisions of the project's classifier: 0 when
// there is one, otherwise the handle error -103 or -104 in the text of `function`.
int checkClassifier(ZelkHandle* h, const char* function)
{
    if (!h->project)
        return noProject(h, function);
    if (!h->project->classifier)
        return noClassifier(h, function);
    return 0;
}

// The row of the decision image that the last frame wrote, or null when no image of
// the input width exists. The row after the wrap is ringLast as well.
const quint8* lastDecisionRow(const ZelkHandle* h)
{
    const QImage* image = h->labelImage.get();
    if (!image || image->width() < h->inputWidth || h->ringLast < 0 || h->ringLast >= image->height())
        return nullptr;
    return image->constScanLine(h->ringLast);
}

} // namespace

extern "C" ZELK_API int zelk_GetObjCount(ZelkHandle* h)
{
    if (!h)
        return nullHandle("zelk_GetObjCount");
    return h->objCount;
}

extern "C" ZELK_API int zelk_GetObjDataInt(ZelkHandle* h, int index, int** out)
{
    if (!h)
        return nullHandle("zelk_GetObjCount"); // deliberate: callers know the text by this name
    return guarded<int>(h, "zelk_GetObjDataInt", InternalErrorCode, [&] {
        if (const int code = checkObjectIndex(h, "zelk_GetObjDataInt", index))
            return code;
        if (!out)
            return setHandleError(h, ZELK_E_NULL_POINTER, QStringLiteral("zelk_GetObjDataInt: Passing NULL pointer."));
        *out = h->objects.data() + size_t(index) * ObjectRecordInts;
        return 0;
    });
}

extern "C" ZELK_API int zelk_GetObjDataClassSize(ZelkHandle* h, int index, unsigned classIndex)
{
    if (!h)
        return nullHandle("zelk_GetObjDataClassSize");
    return guarded<int>(h, "zelk_GetObjDataClassSize", InternalErrorCode, [&] {
        if (const int code = checkClassEntry(h, "zelk_GetObjDataClassSize", index, classIndex))
            return code;
        return int(record(h, index)[objectfield::ClassSizes + classIndex]);
    });
}

extern "C" ZELK_API float zelk_GetObjDataClassFrac(ZelkHandle* h, int index, unsigned classIndex)
{
    if (!h)
        return float(nullHandle("zelk_GetObjDataClassSize")); // deliberate: callers know the text by this name
    return guarded<float>(h, "zelk_GetObjDataClassFrac", float(InternalErrorCode), [&] {
        if (const int code = checkClassEntry(h, "zelk_GetObjDataClassFrac", index, classIndex))
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
    if (!h)
        return nullHandle("zelk_GetObjDataRegOut"); // deliberate: callers know the text by this name
    return guarded<int>(h, "zelk_GetObjDataRegOutput", InternalErrorCode, [&] {
        if (const int code = checkObjectIndex(h, "zelk_GetObjDataRegOut", index))
            return code;
        // The means are the segmenter's own table. Between runs the handle no longer
        // borrows the segmenter, and the project's one still holds the last run's means.
        const ZelkSegmenter* segmenter = h->segmenter;
        if (!segmenter && h->project)
            segmenter = h->project->segmenter.get();
        const float* means = segmenter ? segmenter->objectMeans() : nullptr;
        // Rows of the table are valuesPerPixel long; the caller reads regVarCount of them.
        if (!means || h->regVarCount < 1 || segmenter->valuesPerPixel() != h->regVarCount)
            return setHandleError(h, ZELK_E_MASK_WITHOUT_SEGMENTATION, QStringLiteral("zelk_GetObjDataRegOut: No regression outputs of objects (regression with segmentation needed)"));
        if (!out)
            return setHandleError(h, ZELK_E_NULL_POINTER, QStringLiteral("zelk_GetObjDataRegOut: Passing NULL pointer."));
        *out = const_cast<float*>(means) + size_t(index) * size_t(h->regVarCount);
        return 0;
    });
}

extern "C" ZELK_API unsigned char* zelk_GetFrameDecisions(ZelkHandle* h)
{
    if (!h) {
        nullHandle("zelk_GetFrameDecisions");
        return nullptr;
    }
    return guarded<unsigned char*>(h, "zelk_GetFrameDecisions", nullptr, [&]() -> unsigned char* {
        if (!h->lineScan) {
            setHandleError(h, ZELK_E_LINE_SCAN_EXPECTED, QStringLiteral("zelk_GetFrameDecisions: Line-scan project type expected, got snapshot."));
            return nullptr;
        }
        if (!lastDecisionRow(h)) {
            setHandleError(h, ZELK_E_NO_DECISION_IMAGE, QStringLiteral("zelk_GetFrameDecisions: Label image does not exist."));
            return nullptr;
        }
        return h->labelImage->scanLine(h->ringLast);
    });
}

extern "C" ZELK_API unsigned char* zelk_GetCubeDecisions(ZelkHandle* h)
{
    if (!h) {
        nullHandle("zelk_GetCubeDecisions");
        return nullptr;
    }
    return guarded<unsigned char*>(h, "zelk_GetCubeDecisions", nullptr, [&]() -> unsigned char* {
        if (h->lineScan) {
            setHandleError(h, ZELK_E_SNAPSHOT_EXPECTED, QStringLiteral("zelk_GetCubeDecisions: Snapshot project type expected, got linescan"));
            return nullptr;
        }
        // Null before the first start, and when the buffer was made for a smaller cube
        // than the current input size (a model loaded since).
        const qint64 pixels = qint64(h->inputWidth) * h->inputHeight;
        if (h->cubeDecisions.empty() || qint64(h->cubeDecisions.size()) < pixels)
            return nullptr;
        return h->cubeDecisions.data();
    });
}

extern "C" ZELK_API float* zelk_GetFrameRegOutputVar(ZelkHandle* h, int varIndex, int mask, float maskValue)
{
    static const char* const function = "zelk_GetFrameRegOutputVar";
    if (!h) {
        nullHandle(function);
        return nullptr;
    }
    return guarded<float*>(h, function, nullptr, [&]() -> float* {
        if (!h->lineScan) {
            setHandleError(h, ZELK_E_LINE_SCAN_EXPECTED, text(function, "Line-scan project type expected, got snapshot."));
            return nullptr;
        }
        if (!h->project) {
            noProject(h, function);
            return nullptr;
        }
        // The index is checked against the loaded regressor; without one there is no
        // variable.
        const ZelkRegressor* regressor = h->project->regressor.get();
        const int variables = regressor ? regressor->regVarNames.size() : 0;
        if (varIndex < 0 || varIndex >= variables) {
            setHandleError(h, ZELK_E_VARIABLE_INDEX, text(function, "Variable index out of bounds"));
            return nullptr;
        }
        if (mask == 1 && !h->segmentationEnabled) {
            setHandleError(h, ZELK_E_MASK_WITHOUT_SEGMENTATION, text(function, "Masking cannot be used as segmentation is not enabled"));
            return nullptr;
        }
        // The outputs are those of the last start, sized for its regressor and width:
        // before the first start, or after a new model, there are none to read.
        const int width = h->inputWidth;
        const bool outputsExist = varIndex < h->regVarCount && width >= 0 && h->regVarLine.size() >= size_t(width)
                                  && h->regOutput.size() >= size_t(width) * size_t(h->regVarCount);
        if (!outputsExist) {
            setHandleError(h, ZELK_E_NO_REGRESSION_OUTPUT, text(function, "No regression output yet. Start the acquisition first."));
            return nullptr;
        }
        const float* output = h->regOutput.data();
        float* line = h->regVarLine.data();
        const size_t stride = size_t(h->regVarCount);
        if (mask == 0) {
            for (int i = 0; i < width; ++i)
                line[i] = output[size_t(i) * stride + size_t(varIndex)];
            return line;
        }
        // Masking reads the foreground flags of the running segmentation.
        const quint8* foreground = h->segmenter ? h->segmenter->foregroundTable() : nullptr;
        if (!foreground) {
            setHandleError(h, ZELK_E_MASK_WITHOUT_SEGMENTATION, text(function, "Masking cannot be used as segmentation is not enabled"));
            return nullptr;
        }
        const quint8* decisions = lastDecisionRow(h);
        if (!decisions) {
            setHandleError(h, ZELK_E_NO_DECISION_IMAGE, text(function, "Label image does not exist."));
            return nullptr;
        }
        for (int i = 0; i < width; ++i)
            line[i] = foreground[decisions[i]] ? output[size_t(i) * stride + size_t(varIndex)] : maskValue;
        return line;
    });
}

extern "C" ZELK_API int zelk_GetDecCount(ZelkHandle* h)
{
    if (!h)
        return nullHandle("zelk_GetDecCount");
    return guarded<int>(h, "zelk_GetDecCount", InternalErrorCode, [&] {
        if (const int code = checkClassifier(h, "zelk_GetDecCount"))
            return code;
        return h->project->classifier->decisionCount();
    });
}

extern "C" ZELK_API const char* zelk_GetDecName(ZelkHandle* h, int index)
{
    if (!h) {
        nullHandle("zelk_GetDecName");
        return nullptr;
    }
    return guarded<const char*>(h, "zelk_GetDecName", nullptr, [&]() -> const char* {
        if (checkClassifier(h, "zelk_GetDecName"))
            return nullptr;
        const ZelkClassifier* classifier = h->project->classifier.get();
        if (index < 0 || index >= classifier->decisionCount()) {
            setHandleError(h, ZELK_E_DECISION_INDEX, QStringLiteral("zelk_GetDecName: Decision index out of bounds"));
            return nullptr;
        }
        logToHandle(h, classifier->decisionName(index));
        return h->message.data();
    });
}

extern "C" ZELK_API int zelk_GetDecColor(ZelkHandle* h, int index, unsigned char* r, unsigned char* g, unsigned char* b)
{
    if (!h)
        return nullHandle("zelk_GetDecColor");
    return guarded<int>(h, "zelk_GetDecColor", InternalErrorCode, [&] {
        if (const int code = checkClassifier(h, "zelk_GetDecColor"))
            return code;
        const ZelkClassifier* classifier = h->project->classifier.get();
        if (index < 0 || index >= classifier->decisionCount())
            return setHandleError(h, ZELK_E_DECISION_INDEX, QStringLiteral("zelk_GetDecColor: Decision index out of bounds"));
        if (!r || !g || !b)
            return setHandleError(h, ZELK_E_NULL_POINTER, QStringLiteral("zelk_GetDecColor: Passing NULL pointer."));
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
    if (!h)
        return nullHandle("zelk_GetRegVarCount");
    if (!h->project)
        return setHandleError(h, ZELK_E_NO_PROJECT, QStringLiteral("zelk_GetRegVarCount: Project not loaded."));
    const ZelkRegressor* regressor = h->project->regressor.get();
    return regressor ? regressor->regVarNames.size() : 0;
}

extern "C" ZELK_API const char* zelk_GetRegVarName(ZelkHandle* h, int index)
{
    if (!h) {
        nullHandle("zelk_GetRegVarName");
        return nullptr;
    }
    return guarded<const char*>(h, "zelk_GetRegVarName", nullptr, [&]() -> const char* {
        if (!h->project) {
            setHandleError(h, ZELK_E_NO_PROJECT, QStringLiteral("zelk_GetRegVarName: Project not loaded."));
            return nullptr;
        }
        const ZelkRegressor* regressor = h->project->regressor.get();
        if (!regressor) {
            // Reported in the process-wide pair; the handle's error stays as it was.
            setGlobalError(ZELK_E_NO_REGRESSOR, QStringLiteral("zelk_GetRegVarName: Passing NULL pointer."));
            return nullptr;
        }
        if (index < 0 || index >= regressor->regVarNames.size()) {
            setHandleError(h, ZELK_E_NAME_INDEX, QStringLiteral("zelk_GetRegVarName: Variable index out of bounds (%1)").arg(index));
            return nullptr;
        }
        logToHandle(h, regressor->regVarNames.at(index));
        return h->message.data();
    });
}
