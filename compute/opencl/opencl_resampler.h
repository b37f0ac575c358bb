#pragma once
// The resampler on an OpenCL device: the map goes to the device once; a frame goes up,
// one work item per destination sample interpolates, and the resampled frame comes
// back. The arithmetic is that of the host resampler, step by step, so that both give
// the same samples.

#include "compute/opencl/device_work.h"
#include "compute/resample_kernel.h"

#include <memory>

namespace compute::opencl {

class OpenClResampler final : public ResampleKernel, public DeviceWork {
public:
    // The source of the device code, part of the backend's program.
    static const char* programSource();

    // Copies a consistent map to the device of `context` and allocates the frame
    // buffers; null, with `error` set, when the device refuses a step.
    static std::unique_ptr<OpenClResampler> create(cl_context context, cl_device_id device, cl_program program,
                                                   const ResampleMap& map, QString* error);

    bool resample(const quint16* frame, quint16* out) override;
    // Resamples `frame` into `resampled()` and leaves it on the device, finished when it
    // returns, for the staging kernel of the same context to read.
    bool resampleOnDevice(const quint16* frame);
    cl_mem resampled() const { return out_.get(); }

private:
    explicit OpenClResampler(const ResampleMap& map) : map_(map) {}
    bool init(cl_context context, cl_device_id device, cl_program program);

    ResampleMap map_;
    Kernel resample_;
    DeviceArray low_, high_, fraction_, frame_, out_;
};

} // namespace compute::opencl
