// The kernels of every backend this machine offers, and the plain reference classifier,
// through one suite: decisions of hand-computable models, agreement with the formula in
// double precision in both layouts, staging of camera samples, blocks of every size,
// and the regression and resampling kernels against the host formulas. All OpenCL
// kernels are made on the first OpenCL device, which shares one context and one built
// program among them, so the driver compiles each piece of device code once.

#include "classifier_models.h"
#include "compute/backend.h"
#include "compute/cpu/cpu_classifier.h"
#include "compute/cpu/cpu_resampler.h"
#include "compute/cpu/host_frame.h"
#include "compute/cpu/reference_classifier.h"
#include "compute/device.h"
#include "compute/sample_block.h"

#include <cmath>
#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <random>
#include <set>

using namespace compute;
using compute::cpu::stageSamples;
using compute::cpu::stageSpectra;
using testmodels::twoCentres;

namespace {

// A backend's device, or the reference classifier (whose regression and resampling
// are the host's).
struct KernelSource {
    std::string name;
    int device; // 0 for the reference

    std::shared_ptr<Backend> backend() const { return openDevice(device ? device : defaultDevice); }
    std::unique_ptr<ClassifierKernel> classifier(const ClassifierModel& m) const
    {
        if (!device)
            return std::make_unique<cpu::ReferenceClassifier>(m);
        QString error;
        auto k = backend()->prepareClassifier(m, &error);
        EXPECT_TRUE(k) << name << ": " << error.toStdString();
        return k;
    }
};

std::vector<KernelSource> kernelSources()
{
    std::vector<KernelSource> sources{{"Reference", 0}, {"Cpu", defaultDevice}};
    if (backendAvailable(BackendOpenCl))
        sources.push_back({"OpenCl", makeDevice(BackendOpenCl, 0)});
    return sources;
}

std::vector<KernelSource> backendSources()
{
    std::vector<KernelSource> sources = kernelSources();
    sources.erase(sources.begin()); // the reference
    return sources;
}

class Kernels : public ::testing::TestWithParam<KernelSource> {
protected:
    std::unique_ptr<ClassifierKernel> prepare(const ClassifierModel& m) const { return GetParam().classifier(m); }

    // Pixels as (x, y) pairs, one spectrum a column.
    static std::vector<quint8> decide(ClassifierKernel& k, const std::vector<float>& pixels, const QVector<float>& row = {1, 1})
    {
        std::vector<quint8> out(pixels.size() / 2, 99);
        k.setClassRow(row);
        EXPECT_TRUE(k.classify(pixels.data(), SpectraLayout::BandsByPixels, int(out.size()), out.data()));
        return out;
    }
};

// A model whose centres sit at the features of some of the given pixels, with gammas
// scaled to the spread of those centres: whatever the scale of the spectra, the pixels
// fall to different classes.
ClassifierModel modelAround(const std::vector<float>& spectra, int n, int B, int F, int K, int C, std::mt19937& rng)
{
    ClassifierModel m = testmodels::randomModel(B, F, K, C, false, rng);
    m.offset.fill(0.0f);
    for (int k = 0; k < K; ++k) {
        const float* x = spectra.data() + size_t((k * 7919) % n) * size_t(B);
        for (int f = 0; f < F; ++f) {
            double z = 0;
            for (int b = 0; b < B; ++b)
                z += double(m.matrix[f * B + b]) * x[b];
            m.centres[k * F + f] = float(z);
        }
    }
    double spread = 0;
    for (int k = 1; k < K; ++k)
        for (int f = 0; f < F; ++f) {
            const double d = m.centres[k * F + f] - m.centres[f];
            spread += d * d;
        }
    m.gammas.fill(float(-2.0 * (K - 1) / spread));
    return m;
}

} // namespace

// The regression and resampling kernels of the backends; the reference has none.
class BackendKernels : public ::testing::TestWithParam<KernelSource> {};

std::string sourceName(const ::testing::TestParamInfo<KernelSource>& info)
{
    return info.param.name;
}

INSTANTIATE_TEST_SUITE_P(EveryBackend, Kernels, ::testing::ValuesIn(kernelSources()), sourceName);
INSTANTIATE_TEST_SUITE_P(EveryBackend, BackendKernels, ::testing::ValuesIn(backendSources()), sourceName);

