#pragma once
// The classifier formula written out pixel by pixel in plain float arithmetic: the
// reference that the fast kernels are compared with.

#include "compute/classifier_kernel.h"

#include <vector>

namespace compute::cpu {

class ReferenceClassifier final : public ClassifierKernel {
public:
    explicit ReferenceClassifier(const ClassifierModel& model);
    void setClassRow(const QVector<float>& row) override;
    bool classify(const float* spectra, SpectraLayout layout, int n, quint8* decisions) override;

protected:
    // The whole block is staged as the CPU classifier stages its tiles, so that only the
    // classification differs between the two.
    bool classifyStaged(const SampleBlock& block, quint8* decisions) override;
    int modelBands() const override { return model_.bands; }

private:
    ClassifierModel model_;
    std::vector<float> classRow_;
    std::vector<float> z_, a_;
    std::vector<float> staged_;
};

} // namespace compute::cpu
