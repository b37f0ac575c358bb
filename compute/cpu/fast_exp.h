#pragma once
// exp for a float and for a vector of floats, written once so that every CPU kernel
// rounds alike: exp(x) = 2^n · exp(r) with n the integer nearest to x / ln 2 and
// |r| <= ln 2 / 2, exp(r) by a degree-6 polynomial. The relative error stays within a
// few units in the last place. Branch-free, so that loops around it vectorise.

#include <cstdint>

namespace compute::cpu {

// The two factors of exp(x) = p · 2^n, with n as an integer. `Int` is the 32-bit
// integer type of the same shape as `Float`. Below -104 single-precision exp is 0 and
// above 89 infinite, as it is at the clamps, which keep n within -150..128. A NaN (from
// a spectrum holding one) fails the comparison and takes the lowest value. Vectors go
// by reference, so that none crosses a call by value (which would tie it to one
// instruction set's ABI).
template <typename Float, typename Int>
inline void expFactors(const Float& exponent, Float& p, Int& n)
{
    Float x = exponent > -104.0f ? exponent : -104.0f;
    x = x > 89.0f ? 89.0f : x;
    // Adding 1.5 · 2^23 rounds to the nearest integer, which then stands in the low bits
    // of the sum (whose unit in the last place is 1): taking the sum's bits apart gives
    // it as an integer without a conversion.
    const Float shifted = x * 1.44269504088896341f + 12582912.0f;
    const Float k = shifted - 12582912.0f;
    Float r = x - k * 0.693359375f;
    r = r - k * -2.12194440e-4f;
    p = r * 1.9875691500e-4f + 1.3981999507e-3f;
    p = p * r + 8.3334519073e-3f;
    p = p * r + 4.1665795894e-2f;
    p = p * r + 1.6666665459e-1f;
    p = p * r + 5.0000001201e-1f;
    p = p * r * r + r + 1.0f;
    n = __builtin_bit_cast(Int, shifted) - 0x4B400000;
}

// p · 2^n for n in -150..128, as 2^h · 2^(n-h) with h = n/2 rounded down: both halves
// are normal floats, and only the second product rounds, so that results below the
// normal range come out as the subnormal (or 0) that exp gives, not flushed.
template <typename Float, typename Int>
inline void timesPowerOfTwo(Float& p, const Int& n)
{
    const Int half = n >> 1;
    const Int upper = (half + 127) << 23, lower = (n - half + 127) << 23;
    p = p * __builtin_bit_cast(Float, upper) * __builtin_bit_cast(Float, lower);
}

template <typename Float, typename Int>
inline void expInPlace(Float& x)
{
    Int n;
    expFactors<Float, Int>(x, x, n);
    timesPowerOfTwo<Float, Int>(x, n);
}

// Arithmetic on subnormals takes the processor a hundred times longer than on normal
// numbers, and units far from their centres are subnormals. So the fused pass splits exp
// at the bottom of the normal range: `normal` is exp(x) where that is a normal float and 0
// below; `tiny` is 0 above and below it the subnormal that exp gives (rounded to its
// grid, 2^-149, as exp rounds it) times 2^64, a normal float. The shares of a score
// summed from `tiny` join it where tinyShareMatters says they change it.
constexpr float TinyScale = 0x1p64f, TinyToNormal = 0x1p-64f;

template <typename Float, typename Int>
inline void expSplit(const Float& x, Float& normal, Float& tiny)
{
    Float p;
    Int n;
    expFactors<Float, Int>(x, p, n);
    // From n = -126 down p · 2^n may lie below the normal range. There the unit is
    // p · 2^(n+149) rounded to an integer, times 2^-85; from 2^23 up that integer is the
    // product itself. Neither side forms a subnormal: the other's values take n = 0.
    const auto below = n < -125;
    normal = p;
    timesPowerOfTwo<Float, Int>(normal, below ? 0 : n);
    const Float grid = p * __builtin_bit_cast(Float, Int((below ? n + 149 : 0) + 127) << 23);
    const Float steps = grid < 0x1p23f ? (grid + 0x1p23f) - 0x1p23f : grid;
    normal = below ? 0.0f : normal;
    tiny = below ? steps * (TinyScale * 0x1p-149f) : 0.0f;
}

// Whether tiny · 2^-64 changes the score s: not where it is below a quarter of the last
// place of s. A NaN in tiny always does. `Mask` is the integer type of Float's shape.
template <typename Float, typename Mask>
inline void tinyShareMatters(const Float& s, const Float& tiny, Mask& matters)
{
    const Float magnitude = s < 0.0f ? -s : s, share = tiny < 0.0f ? -tiny : tiny;
    matters = !(share < magnitude * 0x1p38f);
}

} // namespace compute::cpu
