#include "compute/cpu/fused_network.h"
#include "compute/cpu/fast_exp.h"
#include "compute/cpu/vector_math.h"

#include <algorithm>
#include <cstdint>
#include <cmath>
#include <cstring>
#include <limits>
#include <utility>

namespace compute::cpu {
namespace {

// Vectors of the compiler's own, of L lanes: each level's version of the pass takes the
// width of its registers (16 for AVX-512, 8 for AVX2, 4 for the baseline), since the
// compiler spills vectors wider than a register to memory lane by lane.
template <int L>
struct Vec {
    typedef float Lanes __attribute__((vector_size(L * sizeof(float)), may_alias));
    typedef float UnalignedLanes __attribute__((vector_size(L * sizeof(float)), aligned(4), may_alias));
    typedef std::int32_t IntLanes __attribute__((vector_size(L * sizeof(std::int32_t)), may_alias));
    // A block's pixels are this many vectors, and a pixel's features at most this many.
    static constexpr int Parts = FusedBlockPixels / L, Halves = FusedMaxFeatures / L;
    // Features whose sums a projection keeps side by side, as many as the registers
    // hold: 16 sums on AVX-512 (of 32 registers), 8 on AVX2 and the baseline (of 16).
    static constexpr int FeaturesTogether = L == 16 ? 8 : 8 / Parts;
};

// Entry c of the shuffles that swap the off-diagonal blocks of size k of L rows: the
// first row of a pair keeps its own entries left of the block and takes the second's
// within it, the second row the other way round.
constexpr int swapIndex(int lanes, int k, bool second, int c)
{
    if (second)
        return (c & k) ? lanes + c : c + k;
    return (c & k) ? lanes + c - k : c;
}

// Swaps the blocks of one pair of rows in place (no vector crosses a call by value);
// the indices are constants, as both compilers' shuffle wants.
template <int L, int K, typename V, std::size_t... C>
inline void swapPair(V& a, V& b, std::index_sequence<C...>)
{
    const V first = __builtin_shufflevector(a, b, swapIndex(L, K, false, int(C))...);
    b = __builtin_shufflevector(a, b, swapIndex(L, K, true, int(C))...);
    a = first;
}

template <int L, int K>
inline void swapBlocks(typename Vec<L>::Lanes* rows)
{
    for (int r = 0; r < L; ++r)
        if ((r & K) == 0)
            swapPair<L, K>(rows[r], rows[r + K], std::make_index_sequence<L>());
}

// Transposes L rows of L in registers: swapping the off-diagonal blocks at every size
// swaps each entry with its mirror.
template <int L, int K = L / 2>
inline void transpose(typename Vec<L>::Lanes* rows)
{
    if constexpr (K >= 1) {
        transpose<L, K / 2>(rows);
        swapBlocks<L, K>(rows);
    }
}

// The sum of a vector's lanes, halves added until one lane is left.
template <int L>
inline float laneSum(const typename Vec<L>::Lanes& v)
{
    if constexpr (L == 1) {
        return v[0];
    } else {
        typename Vec<L / 2>::Lanes low, high;
        std::memcpy(&low, &v, sizeof low);
        std::memcpy(&high, reinterpret_cast<const char*>(&v) + sizeof low, sizeof high);
        return laneSum<L / 2>(low + high);
    }
}

// The features of a block, z = Mᵀx + o, as rows[FusedMaxFeatures h + f]: feature f of
// pixels L h to L h + L - 1. From one spectrum a column, each pixel's features are H
// vectors of L, summed over the bands and then transposed in blocks of L by L; rows
// past `count` repeat the last pixel.
template <int L, int H>
__attribute__((always_inline)) inline void projectPixels(const FusedNetwork& net, const float* x, qint64 ld, int count,
                                                         typename Vec<L>::Lanes* rows)
{
    using Lanes = typename Vec<L>::Lanes;
    using UnalignedLanes = typename Vec<L>::UnalignedLanes;
    constexpr int Parts = Vec<L>::Parts;
    constexpr int Halves = Vec<L>::Halves;
    const UnalignedLanes* weights = reinterpret_cast<const UnalignedLanes*>(net.bandRows);
    const UnalignedLanes* offset = reinterpret_cast<const UnalignedLanes*>(net.offset);
    // Pixels summed side by side, to hide the latency of a sum.
    constexpr int Together = H < 4 ? 4 / H : 1;
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
            const int h = (p + j) / L, lane = (p + j) % L;
            for (int g = 0; g < H; ++g)
                rows[h * FusedMaxFeatures + g * L + lane] = sum[j][g];
        }
    }
    for (int h = 0; h < Parts; ++h)
        for (int g = 0; g < H; ++g)
            transpose<L>(rows + h * FusedMaxFeatures + g * L);
}