TEST_P(Kernels, NearestCentreWinsAndTiesGoToTheFirstClass)
{
    const auto k = prepare(twoCentres());
    ASSERT_TRUE(k);
    // (5,0) and (5,3) lie as far from one centre as from the other.
    EXPECT_EQ(decide(*k, {0, 0, 10, 0, 4, 1, 6, -1, 5, 0, 5, 3}), (std::vector<quint8>{0, 1, 0, 1, 0, 0}));
}

TEST_P(Kernels, RejectsOnlyBelowTheWinnersOwnThreshold)
{
    ClassifierModel m = twoCentres();
    // The pixel at a centre scores exactly 1 for that centre's class.
    m.thresholds = {1.0f, 0.5f};
    const auto k = prepare(m);
    ASSERT_TRUE(k);
    // (0,0): class 0 at exactly its threshold, kept. (10,0): class 1, 1 >= 0.5.
    // (0.5,0): class 0 with exp(-0.25) ~ 0.78 < 1, rejected although above 0.5.
    // (9.5,0): class 1 with 0.78 >= 0.5, kept. Far away: everything ~0, rejected.
    EXPECT_EQ(decide(*k, {0, 0, 10, 0, 0.5f, 0, 9.5f, 0, 50, 50}), (std::vector<quint8>{0, 1, 2, 1, 2}));
}

TEST_P(Kernels, OperatingPointWeightsMultiplyTheScores)
{
    ClassifierModel m = twoCentres();
    m.weights = {0, 1, 0, /* class 1 */ -1, 0, 1}; // class 1 scores at most 0 away from its centre
    const auto k = prepare(m);
    ASSERT_TRUE(k);
    // Weight 0 makes class 0 score 0, which beats class 1's negative score near centre 0,
    // but not its positive score at centre 1 ((10,0): -1 + 1 = 0 vs 0 is a tie: class 0).
    EXPECT_EQ(decide(*k, {0, 0, 10, 0, 12, 0}, {0, 1}), (std::vector<quint8>{0, 0, 0}));
    // Weighting class 0 by -1 turns its positive scores into losers against class 1's
    // tiny but positive ones.
    const auto plain = prepare(twoCentres());
    ASSERT_TRUE(plain);
    EXPECT_EQ(decide(*plain, {0, 0, 3, 0}, {-1, 1}), (std::vector<quint8>{1, 1}));
}

TEST_P(Kernels, RandomModelsDecideAsTheFormulaInBothLayouts)
{
    struct Shape {
        int B, F, K, C, n;
        bool reject;
    };
    // On the CPU small networks go through the fused pass, the others through matrix
    // products; these shapes lie on both sides of the boundary in features and in
    // classes. Pixel counts that are no multiple of a block leave partial blocks.
    const std::vector<Shape> aroundTheFusedLimits = {
        {3, 2, 5, 1, 300, true},      {10, 5, 25, 3, 350, false}, {17, 8, 45, 4, 400, true},  {24, 16, 65, 8, 450, false},
        {31, 17, 85, 5, 500, true},   {40, 32, 60, 2, 300, false}, {38, 16, 105, 9, 550, false}, {45, 33, 70, 3, 350, true},
    };
    // Shapes up to those of the reference workloads: the pixels fall to several
    // classes, and where the model rejects, some pixels are rejected.
    const std::vector<Shape> upToTheWorkloads = {
        {3, 2, 5, 2, 300, false}, {40, 8, 60, 3, 500, true}, {112, 24, 200, 5, 640, true}, {25, 10, 100, 4, 1000, false}};

    for (const bool workloads : {false, true}) {
        std::mt19937 rng(42);
        for (const Shape& s : workloads ? upToTheWorkloads : aroundTheFusedLimits) {
            const ClassifierModel m = testmodels::randomModel(s.B, s.F, s.K, s.C, s.reject, rng);
            QVector<float> row;
            testmodels::fillNormal(row, s.C, 0.3f, 1.0f, rng);
            const std::vector<float> spectra = testmodels::randomSpectra(s.n, s.B, rng); // one spectrum a column
            const std::vector<float> bandColumns = testmodels::transposed(spectra, s.n, s.B);
            const std::string what = "B " + std::to_string(s.B) + ", F " + std::to_string(s.F) + ", K " +
                                     std::to_string(s.K) + ", C " + std::to_string(s.C);

            const auto k = prepare(m);
            ASSERT_TRUE(k);
            ASSERT_TRUE(k->reserve(s.n)) << what;
            k->setClassRow(row);
            std::vector<quint8> a(size_t(s.n), 99), b(size_t(s.n), 98);
            ASSERT_TRUE(k->classify(spectra.data(), SpectraLayout::BandsByPixels, s.n, a.data())) << what;
            ASSERT_TRUE(k->classify(bandColumns.data(), SpectraLayout::PixelsByBands, s.n, b.data())) << what;
            const size_t seen = testmodels::expectFormula(m, row, spectra, a, what + ", spectra as columns").size();
            testmodels::expectFormula(m, row, spectra, b, what + ", bands as columns");
            if (!workloads)
                continue;
            EXPECT_GT(seen, 1u) << what;
            if (s.reject)
                EXPECT_TRUE(std::count(a.begin(), a.end(), quint8(s.C)) > 0) << what << ": no pixel rejected";
        }
    }
}

