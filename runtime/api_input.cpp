// What the library expects of the camera between a load and a start: geometry, sample
// type and layout, the cube's region of interest, and object segmentation.

#include "spectral/camera_kinds.h"
#include "runtime/boundary.h"
#include "runtime/handle.h"
#include "runtime/report.h"

namespace {

// Dimension getters share their checks.
int projectValue(ZelkHandle* h, const char* function, int ZelkHandle::*field)
{
    if (!h)
        return nullHandle(function);
    if (!h->project)
        return noProject(h, function);
    return h->*field;
}

} // namespace

extern "C" ZELK_API int zelk_GetInputWidth(ZelkHandle* h)
{
    return projectValue(h, "zelk_GetInputWidth", &ZelkHandle::inputWidth);
}

extern "C" ZELK_API int zelk_GetInputHeight(ZelkHandle* h)
{
    return projectValue(h, "zelk_GetInputHeight", &ZelkHandle::inputHeight);
}

extern "C" ZELK_API int zelk_GetInputBands(ZelkHandle* h)
{
    return projectValue(h, "zelk_GetInputBands", &ZelkHandle::inputBands);
}

// The sample type follows from the camera the project was made for, and for camera
// type 19 from its acquisition type. A loaded correction means raw counts come in,
// which only some cameras have.
extern "C" ZELK_API int zelk_GetInputDataType(ZelkHandle* h)
{
    if (!h)
        return nullHandle("zelk_GetInputDataType");
    if (!h->project)
        return noProject(h, "zelk_GetInputDataType");
    const int type = h->project->projectType, acq = h->project->acqType;
    const CameraKind& kind = cameraKind(type, acq);
    const InputType input = h->correctionEnabled ? kind.correctedInput : kind.input;
    switch (input) {
    case InputType::Undefined:
        return setHandleError(h, ZELK_E_TYPE_UNDEFINED, QStringLiteral("zelk_GetInputDataType: Undefined data type."));
    case InputType::Unsupported:
        return setHandleError(
            h, -165, QStringLiteral("zelk_GetInputDataType: Project and acquisition type unsupported (%1,%2)").arg(type).arg(acq));
    case InputType::UInt16:
    case InputType::Float:
        break;
    }
    return int(input);
}

extern "C" ZELK_API int zelk_GetInputDataLayout(ZelkHandle* h)
{
    if (!h)
        return nullHandle("zelk_GetInputDataType"); // deliberate: callers know the text by this name
    if (!h->project)
        return noProject(h, "zelk_GetInputDataType"); // deliberate: callers know the text by this name
    const CameraKind& kind = cameraKind(h->project->projectType, h->project->acqType);
    // A line-scan camera's layout is that of its frames: a handle that takes cubes, left
    // by an earlier project, has none for it.
    const bool framesOfCubes = kind.family == CallFamily::LineScan && !h->lineScan;
    if (kind.layout == InputLayout::Undefined || framesOfCubes)
        return setHandleError(h, ZELK_E_LAYOUT_UNDEFINED, QStringLiteral("zelk_GetInputDataLayout: Undefined data layout."));
    return int(kind.layout);
}

extern "C" ZELK_API int zelk_GetMaskType(ZelkHandle* h)
{
    if (!h)
        return nullHandle("zelk_GetMaskType");
    if (!h->project)
        return noProject(h, "zelk_GetMaskType");
    if (!h->project->segmenter)
        // deliberate: "segmetation" is the text as callers know it
        return setHandleError(h, ZELK_E_NO_SEGMENTER, QStringLiteral("zelk_GetMaskType: Object segmetation not defined."));
    return h->project->segmenter->objMask;
}

extern "C" ZELK_API int zelk_SetInputWidth(ZelkHandle* h, int width)
{
    if (!h)
        return nullHandle("zelk_SetInputWidth");
    if (!h->project)
        return noProject(h, "zelk_SetInputWidth");
    if (width <= 0)
        return setHandleError(h, ZELK_E_WIDTH, QStringLiteral("zelk_SetInputWidth: Width value must be positive"));
    h->inputWidth = width;
    return 0;
}

