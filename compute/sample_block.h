#pragma once
// Blocks of camera samples as callers hand them in, and the stage that turns them
// into the spectra a classifier takes: band selection, conversion to float and the
// reflectance correction (x - dark) * gain, per pixel and band.

#include "compute/classifier_model.h"

#include <QVector>

namespace compute {

enum class SampleType { U16, F32 };

struct SampleBlock {
    const void* data = nullptr;
    SampleType type = SampleType::F32;
    SpectraLayout layout = SpectraLayout::BandsByPixels;
    int pixels = 0;
    int bands = 0; // bands of each pixel in the block
};

struct InputStage {
    // Band numbers taken from each pixel, in the order of the model's bands. Empty: the
    // block holds exactly the model's bands.
    QVector<int> bands;
    // Correction of a frame `width` pixels wide, both width by model bands with the pixel
    // index running fastest. An empty dark means no correction; an empty gain with a
    // dark only subtracts (the gain then sits in the model).
    int width = 0;
    QVector<float> dark;
    QVector<float> gain;

    // True when the stage can take `block` for a model of `modelBands` bands.
    bool fits(const SampleBlock& block, int modelBands) const;
};

// out[i] = sample i as float, or (sample - dark[i]) * gain[i] when both are given: n
// samples, with no band selection.
void stageSamples(const void* samples, SampleType type, const float* dark, const float* gain, float* out, qint64 n);

// Writes pixels first .. first+count-1 of the block as model-ready float spectra into
// `out`, in the block's layout, compactly: B by count, or count by B.
void stageSpectra(const SampleBlock& block, const InputStage& stage, int modelBands, int first, int count, float* out);

} // namespace compute