TEST_P(Kernels, BlocksOfEverySizeIncludingChunksLargerThanADeviceHolds)
{
    std::mt19937 rng(5);
    const int B = 4;
    const ClassifierModel m = testmodels::randomModel(B, 3, 6, 3, true, rng);
    const QVector<float> row{1, 1, 1};
    const auto k = prepare(m);
    ASSERT_TRUE(k);
    // Small, then more than two of the OpenCL kernel's chunks of 32768 (the last one
    // partial), then small again: buffers grow and shrink back to what a block needs.
    for (const int n : {5, 2 * 32768 + 123, 7}) {
        const std::vector<float> spectra = testmodels::randomSpectra(n, B, rng);
        const std::vector<float> bandColumns = testmodels::transposed(spectra, n, B);
        std::vector<quint8> a(size_t(n), 99), b(size_t(n), 98);
        ASSERT_TRUE(k->classify(spectra.data(), SpectraLayout::BandsByPixels, n, a.data()));
        ASSERT_TRUE(k->classify(bandColumns.data(), SpectraLayout::PixelsByBands, n, b.data()));
        const std::string what = std::to_string(n) + " pixels";
        testmodels::expectFormula(m, row, spectra, a, what + ", spectra as columns");
        testmodels::expectFormula(m, row, spectra, b, what + ", bands as columns");
    }
}

TEST_P(Kernels, SamplesAreSelectedConvertedAndCorrectedAsTheHostStagesThem)
{
    std::mt19937 rng(7);
    const int inBands = 40, B = 12, W = 700;
    std::vector<quint16> u16(size_t(W) * inBands); // one pixel's bands after the other
    for (quint16& x : u16)
        x = quint16(100 + rng() % 3000);

    InputStage full;
    for (int b = 0; b < B; ++b)
        full.bands.append(inBands - 1 - 3 * b); // descending, with gaps
    full.width = W;
    testmodels::fillNormal(full.dark, W * B, 5.0f, 100.0f, rng);
    testmodels::fillNormal(full.gain, W * B, 0.05f, 0.5f, rng);
    InputStage darkOnly = full;
    darkOnly.gain.clear();
    InputStage bandsOnly = full;
    bandsOnly.dark.clear();
    bandsOnly.gain.clear();
    const struct {
        const char* name;
        InputStage stage;
    } stages[] = {{"bands, dark and gain", full}, {"bands and dark", darkOnly}, {"bands only", bandsOnly}};

    for (const auto& s : stages) {
        // What the model should see, staged on the host, one spectrum a column.
        const SampleBlock reference{u16.data(), SampleType::U16, SpectraLayout::BandsByPixels, W, inBands};
        std::vector<float> spectra(size_t(W) * B);
        stageSpectra(reference, s.stage, B, 0, W, spectra.data());
        const ClassifierModel m = modelAround(spectra, W, B, 5, 30, 4, rng);
        const QVector<float> row{1, 1, 1, 1};
        const auto k = prepare(m);
        ASSERT_TRUE(k);
        k->setInputStage(s.stage);

        for (const SpectraLayout layout : {SpectraLayout::BandsByPixels, SpectraLayout::PixelsByBands}) {
            const bool bandsByPixels = layout == SpectraLayout::BandsByPixels;
            std::vector<quint16> samples(u16.size());
            for (int p = 0; p < W; ++p)
                for (int b = 0; b < inBands; ++b)
                    samples[bandsByPixels ? size_t(p) * inBands + b : size_t(b) * W + p] = u16[size_t(p) * inBands + b];
            const std::vector<float> floats(samples.begin(), samples.end());
            for (const SampleBlock& block : {SampleBlock{samples.data(), SampleType::U16, layout, W, inBands},
                                             SampleBlock{floats.data(), SampleType::F32, layout, W, inBands}}) {
                const std::string what = std::string(s.name) + (bandsByPixels ? ", spectra as columns" : ", bands as columns") +
                                         (block.type == SampleType::U16 ? ", 16-bit" : ", float");
                std::vector<quint8> out(size_t(W), 99);
                ASSERT_TRUE(k->classifySamples(block, out.data())) << what;
                // The CPU stages tile by tile, OpenCL on the device: both as the host
                // stages the whole block.
                EXPECT_GT(testmodels::expectFormula(m, row, spectra, out, what).size(), 1u) << what;
            }
        }
    }
}