// The same with as few vectors a pixel as its features need.
template <int L, int H = 1>
__attribute__((always_inline)) inline void projectPixelsOf(const FusedNetwork& net, const float* x, qint64 ld, int count,
                                                           typename Vec<L>::Lanes* rows)
{
    if constexpr (H < Vec<L>::Halves)
        if (net.features > H * L)
            return projectPixelsOf<L, 2 * H>(net, x, ld, count, rows);
    projectPixels<L, H>(net, x, ld, count, rows);
}

// Features f .. f + J - 1 of a block of one band a column: J sums side by side hide the
// latency of each addition, and each band's pixels are loaded once for all of them.
template <int L, int J>
__attribute__((always_inline)) inline void projectFeatures(const FusedNetwork& net, const float* x, qint64 ld, int f,
                                                           typename Vec<L>::Lanes* rows)
{
    using Lanes = typename Vec<L>::Lanes;
    using UnalignedLanes = typename Vec<L>::UnalignedLanes;
    constexpr int Parts = Vec<L>::Parts;
    Lanes sum[J][Parts];
    for (int j = 0; j < J; ++j)
        for (int h = 0; h < Parts; ++h)
            sum[j][h] = Lanes{} + net.offset[f + j];
    for (int b = 0; b < net.bands; ++b) {
        const float* m = net.bandRows + qint64(b) * FusedMaxFeatures + f;
        for (int h = 0; h < Parts; ++h) {
            const Lanes v = *reinterpret_cast<const UnalignedLanes*>(x + b * ld + h * L);
            for (int j = 0; j < J; ++j)
                sum[j][h] += m[j] * v;
        }
    }
    for (int j = 0; j < J; ++j)
        for (int h = 0; h < Parts; ++h)
            rows[h * FusedMaxFeatures + f + j] = sum[j][h];
}

// The same from one band a column, whose bands are rows of pixels already. A last block
// that is not whole is copied into scratch first, padded with zeros.
template <int L>
__attribute__((always_inline)) inline void projectBands(const FusedNetwork& net, const float* x, qint64 ld, int count,
                                                        FusedScratch& scratch, typename Vec<L>::Lanes* rows)
{
    const int B = net.bands;
    if (count < FusedBlockPixels) {
        float* block = scratch.block.data();
        std::fill(block, block + qint64(B) * FusedBlockPixels, 0.0f);
        for (int b = 0; b < B; ++b)
            std::copy_n(x + b * ld, count, block + qint64(b) * FusedBlockPixels);
        x = block;
        ld = FusedBlockPixels;
    }
    constexpr int J = Vec<L>::FeaturesTogether;
    int f = 0;
    for (; f + J <= net.features; f += J)
        projectFeatures<L, J>(net, x, ld, f, rows);
    if (J > 4)
        for (; f + 4 <= net.features; f += 4)
            projectFeatures<L, 4>(net, x, ld, f, rows);
    for (; f < net.features; ++f)
        projectFeatures<L, 1>(net, x, ld, f, rows);
}

// exp of anything below this is 0 in single precision, and so in expInPlace.
constexpr float VanishingExponent = -104.0f;

// The class scores of L pixels in two parts: the shares of units in the normal range,
// and those of units below it, 2^64 times larger (expSplit): s = normal + tiny · 2^-64.
template <int L>
struct Scores {
    typename Vec<L>::Lanes normal, tiny;
};

// Adds the units of the J centres numbered in `units` to the class scores s of the L
// pixels whose features are rows[f], f < F. The J distances are summed side by side:
// independent sums hide the latency of each addition, and the features are loaded once
// for all of them.
template <int L, int C, int J>
__attribute__((always_inline)) inline void addUnits(const FusedNetwork& net, const typename Vec<L>::Lanes* rows,
                                                    const int* units, Scores<L> (&s)[C])
{
    using Lanes = typename Vec<L>::Lanes;
    using IntLanes = typename Vec<L>::IntLanes;
    const int F = net.features;
    const float* centre[J];
    for (int j = 0; j < J; ++j)
        centre[j] = net.centres + qint64(units[j]) * F;
    Lanes d[J] = {};
    for (int f = 0; f < F; ++f) {
        const Lanes z = rows[f];
        for (int j = 0; j < J; ++j) {
            const Lanes t = z - centre[j][f];
            d[j] += t * t;
        }
    }
    for (int j = 0; j < J; ++j) {
        const float* w = net.outputs + qint64(units[j] + 1) * C;
        Lanes a, small;
        expSplit<Lanes, IntLanes>(net.gammas[units[j]] * d[j], a, small);
        for (int c = 0; c < C; ++c) {
            s[c].normal += a * w[c];
            s[c].tiny += small * w[c];
        }
    }
}

