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

// Vectors of the compiler's own: one clone keeps a vector in one 512-bit register, the
// others split it.
constexpr int LaneCount = 16;
// Registers that one vector takes: 1 for AVX-512 (of 32 registers), 2 for AVX2 and 4
// for the baseline (of 16). The sums that a loop keeps side by side are as many as fit
// the registers: more would go to memory and back on every step.
template <int Split>
constexpr int FeaturesTogether = Split == 1 ? 8 : Split == 2 ? 2 : 1;
template <int Split>
constexpr int CentresTogether = 8 / Split;
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
// that is not whole is copied into scratch first, padded with zeros.
template <int Split>
__attribute__((always_inline)) inline void projectBands(const FusedNetwork& net, const float* x, qint64 ld, int count,
                                                        FusedScratch& scratch, Lanes* rows)
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
    constexpr int J = FeaturesTogether<Split>;
    int f = 0;
    for (; f + J <= net.features; f += J)
        projectFeatures<J>(net, x, ld, f, rows);
    if (J > 4)
        for (; f + 4 <= net.features; f += 4)
            projectFeatures<4>(net, x, ld, f, rows);
    for (; f < net.features; ++f)
        projectFeatures<1>(net, x, ld, f, rows);
}

// exp of anything below this is 0 in single precision, and so in expInPlace.
constexpr float VanishingExponent = -104.0f;

// The class scores of 16 pixels in two parts. A unit below the normal range of single
// precision is a subnormal, and arithmetic on subnormals takes the processor a hundred
// times longer than on normal numbers; far pixels make many. So such units are kept
// 2^64 times larger, rounded as the subnormal would be, and their shares of a score
// are summed apart in that scale: s = normal + tiny · 2^-64.
struct Scores {
    Lanes normal, tiny;
};

// Scale of the tiny sums, and the power of two that rounds a unit to the subnormal grid
// (2^-149) in that scale.
constexpr float TinyToScores = 0x1p-64f, SubnormalStep = 0x1p-85f;

// Adds the units of the J centres numbered in `units` to the class scores s of the 16
// pixels whose features are rows[f], f < F. The J distances are summed side by side:
// independent sums hide the latency of each addition, and the features are loaded once
// for all of them.
template <int C, int J>
__attribute__((always_inline)) inline void addUnits(const FusedNetwork& net, const Lanes* rows, const int* units,
                                                    Scores (&s)[C])
{
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
        Lanes p = net.gammas[units[j]] * d[j];
        IntLanes n;
        expFactors<Lanes, IntLanes>(p, p, n);
        // From n = -126 down, p · 2^n may lie below the normal range. There the unit is
        // p · 2^(n+149) rounded to an integer (as the subnormal is rounded), times 2^-85;
        // from 2^23 up that integer is the product itself. Neither side computes a
        // subnormal: the other's lanes take n = 0.
        const IntLanes tiny = n < -125;
        Lanes normal = p;
        timesPowerOfTwo<Lanes, IntLanes>(normal, tiny ? 0 : n);
        const Lanes grid = p * __builtin_bit_cast(Lanes, ((tiny ? n + 149 : 0) + 127) << 23);
        const Lanes steps = grid < 0x1p23f ? (grid + 0x1p23f) - 0x1p23f : grid;
        const Lanes a = tiny ? 0.0f : normal, small = tiny ? steps * SubnormalStep : 0.0f;
        for (int c = 0; c < C; ++c) {
            s[c].normal += a * w[c];
            s[c].tiny += small * w[c];
        }
    }
}

// normal + tiny · 2^-64. Where tiny · 2^-64 is below a quarter of the last place of
// normal the sum is normal itself, and the product, most likely a subnormal, is not
// formed; a NaN in tiny fails the test and reaches the score.
__attribute__((always_inline)) inline void scoreOf(const Scores& s, Lanes& score)
{
    const Lanes magnitude = s.normal < 0.0f ? -s.normal : s.normal, tiny = s.tiny < 0.0f ? -s.tiny : s.tiny;
    const IntLanes matters = !(tiny < magnitude * 0x1p38f);
    bool any = false;
    for (int l = 0; l < LaneCount; ++l)
        any |= matters[l] != 0;
    score = any ? (matters ? s.normal + s.tiny * TinyToScores : s.normal) : s.normal;
}

