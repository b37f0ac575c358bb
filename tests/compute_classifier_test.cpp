// Classifier kernels: decisions of a hand-computable model, and agreement of the fast
// kernel with the plain one and with the formula in double precision.

#include "compute/backend.h"
#include "compute/cpu/cpu_classifier.h"
#include "compute/cpu/fast_exp.h"
#include "compute/cpu/reference_classifier.h"
#include "compute/cpu/vector_math.h"
#include "classifier_models.h"

#include <algorithm>
#include <cmath>
#include <gtest/gtest.h>
#include <limits>
#include <memory>
#include <random>

using namespace compute;
using testmodels::twoCentres;

namespace {

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

// One centre at the origin with unit exp(-d²), a zero bias and a huge weight on class 1:
// a pixel is class 1 exactly while its unit is not 0. Blocks of pixels on both sides of
// the distance where the unit underflows, and blocks wholly beyond it, which the fast
// kernel passes over, must all decide as single precision does, in both layouts.
TEST(ClassifierKernel, UnitsVanishExactlyWhereSinglePrecisionExpDoes)
{
    ClassifierModel m = twoCentres();
    m.units = 1;
    m.centres = {0, 0};
    m.gammas = {-1};
    m.weights = {0, 0, /* class 1 */ 0, 1e30f};
    const int n = 960;
    std::vector<float> pixelMajor(2 * n, 0.0f), bandMajor(2 * n, 0.0f);
    std::vector<quint8> expected(n);
    for (int p = 0; p < n; ++p) {
        const float x = std::sqrt(96.0f + 16.0f * float(p) / n); // squared distances 96 .. 112
        pixelMajor[2 * p] = bandMajor[p] = x;
        float a = -(x * x);
        cpu::expInPlace<float, std::int32_t>(a);
        expected[p] = a > 0 ? 1 : 0;
    }
    ASSERT_EQ(expected.front(), 1);
    ASSERT_EQ(expected.back(), 0);
    cpu::CpuClassifier k(m);
    std::vector<quint8> out(n, 99);
    k.classify(pixelMajor.data(), SpectraLayout::BandsByPixels, n, out.data());
    EXPECT_EQ(out, expected);
    std::fill(out.begin(), out.end(), 99);
    k.classify(bandMajor.data(), SpectraLayout::PixelsByBands, n, out.data());
    EXPECT_EQ(out, expected);
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
    // Small networks go through the fused pass, the others through matrix products;
    // the shapes lie on both sides of the boundary in features and in classes. Pixel
    // counts that are no multiple of a block leave partial blocks.
    struct Shape {
        int B, F, K, C, n;
        bool reject, fused;
    };
    const Shape shapes[] = {
        {3, 2, 5, 1, 300, true, true},      {10, 5, 25, 3, 350, false, true},
        {17, 8, 45, 4, 400, true, true},    {24, 16, 65, 8, 450, false, true},
        {31, 17, 85, 5, 500, true, true},   {40, 32, 60, 2, 300, false, true},
        {38, 16, 105, 9, 550, false, false}, {45, 33, 70, 3, 350, true, false},
    };
    std::mt19937 rng(42);
    for (const Shape& shape : shapes) {
        const int B = shape.B, C = shape.C, n = shape.n;
        const ClassifierModel m = testmodels::randomModel(B, shape.F, shape.K, C, shape.reject, rng);
        SCOPED_TRACE(testing::Message() << "F " << shape.F << ", C " << C);
        EXPECT_EQ(cpu::CpuClassifier::fuses(m), shape.fused);
        QVector<float> row;
        testmodels::fillNormal(row, C, 0.3f, 1.0f, rng);
        const std::vector<float> spectra = testmodels::randomSpectra(n, B, rng); // one spectrum a column
        const std::vector<float> transposed = testmodels::transposed(spectra, n, B);

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
            const testmodels::FormulaDecision expected = testmodels::formulaDecision(m, row, spectra.data() + size_t(p) * B);
            if (!expected.clear)
                continue; // too close to call in float
            ++compared;
            EXPECT_EQ(a[size_t(p)], expected.decision) << "pixel " << p;
            EXPECT_EQ(b[size_t(p)], expected.decision) << "pixel " << p;
            EXPECT_EQ(c[size_t(p)], expected.decision) << "pixel " << p;
        }
        EXPECT_GT(compared, n * 9 / 10);
    }
}

TEST(VectorMath, ExpOfSpectraWithNaNOrExtremes)
{
    const float inf = std::numeric_limits<float>::infinity();
    float v[] = {std::nanf(""), -inf, -1000.0f, 0.0f, 1.0f, 1000.0f, inf};
    for (float& x : v)
        cpu::expInPlace<float, std::int32_t>(x);
    EXPECT_EQ(v[0], 0.0f); // as the lowest value, not undefined
    EXPECT_EQ(v[1], 0.0f);
    EXPECT_EQ(v[2], 0.0f);
    EXPECT_FLOAT_EQ(v[3], 1.0f);
    EXPECT_NEAR(v[4], 2.7182818f, 1e-6f);
    EXPECT_GT(v[5], 1e38f);
    EXPECT_GT(v[6], 1e38f);
}

// Far from every centre an activation is a subnormal or 0, as single-precision exp has
// it, in the scalar form and in the vector form the kernels use.
TEST(VectorMath, ExpFollowsSinglePrecisionIntoSubnormalsAndZero)
{
    using Lanes = float __attribute__((vector_size(32)));
    using IntLanes = std::int32_t __attribute__((vector_size(32)));
    const float smallest = std::numeric_limits<float>::denorm_min();
    int subnormals = 0, zeros = 0;
    for (int i = -11000; i <= 8800; i += 8) {
        Lanes v;
        for (int l = 0; l < 8; ++l)
            v[l] = float(i + l) * 0.01f;
        cpu::expInPlace<Lanes, IntLanes>(v);
        for (int l = 0; l < 8; ++l) {
            const float x = float(i + l) * 0.01f, expected = std::exp(x);
            float scalar = x;
            cpu::expInPlace<float, std::int32_t>(scalar);
            ASSERT_EQ(scalar, v[l]) << x;
            ASSERT_LE(std::fabs(scalar - expected), std::max(smallest, expected * 4e-7f)) << x;
            subnormals += expected > 0 && expected < std::numeric_limits<float>::min();
            zeros += expected == 0;
        }
    }
    EXPECT_GT(subnormals, 1000);
    EXPECT_GT(zeros, 500);
}