// normal + tiny · 2^-64, the product, most likely a subnormal, formed only for blocks
// where it changes a score.
template <int L>
__attribute__((always_inline)) inline void scoreOf(const Scores<L>& s, typename Vec<L>::Lanes& score)
{
    typename Vec<L>::IntLanes matters;
    tinyShareMatters(s.normal, s.tiny, matters);
    bool any = false;
    for (int l = 0; l < L; ++l)
        any |= matters[l] != 0;
    score = any ? (matters ? s.normal + s.tiny * TinyToNormal : s.normal) : s.normal;
}

// The centres that one of the L pixels whose features are rows[f] may reach, in
// ascending order; returns their number. The pixels lie in a ball around their mean; a
// centre further from the ball than its unit's reach has units of exactly 0 for every
// pixel in it, which add nothing to any score. Neighbouring pixels mostly lie near a few
// centres of one class, so most centres are passed over. The margins keep the test on
// the safe side of the rounding of all its sums.
template <int L>
__attribute__((always_inline)) inline int nearCentres(const FusedNetwork& net, const typename Vec<L>::Lanes* rows,
                                                      FusedScratch& scratch)
{
    using Lanes = typename Vec<L>::Lanes;
    using UnalignedLanes = typename Vec<L>::UnalignedLanes;
    const int F = net.features, K = net.units;
    float middle[FusedMaxFeatures];
    for (int f = 0; f < F; ++f)
        middle[f] = laneSum<L>(rows[f]) / L;
    Lanes r = {};
    for (int f = 0; f < F; ++f) {
        const Lanes t = rows[f] - middle[f];
        r += t * t;
    }
    float radius2 = 0;
    for (int l = 0; l < L; ++l)
        radius2 = radius2 >= r[l] ? radius2 : r[l]; // a NaN stays, and passes nothing over
    const float radius = std::sqrt(radius2);

    // Distances from the middle to Runs · L centres at a time, each run's sums in a
    // register of its own.
    constexpr int Runs = FusedCentreRow / L < 8 ? FusedCentreRow / L : 8;
    static_assert(FusedCentreRow % (Runs * L) == 0, "the rows hold whole steps");
    const int row = centreRowLength(K);
    float* __restrict distance = scratch.distances.data();
    for (int k = 0; k < K; k += Runs * L) {
        Lanes sums[Runs] = {};
        for (int f = 0; f < F; ++f) {
            const float* c = net.centresByFeature + qint64(f) * row + k;
            for (int q = 0; q < Runs; ++q) {
                const Lanes t = middle[f] - *reinterpret_cast<const UnalignedLanes*>(c + q * L);
                sums[q] += t * t;
            }
        }
        std::memcpy(distance + k, sums, sizeof sums);
    }
    // The test over all centres first, which vectorises, then the list of those kept.
    std::int32_t* __restrict keep = scratch.keep.data();
    const float* __restrict reach = net.reach;
    for (int k = 0; k < K; ++k) {
        const float d = std::sqrt(distance[k]);
        keep[k] = d - radius > 1.01f * reach[k] + 1e-4f * (d + radius) ? 0 : 1;
    }
    int* near = scratch.near.data();
    int n = 0;
    for (int k = 0; k < K; ++k) {
        near[n] = k;
        n += keep[k];
    }
    return n;
}

// The decisions of a block from its features as the projections leave them. C is a
// constant so that the class scores stay in registers.
template <int L, int C>
__attribute__((always_inline)) inline void classifyBlock(const FusedNetwork& net, const typename Vec<L>::Lanes* rows,
                                                         int count, FusedScratch& scratch, quint8* decisions)
{
    using Lanes = typename Vec<L>::Lanes;
    using IntLanes = typename Vec<L>::IntLanes;
    constexpr int Parts = Vec<L>::Parts;
    // s_c = W(0,c) + Σ_k exp(g_k ‖z − c_k‖²) W(k+1,c), L pixels at a time. The
    // difference form keeps distances exact near a centre, whatever the magnitude of z.
    Lanes s[C][Parts];
    for (int h = 0; h < Parts; ++h) {
        const Lanes* features = rows + h * FusedMaxFeatures;
        Scores<L> scores[C];
        for (int c = 0; c < C; ++c)
            scores[c] = {Lanes{} + net.outputs[c], Lanes{}};
        constexpr int J = FusedCentresTogether;
        int n = nearCentres<L>(net, features, scratch);
        int* near = scratch.near.data();
        for (; n % J; ++n)
            near[n] = net.units; // the neutral unit
        for (int i = 0; i < n; i += J)
            addUnits<L, C, J>(net, features, near + i, scores);
        for (int c = 0; c < C; ++c)
            scoreOf<L>(scores[c], s[c][h]);
    }

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
        std::memcpy(top + h * L, &t, sizeof t);
        std::memcpy(best + h * L, &i, sizeof i);
    }
    for (int p = 0; p < count; ++p) {
        const int d = best[p];
        decisions[p] = quint8(net.thresholds && top[p] < net.thresholds[d] ? C : d);
    }
}

} // namespace

