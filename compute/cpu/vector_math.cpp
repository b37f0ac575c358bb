#include "compute/cpu/vector_math.h"
#include "compute/cpu/fast_exp.h"

#include <cblas.h>
#include <cstdint>
#include <mutex>

namespace compute::cpu {

void useSingleThreadedBlas()
{
    static std::once_flag once;
    std::call_once(once, [] { openblas_set_num_threads(1); });
}

ZELK_VECTOR_CLONES void radialUnits(const float* dot, const float* norms, const float* gamma, float zz, float* out, int n)
{
    for (int i = 0; i < n; ++i) {
        float d = dot[i] + norms[i] + zz;
        d = d < 0.0f ? 0.0f : d;
        float a = gamma[i] * d;
        expInPlace<float, std::int32_t>(a);
        out[i] = a;
    }
}

namespace {

template <typename T>
inline void stageRowOf(const T* __restrict in, const float* __restrict dark, const float* __restrict gain,
                       float* __restrict out, int n)
{
    if (!dark)
        for (int i = 0; i < n; ++i)
            out[i] = float(in[i]);
    else if (!gain)
        for (int i = 0; i < n; ++i)
            out[i] = float(in[i]) - dark[i];
    else
        for (int i = 0; i < n; ++i)
            out[i] = (float(in[i]) - dark[i]) * gain[i];
}

} // namespace

ZELK_VECTOR_CLONES void stageRow(const std::uint16_t* in, const float* dark, const float* gain, float* out, int n)
{
    stageRowOf(in, dark, gain, out, n);
}

ZELK_VECTOR_CLONES void stageRow(const float* in, const float* dark, const float* gain, float* out, int n)
{
    stageRowOf(in, dark, gain, out, n);
}

ZELK_VECTOR_CLONES float sumOfSquares(const float* values, int n)
{
    float sum = 0.0f;
    for (int i = 0; i < n; ++i)
        sum += values[i] * values[i];
    return sum;
}

// Both products are rounded before the difference, on every instruction set, so that a
// sample rounds the same way whichever clone runs: a fused multiply-subtract could tip
// a value that lies next to one half.
__attribute__((optimize("fp-contract=off"))) ZELK_VECTOR_CLONES void interpolateSamples(
    const std::uint16_t* lo, const std::uint16_t* hi, float t, std::uint16_t* out, int n)
{
    const float tMinusOne = t - 1.0f;
    for (int i = 0; i < n; ++i) {
        float y = float(hi[i]) * t - float(lo[i]) * tMinusOne;
        // Clamped first, which rounding then cannot leave. The conversion truncates and y
        // minus its integer part is exact, so a fraction of one half or more rounds up.
        y = y < 0.0f ? 0.0f : y;
        y = y > 65535.0f ? 65535.0f : y;
        const std::int32_t r = std::int32_t(y);
        out[i] = std::uint16_t(r + (y - float(r) >= 0.5f ? 1 : 0));
    }
}

} // namespace compute::cpu
