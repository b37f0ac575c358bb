#pragma once
// Models for the classifier kernel tests, and the classifier formula in double
// precision that kernels are checked against.

#include "compute/classifier_model.h"
#include "compute/regression_kernel.h"
#include "compute/resample_kernel.h"

#include <QVector>
#include <gtest/gtest.h>
#include <algorithm>
#include <cmath>
#include <random>
#include <set>
#include <string>
#include <vector>

namespace testmodels {

// Two features equal to the two bands; centre 0 at (0, 0) votes for class 0, centre 1
// at (10, 0) for class 1; gamma -1, so a unit is exp(-squared distance).
inline compute::ClassifierModel twoCentres()
{
    compute::ClassifierModel m;
    m.bands = 2, m.features = 2, m.units = 2, m.classes = 2;
    m.matrix = {1, 0, 0, 1};
    m.offset = {0, 0};
    m.centres = {0, 0, 10, 0};
    m.gammas = {-1, -1};
    // Column c: bias, weight of centre 0, weight of centre 1.
    m.weights = {0, 1, 0, /* class 1 */ 0, 0, 1};
    return m;
}

inline void fillNormal(QVector<float>& v, int count, float scale, float shift, std::mt19937& rng)
{
    std::normal_distribution<float> g(0, 1);
    v.resize(count);
    for (float& x : v)
        x = g(rng) * scale + shift;
}

// Features land far from the origin (offsets around 10), where the distance form must
// not cancel badly, and the centres lie among them: for unit-variance spectra the
// units range between 0 and 1 and pixels fall to different classes.
inline compute::ClassifierModel randomModel(int B, int F, int K, int C, bool reject, std::mt19937& rng)
{
    compute::ClassifierModel m;
    m.bands = B, m.features = F, m.units = K, m.classes = C;
    fillNormal(m.matrix, B * F, 1.0f / std::sqrt(float(B)), 0, rng);
    fillNormal(m.offset, F, 10.0f, 0, rng);
    fillNormal(m.centres, F * K, 1.0f, 0, rng);
    for (int k = 0; k < K; ++k)
        for (int f = 0; f < F; ++f)
            m.centres[k * F + f] += m.offset[f];
    fillNormal(m.gammas, K, 0.2f / F, -1.2f / F, rng); // squared distances are about 2F
    fillNormal(m.weights, (K + 1) * C, 1.0f, 0, rng);
    if (reject)
        fillNormal(m.thresholds, C, 0.5f, 0, rng);
    return m;
}

// n spectra of B bands, one spectrum a column.
inline std::vector<float> randomSpectra(int n, int B, std::mt19937& rng)
{
    std::normal_distribution<float> g(0, 1);
    std::vector<float> x(size_t(n) * size_t(B));
    for (float& v : x)
        v = g(rng);
    return x;
}

// The same block with one band a column.
inline std::vector<float> transposed(const std::vector<float>& spectra, int n, int B)
{
    std::vector<float> t(spectra.size());
    for (int p = 0; p < n; ++p)
        for (int b = 0; b < B; ++b)
            t[size_t(b) * size_t(n) + size_t(p)] = spectra[size_t(p) * size_t(B) + size_t(b)];
    return t;
}

// The formula's decision for one spectrum of B contiguous bands, and whether float
// arithmetic can be trusted to reach it: the gap to the runner-up and, when the model
// rejects, to the threshold must not be tiny.
struct FormulaDecision {
    int decision = 0;
    bool clear = false;
};

inline FormulaDecision formulaDecision(const compute::ClassifierModel& m, const QVector<float>& row, const float* x)
{
    const int B = m.bands, F = m.features, K = m.units, C = m.classes;
    std::vector<double> z(static_cast<size_t>(F)), s(static_cast<size_t>(C));
    for (int f = 0; f < F; ++f) {
        z[size_t(f)] = m.offset[f];
        for (int i = 0; i < B; ++i)
            z[size_t(f)] += double(m.matrix[f * B + i]) * x[i];
    }
    for (int c = 0; c < C; ++c)
        s[size_t(c)] = m.weights[c * (K + 1)];
    for (int k = 0; k < K; ++k) {
        double d = 0;
        for (int f = 0; f < F; ++f)
            d += (z[size_t(f)] - m.centres[k * F + f]) * (z[size_t(f)] - m.centres[k * F + f]);
        const double unit = std::exp(m.gammas[k] * d);
        for (int c = 0; c < C; ++c)
            s[size_t(c)] += unit * m.weights[c * (K + 1) + 1 + k];
    }
    int best = 0;
    for (int c = 0; c < C; ++c) {
        s[size_t(c)] *= row[c];
        if (s[size_t(c)] > s[size_t(best)])
            best = c;
    }
    double margin = 1e9;
    for (int c = 0; c < C; ++c)
        if (c != best)
            margin = std::min(margin, s[size_t(best)] - s[size_t(c)]);
    if (m.rejects())
        margin = std::min(margin, std::abs(s[size_t(best)] - m.thresholds[best]));
    FormulaDecision d;
    d.decision = m.rejects() && s[size_t(best)] < m.thresholds[best] ? C : best;
    d.clear = margin >= 1e-4 * (1 + std::abs(s[size_t(best)]));
    return d;
}

// A regression map of 30 bands to 3 variables with normal weights and offsets around 50.
inline compute::LinearMap randomLinearMap(std::mt19937& rng)
{
    compute::LinearMap map;
    map.bands = 30;
    map.variables = 3;
    fillNormal(map.weights, map.bands * map.variables, 1.0f, 0.0f, rng);
    fillNormal(map.offset, map.variables, 10.0f, 50.0f, rng);
    return map;
}

// Six destination bands over six source bands, 64 pixels wide, whose interpolation lands
// on or next to one half and beyond the 16-bit range.
inline compute::ResampleMap halfwayResampling()
{
    compute::ResampleMap map;
    map.width = 64;
    map.sourceBands = 6;
    map.low = {0, 0, 1, 2, 4, 4};
    map.high = {1, 1, 2, 3, 5, 5};
    map.fraction = {0.0f, 0.5f, 0.25f, 0.49999997f, 1.0f, 1.5f};
    return map;
}

// Checks `decisions` against the formula for every pixel that float can decide;
// `spectra` holds the same pixels one spectrum a column. Returns the distinct
// decisions seen.
inline std::set<quint8> expectFormula(const compute::ClassifierModel& m, const QVector<float>& row,
                                      const std::vector<float>& spectra, const std::vector<quint8>& decisions,
                                      const std::string& what)
{
    const int n = int(decisions.size());
    int compared = 0;
    for (int p = 0; p < n; ++p) {
        const FormulaDecision expected = formulaDecision(m, row, spectra.data() + size_t(p) * size_t(m.bands));
        if (!expected.clear)
            continue; // too close to call in float
        ++compared;
        if (decisions[size_t(p)] != expected.decision) {
            ADD_FAILURE() << what << ": pixel " << p << " got " << int(decisions[size_t(p)]) << ", formula "
                          << expected.decision;
            break;
        }
    }
    EXPECT_GT(compared, n * 9 / 10) << what;
    return std::set<quint8>(decisions.begin(), decisions.end());
}

} // namespace testmodels
