#include "compute/cpu/cpu_classifier.h"
#include "compute/cpu/fused_network.h"
#include "compute/cpu/vector_math.h"

#include <algorithm>
#include <cblas.h>

namespace compute::cpu {

namespace {

template <typename T>
void stageTyped(const SampleBlock& block, const InputStage& stage, int B, int first, int count, float* out)
{
    const T* x = static_cast<const T*>(block.data);
    const int* bands = stage.bands.isEmpty() ? nullptr : stage.bands.constData();
    const float* dark = stage.dark.isEmpty() ? nullptr : stage.dark.constData();
    const float* gain = stage.gain.isEmpty() ? nullptr : stage.gain.constData();
    const qint64 n = block.pixels, W = stage.width;
    if (block.layout == SpectraLayout::PixelsByBands) {
        // One band a column: each model band is a contiguous run of the tile's pixels.
        // A frame comes from memory as short runs of many rows, which the processor does
        // not foresee: each run is asked for some rows ahead, and past the tile's last
        // band the next tile's first runs.
        constexpr int RowsAhead = 16;
        const auto row = [&](int b) { return x + (bands ? bands[b] : b) * n; };
        for (int b = 0; b < B; ++b) {
            const int ahead = b + RowsAhead;
            const qint64 from = ahead < B ? first : first + count;
            const char* run = reinterpret_cast<const char*>(row(ahead % B) + from);
            for (qint64 byte = 0; byte < qMin(qint64(count), n - from) * qint64(sizeof(T)); byte += 64)
                __builtin_prefetch(run + byte);
            const qint64 at = qint64(b) * W + first;
            stageRow(row(b) + first, dark ? dark + at : nullptr, gain ? gain + at : nullptr, out + qint64(b) * count, count);
        }
        return;
    }
    if (!bands && !dark) { // the spectra as they are, only widened
        stageRow(x + qint64(first) * B, nullptr, nullptr, out, count * B);
        return;
    }
    for (int p = 0; p < count; ++p) {
        const T* in = x + qint64(first + p) * block.bands;
        float* o = out + qint64(p) * B;
        for (int b = 0; b < B; ++b) {
            float v = float(in[bands ? bands[b] : b]);
            if (dark) {
                v -= dark[b * W + first + p];
                if (gain)
                    v *= gain[b * W + first + p];
            }
            o[b] = v;
        }
    }
}

} // namespace

void stageSpectra(const SampleBlock& block, const InputStage& stage, int modelBands, int first, int count, float* out)
{
    if (block.type == SampleType::U16)
        stageTyped<quint16>(block, stage, modelBands, first, count, out);
    else
        stageTyped<float>(block, stage, modelBands, first, count, out);
}

CpuClassifier::CpuClassifier(const ClassifierModel& model)
    : model_(model)
    , fused_(fuses(model))
    , classRow_(size_t(model.classes), 1.0f)
{
    useSingleThreadedBlas();
    ShiftedCentres shifted = shiftCentres(model);
    shiftedOffset_ = std::move(shifted.offset);
    shiftedCentres_ = std::move(shifted.centres);
    centreNorms_ = std::move(shifted.norms);
    const int F = model.features, K = model.units, C = model.classes;
    if (fused_) {
        bandRows_.assign(size_t(model.bands) * FusedMaxFeatures, 0.0f);
        for (int b = 0; b < model.bands; ++b)
            for (int f = 0; f < F; ++f)
                bandRows_[size_t(b) * FusedMaxFeatures + f] = model.matrix[f * model.bands + b];
        paddedOffset_.assign(FusedMaxFeatures, 0.0f);
        std::copy(shiftedOffset_.begin(), shiftedOffset_.end(), paddedOffset_.begin());
        // Unit K is the neutral unit: centre 0, gamma −1 and weights 0.
        outputs_.assign(size_t(K + 2) * C, 0.0f);
        for (int k = 0; k <= K; ++k)
            for (int c = 0; c < C; ++c)
                outputs_[size_t(k) * C + c] = model.weights[c * (K + 1) + k];
        fusedCentres_ = shiftedCentres_;
        fusedCentres_.resize(size_t(F) * (K + 1), 0.0f);
        fusedGammas_.assign(model.gammas.constBegin(), model.gammas.constEnd());
        fusedGammas_.push_back(-1.0f);
        const int row = centreRowLength(K);
        centresByFeature_.assign(size_t(F) * row, 0.0f);
        for (int k = 0; k < K; ++k)
            for (int f = 0; f < F; ++f)
                centresByFeature_[size_t(f) * row + k] = shiftedCentres_[size_t(k) * F + f];
        reach_ = unitReach(model.gammas.constData(), outputs_.data(), K, C);
        fusedScratch_ = std::make_unique<FusedScratch>(model.bands, K);
    }
    work_.spectra.resize(size_t(model.bands) * MaxTilePixels);
    if (fused_)
        return;
    work_.features.resize(size_t(F) * MaxTilePixels);
    work_.units.resize(size_t(K) * MaxTilePixels);
    work_.scores.resize(size_t(C) * MaxTilePixels);
}

bool CpuClassifier::fuses(const ClassifierModel& model)
{
    return model.features <= FusedMaxFeatures && model.classes <= FusedMaxClasses;
}

int CpuClassifier::modelBands() const
{
    return model_.bands;
}

void CpuClassifier::setClassRow(const QVector<float>& row)
{
    std::copy_n(row.constBegin(), std::min<int>(row.size(), model_.classes), classRow_.begin());
}

template <typename TileFn>
void CpuClassifier::forEachTile(int n, TileFn tileFn)
{
    for (int first = 0; first < n; first += MaxTilePixels)
        tileFn(first, std::min(int(MaxTilePixels), n - first));
}

bool CpuClassifier::classify(const float* spectra, SpectraLayout layout, int n, quint8* decisions)
{
    const bool bandsByPixels = layout == SpectraLayout::BandsByPixels;
    const qint64 ld = bandsByPixels ? model_.bands : n;
    forEachTile(n, [&](int first, int count) {
        const float* x = spectra + (bandsByPixels ? qint64(first) * model_.bands : first);
        classifyTile(x, layout, ld, count, decisions + first);
    });
    return true;
}

bool CpuClassifier::classifyStaged(const SampleBlock& block, quint8* decisions)
{
    const bool bandsByPixels = block.layout == SpectraLayout::BandsByPixels;
    forEachTile(block.pixels, [&](int first, int count) {
        stageSpectra(block, stage_, model_.bands, first, count, work_.spectra.data());
        classifyTile(work_.spectra.data(), block.layout, bandsByPixels ? model_.bands : count, count, decisions + first);
    });
    return true;
}

void CpuClassifier::classifyTile(const float* x, SpectraLayout layout, qint64 ld, int count, quint8* decisions)
{
    if (!fused_) {
        multiplyTile(x, layout, ld, count, decisions);
        return;
    }
    FusedNetwork net;
    net.bands = model_.bands, net.features = model_.features, net.units = model_.units, net.classes = model_.classes;
    net.matrix = model_.matrix.constData();
    net.bandRows = bandRows_.data();
    net.offset = paddedOffset_.data();
    net.centres = fusedCentres_.data();
    net.gammas = fusedGammas_.data();
    net.outputs = outputs_.data();
    net.classRow = classRow_.data();
    net.thresholds = model_.rejects() ? model_.thresholds.constData() : nullptr;
    net.centresByFeature = centresByFeature_.data();
    net.reach = reach_.data();
    classifyFused(net, x, layout == SpectraLayout::BandsByPixels, ld, count, *fusedScratch_, decisions);
}

void CpuClassifier::multiplyTile(const float* x, SpectraLayout layout, qint64 ld, int count, quint8* decisions)
{
    const int B = model_.bands, F = model_.features, K = model_.units, C = model_.classes;
    float* z = work_.features.data();
    float* a = work_.units.data();
    float* s = work_.scores.data();

    // Z (F by count) = Mᵀ X + (o − μ).
    for (int p = 0; p < count; ++p)
        std::copy_n(shiftedOffset_.data(), F, z + size_t(p) * F);
    if (layout == SpectraLayout::BandsByPixels)
        cblas_sgemm(CblasColMajor, CblasTrans, CblasNoTrans, F, count, B, 1.0f, model_.matrix.constData(), B,
                    x, int(ld), 1.0f, z, F);
    else
        cblas_sgemm(CblasColMajor, CblasTrans, CblasTrans, F, count, B, 1.0f, model_.matrix.constData(), B, x,
                    int(ld), 1.0f, z, F);

    // A (K by count) = −2 Cᵀ Z, then exp(g_k · (‖z‖² − 2zᵀc_k + ‖c_k‖²)) per pixel.
    cblas_sgemm(CblasColMajor, CblasTrans, CblasNoTrans, K, count, F, -2.0f, shiftedCentres_.data(), F, z, F, 0.0f, a, K);
    for (int p = 0; p < count; ++p) {
        float* unitsOfPixel = a + size_t(p) * K;
        radialUnits(unitsOfPixel, centreNorms_.data(), model_.gammas.constData(), sumOfSquares(z + size_t(p) * F, F),
                    unitsOfPixel, K);
    }

    // S (C by count) = W(1..K)ᵀ A + W(0).
    const float* weights = model_.weights.constData();
    for (int p = 0; p < count; ++p)
        for (int c = 0; c < C; ++c)
            s[size_t(p) * C + c] = weights[size_t(c) * (K + 1)];
    cblas_sgemm(CblasColMajor, CblasTrans, CblasNoTrans, C, count, K, 1.0f, weights + 1, K + 1, a, K, 1.0f, s, C);

    // Weighted maximum, the first class on ties, and rejection by the winner's threshold.
    const float* row = classRow_.data();
    const float* thresholds = model_.rejects() ? model_.thresholds.constData() : nullptr;
    for (int p = 0; p < count; ++p) {
        const float* scores = s + size_t(p) * C;
        int best = 0;
        float top = scores[0] * row[0];
        for (int c = 1; c < C; ++c) {
            const float v = scores[c] * row[c];
            if (v > top) {
                top = v;
                best = c;
            }
        }
        if (thresholds && top < thresholds[best])
            best = C;
        decisions[p] = quint8(best);
    }
}

} // namespace compute::cpu
