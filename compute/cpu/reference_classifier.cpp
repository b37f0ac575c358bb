#include "compute/cpu/reference_classifier.h"
#include "compute/cpu/cpu_classifier.h"

#include <algorithm>
#include <cmath>

namespace compute::cpu {

ReferenceClassifier::ReferenceClassifier(const ClassifierModel& model)
    : model_(model)
    , classRow_(size_t(model.classes), 1.0f)
    , z_(size_t(model.features))
    , a_(size_t(model.units))
{
}

void ReferenceClassifier::setClassRow(const QVector<float>& row)
{
    std::copy_n(row.constBegin(), std::min<int>(row.size(), model_.classes), classRow_.begin());
}

bool ReferenceClassifier::classifyStaged(const SampleBlock& block, quint8* decisions)
{
    staged_.resize(size_t(block.pixels) * size_t(model_.bands));
    stageSpectra(block, stage_, model_.bands, 0, block.pixels, staged_.data());
    return classify(staged_.data(), block.layout, block.pixels, decisions);
}

bool ReferenceClassifier::classify(const float* spectra, SpectraLayout layout, int n, quint8* decisions)
{
    const int B = model_.bands, F = model_.features, K = model_.units, C = model_.classes;
    const float* M = model_.matrix.constData();
    const float* W = model_.weights.constData();
    for (int p = 0; p < n; ++p) {
        auto x = [&](int b) { return layout == SpectraLayout::BandsByPixels ? spectra[size_t(p) * B + b] : spectra[size_t(b) * n + p]; };
        for (int f = 0; f < F; ++f) {
            float sum = 0;
            for (int b = 0; b < B; ++b)
                sum += M[size_t(f) * B + b] * x(b);
            z_[size_t(f)] = sum + model_.offset[f];
        }
        for (int k = 0; k < K; ++k) {
            float d = 0;
            for (int f = 0; f < F; ++f) {
                const float diff = z_[size_t(f)] - model_.centres[k * F + f];
                d += diff * diff;
            }
            a_[size_t(k)] = std::exp(model_.gammas[k] * d);
        }
        int best = 0;
        float top = 0;
        for (int c = 0; c < C; ++c) {
            float s = W[size_t(c) * (K + 1)];
            for (int k = 0; k < K; ++k)
                s += a_[size_t(k)] * W[size_t(c) * (K + 1) + 1 + k];
            s *= classRow_[size_t(c)];
            if (c == 0 || s > top) {
                top = s;
                best = c;
            }
        }
        if (model_.rejects() && top < model_.thresholds[best])
            best = C;
        decisions[p] = quint8(best);
    }
    return true;
}

} // namespace compute::cpu
