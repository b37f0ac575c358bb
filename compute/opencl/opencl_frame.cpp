#include "compute/opencl/opencl_frame.h"
#include "compute/opencl/opencl_resampler.h"

#include <numeric>
#include <vector>

namespace compute::opencl {

std::unique_ptr<OpenClFrame> OpenClFrame::create(cl_context context, cl_device_id device, cl_program program, int pixels,
                                                 int bands, QString* error)
{
    std::unique_ptr<OpenClFrame> frame(new OpenClFrame(pixels, bands));
    const bool ready = frame->init(context, device, program);
    return readyOrNull(std::move(frame), ready, error);
}

bool OpenClFrame::init(cl_context context, cl_device_id device, cl_program program)
{
    const size_t n = size_t(pixels()) * size_t(bands());
    std::vector<cl_int> identity(static_cast<size_t>(bands()));
    std::iota(identity.begin(), identity.end(), 0);
    return open(context, device, program) && makeKernel(stageU16_, "stage_u16") && makeKernel(stageF32_, "stage_f32") &&
           makeArray(raw_, n * sizeof(float)) && makeArray(values_, n * sizeof(float)) &&
           makeArray(bands_, identity.size() * sizeof(cl_int), identity.data());
}

bool OpenClFrame::stage(const void* samples, SampleType type, const QVector<float>& dark, const QVector<float>& gain)
{
    traffic_ = {};
    if (!samples || !fits(dark, gain)) {
        error_ = QStringLiteral("no samples, or references that do not fit the frame");
        return false;
    }
    const size_t rawBytes = size_t(pixels()) * size_t(bands()) * (type == SampleType::U16 ? 2 : 4);
    return upload(raw_, samples, rawBytes) && stageOnDevice(raw_.get(), type, dark, gain);
}

bool OpenClFrame::stageResampled(const quint16* samples, ResampleKernel& resampler, quint16* scratch,
                                 const QVector<float>& dark, const QVector<float>& gain)
{
    auto* onDevice = dynamic_cast<OpenClResampler*>(&resampler);
    if (!onDevice || !onDevice->sharesContextWith(*this))
        return StagedFrame::stageResampled(samples, resampler, scratch, dark, gain);
    traffic_ = {};
    if (!fits(dark, gain)) {
        error_ = QStringLiteral("no samples, or references that do not fit the frame");
        return false;
    }
    if (!onDevice->resampleOnDevice(samples)) {
        error_ = onDevice->lastError();
        return false;
    }
    return stageOnDevice(onDevice->resampled(), SampleType::U16, dark, gain);
}

bool OpenClFrame::stageOnDevice(cl_mem raw, SampleType type, const QVector<float>& dark, const QVector<float>& gain)
{
    const cl_int correction = dark.isEmpty() ? 0 : gain.isEmpty() ? 1 : 2;
    if (correction > 0 && (!dark.isSharedWith(darkOnDevice_) || !gain.isSharedWith(gainOnDevice_))) {
        const size_t darkBytes = size_t(dark.size()) * sizeof(float), gainBytes = size_t(gain.size()) * sizeof(float);
        darkOnDevice_.clear();
        gainOnDevice_.clear();
        if (!grow(dark_, darkBytes) || !upload(dark_, dark.constData(), darkBytes) || !grow(gain_, gainBytes) ||
            !upload(gain_, gain.constData(), gainBytes))
            return false;
        darkOnDevice_ = dark;
        gainOnDevice_ = gain;
    }
    const cl_int n = pixels(), B = bands(), bandsByPixels = 0;
    const size_t count = size_t(n) * size_t(B);
    // Finished before it returns: the kernels that read the frame use queues of their own.
    return launch(type == SampleType::U16 ? stageU16_ : stageF32_, "running the staging kernel", count, 1, raw,
                  values_.get(), bands_.get(), dark_.get(), gain_.get(), correction, n, n, B, B, bandsByPixels) &&
           check(clFinish(queue_.get()), "staging the frame");
}

} // namespace compute::opencl
