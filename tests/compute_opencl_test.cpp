// What only the OpenCL backend has: the bytes a call moves between host and device,
// failures of the device and of its selection, and its entries in the device list
// through the exported calls. Its kernels' decisions and outputs are checked with every
// other backend's in compute_kernels_test.cpp.

#include "classifier_models.h"
#include "compute/backend.h"
#include "compute/cpu/cpu_classifier.h"
#include "compute/cpu/cpu_regression.h"
#include "compute/cpu/cpu_resampler.h"
#include "compute/device.h"
#include "compute/opencl/opencl_classifier.h"
#include "compute/opencl/opencl_frame.h"
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
        QString error;
        const std::shared_ptr<Backend> device = openDevice(makeDevice(BackendOpenCl, 0), &error);
        if (!device) {
            ADD_FAILURE() << "no OpenCL device to open: " << error.toStdString();
            return nullptr;
        }
        auto kernel = ((*device).*make)(model, &error);
        auto* cl = dynamic_cast<OpenClKernel*>(kernel.get());
        if (!cl) {
            ADD_FAILURE() << "no OpenCL kernel: " << error.toStdString();
            return nullptr;
        }
        kernel.release();
        return std::unique_ptr<OpenClKernel>(cl);
    }

    static std::unique_ptr<OpenClClassifier> prepare(const ClassifierModel& m)
    {
        return onDevice<OpenClClassifier>(m, &Backend::prepareClassifier);
    }
};

} // namespace

TEST_F(OpenCl, OnlyTheBlockGoesUpAndOnlyTheDecisionsComeBack)
{
    std::mt19937 rng(42);
    const int B = 40, n = 500;
    const ClassifierModel m = testmodels::randomModel(B, 8, 60, 3, true, rng);
    const std::vector<float> spectra = testmodels::randomSpectra(n, B, rng);
    const auto cl = prepare(m);
    ASSERT_TRUE(cl);
    ASSERT_TRUE(cl->reserve(n)) << cl->lastError().toStdString();
    std::vector<quint8> a(size_t(n), 99);
    ASSERT_TRUE(cl->classify(spectra.data(), SpectraLayout::BandsByPixels, n, a.data())) << cl->lastError().toStdString();
    EXPECT_EQ(cl->lastTraffic().toDevice, qint64(n) * B * 4);
    EXPECT_EQ(cl->lastTraffic().toHost, n);
    testmodels::expectFormula(m, {1, 1, 1}, spectra, a, "after the traffic");
}

TEST_F(OpenCl, TheRawSamplesGoUpNotFloatSpectraOfTheChosenBands)
{
    std::mt19937 rng(7);
    const int inBands = 40, B = 12, W = 700;
    InputStage stage;
    for (int b = 0; b < B; ++b)
        stage.bands.append(inBands - 1 - 3 * b);
    stage.width = W;
    testmodels::fillNormal(stage.dark, W * B, 5.0f, 100.0f, rng);
    testmodels::fillNormal(stage.gain, W * B, 0.05f, 0.5f, rng);
    const auto cl = prepare(testmodels::randomModel(B, 5, 30, 4, false, rng));
    ASSERT_TRUE(cl);
    cl->setInputStage(stage);
    std::vector<quint16> u16(size_t(W) * inBands, 1000);
    const std::vector<float> floats(u16.begin(), u16.end());
    for (const SpectraLayout layout : {SpectraLayout::BandsByPixels, SpectraLayout::PixelsByBands})
        for (const SampleBlock& block : {SampleBlock{u16.data(), SampleType::U16, layout, W, inBands},
                                         SampleBlock{floats.data(), SampleType::F32, layout, W, inBands}}) {
            std::vector<quint8> out(size_t(W), 99);
            ASSERT_TRUE(cl->classifySamples(block, out.data())) << cl->lastError().toStdString();
            EXPECT_EQ(cl->lastTraffic().toDevice, qint64(W) * inBands * (block.type == SampleType::U16 ? 2 : 4));
            EXPECT_EQ(cl->lastTraffic().toHost, W);
        }
}

TEST_F(OpenCl, FailuresComeBackAsFalseOrNullAndTheKernelKeepsWorking)
{
    ClassifierModel broken = twoCentres();
    broken.gammas = {-1};
    QString error;
    const std::shared_ptr<Backend> device = openDevice(makeDevice(BackendOpenCl, 0), &error);
    ASSERT_TRUE(device) << error.toStdString();
    EXPECT_EQ(device->prepareClassifier(broken, &error), nullptr);
    EXPECT_EQ(error, QStringLiteral("the model's arrays do not have the sizes its counts give"));
    error.clear();
    EXPECT_EQ(openDevice(makeDevice(BackendOpenCl, 999), &error), nullptr);
    EXPECT_EQ(error, QStringLiteral("no OpenCL device 999"));

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
    testmodels::expectFormula(wide, {1, 1, 1}, spectra, out, "after the failures");
}

