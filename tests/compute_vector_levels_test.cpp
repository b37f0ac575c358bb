// The CPU loops at every instruction-set level this machine runs: each against the
// rule it computes and against the baseline build, on lengths that leave every kind of
// vector tail and on values that reach subnormals and underflow; the fused classifier
// pass against the formula at each level; and exp itself.

#include "classifier_models.h"
#include "compute/cpu/cpu_classifier.h"
#include "compute/cpu/fast_exp.h"
#include "compute/cpu/vector_math.h"

#include <algorithm>
#include <cmath>
#include <gtest/gtest.h>
#include <limits>
#include <random>

using namespace compute;
using cpu::VectorLevel;

namespace {

// Runs each test at one level and goes back to the processor's best afterwards.
class VectorLevels : public ::testing::TestWithParam<VectorLevel> {
protected:
    void SetUp() override { ASSERT_TRUE(cpu::useVectorLevel(GetParam())); }
    void TearDown() override { cpu::useVectorLevel(cpu::supportedVectorLevels().back()); }

    // Runs `fn` at the baseline level and returns to the level under test.
    template <typename Fn>
    static void atBaseline(Fn fn)
    {
        cpu::useVectorLevel(VectorLevel::Baseline);
        fn();
        cpu::useVectorLevel(GetParam());
    }
};

// Lengths from empty through several of the widest vectors, so that every remainder
// of 4, 8 and 16 lanes is left over once.
constexpr int LongestRow = 70;

std::string levelName(const ::testing::TestParamInfo<VectorLevel>& info)
{
    switch (info.param) {
    case VectorLevel::V4:
        return "V4";
    case VectorLevel::V3:
        return "V3";
    default:
        return "Baseline";
    }
}

float ulpsApart(float a, float b)
{
    if (a == b)
        return 0;
    return std::fabs(a - b) / std::max(std::numeric_limits<float>::denorm_min(), std::fabs(std::nextafter(a, b) - a));
}

} // namespace

INSTANTIATE_TEST_SUITE_P(EveryLevel, VectorLevels, ::testing::ValuesIn(cpu::supportedVectorLevels()), levelName);

TEST(VectorLevel, TheBaselineIsAlwaysThereAndLevelsBeyondTheProcessorAreRefused)
{
    const auto levels = cpu::supportedVectorLevels();
    ASSERT_FALSE(levels.empty());
    EXPECT_EQ(levels.front(), VectorLevel::Baseline);
    EXPECT_EQ(cpu::vectorLevel(), levels.back()); // the best is chosen at load
    if (levels.back() != VectorLevel::V4) {
        EXPECT_FALSE(cpu::useVectorLevel(VectorLevel::V4));
        EXPECT_EQ(cpu::vectorLevel(), levels.back());
    }
}

TEST_P(VectorLevels, StagingIsExactAtEveryLengthAndIntoSubnormals)
{
    std::mt19937 rng(3);
    for (int n = 0; n <= LongestRow; ++n) {
        std::vector<quint16> u16(static_cast<size_t>(n));
        std::vector<float> f32(static_cast<size_t>(n)), dark(static_cast<size_t>(n)), gain(static_cast<size_t>(n));
        for (int i = 0; i < n; ++i) {
            u16[size_t(i)] = quint16(rng() % 65536);
            f32[size_t(i)] = float(u16[size_t(i)]) + 0.25f;
            dark[size_t(i)] = float(u16[size_t(i)]) - float(i % 3); // differences of 0, 1 and 2
            gain[size_t(i)] = i % 2 ? 1e-39f : 0.5f;                // subnormal products too
        }
        std::vector<float> out(size_t(n) + 1, -7), base(out);
        for (const float* g : {static_cast<const float*>(nullptr), static_cast<const float*>(gain.data())})
            for (const float* d : {static_cast<const float*>(nullptr), static_cast<const float*>(dark.data())}) {
                if (g && !d)
                    continue; // a gain only comes with a dark
                cpu::stageRow(u16.data(), d, g, out.data(), n);
                atBaseline([&] { cpu::stageRow(u16.data(), d, g, base.data(), n); });
                for (int i = 0; i < n; ++i) {
                    const float expected = d ? (g ? (float(u16[size_t(i)]) - d[i]) * g[i] : float(u16[size_t(i)]) - d[i])
                                             : float(u16[size_t(i)]);
                    ASSERT_EQ(out[size_t(i)], expected) << "16-bit, n " << n << ", i " << i;
                }
                EXPECT_EQ(out, base) << "16-bit, n " << n;
                EXPECT_EQ(out[size_t(n)], -7) << "written past the row";
                cpu::stageRow(f32.data(), d, g, out.data(), n);
                atBaseline([&] { cpu::stageRow(f32.data(), d, g, base.data(), n); });
                for (int i = 0; i < n; ++i) {
                    const float expected = d ? (g ? (f32[size_t(i)] - d[i]) * g[i] : f32[size_t(i)] - d[i]) : f32[size_t(i)];
                    ASSERT_EQ(out[size_t(i)], expected) << "float, n " << n << ", i " << i;
                }
                EXPECT_EQ(out, base) << "float, n " << n;
            }
    }
}

