// Classifier kernels: decisions of a hand-computable model, and agreement of the fast
// kernel with the plain one and with the formula in double precision.

#include "compute/backend.h"
#include "compute/cpu/cpu_classifier.h"
#include "compute/cpu/reference_classifier.h"

#include <cmath>
#include <gtest/gtest.h>
#include <memory>
#include <random>

using namespace compute;

namespace {

// Two features equal to the two bands; centre 0 at (0, 0) votes for class 0, centre 1
// at (10, 0) for class 1; gamma -1, so a unit is exp(-squared distance).
ClassifierModel twoCentres()
{
    ClassifierModel m;
    m.bands = 2, m.features = 2, m.units = 2, m.classes = 2;
    m.matrix = {1, 0, 0, 1};
    m.offset = {0, 0};
    m.centres = {0, 0, 10, 0};
    m.gammas = {-1, -1};
    // Column c: bias, weight of centre 0, weight of centre 1.
    m.weights = {0, 1, 0, /* class 1 */ 0, 0, 1};
    return m;
}

std::vector<std::unique_ptr<ClassifierKernel>> kernels(const ClassifierModel& m)
{
    std::vector<std::unique_ptr<ClassifierKernel>> k;
    k.push_back(std::make_unique<cpu::CpuClassifier>(m));
    k.push_back(std::make_unique<cpu::ReferenceClassifier>(m));
    k.push_back(activeBackend().prepareClassifier(m));
    return k;
}

// Pixels as (x, y) pairs, one spectrum a column.
std::vector<quint8> classify(ClassifierKernel& k, const std::vector<float>& pixels, const QVector<float>& row = {1, 1})
{
    std::vector<quint8> out(pixels.size() / 2, 99);
    k.setClassRow(row);
    k.classify(pixels.data(), SpectraLayout::BandsByPixels, int(out.size()), out.data());
    return out;
}

} // namespace

TEST(ClassifierKernel, NearestCentreWinsAndTiesGoToTheFirstClass)
{
    for (auto& k : kernels(twoCentres()))
        EXPECT_EQ(classify(*k, {0, 0, 10, 0, 4, 1, 6, -1, 5, 0, 5, 3}), (std::vector<quint8>{0, 1, 0, 1, 0, 0}));
}

TEST(ClassifierKernel, RejectsOnlyBelowTheWinnersOwnThreshold)
{
    ClassifierModel m = twoCentres();
    // The pixel at a centre scores exactly 1 for that centre's class.
    m.thresholds = {1.0f, 0.5f};
    for (auto& k : kernels(m)) {
        // (0,0): class 0 at exactly its threshold, kept. (10,0): class 1, 1 >= 0.5.
        // (0.5,0): class 0 with exp(-0.25) ~ 0.78 < 1, rejected although above 0.5.
        // (9.5,0): class 1 with 0.78 >= 0.5, kept. Far away: everything ~0, rejected.
        EXPECT_EQ(classify(*k, {0, 0, 10, 0, 0.5f, 0, 9.5f, 0, 50, 50}), (std::vector<quint8>{0, 1, 2, 1, 2}));
    }
}

TEST(ClassifierKernel, OperatingPointWeightsMultiplyTheScores)
{
    ClassifierModel m = twoCentres();
    m.weights = {0, 1, 0, /* class 1 */ -1, 0, 1}; // class 1 scores at most 0 away from its centre
    for (auto& k : kernels(m)) {
        // Weight 0 makes class 0 score 0, which beats class 1's negative score near centre 0,
        // but not its positive score at centre 1 ((10,0): -1 + 1 = 0 vs 0 is a tie: class 0).
        EXPECT_EQ(classify(*k, {0, 0, 10, 0, 12, 0}, {0, 1}), (std::vector<quint8>{0, 0, 0}));
    }
    for (auto& k : kernels(twoCentres())) {
        // Weighting class 0 by -1 turns its positive scores into losers against class 1's
        // tiny but positive ones.
        EXPECT_EQ(classify(*k, {0, 0, 3, 0}, {-1, 1}), (std::vector<quint8>{1, 1}));
    }
}

