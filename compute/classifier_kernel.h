#pragma once
// Turns blocks of spectra into one decision byte per pixel: 0 .. C-1 for the class with
// the largest weighted score, C for a pixel whose best weighted score is strictly below
// its class's threshold.

#include "compute/classifier_model.h"

#include <QtGlobal>

namespace compute {

class ClassifierKernel {
public:
    virtual ~ClassifierKernel() = default;

    // The operating point: one weight per class, multiplied into the scores.
    virtual void setClassRow(const QVector<float>& row) = 0;

    // `spectra` holds n pixels of B float bands in `layout`; n decisions are written.
    virtual void classify(const float* spectra, SpectraLayout layout, int n, quint8* decisions) = 0;
};

} // namespace compute