TEST_P(VectorLevels, InterpolationRoundsHalvesAlikeAtEveryLength)
{
    std::mt19937 rng(5);
    for (int n = 0; n <= LongestRow; ++n)
        for (const float t : {0.0f, 0.5f, 0.25f, 0.49999997f, 1.0f, 1.5f, -0.5f}) {
            std::vector<quint16> lo(static_cast<size_t>(n)), hi(static_cast<size_t>(n)), out(size_t(n) + 1, 7), base(out);
            for (int i = 0; i < n; ++i) {
                lo[size_t(i)] = quint16(i % 5 == 0 ? 65535 : rng() % 4000);
                hi[size_t(i)] = quint16(i % 3 == 0 ? 65534 : rng() % 4000 + 1);
            }
            cpu::interpolateSamples(lo.data(), hi.data(), t, out.data(), n);
            atBaseline([&] { cpu::interpolateSamples(lo.data(), hi.data(), t, base.data(), n); });
            for (int i = 0; i < n; ++i) {
                const volatile float h = float(hi[size_t(i)]) * t, l = float(lo[size_t(i)]) * (t - 1.0f);
                const float y = std::min(65535.0f, std::max(0.0f, h - l));
                ASSERT_EQ(out[size_t(i)], quint16(std::floor(double(y) + 0.5))) << "n " << n << ", t " << t << ", i " << i;
            }
            EXPECT_EQ(out, base) << "n " << n << ", t " << t;
            EXPECT_EQ(out[size_t(n)], 7) << "written past the row";
        }
}

TEST_P(VectorLevels, RadialUnitsFollowExpIntoSubnormalsAndZeroAtEveryLength)
{
    // Exponents from -80 (normal) through -87..-103 (subnormal) to below -104 (zero).
    const float smallest = std::numeric_limits<float>::denorm_min();
    int subnormals = 0, zeros = 0;
    for (int n = 0; n <= LongestRow; ++n) {
        std::vector<float> dot(static_cast<size_t>(n)), norms(static_cast<size_t>(n)), gamma(static_cast<size_t>(n)), out(size_t(n) + 1, -7), base(out);
        for (int i = 0; i < n; ++i) {
            dot[size_t(i)] = -float(i) * 0.5f;
            norms[size_t(i)] = float(i);
            gamma[size_t(i)] = -(80.0f + 0.37f * float(i + n)) / (float(i) * 0.5f + 1.0f);
        }
        cpu::radialUnits(dot.data(), norms.data(), gamma.data(), 1.0f, out.data(), n);
        atBaseline([&] { cpu::radialUnits(dot.data(), norms.data(), gamma.data(), 1.0f, base.data(), n); });
        for (int i = 0; i < n; ++i) {
            // The distance is exact in float here; the exponent is rounded to float.
            const volatile float exponent = gamma[size_t(i)] * (dot[size_t(i)] + norms[size_t(i)] + 1.0f);
            const double expected = std::exp(double(exponent));
            const float got = out[size_t(i)];
            ASSERT_LE(std::fabs(got - expected), std::max(double(smallest), expected * 4e-7)) << "n " << n << ", i " << i;
            // Fused multiply-adds may move the polynomial by a unit in the last place.
            ASSERT_LE(ulpsApart(got, base[size_t(i)]), 2.0f) << "n " << n << ", i " << i;
            subnormals += got > 0 && got < std::numeric_limits<float>::min();
            zeros += got == 0;
        }
        EXPECT_EQ(out[size_t(n)], -7) << "written past the row";
    }
    EXPECT_GT(subnormals, 100);
    EXPECT_GT(zeros, 100);
}

