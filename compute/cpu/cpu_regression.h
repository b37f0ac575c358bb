#pragma once
// The regression kernel on the host: one product of a single-threaded BLAS a frame, on
// the caller's thread.

#include "compute/regression_kernel.h"

#include <vector>

namespace compute::cpu {

class CpuRegression final : public RegressionKernel {
public:
    explicit CpuRegression(const LinearMap& map);

    bool predict(const float* frame, int pixels, float* outputs) override;
    bool reserve(int pixels) override;

private:
    LinearMap map_;
    std::vector<float> scratch_; // frame product, pixels by variables
};

} // namespace compute::cpu