TEST_P(Kernels, RefuseSampleBlocksThatDoNotFitAndWriteNothing)
{
    ClassifierModel m;
    m.bands = 2, m.features = 1, m.units = 1, m.classes = 1;
    m.matrix = {1, 1}, m.offset = {0}, m.centres = {0}, m.gammas = {-1}, m.weights = {0, 1};
    const auto k = prepare(m);
    ASSERT_TRUE(k);
    const float x[10] = {};
    quint8 d[2] = {7, 7};
    EXPECT_FALSE(k->classifySamples({x, SampleType::F32, SpectraLayout::PixelsByBands, 2, 5}, d)); // 5 bands for 2
    EXPECT_FALSE(k->classifySamples({nullptr, SampleType::F32, SpectraLayout::PixelsByBands, 2, 2}, d));
    InputStage stage;
    stage.width = 3;
    stage.dark = {0, 0, 0, 0, 0, 0};
    k->setInputStage(stage);
    EXPECT_FALSE(k->classifySamples({x, SampleType::F32, SpectraLayout::PixelsByBands, 2, 2}, d)); // not the frame width
    EXPECT_EQ(d[0], 7);
    EXPECT_EQ(d[1], 7);
}

TEST_P(BackendKernels, RegressionGivesTheLinearMapOfEveryPixel)
{
    std::mt19937 rng(11);
    const LinearMap map = testmodels::randomLinearMap(rng);
    QString error;
    const auto regression = GetParam().backend()->prepareRegression(map, &error);
    ASSERT_TRUE(regression) << error.toStdString();
    // A frame of the prepared width, then one of another width, prepared when it comes.
    ASSERT_TRUE(regression->reserve(200));
    for (const int n : {200, 77}) {
        QVector<float> frame; // n pixels by the bands
        testmodels::fillNormal(frame, n * map.bands, 100.0f, 0.0f, rng);
        std::vector<float> got(size_t(n) * map.variables, -1);
        ASSERT_TRUE(regression->predict(frame.constData(), n, got.data()));
        for (int p = 0; p < n; ++p)
            for (int v = 0; v < map.variables; ++v) {
                double want = map.offset[v];
                for (int b = 0; b < map.bands; ++b)
                    want += double(map.weights[v * map.bands + b]) * frame[b * n + p];
                ASSERT_NEAR(got[size_t(p) * map.variables + v], want, 1e-4 * std::max(1.0, std::fabs(want)))
                    << n << " pixels, pixel " << p << ", variable " << v;
            }
    }
}

TEST_P(BackendKernels, ResamplingRoundsHalvesAwayFromZeroAndClampsTheRange)
{
    std::mt19937 rng(11);
    const ResampleMap resampling = testmodels::halfwayResampling();
    QString error;
    const auto resampler = GetParam().backend()->prepareResampler(resampling, &error);
    ASSERT_TRUE(resampler) << error.toStdString();
    std::vector<quint16> frame(size_t(resampling.width) * resampling.sourceBands);
    for (size_t i = 0; i < frame.size(); ++i)
        frame[i] = quint16(i % 7 == 0 ? 65535 - i % 3 : rng() % 4000);
    std::vector<quint16> got(size_t(resampling.width) * resampling.destBands(), 1);
    ASSERT_TRUE(resampler->resample(frame.data(), got.data()));
    for (int j = 0; j < resampling.destBands(); ++j)
        for (int p = 0; p < resampling.width; ++p) {
            // Both products rounded to float before the difference; then clamped, and
            // rounded half away from zero.
            const float t = resampling.fraction[size_t(j)];
            const volatile float hi = float(frame[size_t(resampling.high[size_t(j)] * 64 + p)]) * t;
            const volatile float lo = float(frame[size_t(resampling.low[size_t(j)] * 64 + p)]) * (t - 1.0f);
            const float y = std::min(65535.0f, std::max(0.0f, hi - lo));
            const double want = std::floor(double(y) + 0.5);
            ASSERT_EQ(got[size_t(j * 64 + p)], quint16(want)) << "band " << j << ", pixel " << p;
        }
}