TEST_P(VectorLevels, SumsOfSquaresAtEveryLengthIncludingUnderflowingTerms)
{
    for (int n = 0; n <= LongestRow; ++n) {
        std::vector<float> v(static_cast<size_t>(n));
        double expected = 0;
        for (int i = 0; i < n; ++i) {
            v[size_t(i)] = i % 4 == 0 ? 1e-23f : float(i) * 0.1f; // squares below the normal range
            expected += double(v[size_t(i)]) * v[size_t(i)];
        }
        const float got = cpu::sumOfSquares(v.data(), n);
        float base = 0;
        atBaseline([&] { base = cpu::sumOfSquares(v.data(), n); });
        EXPECT_NEAR(got, expected, 1e-6 * expected + 1e-45) << "n " << n;
        EXPECT_LE(ulpsApart(got, base), 4.0f * float(n)) << "n " << n;
    }
}

// One centre at the origin with unit exp(-d²), a zero bias and a huge weight on class 1:
// a pixel is class 1 exactly while its unit is not 0. Blocks of pixels on both sides of
// the distance where the unit underflows, and blocks wholly beyond it, which the fused
// pass passes over, must all decide as single precision does, in both layouts.
TEST_P(VectorLevels, UnitsVanishExactlyWhereSinglePrecisionExpDoes)
{
    ClassifierModel m = testmodels::twoCentres();
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
    ASSERT_TRUE(cpu::CpuClassifier::fuses(m));
    std::vector<quint8> out(n, 99);
    k.classify(pixelMajor.data(), SpectraLayout::BandsByPixels, n, out.data());
    EXPECT_EQ(out, expected);
    std::fill(out.begin(), out.end(), 99);
    k.classify(bandMajor.data(), SpectraLayout::PixelsByBands, n, out.data());
    EXPECT_EQ(out, expected);
}

// Centres scattered far apart with narrow units, so that the fused pass passes over
// most of them for any block; the pixels lie near centres taken at random, so that each
// block reaches a few of its own. A centre passed over that a pixel reaches, or a
// distance taken to the wrong centre, changes decisions.
TEST_P(VectorLevels, OnlyCentresOutOfReachArePassedOver)
{
    std::mt19937 rng(7);
    std::uniform_real_distribution<float> across(0.0f, 60.0f), near(-1.5f, 1.5f);
    ClassifierModel m;
    const int F = 3, K = 70, C = 5, n = 700;
    m.bands = F, m.features = F, m.units = K, m.classes = C;
    m.matrix = {1, 0, 0, 0, 1, 0, 0, 0, 1};
    m.offset = {0, 0, 0};
    for (int k = 0; k < K * F; ++k)
        m.centres.append(across(rng));
    m.gammas = QVector<float>(K, -0.5f);
    m.weights = QVector<float>((K + 1) * C, 0.0f);
    for (int k = 0; k < K; ++k)
        m.weights[(k % C) * (K + 1) + k + 1] = 1.0f + 0.1f * float(k);
    std::vector<float> spectra(size_t(n) * F);
    for (int p = 0; p < n; ++p) {
        const int k = int(rng() % K);
        for (int f = 0; f < F; ++f)
            spectra[size_t(p) * F + f] = m.centres[k * F + f] + near(rng);
    }
    const QVector<float> row(C, 1.0f);
    cpu::CpuClassifier k(m);
    ASSERT_TRUE(cpu::CpuClassifier::fuses(m));
    std::vector<quint8> a(size_t(n), 99), b(size_t(n), 99);
    k.classify(spectra.data(), SpectraLayout::BandsByPixels, n, a.data());
    const std::vector<float> bandColumns = testmodels::transposed(spectra, n, F);
    k.classify(bandColumns.data(), SpectraLayout::PixelsByBands, n, b.data());
    EXPECT_EQ(testmodels::expectFormula(m, row, spectra, a, "spectra as columns").size(), size_t(C));
    testmodels::expectFormula(m, row, spectra, b, "bands as columns");
}

