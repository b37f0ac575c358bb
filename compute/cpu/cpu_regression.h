#pragma once
// The regression kernel on the host: one BLAS product a frame, the pixels shared
// between the cores, each core's part one call of a single-threaded BLAS.

#include "compute/regression_kernel.h"

#include <vector>

namespace compute::cpu {

class CpuRegression final : public RegressionKernel {
public:
    explicit CpuRegression(const LinearMap& map);

    bool predict(const float* frame, int pixels, float* outputs) override;
    bool reserve(int pixels) override;

    // Frames from this many pixels on are shared between the cores.
    static constexpr int ParallelPixels = 256;

private:
    LinearMap map_;
    std::vector<float> scratch_; // frame product, pixels by variables
};

} // namespace compute::cpu