TEST_F(OpenCl, RegressionAndResamplingMoveOnlyTheirFramesAndOutputs)
{
    std::mt19937 rng(11);
    const LinearMap map = testmodels::randomLinearMap(rng);
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

    const ResampleMap resampling = testmodels::halfwayResampling();
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
}

TEST_F(OpenCl, AStagedFrameGoesUpOnceAndItsReferencesOnlyWhenOthersCome)
{
    std::mt19937 rng(17);
    const int W = 100, bands = 6;
    QString error;
    const std::shared_ptr<Backend> device = openDevice(makeDevice(BackendOpenCl, 0), &error);
    ASSERT_TRUE(device) << error.toStdString();
    const std::unique_ptr<StagedFrame> staged = device->prepareFrame(W, bands, &error);
    auto* frame = dynamic_cast<opencl::OpenClFrame*>(staged.get());
    ASSERT_TRUE(frame) << error.toStdString();
    const auto classifier = prepare(testmodels::randomModel(bands, 3, 6, 3, false, rng));
    ASSERT_TRUE(classifier);
    LinearMap map;
    map.bands = bands;
    map.variables = 2;
    testmodels::fillNormal(map.weights, bands * 2, 1.0f, 0.0f, rng);
    testmodels::fillNormal(map.offset, 2, 1.0f, 0.0f, rng);
    const auto regression = onDevice<opencl::OpenClRegression>(map, &Backend::prepareRegression);
    ASSERT_TRUE(regression);

    const std::vector<quint16> samples(size_t(W) * bands, 500);
    QVector<float> dark(W * bands, 100.0f), gain(W * bands, 0.01f);
    const qint64 raw = qint64(W) * bands * 2, references = 2 * qint64(W) * bands * 4;
    ASSERT_TRUE(frame->stage(samples.data(), SampleType::U16, dark, gain)) << frame->lastError().toStdString();
    EXPECT_EQ(frame->lastTraffic().toDevice, raw + references);
    ASSERT_TRUE(frame->stage(samples.data(), SampleType::U16, dark, gain));
    EXPECT_EQ(frame->lastTraffic().toDevice, raw); // the same references stay
    dark[0] = 101.0f;                              // changed in place: no longer the vector on the device
    ASSERT_TRUE(frame->stage(samples.data(), SampleType::U16, dark, gain));
    EXPECT_EQ(frame->lastTraffic().toDevice, raw + references);
    EXPECT_EQ(frame->lastTraffic().toHost, 0);

    // Both kernels read the frame where it lies; only their results come back.
    std::vector<quint8> decisions(size_t(W), 99);
    ASSERT_TRUE(classifier->classifyFrame(*frame, decisions.data())) << classifier->lastError().toStdString();
    EXPECT_EQ(classifier->lastTraffic().toDevice, 0);
    EXPECT_EQ(classifier->lastTraffic().toHost, W);
    std::vector<float> outputs(size_t(W) * 2);
    ASSERT_TRUE(regression->predictFrame(*frame, outputs.data())) << regression->lastError().toStdString();
    EXPECT_EQ(regression->lastTraffic().toDevice, 0);
    EXPECT_EQ(regression->lastTraffic().toHost, qint64(W) * 2 * 4);

    // A host kernel cannot read a frame on the device, and writes nothing.
    cpu::CpuClassifier host(testmodels::randomModel(bands, 3, 6, 3, false, rng));
    std::fill(decisions.begin(), decisions.end(), 99);
    EXPECT_FALSE(host.classifyFrame(*frame, decisions.data()));
    EXPECT_EQ(decisions, std::vector<quint8>(size_t(W), 99));
}