// Two centres ten apart, each the only unit of its class, and no bias; every pixel is
// nearer one or the other by a squared distance of 10. Every other pixel lies so far
// from both that each unit is a subnormal, the rest near them, so that blocks mix
// subnormal and normal units. The nearer centre wins in the fused pass (two classes) and
// in the matrix products (nine, the seven others without weights), in both layouts; a
// kernel that flushed subnormals would call every far pixel a tie, class 0.
TEST_P(VectorLevels, SubnormalUnitsDecideWhereNothingElseScores)
{
    const int n = 500;
    std::vector<float> spectra(2 * n);
    std::vector<quint8> expected(n);
    for (int p = 0; p < n; ++p) {
        const bool far = p % 4 < 2;
        spectra[2 * p] = p % 2 ? 5.5f : 4.5f;
        spectra[2 * p + 1] = far ? std::sqrt(68.0f + 4.0f * float(p) / n) : float(p) / n;
        expected[p] = p % 2;
    }
    const std::vector<float> bandColumns = testmodels::transposed(spectra, n, 2);
    for (const int C : {2, 9}) {
        ClassifierModel m = testmodels::twoCentres();
        m.classes = C;
        m.weights = QVector<float>(3 * C, 0.0f);
        m.weights[1] = 1.0f;     // class 0: centre 0
        m.weights[3 + 2] = 1.0f; // class 1: centre 1
        cpu::CpuClassifier k(m);
        EXPECT_EQ(cpu::CpuClassifier::fuses(m), C == 2);
        std::vector<quint8> out(n, 99);
        k.classify(spectra.data(), SpectraLayout::BandsByPixels, n, out.data());
        EXPECT_EQ(out, expected) << C << " classes, spectra as columns";
        std::fill(out.begin(), out.end(), 99);
        k.classify(bandColumns.data(), SpectraLayout::PixelsByBands, n, out.data());
        EXPECT_EQ(out, expected) << C << " classes, bands as columns";
    }
}

TEST_P(VectorLevels, FusedPassAndMatrixProductsDecideAsTheFormula)
{
    // Shapes on both sides of the fused pass's limits in features and in classes, with
    // pixel counts that leave partial blocks.
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
        fast.setClassRow(row);
        std::vector<quint8> a(static_cast<size_t>(n)), b(static_cast<size_t>(n)), base(static_cast<size_t>(n));
        fast.classify(spectra.data(), SpectraLayout::BandsByPixels, n, a.data());
        fast.classify(transposed.data(), SpectraLayout::PixelsByBands, n, b.data());
        atBaseline([&] { fast.classify(spectra.data(), SpectraLayout::BandsByPixels, n, base.data()); });
        int compared = 0;
        for (int p = 0; p < n; ++p) {
            const testmodels::FormulaDecision expected = testmodels::formulaDecision(m, row, spectra.data() + size_t(p) * B);
            if (!expected.clear)
                continue; // too close to call in float
            ++compared;
            EXPECT_EQ(a[size_t(p)], expected.decision) << "pixel " << p;
            EXPECT_EQ(b[size_t(p)], expected.decision) << "pixel " << p;
            EXPECT_EQ(base[size_t(p)], expected.decision) << "pixel " << p;
        }
        EXPECT_GT(compared, n * 9 / 10);
    }
}

TEST(FastExp, ExpOfSpectraWithNaNOrExtremes)
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
TEST(FastExp, ExpFollowsSinglePrecisionIntoSubnormalsAndZero)
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
