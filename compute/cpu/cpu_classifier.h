#pragma once
// The CPU classifier kernel. Pixels are taken in tiles that stay in cache, one after
// another on the caller's thread. Small networks go through each tile in one fused pass (fused_network.h).
// For the others the projection, the products with the centres and the output layer
// are matrix products, and the distances come from ‖z‖² − 2zᵀc + ‖c‖².
//
// To keep that form exact where a pixel lies close to a centre, the features and the
// centres are shifted by the mean of the centres first (shiftCentres).

#include "compute/classifier_kernel.h"
#include "compute/cpu/fused_network.h"

#include <memory>
#include <vector>

namespace compute::cpu {

// Writes pixels first .. first+count-1 of the block as model-ready float spectra into
// `out`, in the block's layout, compactly: B by count, or count by B. The CPU classifier
// stages its tiles so, and the reference classifier its blocks.
void stageSpectra(const SampleBlock& block, const InputStage& stage, int modelBands, int first, int count, float* out);

class CpuClassifier final : public ClassifierKernel {
public:
    explicit CpuClassifier(const ClassifierModel& model);

    void setClassRow(const QVector<float>& row) override;
    bool classify(const float* spectra, SpectraLayout layout, int n, quint8* decisions) override;

protected:
    // Each tile is staged into the workspace right before its products.
    bool classifyStaged(const SampleBlock& block, quint8* decisions) override;
    int modelBands() const override;

public:

    // Tiles of at most this many pixels keep a tile's units in the second-level cache.
    static constexpr int MaxTilePixels = 256;
    // True when the model goes through the fused pass rather than matrix products.
    static bool fuses(const ClassifierModel& model);

private:
    struct Workspace {
        std::vector<float> spectra;  // B by tile, for staged blocks
        std::vector<float> features; // F by tile, for matrix products
        std::vector<float> units;    // K by tile, for matrix products
        std::vector<float> scores;   // C by tile, for matrix products
    };

    // Splits n pixels into tiles; `tile(first, count)` classifies one.
    template <typename TileFn>
    void forEachTile(int n, TileFn tile);

    // `x` points at the tile's first pixel; `ld` is the distance between consecutive
    // columns of the block (B for one spectrum a column, the block's n otherwise).
    void classifyTile(const float* x, SpectraLayout layout, qint64 ld, int count, quint8* decisions);
    // The same by matrix products.
    void multiplyTile(const float* x, SpectraLayout layout, qint64 ld, int count, quint8* decisions);

    ClassifierModel model_;
    bool fused_;
    std::vector<float> shiftedOffset_;  // o − μ
    std::vector<float> shiftedCentres_; // c_k − μ, F by K
    std::vector<float> centreNorms_;    // ‖c_k − μ‖²
    std::vector<float> classRow_;
    // For the fused pass: M by band, o padded, W with the weights of a unit together, and
    // the centres and gammas, each with the neutral unit after the network's own.
    std::vector<float> bandRows_, paddedOffset_, outputs_, fusedCentres_, fusedGammas_;
    std::vector<float> centresByFeature_, reach_;
    std::unique_ptr<FusedScratch> fusedScratch_;

    Workspace work_; // made once
};

} // namespace compute::cpu
