#include "compute/cpu/cpu_regression.h"
#include "compute/cpu/vector_math.h"

#include <algorithm>
#include <cblas.h>

namespace compute::cpu {

CpuRegression::CpuRegression(const LinearMap& map)
    : map_(map)
{
    useSingleThreadedBlas();
}

bool CpuRegression::reserve(int pixels)
{
    if (pixels < 0)
        return false;
    if (size_t(pixels) * size_t(map_.variables) > scratch_.size())
        scratch_.resize(size_t(pixels) * size_t(map_.variables));
    return true;
}

bool CpuRegression::predict(const float* frame, int pixels, float* outputs)
{
    if (pixels <= 0)
        return pixels == 0;
    if (!frame || !outputs || !reserve(pixels))
        return false;
    // scratch (pixels by variables) = frame (pixels by bands) · weights (bands by
    // variables); then the variables of a pixel are laid side by side, with the offset.
    const int bands = map_.bands, variables = map_.variables;
    float* scratch = scratch_.data();
    const float* offset = map_.offset.constData();
    cblas_sgemm(CblasColMajor, CblasNoTrans, CblasNoTrans, pixels, variables, bands, 1.0f, frame, pixels,
                map_.weights.constData(), bands, 0.0f, scratch, pixels);
    for (int v = 0; v < variables; ++v) {
        const float* column = scratch + qint64(v) * pixels;
        for (int p = 0; p < pixels; ++p)
            outputs[qint64(p) * variables + v] = column[p] + offset[v];
    }
    return true;
}

} // namespace compute::cpu
