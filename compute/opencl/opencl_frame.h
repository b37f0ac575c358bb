#pragma once
// A staged frame on an OpenCL device: the camera's samples go up once, the staging
// kernel of the backend's program converts and corrects them there, and the
// classifier and regression kernels of the same device read the result in place.
// The references go up only when the caller hands in other ones than last time.

#include "compute/opencl/device_work.h"
#include "compute/staged_frame.h"

#include <memory>

namespace compute::opencl {

class OpenClFrame final : public StagedFrame, public DeviceWork {
public:
    // Room for frames of that shape on the device of `context`; null, with `error`
    // set, when the device refuses a step.
    static std::unique_ptr<OpenClFrame> create(cl_context context, cl_device_id device, cl_program program, int pixels,
                                               int bands, QString* error);

    bool stage(const void* samples, SampleType type, const QVector<float>& dark, const QVector<float>& gain) override;
    bool stageResampled(const quint16* samples, ResampleKernel& resampler, quint16* scratch, const QVector<float>& dark,
                        const QVector<float>& gain) override;

    // The staged frame, pixels by bands, complete once stage has returned.
    cl_mem values() const { return values_.get(); }

private:
    OpenClFrame(int pixels, int bands) : StagedFrame(pixels, bands) {}
    bool init(cl_context context, cl_device_id device, cl_program program);
    // The staging kernel over `raw`, samples of `type` already on the device.
    bool stageOnDevice(cl_mem raw, SampleType type, const QVector<float>& dark, const QVector<float>& gain);

    Kernel stageU16_, stageF32_;
    DeviceArray raw_, values_, bands_, dark_, gain_;
    // The references now on the device, held so that they cannot change unseen: a
    // caller's new or changed vector no longer shares their data.
    QVector<float> darkOnDevice_, gainOnDevice_;
};

} // namespace compute::opencl