// A wrong layout is reported in the global pair: the call needs no project, and the
// handle's own error stays as it was.
extern "C" ZELK_API int zelk_SetInputDataLayout(ZelkHandle* h, unsigned int layout)
{
    if (!h)
        return nullHandle("zelk_SetInputDataType"); // deliberate: callers know the text by this name
    if (layout < 1 || layout > 3) // deliberate: the global pair, and the text as callers know it
        return setGlobalError(ZELK_E_LAYOUT, QStringLiteral("zelk_SetInputDataLayout: Unsuported layout type requested (%1)").arg(layout));
    h->inputDataLayout = int(layout);
    return 0;
}

extern "C" ZELK_API int zelk_SetCubeROI(ZelkHandle* h, int col, int row, int width, int height, unsigned char fill)
{
    if (!h)
        return nullHandle("zelk_SetCubeROI");
    if (!h->project)
        return noProject(h, "zelk_SetCubeROI");
    if (col == -1 || row == -1 || width == -1 || height == -1) {
        h->roiEnabled = false;
        return 0;
    }
    // Compared in 64 bits: a width near INT_MAX must not wrap into range.
    const qint64 w = h->inputWidth, ht = h->inputHeight;
    const bool valid = col >= 0 && col < w && row >= 0 && row < ht && width > 0 && height > 0 &&
                       qint64(width) - 1 + col < w && qint64(height) - 1 + row < ht;
    if (!valid)
        return setHandleError(h, ZELK_E_ROI,
                              QStringLiteral("zelk_SetCubeROI: Invalid ROI specification (col=%1,row=%2,width=%3,height=%4 "
                                             "while imageWidth=%5, imageHeight=%6")
                                  .arg(col).arg(row).arg(width).arg(height).arg(h->inputWidth).arg(h->inputHeight));
    h->roiFill = fill;
    h->roiCol = col;
    h->roiRow = row;
    h->roiWidth = width;
    h->roiHeight = height;
    h->roiEnabled = true;
    return 0;
}

extern "C" ZELK_API int zelk_SetSegmentation(ZelkHandle* h, unsigned int mode)
{
    if (!h)
        return nullHandle("zelk_SetSegmentation");
    if (!h->project)
        return noProject(h, "zelk_SetSegmentation");
    return guarded<int>(h, "zelk_SetSegmentation", InternalErrorCode, [&] {
        if (mode == 1) {
            ZelkSegmenter* s = h->project->segmenter.get();
            if (!s)
                // deliberate: "segmetation" is the text as callers know it
                return setHandleError(h, ZELK_E_NO_SEGMENTER, QStringLiteral("zelk_SetSegmentation: Object segmetation not defined."));
            if (!h->segmenter) {
                if (!s->isCompiled() && s->compile() != 0) {
                    h->segmenter = nullptr;
                    return setHandleError(h, ZELK_E_SEGMENTATION, QStringLiteral("zelk_StartAcquisition: Object segmentation cannot proceed (%1:%2).")
                                                       .arg(s->lastErrorCode()).arg(s->lastErrorText()));
                }
                h->segmenter = s;
                if (const int r = s->prepareSegmenter(h->lineScan, h->inputWidth, h->regVarCount))
                    return r;
            }
            if (!h->segmenter->isCompiled() && h->segmenter->compile() != 0)
                return setHandleError(h, ZELK_E_SEGMENTATION, QStringLiteral("zelk_SetSegmentation: Object segmentation cannot proceed (%1:%2).")
                                                   .arg(h->segmenter->lastErrorCode()).arg(h->segmenter->lastErrorText()));
        }
        h->segmentationEnabled = mode != 0;
        return 0;
    });
}

extern "C" ZELK_API int zelk_SetMinObjSize(ZelkHandle* h, int size)
{
    if (!h) {
        nullHandle("zelk_SetMinObjSize");
        return -1;
    }
    if (!h->project) {
        noProject(h, "zelk_SetMinObjSize");
        return -1;
    }
    if (!h->project->segmenter)
        // deliberate: "segmetation" is the text as callers know it
        return setHandleError(h, ZELK_E_NO_SEGMENTER, QStringLiteral("zelk_SetMinObjSize: Object segmetation not defined."));
    if (size <= 0) {
        setHandleError(h, ZELK_E_OBJECT_SIZE, QStringLiteral("zelk_SetMinObjSize: Wrong minimum object size (must be >0)"));
        return -1;
    }
    h->project->segmenter->setMinObjSize(size);
    return 0;
}
