#pragma once
// A staged frame in host memory, which the CPU kernels read as it is.

#include "compute/staged_frame.h"

#include <vector>

namespace compute::cpu {

class HostFrame final : public StagedFrame {
public:
    HostFrame(int pixels, int bands) : StagedFrame(pixels, bands), values_(size_t(pixels) * size_t(bands)) {}

    bool stage(const void* samples, SampleType type, const QVector<float>& dark, const QVector<float>& gain) override
    {
        if (!samples || !fits(dark, gain))
            return false;
        const bool correct = !dark.isEmpty();
        stageSamples(samples, type, correct ? dark.constData() : nullptr, correct && !gain.isEmpty() ? gain.constData() : nullptr,
                     values_.data(), qint64(values_.size()));
        return true;
    }
    const float* host() const override { return values_.data(); }

private:
    std::vector<float> values_;
};

} // namespace compute::cpu
