#include "compute/sample_block.h"
#include "compute/cpu/vector_math.h"

#include <algorithm>

namespace compute {

bool InputStage::fits(const SampleBlock& block, int modelBands) const
{
    if (!block.data || block.pixels < 0 || modelBands <= 0)
        return false;
    if (bands.isEmpty() ? block.bands != modelBands : bands.size() != modelBands)
        return false;
    if (std::any_of(bands.begin(), bands.end(), [&](int b) { return b < 0 || b >= block.bands; }))
        return false;
    const qint64 corrected = qint64(width) * modelBands;
    if (!dark.isEmpty() && (block.pixels != width || dark.size() != corrected))
        return false;
    return gain.isEmpty() || (!dark.isEmpty() && gain.size() == corrected);
}

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
        for (int b = 0; b < B; ++b) {
            const qint64 at = qint64(b) * W + first;
            cpu::stageRow(x + (bands ? bands[b] : b) * n + first, dark ? dark + at : nullptr, gain ? gain + at : nullptr,
                          out + qint64(b) * count, count);
        }
        return;
    }
    if (!bands && !dark) { // the spectra as they are, only widened
        cpu::stageRow(x + qint64(first) * B, nullptr, nullptr, out, count * B);
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

void stageSamples(const void* samples, SampleType type, const float* dark, const float* gain, float* out, qint64 n)
{
    constexpr qint64 Run = 1 << 30; // the row functions count in int
    for (qint64 i = 0; i < n; i += Run) {
        const int count = int(std::min(Run, n - i));
        const float* d = dark ? dark + i : nullptr;
        const float* g = gain ? gain + i : nullptr;
        if (type == SampleType::U16)
            cpu::stageRow(static_cast<const quint16*>(samples) + i, d, g, out + i, count);
        else
            cpu::stageRow(static_cast<const float*>(samples) + i, d, g, out + i, count);
    }
}

void stageSpectra(const SampleBlock& block, const InputStage& stage, int modelBands, int first, int count, float* out)
{
    if (block.type == SampleType::U16)
        stageTyped<quint16>(block, stage, modelBands, first, count, out);
    else
        stageTyped<float>(block, stage, modelBands, first, count, out);
}

} // namespace compute
