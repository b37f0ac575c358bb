#include "compute/classifier_kernel.h"

namespace compute {

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

bool ClassifierKernel::classifyStaged(const SampleBlock& block, quint8* decisions)
{
    staged_.resize(size_t(block.pixels) * size_t(modelBands()));
    stageSpectra(block, stage_, modelBands(), 0, block.pixels, staged_.data());
    return classify(staged_.data(), block.layout, block.pixels, decisions);
}

} // namespace compute