TEST_P(BackendKernels, MapsThatDoNotHoldTogetherGetNoKernel)
{
    const auto backend = GetParam().backend();
    LinearMap map;
    map.bands = 2;
    map.variables = 1;
    map.weights = {1, 1};
    EXPECT_EQ(backend->prepareRegression(map, nullptr), nullptr); // no offset
    ResampleMap resampling;
    resampling.width = 4;
    resampling.sourceBands = 2;
    resampling.low = {0};
    resampling.high = {2}; // past the last band
    resampling.fraction = {0.5f};
    EXPECT_EQ(backend->prepareResampler(resampling, nullptr), nullptr);
}

TEST_P(BackendKernels, AStagedFrameFeedsClassifierAndRegressorAsTheHostStagesIt)
{
    std::mt19937 rng(13);
    const int W = 300, inBands = 20, B = 8;
    const auto backend = GetParam().backend();
    QString error;
    const std::unique_ptr<StagedFrame> frame = backend->prepareFrame(W, inBands, &error);
    ASSERT_TRUE(frame) << error.toStdString();

    std::vector<quint16> u16(size_t(W) * inBands); // one band a column
    for (quint16& x : u16)
        x = quint16(200 + rng() % 3000);
    const std::vector<float> f32(u16.begin(), u16.end());
    QVector<float> dark, gain;
    testmodels::fillNormal(dark, W * inBands, 5.0f, 100.0f, rng);
    testmodels::fillNormal(gain, W * inBands, 0.05f, 0.5f, rng);

    // The classifier takes every other band from the top; the regressor all of them.
    InputStage stage;
    for (int b = 0; b < B; ++b)
        stage.bands.append(inBands - 1 - 2 * b);
    stage.width = W;
    std::vector<float> staged(size_t(W) * inBands);
    stageSamples(u16.data(), SampleType::U16, dark.constData(), gain.constData(), staged.data(), qint64(staged.size()));
    std::vector<float> chosen(size_t(W) * B); // one spectrum a column
    stageSpectra({staged.data(), SampleType::F32, SpectraLayout::PixelsByBands, W, inBands}, stage, B, 0, W, chosen.data());
    const ClassifierModel m = modelAround(chosen, W, B, 4, 20, 3, rng);
    const auto classifier = backend->prepareClassifier(m, &error);
    ASSERT_TRUE(classifier) << error.toStdString();
    classifier->setInputStage(stage);
    LinearMap map;
    map.bands = inBands;
    map.variables = 2;
    testmodels::fillNormal(map.weights, map.bands * map.variables, 0.1f, 0.0f, rng);
    testmodels::fillNormal(map.offset, map.variables, 1.0f, 5.0f, rng);
    const auto regression = backend->prepareRegression(map, &error);
    ASSERT_TRUE(regression) << error.toStdString();

    const QVector<float> none;
    for (const bool corrected : {true, false})
        for (const SampleType type : {SampleType::U16, SampleType::F32}) {
            const std::string what = std::string(corrected ? "corrected" : "as it is") + (type == SampleType::U16 ? ", 16-bit" : ", float");
            const void* samples = type == SampleType::U16 ? static_cast<const void*>(u16.data()) : f32.data();
            ASSERT_TRUE(frame->stage(samples, type, corrected ? dark : none, corrected ? gain : none)) << what;
            stageSamples(samples, type, corrected ? dark.constData() : nullptr, corrected ? gain.constData() : nullptr,
                         staged.data(), qint64(staged.size()));

            std::vector<quint8> got(size_t(W), 99), want(size_t(W), 98);
            ASSERT_TRUE(classifier->classifyFrame(*frame, got.data())) << what;
            ASSERT_TRUE(classifier->classifySamples({staged.data(), SampleType::F32, SpectraLayout::PixelsByBands, W, inBands},
                                                    want.data()))
                << what;
            EXPECT_EQ(got, want) << what;
            if (corrected)
                EXPECT_GT(std::set<quint8>(got.begin(), got.end()).size(), 1u) << what;

            std::vector<float> outputs(size_t(W) * map.variables, -1), expected(outputs.size(), -2);
            ASSERT_TRUE(regression->predictFrame(*frame, outputs.data())) << what;
            ASSERT_TRUE(regression->predict(staged.data(), W, expected.data())) << what;
            for (size_t i = 0; i < outputs.size(); ++i)
                ASSERT_NEAR(outputs[i], expected[i], 1e-5 * std::max(1.0f, std::fabs(expected[i]))) << what << ", output " << i;
        }

    // References of another shape are refused.
    EXPECT_FALSE(frame->stage(u16.data(), SampleType::U16, dark.mid(1), gain.mid(1)));
    EXPECT_FALSE(frame->stage(nullptr, SampleType::U16, none, none));
    EXPECT_EQ(backend->prepareFrame(0, inBands, nullptr), nullptr);
}

