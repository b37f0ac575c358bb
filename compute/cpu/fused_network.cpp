#include "compute/cpu/fused_network.h"
#include "compute/cpu/fast_exp.h"
#include "compute/cpu/vector_math.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace compute::cpu {
namespace {

// Vectors of the compiler's own: one clone keeps a vector in one 512-bit register, the
// others split it.
constexpr int LaneCount = 16;
constexpr int Parts = FusedBlockPixels / LaneCount;
typedef float Lanes __attribute__((vector_size(LaneCount * sizeof(float)), may_alias));
typedef std::int32_t IntLanes __attribute__((vector_size(LaneCount * sizeof(std::int32_t)), may_alias));

// A block's spectra one band a row of FusedBlockPixels, the pixels past `count` zero.
inline void stageBlock(const float* x, bool pixelMajor, qint64 ld, int count, int B, float* out)
{
    if (count < FusedBlockPixels)
        std::fill(out, out + qint64(B) * FusedBlockPixels, 0.0f);
    if (!pixelMajor) {
        for (int b = 0; b < B; ++b)
            std::copy_n(x + b * ld, count, out + qint64(b) * FusedBlockPixels);
        return;
    }
    for (int p = 0; p < count; ++p) {
        const float* spectrum = x + p * ld;
        for (int b = 0; b < B; ++b)
            out[qint64(b) * FusedBlockPixels + p] = spectrum[b];
    }
}

// C is a constant so that the class scores stay in registers.
template <int C>
__attribute__((always_inline)) inline void classifyBlock(const FusedNetwork& net, const Lanes* spectra, int count,
                                                         quint8* decisions)
{
    const int B = net.bands, F = net.features, K = net.units;

    // z = Mᵀx + o.
    Lanes z[FusedMaxFeatures][Parts];
    for (int f = 0; f < F; ++f) {
        const float* m = net.matrix + qint64(f) * B;
        Lanes sum[Parts];
        for (int h = 0; h < Parts; ++h)
            sum[h] = Lanes{} + net.offset[f];
        for (int b = 0; b < B; ++b)
            for (int h = 0; h < Parts; ++h)
                sum[h] += m[b] * spectra[b * Parts + h];
        for (int h = 0; h < Parts; ++h)
            z[f][h] = sum[h];
    }

    // s_c = W(0,c) + Σ_k exp(g_k ‖z − c_k‖²) W(k+1,c). The difference form keeps
    // distances exact near a centre, whatever the magnitude of z.
    Lanes s[C][Parts];
    for (int c = 0; c < C; ++c)
        for (int h = 0; h < Parts; ++h)
            s[c][h] = Lanes{} + net.outputs[c];
    for (int k = 0; k < K; ++k) {
        const float* centre = net.centres + qint64(k) * F;
        const float* w = net.outputs + qint64(k + 1) * C;
        Lanes d[Parts] = {};
        for (int f = 0; f < F; ++f)
            for (int h = 0; h < Parts; ++h) {
                const Lanes t = z[f][h] - centre[f];
                d[h] += t * t;
            }
        for (int h = 0; h < Parts; ++h) {
            Lanes a = net.gammas[k] * d[h];
            expInPlace<Lanes, IntLanes>(a);
            for (int c = 0; c < C; ++c)
                s[c][h] += a * w[c];
        }
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

ZELK_VECTOR_CLONES void classifyFused(const FusedNetwork& net, const float* x, bool pixelMajor, qint64 ld, int count,
                                      float* scratch, quint8* decisions)
{
    const std::uintptr_t aligned = (reinterpret_cast<std::uintptr_t>(scratch) + 63) & ~std::uintptr_t(63);
    float* block = reinterpret_cast<float*>(aligned);
    const Lanes* spectra = reinterpret_cast<const Lanes*>(block);
    for (int first = 0; first < count; first += FusedBlockPixels) {
        const int n = std::min(FusedBlockPixels, count - first);
        stageBlock(x + (pixelMajor ? first * ld : first), pixelMajor, ld, n, net.bands, block);
        quint8* out = decisions + first;
        static_assert(FusedMaxClasses == 8, "one case a class count");
        switch (net.classes) {
        case 1: classifyBlock<1>(net, spectra, n, out); break;
        case 2: classifyBlock<2>(net, spectra, n, out); break;
        case 3: classifyBlock<3>(net, spectra, n, out); break;
        case 4: classifyBlock<4>(net, spectra, n, out); break;
        case 5: classifyBlock<5>(net, spectra, n, out); break;
        case 6: classifyBlock<6>(net, spectra, n, out); break;
        case 7: classifyBlock<7>(net, spectra, n, out); break;
        default: classifyBlock<8>(net, spectra, n, out); break;
        }
    }
}

} // namespace compute::cpu
