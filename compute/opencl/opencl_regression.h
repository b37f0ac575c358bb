#pragma once
// The regression kernel on an OpenCL device. The linear map is copied to the device
// once; a frame then goes up once, one matrix product lays the outputs out with the
// variables of a pixel next to each other, a small kernel adds the offset, and only
// the outputs come back.

#include "compute/opencl/device_work.h"
#include "compute/regression_kernel.h"

#include <memory>

namespace compute::opencl {

class OpenClRegression final : public RegressionKernel, public DeviceWork {
public:
    // The source of the device code, part of the backend's program.
    static const char* programSource();

    // Copies a consistent map to the device of `context`; null, with `error` set, when
    // the device refuses a step.
    static std::unique_ptr<OpenClRegression> create(cl_context context, cl_device_id device, cl_program program,
                                                    const LinearMap& map, QString* error);

    bool predict(const float* frame, int pixels, float* outputs) override;
    // A frame staged on this device is read where it lies: only the outputs move.
    bool predictFrame(const StagedFrame& frame, float* outputs) override;
    // Allocates for frames of exactly `pixels` pixels and runs one such frame of zeros,
    // so that the matrix product has compiled its device code before the first frame.
    // Frames of another width are prepared so when they come.
    bool reserve(int pixels) override;

private:
    explicit OpenClRegression(const LinearMap& map) : map_(map) {}
    bool init(cl_context context, cl_device_id device, cl_program program);
    // The product and the offset of the n-pixel `frame`, into `outputs_`.
    bool run(cl_mem frame, int n);

    LinearMap map_;
    Kernel addOffset_;
    DeviceArray weights_, offset_, frame_, outputs_;
    int preparedPixels_ = 0;
};

} // namespace compute::opencl
