#include "compute/cpu/vector_math.h"

#include <cstdint>
#include <cstring>

#if defined(__x86_64__) && !defined(__SANITIZE_ADDRESS__)
#define ZELK_VECTOR_CLONES __attribute__((target_clones("arch=x86-64-v4", "arch=x86-64-v3", "default")))
#else
#define ZELK_VECTOR_CLONES
#endif

namespace compute::cpu {
namespace {

// exp(x) = 2^n · exp(r) with n = round(x / ln 2) and |r| <= ln 2 / 2; exp(r) by a
// degree-6 polynomial. Branch-free so that the loops around it vectorise. A NaN (a
// spectrum with one) is worked as 0 and given back as it came: converting it to an
// integer would be undefined.
inline float expScalar(float x)
{
    const float in = x;
    const bool nan = x != x;
    x = nan ? 0.0f : x;
    x = x < -87.0f ? -87.0f : x;
    x = x > 88.0f ? 88.0f : x;
    const float n = __builtin_floorf(x * 1.44269504088896341f + 0.5f);
    float r = x - n * 0.693359375f;
    r = r - n * -2.12194440e-4f;
    float p = 1.9875691500e-4f;
    p = p * r + 1.3981999507e-3f;
    p = p * r + 8.3334519073e-3f;
    p = p * r + 4.1665795894e-2f;
    p = p * r + 1.6666665459e-1f;
    p = p * r + 5.0000001201e-1f;
    p = p * r * r + r + 1.0f;
    const std::int32_t bits = (std::int32_t(n) + 127) << 23;
    float scale;
    std::memcpy(&scale, &bits, sizeof scale);
    return nan ? in : p * scale;
}

} // namespace

ZELK_VECTOR_CLONES void expInPlace(float* values, int n)
{
    for (int i = 0; i < n; ++i)
        values[i] = expScalar(values[i]);
}

ZELK_VECTOR_CLONES void radialUnits(const float* dot, const float* norms, const float* gamma, float zz, float* out, int n)
{
    for (int i = 0; i < n; ++i) {
        float d = dot[i] + norms[i] + zz;
        d = d < 0.0f ? 0.0f : d;
        out[i] = expScalar(gamma[i] * d);
    }
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
