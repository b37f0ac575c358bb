#pragma once
// The classifier network of small models in one pass. Pixels go through in blocks with
// one pixel a vector lane: per block the features, each centre's squared distance
// (z − c)·(z − c), its unit and its share of the class scores, then the weighted
// maximum and the rejection, all without leaving the registers and the first-level
// cache. For few features and classes this beats matrix products, whose operands of
// 4 to 32 rows leave much of a vector unit idle.

#include <QtGlobal>
#include <cstdint>
#include <vector>

namespace compute::cpu {

// The network as the fused pass reads it.
struct FusedNetwork {
    int bands = 0, features = 0, units = 0, classes = 0;
    const float* matrix = nullptr;     // B by F, one feature a column
    const float* bandRows = nullptr;   // FusedMaxFeatures by B: M's row b, then zeros
    const float* offset = nullptr;     // FusedMaxFeatures: o, then zeros
    // Unit K is the neutral unit (centre 0, gamma −1, weights 0): its unit lies in [0, 1]
    // whatever the pixel, so it adds exactly 0 to every score. It pads a run of centres
    // to whole groups, so that no centre is summed alone.
    const float* centres = nullptr;    // F by K + 1, one centre a column
    const float* gammas = nullptr;     // K + 1
    const float* outputs = nullptr;    // C by K + 2: the biases, then the weights of each unit
    const float* classRow = nullptr;   // C
    const float* thresholds = nullptr; // C, or null when the classifier does not reject
    // For passing over centres that no pixel of a block can reach: the centres again,
    // one feature a row of centreRowLength(K), zeros after the last centre; and for
    // each unit the distance beyond which its unit is 0 in single precision, infinite
    // where it never is (or its weights are not all finite, so that a 0 unit could
    // still change a score).
    const float* centresByFeature = nullptr;
    const float* reach = nullptr;
};

// Distances to a unit beyond which exp(g ‖z − c‖²) is 0 in single precision, one per
// unit of the network whose weights are `outputs` (C by K + 1, biases first).
std::vector<float> unitReach(const float* gammas, const float* outputs, int units, int classes);

// Work memory of the fused pass, made once for a model.
struct FusedScratch {
    std::vector<float> block;     // a last block that is not whole, band by band
    std::vector<float> distances; // from the block's middle to each centre
    std::vector<int> near;        // the centres a block's pixels may reach, padded with the neutral unit
    std::vector<std::int32_t> keep; // per centre, whether a block's pixels may reach it
    FusedScratch(int bands, int units);
};

// Pixels a block.
constexpr int FusedBlockPixels = 32;
// The largest network the pass takes: a pixel's features fit two vectors of the widest
// instruction set and a block's class scores stay in registers.
constexpr int FusedMaxFeatures = 32;
constexpr int FusedMaxClasses = 8;
// The rows of centres by feature are padded to a multiple of this many centres, which
// the test of which centres a block may reach takes together.
constexpr int FusedCentreRow = 64;
inline int centreRowLength(int units)
{
    return (units + FusedCentreRow - 1) / FusedCentreRow * FusedCentreRow;
}

// Centres whose units are summed side by side; a block's list of centres is padded with
// the neutral unit to a multiple of this.
constexpr int FusedCentresTogether = 8;

// Writes the decisions of `count` pixels. `x` holds one spectrum a column with `ld`
// between pixels when `pixelMajor`, one band a column with `ld` between bands
// otherwise.
void classifyFused(const FusedNetwork& net, const float* x, bool pixelMajor, qint64 ld, int count, FusedScratch& scratch,
                   quint8* decisions);

} // namespace compute::cpu
