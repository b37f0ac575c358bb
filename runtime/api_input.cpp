// What the library expects of the camera between a load and a start: geometry, sample
// type and layout, the cube's region of interest, and object segmentation.

#include "spectral/camera_kinds.h"
#include "runtime/export.h"
#include "runtime/handle.h"

namespace {

// The dimension getters share their checks.
int projectValue(ZelkHandle* h, int ZelkHandle::CameraInput::*field)
{
    if (!h->project)
        return fail(h, msg::NoProject);
    return h->input.*field;
}

} // namespace

extern "C" ZELK_API int zelk_GetInputWidth(ZelkHandle* h)
{
    return exported("zelk_GetInputWidth", h, [&] { return projectValue(h, &ZelkHandle::CameraInput::width); });
}

extern "C" ZELK_API int zelk_GetInputHeight(ZelkHandle* h)
{
    return exported("zelk_GetInputHeight", h, [&] { return projectValue(h, &ZelkHandle::CameraInput::height); });
}

extern "C" ZELK_API int zelk_GetInputBands(ZelkHandle* h)
{
    return exported("zelk_GetInputBands", h, [&] { return projectValue(h, &ZelkHandle::CameraInput::bands); });
}

namespace {

// The sample type follows from the camera the project was made for, and for camera
// type 19 from its acquisition type. A loaded correction means raw counts come in,
// which only some cameras have.
int inputDataType(ZelkHandle* h)
{
    if (!h->project)
        return fail(h, msg::NoProject);
    const int type = h->project->projectType, acq = h->project->acqType;
    const CameraKind& kind = cameraKind(type, acq);
    const InputType input = h->correction.enabled ? kind.correctedInput : kind.input;
    switch (input) {
    case InputType::Undefined:
        return fail(h, msg::UndefinedDataType);
    case InputType::Unsupported:
        return fail(h, msg::cameraUnsupported(type, acq));
    case InputType::UInt16:
    case InputType::Float:
        break;
    }
    return int(input);
}

int inputDataLayout(ZelkHandle* h)
{
    if (!h->project)
        return failUnder(msg::GetInputDataTypeName, h, msg::NoProject); // deliberate, see msg
    const CameraKind& kind = cameraKind(h->project->projectType, h->project->acqType);
    // A line-scan camera's layout is that of its frames: a handle that takes cubes, left
    // by an earlier project, has none for it.
    const bool framesOfCubes = kind.family == CallFamily::LineScan && !h->input.lineScan;
    if (kind.layout == InputLayout::Undefined || framesOfCubes)
        return fail(h, msg::UndefinedDataLayout);
    return int(kind.layout);
}

} // namespace

extern "C" ZELK_API int zelk_GetInputDataType(ZelkHandle* h)
{
    return exported("zelk_GetInputDataType", h, [&] { return inputDataType(h); });
}

extern "C" ZELK_API int zelk_GetInputDataLayout(ZelkHandle* h)
{
    return exported(msg::GetInputDataLayout, h, [&] { return inputDataLayout(h); });
}

extern "C" ZELK_API int zelk_GetMaskType(ZelkHandle* h)
{
    return exported("zelk_GetMaskType", h, [&] {
        if (!h->project)
            return fail(h, msg::NoProject);
        if (!h->project->segmenter)
            return fail(h, msg::NoSegmenter);
        return h->project->segmenter->objMask;
    });
}

extern "C" ZELK_API int zelk_SetInputWidth(ZelkHandle* h, int width)
{
    return exported("zelk_SetInputWidth", h, [&] {
        if (!h->project)
            return fail(h, msg::NoProject);
        if (width <= 0)
            return fail(h, msg::WidthNotPositive);
        h->input.width = width;
        return 0;
    });
}

// A wrong layout is reported in the global pair: the call needs no project, and the
// handle's own error stays as it was.
extern "C" ZELK_API int zelk_SetInputDataLayout(ZelkHandle* h, unsigned int layout)
{
    return exported(msg::SetInputDataLayout, h, [&] {
        if (layout < 1 || layout > 3)
            return failGlobal(msg::layoutRequested(layout));
        h->input.layout = InputLayout(layout);
        return 0;
    });
}

extern "C" ZELK_API int zelk_SetCubeROI(ZelkHandle* h, int col, int row, int width, int height, unsigned char fill)
{
    return exported("zelk_SetCubeROI", h, [&] {
        if (!h->project)
            return fail(h, msg::NoProject);
        if (col == -1 || row == -1 || width == -1 || height == -1) {
            h->roi.enabled = false;
            return 0;
        }
        // Compared in 64 bits: a width near INT_MAX must not wrap into range.
        const qint64 w = h->input.width, ht = h->input.height;
        const bool valid = col >= 0 && col < w && row >= 0 && row < ht && width > 0 && height > 0 &&
                           qint64(width) - 1 + col < w && qint64(height) - 1 + row < ht;
        if (!valid)
            return fail(h, msg::invalidRoi(col, row, width, height, h->input.width, h->input.height));
        h->roi.fill = fill;
        h->roi.col = col;
        h->roi.row = row;
        h->roi.width = width;
        h->roi.height = height;
        h->roi.enabled = true;
        return 0;
    });
}

namespace {

int setSegmentation(ZelkHandle* h, unsigned mode)
{
    if (!h->project)
        return fail(h, msg::NoProject);
    if (mode == 1) {
        ZelkSegmenter* s = h->project->segmenter.get();
        if (!s)
            return fail(h, msg::NoSegmenter);
        if (!h->segmentation.segmenter) {
            if (!s->isCompiled() && s->compile() != 0) {
                h->segmentation.segmenter = nullptr;
                return failUnder(msg::StartAcquisitionName, h, // deliberate, see msg
                                 msg::segmentationCannotProceed(s->lastErrorCode(), s->lastErrorText()));
            }
            h->segmentation.segmenter = s;
            if (const int r = s->prepareSegmenter(h->input.lineScan, h->input.width, h->regression.variableCount))
                return failWithoutText(r);
        }
        if (!h->segmentation.segmenter->isCompiled() && h->segmentation.segmenter->compile() != 0)
            return fail(h, msg::segmentationCannotProceed(h->segmentation.segmenter->lastErrorCode(), h->segmentation.segmenter->lastErrorText()));
    }
    h->segmentation.enabled = mode != 0;
    return 0;
}

} // namespace

extern "C" ZELK_API int zelk_SetSegmentation(ZelkHandle* h, unsigned int mode)
{
    return exported("zelk_SetSegmentation", h, [&] { return setSegmentation(h, mode); });
}

// Deliberate: a null handle, a missing project and a size below 1 store their codes
// but return -1; callers test for -1.
extern "C" ZELK_API int zelk_SetMinObjSize(ZelkHandle* h, int size)
{
    return exportedForAnyHandle("zelk_SetMinObjSize", h, [&]() -> int {
        if (!h) {
            failGlobal(msg::NullPointer);
            return ZELK_E_FAILED;
        }
        if (!h->project) {
            fail(h, msg::NoProject);
            return ZELK_E_FAILED;
        }
        if (!h->project->segmenter)
            return fail(h, msg::NoSegmenter);
        if (size <= 0) {
            fail(h, msg::ObjectSizeNotPositive);
            return ZELK_E_FAILED;
        }
        h->project->segmenter->setMinObjSize(size);
        return 0;
    });
}
