// The OpenCL backend: its classifier kernel against the formula and the CPU kernel,
// staging of camera samples on the device, the traffic of a block, failures, the
// regression and resampling kernels against the host ones, and the device list through
// the exported calls. All kernels are made on the first OpenCL
// device, which shares one context and one built program among them, so the driver
// compiles each piece of device code once for the whole fixture.

#include "classifier_models.h"
#include "compute/backend.h"
#include "compute/cpu/cpu_classifier.h"
#include "compute/cpu/cpu_regression.h"
#include "compute/cpu/cpu_resampler.h"
#include "compute/device.h"
#include "compute/opencl/opencl_classifier.h"
#include "compute/opencl/opencl_regression.h"
#include "compute/opencl/opencl_resampler.h"
#include "runtime/handle_probe.h"
#include "test_handle.h"

#include <QDir>
#include <climits>
#include <cmath>
#include <gtest/gtest.h>
#include <memory>
#include <random>
#include <set>

using namespace compute;
using opencl::OpenClClassifier;
using testmodels::twoCentres;

namespace {

class OpenCl : public ::testing::Test {
protected:
    // The kernel of `model` on the first OpenCL device, as its OpenCL class.
    template <typename OpenClKernel, typename Model, typename Make>
    static std::unique_ptr<OpenClKernel> onDevice(const Model& model, Make make)
    {
        DeviceScope scope(makeDevice(BackendOpenCl, 0));
        if (!scope.ok()) {
            ADD_FAILURE() << "no OpenCL device to select";
            return nullptr;
        }
        auto kernel = (activeBackend().*make)(model);
        auto* cl = dynamic_cast<OpenClKernel*>(kernel.get());
        if (!cl) {
            ADD_FAILURE() << "no OpenCL kernel: " << activeBackend().lastError().toStdString();
            return nullptr;
        }
        kernel.release();
        return std::unique_ptr<OpenClKernel>(cl);
    }

    static std::unique_ptr<OpenClClassifier> prepare(const ClassifierModel& m)
    {
        return onDevice<OpenClClassifier>(m, &Backend::prepareClassifier);
    }

    // Pixels as (x, y) pairs, one spectrum a column.
    static std::vector<quint8> decide(ClassifierKernel& k, const std::vector<float>& pixels, const QVector<float>& row = {1, 1})
    {
        std::vector<quint8> out(pixels.size() / 2, 99);
        k.setClassRow(row);
        EXPECT_TRUE(k.classify(pixels.data(), SpectraLayout::BandsByPixels, int(out.size()), out.data()));
        return out;
    }

