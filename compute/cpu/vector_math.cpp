#include "compute/cpu/vector_math.h"
#include "compute/cpu/fast_exp.h"

#include <atomic>
#include <cblas.h>
#include <cstdint>
#include <mutex>

namespace compute::cpu {
namespace {

VectorLevel bestLevel()
{
#ifdef ZELK_VECTOR_LEVELS
    __builtin_cpu_init();
#ifdef __clang__ // which knows the features, not the levels
    const bool v3 = __builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma") && __builtin_cpu_supports("bmi2");
    const bool v4 = v3 && __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
                    __builtin_cpu_supports("avx512cd") && __builtin_cpu_supports("avx512dq") && __builtin_cpu_supports("avx512vl");
#else
    const bool v3 = __builtin_cpu_supports("x86-64-v3"), v4 = __builtin_cpu_supports("x86-64-v4");
#endif
    if (v4)
        return VectorLevel::V4;
    if (v3)
        return VectorLevel::V3;
#endif
    return VectorLevel::Baseline;
}

// Chosen when the library loads; changed only by useVectorLevel.
std::atomic<VectorLevel> level{bestLevel()};

} // namespace

std::vector<VectorLevel> supportedVectorLevels()
{
    std::vector<VectorLevel> levels{VectorLevel::Baseline};
    const VectorLevel best = bestLevel();
    if (best >= VectorLevel::V3)
        levels.push_back(VectorLevel::V3);
    if (best >= VectorLevel::V4)
        levels.push_back(VectorLevel::V4);
    return levels;
}

bool useVectorLevel(VectorLevel wanted)
{
    if (wanted > bestLevel())
        return false;
    level.store(wanted, std::memory_order_relaxed);
    return true;
}

VectorLevel vectorLevel()
{
    return level.load(std::memory_order_relaxed);
}

void useSingleThreadedBlas()
{
    static std::once_flag once;
    std::call_once(once, [] { openblas_set_num_threads(1); });
}

namespace {

__attribute__((always_inline)) inline void radialUnitsOf(const float* dot, const float* norms, const float* gamma, float zz,
                                                         float* out, int n)
{
    for (int i = 0; i < n; ++i) {
        float d = dot[i] + norms[i] + zz;
        d = d < 0.0f ? 0.0f : d;
        float a = gamma[i] * d;
        expInPlace<float, std::int32_t>(a);
        out[i] = a;
    }
}

template <typename T>
__attribute__((always_inline)) inline void stageRowOf(const T* __restrict in, const float* __restrict dark,
                                                      const float* __restrict gain, float* __restrict out, int n)
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

__attribute__((always_inline)) inline float sumOfSquaresOf(const float* values, int n)
{
    float sum = 0.0f;
    for (int i = 0; i < n; ++i)
        sum += values[i] * values[i];
    return sum;
}

// Both products are rounded before the difference, on every instruction set, so that a
// sample rounds the same way whichever version runs: a fused multiply-subtract could
// tip a value that lies next to one half. GCC takes that as a function attribute,
// clang as a pragma in the body.
#ifdef __clang__
#define ZELK_NO_FP_CONTRACT
#else
#define ZELK_NO_FP_CONTRACT __attribute__((optimize("fp-contract=off")))
#endif
ZELK_NO_FP_CONTRACT __attribute__((always_inline)) inline void interpolateSamplesOf(
    const std::uint16_t* lo, const std::uint16_t* hi, float t, std::uint16_t* out, int n)
{
#ifdef __clang__
#pragma clang fp contract(off)
#endif
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

ZELK_LEVEL_VERSIONS(, void, radialUnits, radialUnitsOf,
                    (const float* dot, const float* norms, const float* gamma, float zz, float* out, int n),
                    (dot, norms, gamma, zz, out, n))
ZELK_LEVEL_VERSIONS(, void, stageRowU16, stageRowOf,
                    (const std::uint16_t* in, const float* dark, const float* gain, float* out, int n),
                    (in, dark, gain, out, n))
ZELK_LEVEL_VERSIONS(, void, stageRowF32, stageRowOf, (const float* in, const float* dark, const float* gain, float* out, int n),
                    (in, dark, gain, out, n))
ZELK_LEVEL_VERSIONS(, float, sumOfSquares, sumOfSquaresOf, (const float* values, int n), (values, n))
ZELK_LEVEL_VERSIONS(ZELK_NO_FP_CONTRACT, void, interpolateSamples, interpolateSamplesOf,
                    (const std::uint16_t* lo, const std::uint16_t* hi, float t, std::uint16_t* out, int n),
                    (lo, hi, t, out, n))

} // namespace

void radialUnits(const float* dot, const float* norms, const float* gamma, float zz, float* out, int n)
{
    forLevel(radialUnitsBaseline, radialUnitsV3, radialUnitsV4)(dot, norms, gamma, zz, out, n);
}

void stageRow(const std::uint16_t* in, const float* dark, const float* gain, float* out, int n)
{
    forLevel(stageRowU16Baseline, stageRowU16V3, stageRowU16V4)(in, dark, gain, out, n);
}

void stageRow(const float* in, const float* dark, const float* gain, float* out, int n)
{
    forLevel(stageRowF32Baseline, stageRowF32V3, stageRowF32V4)(in, dark, gain, out, n);
}

float sumOfSquares(const float* values, int n)
{
    return forLevel(sumOfSquaresBaseline, sumOfSquaresV3, sumOfSquaresV4)(values, n);
}

void interpolateSamples(const std::uint16_t* lo, const std::uint16_t* hi, float t, std::uint16_t* out, int n)
{
    forLevel(interpolateSamplesBaseline, interpolateSamplesV3, interpolateSamplesV4)(lo, hi, t, out, n);
}

} // namespace compute::cpu
