#pragma once
// The resampler on the host, band after band on the caller's thread.

#include "compute/resample_kernel.h"

namespace compute::cpu {

// One frame through a consistent map.
void resampleFrame(const ResampleMap& map, const quint16* frame, quint16* out);

class CpuResampler final : public ResampleKernel {
public:
    explicit CpuResampler(ResampleMap map) : map_(std::move(map)) {}
    bool resample(const quint16* frame, quint16* out) override
    {
        resampleFrame(map_, frame, out);
        return true;
    }

private:
    ResampleMap map_;
};

} // namespace compute::cpu