    // Checks `decisions` against the formula for every pixel that float can decide;
    // `spectra` holds the same pixels one spectrum a column. Returns the distinct
    // decisions seen.
    static std::set<quint8> expectFormula(const ClassifierModel& m, const QVector<float>& row, const std::vector<float>& spectra,
                                          const std::vector<quint8>& decisions, const char* what)
    {
        const int n = int(decisions.size());
        int compared = 0;
        for (int p = 0; p < n; ++p) {
            const auto expected = testmodels::formulaDecision(m, row, spectra.data() + size_t(p) * size_t(m.bands));
            if (!expected.clear)
                continue;
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

TEST_F(OpenCl, NearestCentreWinsAndTiesGoToTheFirstClass)
{
    const auto k = prepare(twoCentres());
    ASSERT_TRUE(k);
    // (5,0) and (5,3) lie as far from one centre as from the other.
    EXPECT_EQ(decide(*k, {0, 0, 10, 0, 4, 1, 6, -1, 5, 0, 5, 3}), (std::vector<quint8>{0, 1, 0, 1, 0, 0}));
}

TEST_F(OpenCl, RejectsOnlyBelowTheWinnersOwnThreshold)
{
    ClassifierModel m = twoCentres();
    m.thresholds = {1.0f, 0.5f};
    const auto k = prepare(m);
    ASSERT_TRUE(k);
    // (0,0): class 0 at exactly its threshold 1, kept. (0.5,0): exp(-0.25) ~ 0.78 < 1,
    // rejected although above class 1's threshold. (9.5,0): 0.78 >= 0.5, kept. Far: rejected.
    EXPECT_EQ(decide(*k, {0, 0, 10, 0, 0.5f, 0, 9.5f, 0, 50, 50}), (std::vector<quint8>{0, 1, 2, 1, 2}));
}

TEST_F(OpenCl, OperatingPointWeightsMultiplyTheScores)
{
    ClassifierModel m = twoCentres();
    m.weights = {0, 1, 0, /* class 1 */ -1, 0, 1};
    const auto k = prepare(m);
    ASSERT_TRUE(k);
    // Weight 0 makes class 0 score 0: it beats class 1's -1 near centre 0 and ties
    // class 1's -1 + 1 at centre 1, where the first class wins.
    EXPECT_EQ(decide(*k, {0, 0, 10, 0, 12, 0}, {0, 1}), (std::vector<quint8>{0, 0, 0}));
    const auto plain = prepare(twoCentres());
    ASSERT_TRUE(plain);
    EXPECT_EQ(decide(*plain, {0, 0, 3, 0}, {-1, 1}), (std::vector<quint8>{1, 1}));
}

TEST_F(OpenCl, RandomModelsDecideAsTheFormulaAndTheCpuKernelInBothLayouts)
{
    std::mt19937 rng(42);
    const struct {
        int B, F, K, C, n;
        bool reject;
    } cases[] = {{3, 2, 5, 2, 300, false}, {40, 8, 60, 3, 500, true}, {112, 24, 200, 5, 640, true}, {25, 10, 100, 4, 1000, false}};
    for (const auto& c : cases) {
        const ClassifierModel m = testmodels::randomModel(c.B, c.F, c.K, c.C, c.reject, rng);
        QVector<float> row;
        testmodels::fillNormal(row, c.C, 0.3f, 1.0f, rng);
        const std::vector<float> spectra = testmodels::randomSpectra(c.n, c.B, rng);
        const std::vector<float> bandColumns = testmodels::transposed(spectra, c.n, c.B);

        const auto cl = prepare(m);
        ASSERT_TRUE(cl);
        ASSERT_TRUE(cl->reserve(c.n)) << cl->lastError().toStdString();
        cl->setClassRow(row);
        cpu::CpuClassifier host(m);
        host.setClassRow(row);

        std::vector<quint8> a(size_t(c.n), 99), b(size_t(c.n), 98), h(size_t(c.n), 97);
        ASSERT_TRUE(cl->classify(spectra.data(), SpectraLayout::BandsByPixels, c.n, a.data())) << cl->lastError().toStdString();
        // Only the block goes to the device and only the decisions come back.
        EXPECT_EQ(cl->lastTraffic().toDevice, qint64(c.n) * c.B * 4);
        EXPECT_EQ(cl->lastTraffic().toHost, c.n);
        ASSERT_TRUE(cl->classify(bandColumns.data(), SpectraLayout::PixelsByBands, c.n, b.data())) << cl->lastError().toStdString();
        host.classify(spectra.data(), SpectraLayout::BandsByPixels, c.n, h.data());

        const std::string what = "model B=" + std::to_string(c.B) + " K=" + std::to_string(c.K);
        EXPECT_GT(expectFormula(m, row, spectra, a, (what + ", spectra as columns").c_str()).size(), 1u);
        expectFormula(m, row, spectra, b, (what + ", bands as columns").c_str());
        expectFormula(m, row, spectra, h, (what + ", CPU kernel").c_str());
        if (c.reject)
            EXPECT_TRUE(std::count(a.begin(), a.end(), quint8(c.C)) > 0) << what << ": no pixel rejected";
    }
}

TEST_F(OpenCl, BuffersGrowWithTheBlockAndLargeBlocksGoThroughInChunks)
{
    std::mt19937 rng(5);
    const int B = 4;
    const ClassifierModel m = testmodels::randomModel(B, 3, 6, 3, true, rng);
    const QVector<float> row{1, 1, 1};
    const auto cl = prepare(m);
    ASSERT_TRUE(cl);
    // Small, then more than two chunks (the last one partial), then small again.
    for (const int n : {5, 2 * OpenClClassifier::ChunkPixels + 123, 7}) {
        const std::vector<float> spectra = testmodels::randomSpectra(n, B, rng);
        const std::vector<float> bandColumns = testmodels::transposed(spectra, n, B);
        std::vector<quint8> a(size_t(n), 99), b(size_t(n), 98);
        ASSERT_TRUE(cl->classify(spectra.data(), SpectraLayout::BandsByPixels, n, a.data())) << cl->lastError().toStdString();
        ASSERT_TRUE(cl->classify(bandColumns.data(), SpectraLayout::PixelsByBands, n, b.data())) << cl->lastError().toStdString();
        const std::string what = std::to_string(n) + " pixels";
        expectFormula(m, row, spectra, a, (what + ", spectra as columns").c_str());
        expectFormula(m, row, spectra, b, (what + ", bands as columns").c_str());
    }
}

TEST_F(OpenCl, SamplesAreSelectedConvertedAndCorrectedOnTheDevice)
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
        const auto cl = prepare(m);
        ASSERT_TRUE(cl);
        cl->setInputStage(s.stage);

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
                ASSERT_TRUE(cl->classifySamples(block, out.data())) << what << ": " << cl->lastError().toStdString();
                // The raw samples go up, not float spectra of the chosen bands.
                EXPECT_EQ(cl->lastTraffic().toDevice, qint64(W) * inBands * (block.type == SampleType::U16 ? 2 : 4)) << what;
                EXPECT_EQ(cl->lastTraffic().toHost, W) << what;
                EXPECT_GT(expectFormula(m, row, spectra, out, what.c_str()).size(), 1u) << what;
            }
        }
    }
}

