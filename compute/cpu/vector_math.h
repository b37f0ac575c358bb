#pragma once
// Loops of the CPU kernels that the compiler vectorises. Each is built for several
// instruction sets; the best one the processor has runs, unless a caller chooses
// another with useVectorLevel (the tests compare each with the baseline build).

#include <cstdint>
#include <vector>

// Sanitizer builds make the baseline version only.
#if defined(__x86_64__) && !defined(__SANITIZE_ADDRESS__)
#define ZELK_VECTOR_LEVELS 1
#define ZELK_TARGET_V3 __attribute__((target("arch=x86-64-v3")))
#define ZELK_TARGET_V4 __attribute__((target("arch=x86-64-v4")))
#endif

namespace compute::cpu {

// Baseline: what every processor of the architecture runs, the reference of the
// others. V3: AVX2 with fused multiply-add. V4: AVX-512.
enum class VectorLevel { Baseline, V3, V4 };

// The levels this build and processor can run, baseline first.
std::vector<VectorLevel> supportedVectorLevels();
// Makes every CPU kernel run the loops of `level` from the next call on; false, with
// nothing changed, when the build or processor cannot run it. Process-wide.
bool useVectorLevel(VectorLevel level);
VectorLevel vectorLevel();

// Of a loop's versions, the one of the level in force.
template <typename Fn>
Fn forLevel(Fn baseline, Fn v3, Fn v4)
{
    switch (vectorLevel()) {
    case VectorLevel::V4:
        return v4;
    case VectorLevel::V3:
        return v3;
    default:
        return baseline;
    }
}

// out[i] = exp(gamma[i] * max(0, dot[i] + norms[i] + zz)): the radial basis units of one
// pixel from the products dot[i] = -2 zᵀc_i, the centre norms and the pixel norm zz.
void radialUnits(const float* dot, const float* norms, const float* gamma, float zz, float* out, int n);

// Sets the BLAS to one thread, once. The library links a serial BLAS, but a process
// that loaded a threaded build of the same library first (a Python caller with numpy)
// shares that one: its threads must not take the caller's other cores.
void useSingleThreadedBlas();

// out[i] = in[i] as float, less dark[i] when `dark` is given, times gain[i] when `gain`
// is given too: n samples of a camera as a classifier or regressor takes them.
void stageRow(const std::uint16_t* in, const float* dark, const float* gain, float* out, int n);
void stageRow(const float* in, const float* dark, const float* gain, float* out, int n);

// Sum of squares of n values.
float sumOfSquares(const float* values, int n);

// out[i] = hi[i]·t − lo[i]·(t − 1), the interpolation between two samples written as a
// resampler computes it, rounded half away from zero as roundf does and clamped to the
// 16-bit range.
void interpolateSamples(const std::uint16_t* lo, const std::uint16_t* hi, float t, std::uint16_t* out, int n);

} // namespace compute::cpu

// Builds `name##Baseline`, `name##V3` and `name##V4` from the always-inline `body`,
// each for its instruction set (all three the baseline where only that exists), and
// `name`, which calls the one of the level in force. `attributes` go on every version.
#ifdef ZELK_VECTOR_LEVELS
#define ZELK_LEVEL_VERSIONS(attributes, result, name, body, params, args)                                      \
    attributes static result name##Baseline params { return body args; }                                      \
    attributes ZELK_TARGET_V3 static result name##V3 params { return body args; }                             \
    attributes ZELK_TARGET_V4 static result name##V4 params { return body args; }
#else
#define ZELK_LEVEL_VERSIONS(attributes, result, name, body, params, args)                                      \
    attributes static result name##Baseline params { return body args; }                                      \
    static constexpr auto name##V3 = name##Baseline;                                                           \
    static constexpr auto name##V4 = name##Baseline;
#endif
