#pragma once
// Loops of the CPU kernels that the compiler vectorises. Each is built for several
// instruction sets and the best one the processor has is picked when the library
// loads.

#include <cstdint>

// Sanitizer builds make the plain version only.
#if defined(__x86_64__) && !defined(__SANITIZE_ADDRESS__)
#define ZELK_VECTOR_CLONES __attribute__((target_clones("arch=x86-64-v4", "arch=x86-64-v3", "default")))
#else
#define ZELK_VECTOR_CLONES
#endif

namespace compute::cpu {

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