TEST_F(OpenCl, FailuresComeBackAsFalseOrNullAndTheKernelKeepsWorking)
{
    ClassifierModel broken = twoCentres();
    broken.gammas = {-1};
    {
        DeviceScope scope(makeDevice(BackendOpenCl, 0));
        ASSERT_TRUE(scope.ok());
        EXPECT_EQ(activeBackend().prepareClassifier(broken), nullptr);
        EXPECT_FALSE(activeBackend().lastError().isEmpty());
    }
    EXPECT_FALSE(DeviceScope(makeDevice(BackendOpenCl, 999)).ok());

    std::mt19937 rng(3);
    const int B = 64;
    const ClassifierModel wide = testmodels::randomModel(B, 4, 8, 3, false, rng);
    const auto cl = prepare(wide);
    ASSERT_TRUE(cl);
    // More spectra than any device can hold in one buffer.
    EXPECT_FALSE(cl->reserve(INT_MAX));
    EXPECT_FALSE(cl->lastError().isEmpty());
    std::vector<quint8> out(16, 99);
    EXPECT_FALSE(cl->classify(nullptr, SpectraLayout::BandsByPixels, 16, out.data()));
    EXPECT_EQ(out, std::vector<quint8>(16, 99));
    EXPECT_TRUE(cl->classify(nullptr, SpectraLayout::BandsByPixels, 0, out.data()));
    EXPECT_EQ(cl->lastTraffic().toDevice, 0);

    const std::vector<float> spectra = testmodels::randomSpectra(16, B, rng);
    ASSERT_TRUE(cl->classify(spectra.data(), SpectraLayout::BandsByPixels, 16, out.data())) << cl->lastError().toStdString();
    expectFormula(wide, {1, 1, 1}, spectra, out, "after the failures");
}