TEST_F(OpenCl, AResampledFrameIsStagedWhereItWasResampled)
{
    std::mt19937 rng(23);
    const int W = 64, sourceBands = 5;
    ResampleMap resampling;
    resampling.width = W;
    resampling.sourceBands = sourceBands;
    resampling.low = {0, 1, 1, 3};
    resampling.high = {1, 2, 2, 4};
    resampling.fraction = {0.5f, 0.25f, 1.0f, 0.75f};
    const int bands = resampling.destBands();
    LinearMap map;
    map.bands = bands;
    map.variables = 2;
    testmodels::fillNormal(map.weights, bands * 2, 1.0f, 0.0f, rng);
    testmodels::fillNormal(map.offset, 2, 1.0f, 0.0f, rng);

    QString error;
    const std::shared_ptr<Backend> gpu = openDevice(makeDevice(BackendOpenCl, 0), &error);
    const std::shared_ptr<Backend> cpu = openDevice(defaultDevice, &error);
    ASSERT_TRUE(gpu && cpu) << error.toStdString();
    const auto onGpu = gpu->prepareFrame(W, bands, &error);
    const auto onCpu = cpu->prepareFrame(W, bands, &error);
    const auto gpuResampler = gpu->prepareResampler(resampling, &error);
    const auto cpuResampler = cpu->prepareResampler(resampling, &error);
    const auto gpuRegression = gpu->prepareRegression(map, &error);
    const auto cpuRegression = cpu->prepareRegression(map, &error);
    ASSERT_TRUE(onGpu && onCpu && gpuResampler && cpuResampler && gpuRegression && cpuRegression) << error.toStdString();

    std::vector<quint16> samples(size_t(W) * sourceBands);
    for (quint16& x : samples)
        x = quint16(200 + rng() % 4000);
    const QVector<float> dark(W * bands, 100.0f), gain(W * bands, 0.01f);
    std::vector<quint16> scratch(size_t(W) * bands, 7);
    std::vector<float> want(size_t(W) * 2), got(want.size());
    ASSERT_TRUE(onCpu->stageResampled(samples.data(), *cpuResampler, scratch.data(), dark, gain));
    ASSERT_TRUE(cpuRegression->predictFrame(*onCpu, want.data()));

    // The camera's frame goes up once, is resampled and staged there, and nothing comes back.
    std::fill(scratch.begin(), scratch.end(), quint16(7));
    ASSERT_TRUE(onGpu->stageResampled(samples.data(), *gpuResampler, scratch.data(), dark, gain));
    const auto& resampler = dynamic_cast<const opencl::OpenClResampler&>(*gpuResampler);
    const auto& frame = dynamic_cast<const opencl::OpenClFrame&>(*onGpu);
    EXPECT_EQ(resampler.lastTraffic().toDevice, qint64(samples.size()) * 2);
    EXPECT_EQ(resampler.lastTraffic().toHost, 0);
    EXPECT_EQ(frame.lastTraffic().toDevice, 2 * qint64(W) * bands * 4); // the references, once
    EXPECT_EQ(frame.lastTraffic().toHost, 0);
    EXPECT_EQ(scratch, std::vector<quint16>(scratch.size(), 7));
    ASSERT_TRUE(gpuRegression->predictFrame(*onGpu, got.data()));
    for (size_t i = 0; i < want.size(); ++i)
        EXPECT_NEAR(got[i], want[i], 1e-4f * (1 + std::abs(want[i]))) << i;

    // A resampler of another device hands its frame over through the host.
    std::fill(got.begin(), got.end(), 0.0f);
    ASSERT_TRUE(onGpu->stageResampled(samples.data(), *cpuResampler, scratch.data(), dark, gain));
    EXPECT_NE(scratch, std::vector<quint16>(scratch.size(), 7));
    ASSERT_TRUE(gpuRegression->predictFrame(*onGpu, got.data()));
    for (size_t i = 0; i < want.size(); ++i)
        EXPECT_NEAR(got[i], want[i], 1e-4f * (1 + std::abs(want[i]))) << i;
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

TEST_F(OpenCl, SetDeviceOpensTheOpenClEntryForTheHandle)
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
    EXPECT_EQ(handleprobe::backend(h).device(), handleprobe::selectedDevice(h));
}

// Runs only in the ctest entry that points the OpenCL loader at an empty vendor
// directory, where it finds no platform.
TEST(OpenClWithoutPlatform, ListsNoOpenClEntryAndTheCpuStillClassifies)
{
    const QString vendors = qEnvironmentVariable("OCL_ICD_VENDORS");
    ASSERT_TRUE(!vendors.isEmpty() && QDir(vendors).exists() && QDir(vendors).isEmpty())
        << "needs OCL_ICD_VENDORS set to an empty directory (ctest entry opencl_absent)";
    EXPECT_EQ(availableBackends(), 1);
    EXPECT_TRUE(deviceNames(BackendOpenCl).isEmpty());
    QString error;
    EXPECT_EQ(openDevice(makeDevice(BackendOpenCl, 0), &error), nullptr);
    EXPECT_EQ(error, QStringLiteral("no OpenCL device 0"));

    TestHandle h;
    ASSERT_EQ(zelk_RefreshDeviceList(h, 1, 1), 0);
    ASSERT_GE(zelk_GetDeviceCount(h), 1);
    for (int i = 0; i < zelk_GetDeviceCount(h); ++i)
        EXPECT_TRUE(QString::fromLocal8Bit(zelk_GetDeviceName(h, i)).startsWith(QStringLiteral("CPU: ")));
    ASSERT_EQ(zelk_SetDevice(h, 0), 0);

    const auto k = handleprobe::backend(h).prepareClassifier(twoCentres(), nullptr);
    ASSERT_TRUE(k);
    std::vector<quint8> out(2, 99);
    const float pixels[] = {0, 0, 10, 0};
    ASSERT_TRUE(k->classify(pixels, SpectraLayout::BandsByPixels, 2, out.data()));
    EXPECT_EQ(out, (std::vector<quint8>{0, 1}));
}