// The centres that one of the 16 pixels whose features are rows[f] may reach, in
// ascending order; returns their number. The pixels lie in a ball around their mean; a
// centre further from the ball than its unit's reach has units of exactly 0 for every
// pixel in it, which add nothing to any score. Neighbouring pixels mostly lie near a few
// centres of one class, so most centres are passed over. The margins keep the test on
// the safe side of the rounding of all its sums.
__attribute__((always_inline)) inline int nearCentres(const FusedNetwork& net, const Lanes* rows, FusedScratch& scratch)
{
    const int F = net.features, K = net.units;
    float middle[FusedMaxFeatures];
    for (int f = 0; f < F; ++f) {
        float total = 0;
        for (int l = 0; l < LaneCount; ++l)
            total += rows[f][l];
        middle[f] = total / LaneCount;
    }
    Lanes r = {};
    for (int f = 0; f < F; ++f) {
        const Lanes t = rows[f] - middle[f];
        r += t * t;
    }
    float radius2 = 0;
    for (int l = 0; l < LaneCount; ++l)
        radius2 = radius2 >= r[l] ? radius2 : r[l]; // a NaN stays, and passes nothing over
    const float radius = std::sqrt(radius2);

    float* __restrict distance = scratch.distances.data();
    std::fill_n(distance, K, 0.0f);
    for (int f = 0; f < F; ++f) {
        const float* __restrict c = net.centresByFeature + qint64(f) * K;
        const float m = middle[f];
        for (int k = 0; k < K; ++k)
            distance[k] += (m - c[k]) * (m - c[k]);
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
template <int C, int Split>
__attribute__((always_inline)) inline void classifyBlock(const FusedNetwork& net, const Lanes* rows, int count,
                                                         FusedScratch& scratch, quint8* decisions)
{
    // s_c = W(0,c) + Σ_k exp(g_k ‖z − c_k‖²) W(k+1,c), 16 pixels at a time. The
    // difference form keeps distances exact near a centre, whatever the magnitude of z.
    Lanes s[C][Parts];
    for (int h = 0; h < Parts; ++h) {
        const Lanes* features = rows + h * FusedMaxFeatures;
        Scores scores[C];
        for (int c = 0; c < C; ++c)
            scores[c] = {Lanes{} + net.outputs[c], Lanes{}};
        constexpr int J = CentresTogether<Split>;
        int n = nearCentres(net, features, scratch);
        int* near = scratch.near.data();
        for (; n % J; ++n)
            near[n] = net.units; // the neutral unit
        for (int i = 0; i < n; i += J)
            addUnits<C, J>(net, features, near + i, scores);
        for (int c = 0; c < C; ++c)
            scoreOf(scores[c], s[c][h]);
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
        std::memcpy(top + h * LaneCount, &t, sizeof t);
        std::memcpy(best + h * LaneCount, &i, sizeof i);
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
    , distances(size_t(units))
    , near(size_t(units) + 8)
    , keep(size_t(units))
{
}

namespace {

template <int Split>
__attribute__((always_inline)) inline void classifyFusedOf(const FusedNetwork& net, const float* x, bool pixelMajor, qint64 ld,
                                                           int count, FusedScratch& scratch, quint8* decisions)
{
    Lanes features[Parts * FusedMaxFeatures];
    for (int first = 0; first < count; first += FusedBlockPixels) {
        const int n = std::min(FusedBlockPixels, count - first);
        if (pixelMajor && net.features <= LaneCount)
            projectPixels<1>(net, x + first * ld, ld, n, features);
        else if (pixelMajor)
            projectPixels<2>(net, x + first * ld, ld, n, features);
        else
            projectBands<Split>(net, x + first, ld, n, scratch, features);
        quint8* out = decisions + first;
        static_assert(FusedMaxClasses == 8, "one case a class count");
        switch (net.classes) {
        case 1: classifyBlock<1, Split>(net, features, n, scratch, out); break;
        case 2: classifyBlock<2, Split>(net, features, n, scratch, out); break;
        case 3: classifyBlock<3, Split>(net, features, n, scratch, out); break;
        case 4: classifyBlock<4, Split>(net, features, n, scratch, out); break;
        case 5: classifyBlock<5, Split>(net, features, n, scratch, out); break;
        case 6: classifyBlock<6, Split>(net, features, n, scratch, out); break;
        case 7: classifyBlock<7, Split>(net, features, n, scratch, out); break;
        default: classifyBlock<8, Split>(net, features, n, scratch, out); break;
        }
    }
}

// Each level's version of the pass, blocked for its own registers.
void classifyFusedBaseline(const FusedNetwork& net, const float* x, bool pixelMajor, qint64 ld, int count,
                           FusedScratch& scratch, quint8* decisions)
{
    classifyFusedOf<4>(net, x, pixelMajor, ld, count, scratch, decisions);
}
#ifdef ZELK_VECTOR_LEVELS
ZELK_TARGET_V3 void classifyFusedV3(const FusedNetwork& net, const float* x, bool pixelMajor, qint64 ld, int count,
                                    FusedScratch& scratch, quint8* decisions)
{
    classifyFusedOf<2>(net, x, pixelMajor, ld, count, scratch, decisions);
}
ZELK_TARGET_V4 void classifyFusedV4(const FusedNetwork& net, const float* x, bool pixelMajor, qint64 ld, int count,
                                    FusedScratch& scratch, quint8* decisions)
{
    classifyFusedOf<1>(net, x, pixelMajor, ld, count, scratch, decisions);
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