TEST_F(OpenCl, RegressionAndResamplingGiveWhatTheHostKernelsGive)
{
    std::mt19937 rng(11);
    LinearMap map;
    map.bands = 30;
    map.variables = 3;
    testmodels::fillNormal(map.weights, map.bands * map.variables, 1.0f, 0.0f, rng);
    testmodels::fillNormal(map.offset, map.variables, 10.0f, 50.0f, rng);
    const auto regression = onDevice<opencl::OpenClRegression>(map, &Backend::prepareRegression);
    ASSERT_TRUE(regression);
    cpu::CpuRegression host(map);
    // A frame of the prepared width, then one of another width, prepared when it comes.
    ASSERT_TRUE(regression->reserve(200)) << regression->lastError().toStdString();
    for (const int n : {200, 77}) {
        QVector<float> frame; // n pixels by the bands
        testmodels::fillNormal(frame, n * map.bands, 100.0f, 0.0f, rng);
        std::vector<float> got(size_t(n) * map.variables, -1), want(got.size(), -2);
        ASSERT_TRUE(regression->predict(frame.constData(), n, got.data())) << regression->lastError().toStdString();
        ASSERT_TRUE(host.predict(frame.constData(), n, want.data()));
        for (size_t i = 0; i < got.size(); ++i)
            ASSERT_NEAR(got[i], want[i], 1e-4 * std::max(1.0f, std::fabs(want[i]))) << n << " pixels, output " << i;
        // Only the frame goes up and only the outputs come back.
        EXPECT_EQ(regression->lastTraffic().toDevice, qint64(n) * map.bands * 4);
        EXPECT_EQ(regression->lastTraffic().toHost, qint64(n) * map.variables * 4);
    }

    // Samples whose interpolation lands on or next to one half, and beyond the 16-bit range.
    ResampleMap resampling;
    resampling.width = 64;
    resampling.sourceBands = 6;
    resampling.low = {0, 0, 1, 2, 4, 4};
    resampling.high = {1, 1, 2, 3, 5, 5};
    resampling.fraction = {0.0f, 0.5f, 0.25f, 0.49999997f, 1.0f, 1.5f};
    const auto resampler = onDevice<opencl::OpenClResampler>(resampling, &Backend::prepareResampler);
    ASSERT_TRUE(resampler);
    std::vector<quint16> frame(size_t(resampling.width) * resampling.sourceBands);
    for (size_t i = 0; i < frame.size(); ++i)
        frame[i] = quint16(i % 7 == 0 ? 65535 - i % 3 : rng() % 4000);
    std::vector<quint16> got(size_t(resampling.width) * resampling.destBands(), 1), want(got.size(), 2);
    ASSERT_TRUE(resampler->resample(frame.data(), got.data())) << resampler->lastError().toStdString();
    cpu::resampleFrame(resampling, frame.data(), want.data());
    EXPECT_EQ(got, want);
    EXPECT_EQ(resampler->lastTraffic().toDevice, qint64(frame.size()) * 2);
    EXPECT_EQ(resampler->lastTraffic().toHost, qint64(got.size()) * 2);

    // Maps that do not hold together get no kernel.
    DeviceScope scope(makeDevice(BackendOpenCl, 0));
    map.offset.removeLast();
    EXPECT_EQ(activeBackend().prepareRegression(map), nullptr);
    resampling.high.back() = resampling.sourceBands;
    EXPECT_EQ(activeBackend().prepareResampler(resampling), nullptr);
}

