#include "compute/cpu/fused_network.h"
#include "compute/cpu/fast_exp.h"
#include "compute/cpu/vector_math.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <utility>

namespace compute::cpu {
namespace {

// Vectors of the compiler's own: one clone keeps a vector in one 512-bit register, the
// others split it.
constexpr int LaneCount = 16;
constexpr int Parts = FusedBlockPixels / LaneCount;
typedef float Lanes __attribute__((vector_size(LaneCount * sizeof(float)), may_alias));
typedef float UnalignedLanes __attribute__((vector_size(LaneCount * sizeof(float)), aligned(4), may_alias));
typedef std::int32_t IntLanes __attribute__((vector_size(LaneCount * sizeof(std::int32_t)), may_alias));
// A pixel's features are one vector when there are few, two otherwise.
constexpr int Halves = FusedMaxFeatures / LaneCount;
static_assert(Halves == 2, "a pixel's features fill at most two vectors");

// Entry c of the shuffles that swap the off-diagonal blocks of size k of 16 rows: the
// first row of a pair keeps its own entries left of the block and takes the second's
// within it, the second row the other way round.
constexpr int swapIndex(int k, bool second, int c)
{
    if (second)
        return (c & k) ? LaneCount + c : c + k;
    return (c & k) ? LaneCount + c - k : c;
}

// Swaps the blocks of one pair of rows in place (no vector crosses a call by value);
// the indices are constants, as both compilers' shuffle wants.
template <int K, std::size_t... C>
inline void swapPair(Lanes& a, Lanes& b, std::index_sequence<C...>)
{
    const Lanes first = __builtin_shufflevector(a, b, swapIndex(K, false, int(C))...);
    b = __builtin_shufflevector(a, b, swapIndex(K, true, int(C))...);
    a = first;
}

template <int K>
inline void swapBlocks(Lanes* rows)
{
    for (int r = 0; r < LaneCount; ++r)
        if ((r & K) == 0)
            swapPair<K>(rows[r], rows[r + K], std::make_index_sequence<LaneCount>());
}

// Transposes 16 rows of 16 in registers: swapping the off-diagonal blocks at every
// size swaps each entry with its mirror.
inline void transpose(Lanes* rows)
{
    swapBlocks<1>(rows);
    swapBlocks<2>(rows);
    swapBlocks<4>(rows);
    swapBlocks<8>(rows);
}

// The features of a block, z = Mᵀx + o, as rows[FusedMaxFeatures h + f]: feature f of
// pixels 16 h to 16 h + 15. From one spectrum a column, each pixel's features are one
// vector a half (16 features), summed over the bands and then transposed in blocks of
// 16 by 16; rows past `count` repeat the last pixel.
template <int H>
inline void projectPixels(const FusedNetwork& net, const float* x, qint64 ld, int count, Lanes* rows)
{
    const UnalignedLanes* weights = reinterpret_cast<const UnalignedLanes*>(net.bandRows);
    const UnalignedLanes* offset = reinterpret_cast<const UnalignedLanes*>(net.offset);
    constexpr int Together = 4 / H; // pixels summed side by side, to hide the latency of a sum
    for (int p = 0; p < FusedBlockPixels; p += Together) {
        const float* spectrum[Together];
        Lanes sum[Together][H];
        for (int j = 0; j < Together; ++j) {
            spectrum[j] = x + std::min(p + j, count - 1) * ld;
            for (int g = 0; g < H; ++g)
                sum[j][g] = offset[g];
        }
        for (int b = 0; b < net.bands; ++b)
            for (int g = 0; g < H; ++g) {
                const Lanes w = weights[b * Halves + g];
                for (int j = 0; j < Together; ++j)
                    sum[j][g] += spectrum[j][b] * w;
            }
        for (int j = 0; j < Together; ++j) {
            const int h = (p + j) / LaneCount, lane = (p + j) % LaneCount;
            for (int g = 0; g < H; ++g)
                rows[h * FusedMaxFeatures + g * LaneCount + lane] = sum[j][g];
        }
    }
    for (int h = 0; h < Parts; ++h)
        for (int g = 0; g < H; ++g)
            transpose(rows + h * FusedMaxFeatures + g * LaneCount);
}

// Features f .. f + J - 1 of a block of one band a column: J sums side by side hide the
// latency of each addition, and each band's pixels are loaded once for all of them.
template <int J>
__attribute__((always_inline)) inline void projectFeatures(const FusedNetwork& net, const float* x, qint64 ld, int f,
                                                           Lanes* rows)
{
    Lanes sum[J][Parts];
    for (int j = 0; j < J; ++j)
        for (int h = 0; h < Parts; ++h)
            sum[j][h] = Lanes{} + net.offset[f + j];
    for (int b = 0; b < net.bands; ++b) {
        const float* m = net.bandRows + qint64(b) * FusedMaxFeatures + f;
        for (int h = 0; h < Parts; ++h) {
            const Lanes v = *reinterpret_cast<const UnalignedLanes*>(x + b * ld + h * LaneCount);
            for (int j = 0; j < J; ++j)
                sum[j][h] += m[j] * v;
        }
    }
    for (int j = 0; j < J; ++j)
        for (int h = 0; h < Parts; ++h)
            rows[h * FusedMaxFeatures + f + j] = sum[j][h];
}

// The same from one band a column, whose bands are rows of pixels already. A last block
// that is not whole is copied into `scratch` first, padded with zeros.
inline void projectBands(const FusedNetwork& net, const float* x, qint64 ld, int count, float* scratch, Lanes* rows)
{
    const int B = net.bands;
    if (count < FusedBlockPixels) {
        std::fill(scratch, scratch + qint64(B) * FusedBlockPixels, 0.0f);
        for (int b = 0; b < B; ++b)
            std::copy_n(x + b * ld, count, scratch + qint64(b) * FusedBlockPixels);
        x = scratch;
        ld = FusedBlockPixels;
    }
    int f = 0;
    for (; f + 8 <= net.features; f += 8)
        projectFeatures<8>(net, x, ld, f, rows);
    for (; f + 4 <= net.features; f += 4)
        projectFeatures<4>(net, x, ld, f, rows);
    for (; f < net.features; ++f)
        projectFeatures<1>(net, x, ld, f, rows);
}

// Centres whose distances are summed side by side: independent sums hide the latency
// of each addition, and a block's features are loaded once for all of them.
constexpr int CentresTogether = 4;

// Adds the units of centres k .. k + J - 1 to the class scores s.
template <int C, int J>
__attribute__((always_inline)) inline void addUnits(const FusedNetwork& net, const Lanes* rows, int k, Lanes (&s)[C][Parts])
{
    const int F = net.features;
    const float* centre = net.centres + qint64(k) * F;
    Lanes d[J][Parts] = {};
    for (int f = 0; f < F; ++f)
        for (int h = 0; h < Parts; ++h) {
            const Lanes z = rows[h * FusedMaxFeatures + f];
            for (int j = 0; j < J; ++j) {
                const Lanes t = z - centre[j * F + f];
                d[j][h] += t * t;
            }
        }
    for (int j = 0; j < J; ++j) {
        const float* w = net.outputs + qint64(k + j + 1) * C;
        for (int h = 0; h < Parts; ++h) {
            Lanes a = net.gammas[k + j] * d[j][h];
            expInPlace<Lanes, IntLanes>(a);
            for (int c = 0; c < C; ++c)
                s[c][h] += a * w[c];
        }
    }
}

// The decisions of a block from its features as the projections leave them. C is a
// constant so that the class scores stay in registers.
template <int C>
__attribute__((always_inline)) inline void classifyBlock(const FusedNetwork& net, const Lanes* rows, int count,
                                                         quint8* decisions)
{
    const int K = net.units;

    // s_c = W(0,c) + Σ_k exp(g_k ‖z − c_k‖²) W(k+1,c). The difference form keeps
    // distances exact near a centre, whatever the magnitude of z.
    Lanes s[C][Parts];
    for (int c = 0; c < C; ++c)
        for (int h = 0; h < Parts; ++h)
            s[c][h] = Lanes{} + net.outputs[c];
    int k = 0;
    for (; k + CentresTogether <= K; k += CentresTogether)
        addUnits<C, CentresTogether>(net, rows, k, s);
    for (; k < K; ++k)
        addUnits<C, 1>(net, rows, k, s);

    // The weighted maximum, the first class on ties, then the winner's own threshold.
    float top[FusedBlockPixels];
    std::int32_t best[FusedBlockPixels];
    for (int h = 0; h < Parts; ++h) {
        Lanes t = s[0][h] * net.classRow[0];
        IntLanes i = {};
        for (int c = 1; c < C; ++c) {
            const Lanes v = s[c][h] * net.classRow[c];
            const IntLanes better = v > t;
            t = better ? v : t;
            i = better ? IntLanes{} + c : i;
        }
        std::memcpy(top + h * LaneCount, &t, sizeof t);
        std::memcpy(best + h * LaneCount, &i, sizeof i);
    }
    for (int p = 0; p < count; ++p) {
        const int d = best[p];
        decisions[p] = quint8(net.thresholds && top[p] < net.thresholds[d] ? C : d);
    }
}

} // namespace

ZELK_VECTOR_CLONES void classifyFused(const FusedNetwork& net, const float* x, bool pixelMajor, qint64 ld, int count,
                                      float* scratch, quint8* decisions)
{
    Lanes features[Parts * FusedMaxFeatures];
    for (int first = 0; first < count; first += FusedBlockPixels) {
        const int n = std::min(FusedBlockPixels, count - first);
        if (pixelMajor && net.features <= LaneCount)
            projectPixels<1>(net, x + first * ld, ld, n, features);
        else if (pixelMajor)
            projectPixels<2>(net, x + first * ld, ld, n, features);
        else
            projectBands(net, x + first, ld, n, scratch, features);
        quint8* out = decisions + first;
        static_assert(FusedMaxClasses == 8, "one case a class count");
        switch (net.classes) {
        case 1: classifyBlock<1>(net, features, n, out); break;
        case 2: classifyBlock<2>(net, features, n, out); break;
        case 3: classifyBlock<3>(net, features, n, out); break;
        case 4: classifyBlock<4>(net, features, n, out); break;
        case 5: classifyBlock<5>(net, features, n, out); break;
        case 6: classifyBlock<6>(net, features, n, out); break;
        case 7: classifyBlock<7>(net, features, n, out); break;
        default: classifyBlock<8>(net, features, n, out); break;
        }
    }
}

} // namespace compute::cpu
