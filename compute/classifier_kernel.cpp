#include "compute/classifier_kernel.h"

namespace compute {

bool ClassifierKernel::classifySamples(const SampleBlock& block, quint8* decisions)
{
    if (!decisions || !stage_.fits(block, modelBands()))
        return false;
    return block.pixels == 0 || classifyStaged(block, decisions);
}

bool ClassifierKernel::classifyStaged(const SampleBlock& block, quint8* decisions)
{
    staged_.resize(size_t(block.pixels) * size_t(modelBands()));
    stageSpectra(block, stage_, modelBands(), 0, block.pixels, staged_.data());
    return classify(staged_.data(), block.layout, block.pixels, decisions);
}

} // namespace compute
