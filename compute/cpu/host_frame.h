#pragma once
// A staged frame in host memory, which the CPU kernels read as it is.

#include "compute/cpu/vector_math.h"
#include "compute/staged_frame.h"

#include <algorithm>
#include <vector>

namespace compute::cpu {

// out[i] = sample i as float, or (sample - dark[i]) * gain[i] when both are given: n
// samples, with no band selection.
inline void stageSamples(const void* samples, SampleType type, const float* dark, const float* gain, float* out, qint64 n)
{
    constexpr qint64 Run = 1 << 30; // the row functions count in int
    for (qint64 i = 0; i < n; i += Run) {
        const int count = int(std::min(Run, n - i));
        const float* d = dark ? dark + i : nullptr;
        const float* g = gain ? gain + i : nullptr;
        if (type == SampleType::U16)
            stageRow(static_cast<const quint16*>(samples) + i, d, g, out + i, count);
        else
            stageRow(static_cast<const float*>(samples) + i, d, g, out + i, count);
    }
}

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
