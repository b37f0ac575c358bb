#pragma once
// Blocks of camera samples as callers hand them in: 16-bit or float, one spectrum a
// column or one band a column. A classifier's input stage (classifier_kernel.h) turns
// them into the spectra it takes; a staged frame (staged_frame.h) takes them whole.

#include "compute/classifier_model.h"

namespace compute {

enum class SampleType { U16, F32 };

struct SampleBlock {
    const void* data = nullptr;
    SampleType type = SampleType::F32;
    SpectraLayout layout = SpectraLayout::BandsByPixels;
    int pixels = 0;
    int bands = 0; // bands of each pixel in the block
};

} // namespace compute
