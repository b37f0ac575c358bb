#include "compute/opencl/opencl_regression.h"
#include "compute/opencl/opencl_frame.h"

namespace compute::opencl {

const char* OpenClRegression::programSource()
{
    return R"CLC(
// out holds n pixels by V variables, the variables of a pixel next to each other.
__kernel void add_offset(__global float* out, __global const float* offset, int V)
{
    const size_t i = get_global_id(0);
    out[i] += offset[i % (size_t)V];
}
)CLC";
}

std::unique_ptr<OpenClRegression> OpenClRegression::create(cl_context context, cl_device_id device, cl_program program,
                                                           const LinearMap& map, QString* error)
{
    std::unique_ptr<OpenClRegression> kernel(new OpenClRegression(map));
    const bool ready = kernel->init(context, device, program);
    return readyOrNull(std::move(kernel), ready, error);
}

bool OpenClRegression::init(cl_context context, cl_device_id device, cl_program program)
{
    return open(context, device, program) && makeKernel(addOffset_, "add_offset") &&
           makeArray(weights_, size_t(map_.weights.size()) * sizeof(float), map_.weights.constData()) &&
           makeArray(offset_, size_t(map_.offset.size()) * sizeof(float), map_.offset.constData());
}

bool OpenClRegression::reserve(int pixels)
{
    preparedPixels_ = 0;
    if (pixels <= 0)
        return pixels == 0;
    const size_t n = size_t(pixels), B = size_t(map_.bands), V = size_t(map_.variables);
    if (!grow(frame_, n * B * sizeof(float)) || !grow(outputs_, n * V * sizeof(float)) ||
        !makeRoomForGemm(true, V, n, B, 0, B, n, V))
        return false;
    const float zero = 0.0f;
    const bool ok = check(clEnqueueFillBuffer(queue_.get(), frame_.get(), &zero, sizeof zero, 0, n * B * sizeof(float), 0, nullptr,
                                              nullptr),
                          "clearing the frame") &&
                    run(frame_.get(), pixels) && check(clFinish(queue_.get()), "running a frame of zeros");
    traffic_ = {};
    if (ok)
        preparedPixels_ = pixels;
    return ok;
}

bool OpenClRegression::run(cl_mem frame, int n)
{
    // outputs (V by n) = weightsᵀ (V by B) · frameᵀ (B by n): each pixel's variables
    // come out as one column.
    const size_t B = size_t(map_.bands), V = size_t(map_.variables), pixels = size_t(n);
    const cl_int variables = map_.variables;
    return sgemm(true, true, V, pixels, B, 1.0f, weights_.get(), 0, B, frame, 0, pixels, outputs_.get(), V) &&
           launch(addOffset_, "running the offset kernel", pixels * V, 1, outputs_.get(), offset_.get(), variables);
}

bool OpenClRegression::predict(const float* frame, int pixels, float* outputs)
{
    traffic_ = {};
    if (pixels <= 0)
        return pixels == 0;
    if (!frame || !outputs) {
        error_ = QStringLiteral("no frame or no room for the outputs");
        return false;
    }
    if (pixels != preparedPixels_ && !reserve(pixels))
        return false;
    const size_t n = size_t(pixels);
    return upload(frame_, frame, n * size_t(map_.bands) * sizeof(float)) && run(frame_.get(), pixels) &&
           download(outputs_, outputs, n * size_t(map_.variables) * sizeof(float));
}

bool OpenClRegression::predictFrame(const StagedFrame& frame, float* outputs)
{
    const auto* onDevice = dynamic_cast<const OpenClFrame*>(&frame);
    if (!onDevice)
        return RegressionKernel::predictFrame(frame, outputs);
    traffic_ = {};
    if (!outputs || frame.bands() != map_.bands) {
        error_ = QStringLiteral("no room for the outputs, or a frame of other bands than the map's");
        return false;
    }
    const int pixels = frame.pixels();
    if (pixels != preparedPixels_ && !reserve(pixels))
        return false;
    return run(onDevice->values(), pixels) &&
           download(outputs_, outputs, size_t(pixels) * size_t(map_.variables) * sizeof(float));
}

} // namespace compute::opencl