TEST_F(OpenCl, DeviceListPutsOpenClEntriesAfterTheCpuOnes)
{
    TestHandle h;
    const int cpuOnly = zelk_GetDeviceCount(h);
    ASSERT_GE(cpuOnly, 1);
    ASSERT_EQ(zelk_RefreshDeviceList(h, 0, 1), 0);
    const int all = zelk_GetDeviceCount(h);
    ASSERT_GT(all, cpuOnly);
    for (int i = 0; i < all; ++i) {
        const QString name = QString::fromLocal8Bit(zelk_GetDeviceName(h, i));
        if (i < cpuOnly) {
            EXPECT_TRUE(name.startsWith(QStringLiteral("CPU: "))) << name.toStdString();
            continue;
        }
        // "OpenCL: <device>, <platform>", indices counted within the backend.
        EXPECT_TRUE(name.startsWith(QStringLiteral("OpenCL: ")) && name.contains(QStringLiteral(", "))) << name.toStdString();
        // Choosing the entry chooses that OpenCL device.
        ASSERT_EQ(zelk_SetDevice(h, i), 0);
        EXPECT_EQ(handleprobe::selectedDevice(h), makeDevice(BackendOpenCl, i - cpuOnly));
    }
    ASSERT_EQ(zelk_RefreshDeviceList(h, 0, 0), 0);
    EXPECT_EQ(zelk_GetDeviceCount(h), cpuOnly);
}

TEST_F(OpenCl, SetDeviceSelectsAnOpenClEntryAndRestsOnTheCpu)
{
    TestHandle h;
    ASSERT_EQ(zelk_RefreshDeviceList(h, 0, 1), 0);
    const int index = zelk_GetDeviceCount(h) - 1; // the last entry is an OpenCL device
    const QString name = QString::fromLocal8Bit(zelk_GetDeviceName(h, index));
    ASSERT_TRUE(name.startsWith(QStringLiteral("OpenCL: "))) << name.toStdString();
    zelk_SetDevice(h, -1);
    ASSERT_EQ(zelk_SetDevice(h, index), 0);
    EXPECT_EQ(zelk_GetErrorCode(h), 0);
    // Indices count within the backend, after the CPU entries of a fresh list.
    EXPECT_EQ(handleprobe::selectedDevice(h), makeDevice(BackendOpenCl, index - zelk_GetDeviceCount(TestHandle())));
    EXPECT_EQ(QString::fromLocal8Bit(zelk_GetErrorMsg(h)), QStringLiteral("Selected device %1: ").arg(index) + name);
    EXPECT_EQ(activeBackend().number(), BackendCpu);
}

// Runs only in the ctest entry that points the OpenCL loader at an empty vendor
// directory, where it finds no platform.
TEST(OpenClWithoutPlatform, ListsNoOpenClEntryAndTheCpuStillClassifies)
{
    const QString vendors = qEnvironmentVariable("OCL_ICD_VENDORS");
    ASSERT_TRUE(!vendors.isEmpty() && QDir(vendors).exists() && QDir(vendors).isEmpty())
        << "needs OCL_ICD_VENDORS set to an empty directory (ctest entry opencl_absent)";
    EXPECT_EQ(availableBackends(), 1);
    EXPECT_EQ(backend(BackendOpenCl), nullptr);
    EXPECT_FALSE(DeviceScope(makeDevice(BackendOpenCl, 0)).ok());

    TestHandle h;
    ASSERT_EQ(zelk_RefreshDeviceList(h, 1, 1), 0);
    ASSERT_GE(zelk_GetDeviceCount(h), 1);
    for (int i = 0; i < zelk_GetDeviceCount(h); ++i)
        EXPECT_TRUE(QString::fromLocal8Bit(zelk_GetDeviceName(h, i)).startsWith(QStringLiteral("CPU: ")));
    ASSERT_EQ(zelk_SetDevice(h, 0), 0);

    DeviceScope scope(handleprobe::selectedDevice(h));
    ASSERT_TRUE(scope.ok());
    const auto k = activeBackend().prepareClassifier(twoCentres());
    ASSERT_TRUE(k);
    std::vector<quint8> out(2, 99);
    const float pixels[] = {0, 0, 10, 0};
    ASSERT_TRUE(k->classify(pixels, SpectraLayout::BandsByPixels, 2, out.data()));
    EXPECT_EQ(out, (std::vector<quint8>{0, 1}));
}