std::vector<float> unitReach(const float* gammas, const float* outputs, int units, int classes)
{
    std::vector<float> reach(size_t(units), std::numeric_limits<float>::infinity());
    for (int k = 0; k < units; ++k) {
        const float* w = outputs + qint64(k + 1) * classes;
        if (gammas[k] < 0 && std::all_of(w, w + classes, [](float x) { return std::isfinite(x); }))
            reach[size_t(k)] = std::sqrt(-VanishingExponent / -gammas[k]);
    }
    return reach;
}

FusedScratch::FusedScratch(int bands, int units)
    : block(size_t(bands) * FusedBlockPixels)
    , distances(size_t(centreRowLength(units)))
    , near(size_t(units) + FusedCentresTogether)
    , keep(size_t(units))
{
}

namespace {

template <int L>
__attribute__((always_inline)) inline void classifyFusedOf(const FusedNetwork& net, const float* x, bool pixelMajor, qint64 ld,
                                                           int count, FusedScratch& scratch, quint8* decisions)
{
    using Lanes = typename Vec<L>::Lanes;
    constexpr int Parts = Vec<L>::Parts;
    Lanes features[Parts * FusedMaxFeatures];
    for (int first = 0; first < count; first += FusedBlockPixels) {
        const int n = std::min(FusedBlockPixels, count - first);
        if (pixelMajor)
            projectPixelsOf<L>(net, x + first * ld, ld, n, features);
        else
            projectBands<L>(net, x + first, ld, n, scratch, features);
        quint8* out = decisions + first;
        static_assert(FusedMaxClasses == 8, "one case a class count");
        switch (net.classes) {
        case 1: classifyBlock<L, 1>(net, features, n, scratch, out); break;
        case 2: classifyBlock<L, 2>(net, features, n, scratch, out); break;
        case 3: classifyBlock<L, 3>(net, features, n, scratch, out); break;
        case 4: classifyBlock<L, 4>(net, features, n, scratch, out); break;
        case 5: classifyBlock<L, 5>(net, features, n, scratch, out); break;
        case 6: classifyBlock<L, 6>(net, features, n, scratch, out); break;
        case 7: classifyBlock<L, 7>(net, features, n, scratch, out); break;
        default: classifyBlock<L, 8>(net, features, n, scratch, out); break;
        }
    }
}

// Each level's version of the pass, with vectors of its own registers' width.
void classifyFusedBaseline(const FusedNetwork& net, const float* x, bool pixelMajor, qint64 ld, int count,
                           FusedScratch& scratch, quint8* decisions)
{
    classifyFusedOf<4>(net, x, pixelMajor, ld, count, scratch, decisions);
}
#ifdef ZELK_VECTOR_LEVELS
ZELK_TARGET_V3 void classifyFusedV3(const FusedNetwork& net, const float* x, bool pixelMajor, qint64 ld, int count,
                                    FusedScratch& scratch, quint8* decisions)
{
    classifyFusedOf<8>(net, x, pixelMajor, ld, count, scratch, decisions);
}
ZELK_TARGET_V4 void classifyFusedV4(const FusedNetwork& net, const float* x, bool pixelMajor, qint64 ld, int count,
                                    FusedScratch& scratch, quint8* decisions)
{
    classifyFusedOf<16>(net, x, pixelMajor, ld, count, scratch, decisions);
}
#else
constexpr auto classifyFusedV3 = classifyFusedBaseline;
constexpr auto classifyFusedV4 = classifyFusedBaseline;
#endif

} // namespace

void classifyFused(const FusedNetwork& net, const float* x, bool pixelMajor, qint64 ld, int count, FusedScratch& scratch,
                   quint8* decisions)
{
    forLevel(classifyFusedBaseline, classifyFusedV3, classifyFusedV4)(net, x, pixelMajor, ld, count, scratch, decisions);
}

} // namespace compute::cpu
