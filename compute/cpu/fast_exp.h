#pragma once
// exp for a float and for a vector of floats, written once so that every CPU kernel
// rounds alike: exp(x) = 2^n · exp(r) with n the integer nearest to x / ln 2 and
// |r| <= ln 2 / 2, exp(r) by a degree-6 polynomial. The relative error stays within a
// few units in the last place. Branch-free, so that loops around it vectorise.

#include <cstdint>
#include <type_traits>

namespace compute::cpu {

// `Int` is the 32-bit integer type of the same shape as `Float`. In place, so that no
// vector crosses a call by value (which would tie it to one instruction set's ABI).
template <typename Float, typename Int>
inline void expInPlace(Float& x)
{
    // Below -104 single-precision exp is 0 and above 89 infinite, as it is at the
    // clamps. A NaN (from a spectrum holding one) fails the comparison and takes the
    // lowest value, since converting a NaN to an integer would be undefined.
    x = x > -104.0f ? x : -104.0f;
    x = x > 89.0f ? 89.0f : x;
    // Adding and taking away 1.5 · 2^23 rounds to the nearest integer.
    const Float n = (x * 1.44269504088896341f + 12582912.0f) - 12582912.0f;
    Float r = x - n * 0.693359375f;
    r = r - n * -2.12194440e-4f;
    Float p = r * 1.9875691500e-4f + 1.3981999507e-3f;
    p = p * r + 8.3334519073e-3f;
    p = p * r + 4.1665795894e-2f;
    p = p * r + 1.6666665459e-1f;
    p = p * r + 5.0000001201e-1f;
    p = p * r * r + r + 1.0f;
    Int bits;
    if constexpr (std::is_same_v<Float, float>)
        bits = Int(n);
    else
        bits = __builtin_convertvector(n, Int);
    // 2^n as 2^h · 2^(n-h) with h = n/2 rounded down: both halves are normal floats for
    // n in -150..128, and only the second product rounds, so that results below the
    // normal range come out as the subnormal (or 0) that exp gives, not flushed.
    const Int half = bits >> 1;
    const Int upper = (half + 127) << 23, lower = (bits - half + 127) << 23;
    x = p * __builtin_bit_cast(Float, upper) * __builtin_bit_cast(Float, lower);
}

} // namespace compute::cpu