TEST(SampleStage, SelectsConvertsAndCorrectsInBothLayouts)
{
    // Two pixels of three bands; the model takes bands 2 and 0, in that order.
    InputStage stage;
    stage.bands = {2, 0};
    stage.width = 2;
    stage.dark = {1, 2, /* band 0 */ 10, 20};
    stage.gain = {2, 3, /* band 0 */ 0.5f, 0.25f};

    const quint16 bip[] = {100, 200, 300, /* pixel 1 */ 400, 500, 600};
    SampleBlock block{bip, SampleType::U16, SpectraLayout::BandsByPixels, 2, 3};
    ASSERT_TRUE(stage.fits(block, 2));
    float out[4];
    stageSpectra(block, stage, 2, 0, 2, out);
    // Pixel 0: ((300-1)*2, (100-10)*0.5); pixel 1: ((600-2)*3, (400-20)*0.25).
    EXPECT_EQ(std::vector<float>(out, out + 4), (std::vector<float>{598, 45, 1794, 95}));

    const float bil[] = {100, 400, /* band 1 */ 200, 500, /* band 2 */ 300, 600};
    block = {bil, SampleType::F32, SpectraLayout::PixelsByBands, 2, 3};
    stageSpectra(block, stage, 2, 1, 1, out); // pixel 1 alone
    EXPECT_EQ(std::vector<float>(out, out + 2), (std::vector<float>{1794, 95}));

    stage.gain.clear(); // subtraction only
    stageSpectra(block, stage, 2, 0, 2, out);
    EXPECT_EQ(std::vector<float>(out, out + 4), (std::vector<float>{299, 598, 90, 380}));
}

TEST(SampleStage, RefusesBlocksThatDoNotFit)
{
    const float x[8] = {};
    InputStage stage;
    EXPECT_TRUE(stage.fits({x, SampleType::F32, SpectraLayout::PixelsByBands, 4, 2}, 2));
    EXPECT_FALSE(stage.fits({x, SampleType::F32, SpectraLayout::PixelsByBands, 4, 2}, 3)); // bands differ
    EXPECT_FALSE(stage.fits({nullptr, SampleType::F32, SpectraLayout::PixelsByBands, 4, 2}, 2));
    EXPECT_FALSE(stage.fits({x, SampleType::F32, SpectraLayout::PixelsByBands, -1, 2}, 2));

    stage.bands = {0, 2};
    EXPECT_FALSE(stage.fits({x, SampleType::F32, SpectraLayout::PixelsByBands, 2, 2}, 2)); // band 2 of 2
    EXPECT_TRUE(stage.fits({x, SampleType::F32, SpectraLayout::PixelsByBands, 2, 3}, 2));

    stage.width = 2;
    stage.dark = {0, 0, 0, 0};
    EXPECT_TRUE(stage.fits({x, SampleType::F32, SpectraLayout::PixelsByBands, 2, 3}, 2));
    EXPECT_FALSE(stage.fits({x, SampleType::F32, SpectraLayout::PixelsByBands, 1, 3}, 2)); // not the frame width
    stage.gain = {1, 1, 1};
    EXPECT_FALSE(stage.fits({x, SampleType::F32, SpectraLayout::PixelsByBands, 2, 3}, 2));
    stage.dark.clear();
    stage.gain = {1, 1, 1, 1};
    EXPECT_FALSE(stage.fits({x, SampleType::F32, SpectraLayout::PixelsByBands, 2, 3}, 2)); // gain without dark
}
