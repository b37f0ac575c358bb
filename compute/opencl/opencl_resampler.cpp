#include "compute/opencl/opencl_resampler.h"

namespace compute::opencl {

const char* OpenClResampler::programSource()
{
    return R"CLC(
// Item (p, j) writes pixel p of destination band j. Both products are rounded before
// the difference, as on the host: a fused multiply-subtract could tip a value that lies
// next to one half. The conversion truncates and y minus its integer part is exact, so
// a fraction of one half or more rounds up.
__kernel void resample_u16(__global const ushort* in, __global ushort* out, __global const int* low,
                           __global const int* high, __global const float* fraction, int width)
{
#pragma OPENCL FP_CONTRACT OFF
    const size_t p = get_global_id(0), j = get_global_id(1);
    const float t = fraction[j];
    const float tMinusOne = t - 1.0f;
    const float hi = (float)in[(size_t)high[j] * (size_t)width + p] * t;
    const float lo = (float)in[(size_t)low[j] * (size_t)width + p] * tMinusOne;
    float y = hi - lo;
    y = y < 0.0f ? 0.0f : y;
    y = y > 65535.0f ? 65535.0f : y;
    const int r = (int)y;
    out[j * (size_t)width + p] = (ushort)(r + (y - (float)r >= 0.5f ? 1 : 0));
}
)CLC";
}

std::unique_ptr<OpenClResampler> OpenClResampler::create(cl_context context, cl_device_id device, cl_program program,
                                                         const ResampleMap& map, QString* error)
{
    std::unique_ptr<OpenClResampler> kernel(new OpenClResampler(map));
    const bool ready = kernel->init(context, device, program);
    return readyOrNull(std::move(kernel), ready, error);
}

bool OpenClResampler::init(cl_context context, cl_device_id device, cl_program program)
{
    const size_t width = size_t(map_.width), dest = size_t(map_.destBands()), in = width * size_t(map_.sourceBands);
    const cl_int w = map_.width;
    const quint16 zero = 0;
    // One frame of zeros, so that the driver has made the device code for this work
    // size before the first frame comes.
    return open(context, device, program) && makeKernel(resample_, "resample_u16") &&
           makeArray(low_, dest * sizeof(cl_int), map_.low.data()) && makeArray(high_, dest * sizeof(cl_int), map_.high.data()) &&
           makeArray(fraction_, dest * sizeof(float), map_.fraction.data()) && makeArray(frame_, in * sizeof(quint16)) &&
           makeArray(out_, width * dest * sizeof(quint16)) &&
           check(clEnqueueFillBuffer(queue_.get(), frame_.get(), &zero, sizeof zero, 0, in * sizeof(quint16), 0, nullptr, nullptr),
                 "clearing the frame") &&
           launch(resample_, "running the resampling kernel", width, dest, frame_.get(), out_.get(), low_.get(), high_.get(),
                  fraction_.get(), w) &&
           check(clFinish(queue_.get()), "resampling a frame of zeros");
}

bool OpenClResampler::resample(const quint16* frame, quint16* out)
{
    if (!out) {
        traffic_ = {};
        error_ = QStringLiteral("no frame or no room for the resampled one");
        return false;
    }
    return resampleOnDevice(frame) && download(out_, out, size_t(map_.width) * size_t(map_.destBands()) * sizeof(quint16));
}

bool OpenClResampler::resampleOnDevice(const quint16* frame)
{
    traffic_ = {};
    if (!frame) {
        error_ = QStringLiteral("no frame or no room for the resampled one");
        return false;
    }
    const size_t width = size_t(map_.width), dest = size_t(map_.destBands());
    const cl_int w = map_.width;
    return upload(frame_, frame, width * size_t(map_.sourceBands) * sizeof(quint16)) &&
           launch(resample_, "running the resampling kernel", width, dest, frame_.get(), out_.get(), low_.get(), high_.get(),
                  fraction_.get(), w) &&
           check(clFinish(queue_.get()), "resampling the frame");
}

} // namespace compute::opencl
