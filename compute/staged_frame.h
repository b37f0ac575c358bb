#pragma once
// A line-scan frame staged once for every kernel of a run that reads it: converted to
// float and corrected, (x − dark) · gain, on all its bands, with one band a column
// (pixels by bands), in the memory of the device that runs those kernels. A classifier
// takes its bands from it and a regressor reads it whole, so the frame reaches the
// device once.

#include "compute/resample_kernel.h"
#include "compute/sample_block.h"

#include <QVector>

namespace compute {

class StagedFrame {
public:
    StagedFrame(int pixels, int bands) : pixels_(pixels), bands_(bands) {}
    virtual ~StagedFrame() = default;

    int pixels() const { return pixels_; }
    int bands() const { return bands_; }

    // Stages pixels by bands `samples` of `type`, corrected when `dark` is not empty
    // (and then scaled by `gain` when that is not empty), both pixels by bands too.
    // False, with the frame undefined, when the references do not fit or the device
    // failed.
    virtual bool stage(const void* samples, SampleType type, const QVector<float>& dark, const QVector<float>& gain) = 0;

    // Stages a frame of 16-bit `samples` that `resampler` first takes onto this frame's
    // bands. A device frame keeps the resampled frame on the device when the resampler
    // works there too; on the host it passes through `scratch` (pixels by bands).
    // False when a step failed.
    virtual bool stageResampled(const quint16* samples, ResampleKernel& resampler, quint16* scratch,
                                const QVector<float>& dark, const QVector<float>& gain)
    {
        return resampler.resample(samples, scratch) && stage(scratch, SampleType::U16, dark, gain);
    }

    // The staged frame in host memory; null where it stays on the device.
    virtual const float* host() const { return nullptr; }

protected:
    // True when the references fit a frame of this shape.
    bool fits(const QVector<float>& dark, const QVector<float>& gain) const
    {
        const qint64 n = qint64(pixels_) * bands_;
        return (dark.isEmpty() && gain.isEmpty()) || (dark.size() == n && (gain.isEmpty() || gain.size() == n));
    }

private:
    int pixels_, bands_;
};

} // namespace compute
