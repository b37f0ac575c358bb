#include "compute/cpu/cpu_regression.h"
#include "compute/cpu/vector_math.h"

#include <algorithm>
#include <cblas.h>
#include <omp.h>

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
    // variables), each core's part one BLAS call; then the variables of a pixel are
    // laid side by side, with the offset.
    const int bands = map_.bands, variables = map_.variables;
    float* scratch = scratch_.data();
    const float* weights = map_.weights.constData();
    const float* offset = map_.offset.constData();
    const int threads = pixels >= ParallelPixels ? std::max(1, omp_get_max_threads()) : 1;
    const int part = (pixels + threads - 1) / threads;
#pragma omp parallel for num_threads(threads) schedule(static) if (threads > 1)
    for (int t = 0; t < threads; ++t) {
        const int first = t * part, count = std::min(part, pixels - first);
        if (count <= 0)
            continue;
        cblas_sgemm(CblasColMajor, CblasNoTrans, CblasNoTrans, count, variables, bands, 1.0f, frame + first, pixels, weights,
                    bands, 0.0f, scratch + first, pixels);
        for (int v = 0; v < variables; ++v) {
            const float* column = scratch + qint64(v) * pixels;
            for (int p = first; p < first + count; ++p)
                outputs[qint64(p) * variables + v] = column[p] + offset[v];
        }
    }
    return true;
}

} // namespace compute::cpu