TEST(ClassifierKernel, AgreesWithTheFormulaInDoublePrecisionOnRandomModels)
{
    std::mt19937 rng(42);
    std::normal_distribution<float> g(0, 1);
    for (int trial = 0; trial < 6; ++trial) {
        const int B = 3 + trial * 7, F = 2 + trial * 3, K = 5 + trial * 20, C = 2 + trial % 4, n = 300 + trial * 50;
        ClassifierModel m;
        m.bands = B, m.features = F, m.units = K, m.classes = C;
        auto fill = [&](QVector<float>& v, int count, float scale, float shift = 0) {
            v.resize(count);
            for (float& x : v)
                x = g(rng) * scale + shift;
        };
        fill(m.matrix, B * F, 1.0f / std::sqrt(float(B)));
        fill(m.offset, F, 3.0f);  // far from the origin: the distance form must not cancel badly
        fill(m.centres, F * K, 1.0f, 3.0f);
        fill(m.gammas, K, 0.05f, -0.3f);
        fill(m.weights, (K + 1) * C, 1.0f);
        if (trial % 2)
            fill(m.thresholds, C, 0.5f);
        QVector<float> row;
        fill(row, C, 0.3f, 1.0f);

        std::vector<float> spectra(size_t(n) * B); // one spectrum a column
        for (float& x : spectra)
            x = g(rng);
        std::vector<float> transposed(spectra.size()); // one band a column
        for (int p = 0; p < n; ++p)
            for (int b = 0; b < B; ++b)
                transposed[size_t(b) * n + p] = spectra[size_t(p) * B + b];

        cpu::CpuClassifier fast(m);
        cpu::ReferenceClassifier plain(m);
        fast.setClassRow(row);
        plain.setClassRow(row);
        const size_t count = static_cast<size_t>(n);
        std::vector<quint8> a(count), b(count), c(count);
        fast.classify(spectra.data(), SpectraLayout::BandsByPixels, n, a.data());
        fast.classify(transposed.data(), SpectraLayout::PixelsByBands, n, b.data());
        plain.classify(transposed.data(), SpectraLayout::PixelsByBands, n, c.data());

        int compared = 0;
        for (int p = 0; p < n; ++p) {
            // The formula in double precision, with the margin that decides how close a call is.
            std::vector<double> z(static_cast<size_t>(F)), s(static_cast<size_t>(C));
            for (int f = 0; f < F; ++f) {
                z[size_t(f)] = m.offset[f];
                for (int i = 0; i < B; ++i)
                    z[size_t(f)] += double(m.matrix[f * B + i]) * spectra[size_t(p) * B + i];
            }
            for (int cl = 0; cl < C; ++cl)
                s[size_t(cl)] = m.weights[cl * (K + 1)];
            for (int k = 0; k < K; ++k) {
                double d = 0;
                for (int f = 0; f < F; ++f)
                    d += (z[size_t(f)] - m.centres[k * F + f]) * (z[size_t(f)] - m.centres[k * F + f]);
                const double unit = std::exp(m.gammas[k] * d);
                for (int cl = 0; cl < C; ++cl)
                    s[size_t(cl)] += unit * m.weights[cl * (K + 1) + 1 + k];
            }
            int best = 0;
            for (int cl = 0; cl < C; ++cl) {
                s[size_t(cl)] *= row[cl];
                if (s[size_t(cl)] > s[size_t(best)])
                    best = cl;
            }
            double margin = 1e9;
            for (int cl = 0; cl < C; ++cl)
                if (cl != best)
                    margin = std::min(margin, s[size_t(best)] - s[size_t(cl)]);
            if (m.rejects())
                margin = std::min(margin, std::abs(s[size_t(best)] - m.thresholds[best]));
            const int expected = m.rejects() && s[size_t(best)] < m.thresholds[best] ? C : best;
            if (margin < 1e-4 * (1 + std::abs(s[size_t(best)])))
                continue; // too close to call in float
            ++compared;
            EXPECT_EQ(a[size_t(p)], expected) << "trial " << trial << " pixel " << p;
            EXPECT_EQ(b[size_t(p)], expected) << "trial " << trial << " pixel " << p;
            EXPECT_EQ(c[size_t(p)], expected) << "trial " << trial << " pixel " << p;
        }
        EXPECT_GT(compared, n * 9 / 10);
    }
}
