#include "compute/classifier_kernel.h"

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

bool ClassifierKernel::classifySamples(const SampleBlock& block, quint8* decisions)
{
    if (!decisions || !stage_.fits(block, modelBands()))
        return false;
    if (block.pixels == 0)
        return true;
    // Float spectra of exactly the model's bands, uncorrected, are the kernel's own
    // input: staging would only copy them.
    if (block.type == SampleType::F32 && stage_.bands.isEmpty() && stage_.dark.isEmpty())
        return classify(static_cast<const float*>(block.data), block.layout, block.pixels, decisions);
    return classifyStaged(block, decisions);
}

bool ClassifierKernel::classifyFrame(const StagedFrame& frame, quint8* decisions)
{
    if (!frame.host())
        return false;
    return classifySamples({frame.host(), SampleType::F32, SpectraLayout::PixelsByBands, frame.pixels(), frame.bands()}, decisions);
}

} // namespace compute
