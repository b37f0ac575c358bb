// Classifier kernel speed on two reference workloads, beside the BLAS's own rate.
//   W1: line-scan frames of 640 pixels, 112 bands, F = 24, K = 200, C = 5, rejection on.
//   Cube: 512 x 512 pixels, 25 bands, F = 10, K = 100, C = 4.
// Where the build has the OpenCL backend, the same workloads run on the first OpenCL
// device too, with the bytes that one block moves between host and device.

#include "compute/cpu/cpu_classifier.h"
#include "compute/cpu/reference_classifier.h"
#ifdef ZELK_WITH_OPENCL
#include "compute/backend.h"
#include "compute/device.h"
#include "compute/opencl/opencl_classifier.h"
#endif

#include <cblas.h>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <random>
#include <vector>

using namespace compute;

namespace {

double seconds()
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

ClassifierModel randomModel(int B, int F, int K, int C, bool reject, std::mt19937& rng)
{
    std::normal_distribution<float> g(0, 1);
    ClassifierModel m;
    m.bands = B, m.features = F, m.units = K, m.classes = C;
    auto fill = [&](QVector<float>& v, int n, float scale) {
        v.resize(n);
        for (float& x : v)
            x = g(rng) * scale;
    };
    fill(m.matrix, B * F, 1.0f / std::sqrt(float(B)));
    fill(m.offset, F, 0.1f);
    fill(m.centres, F * K, 1.0f);
    m.gammas = QVector<float>(K, -0.05f);
    fill(m.weights, (K + 1) * C, 1.0f);
    if (reject)
        m.thresholds = QVector<float>(C, -1.0f);
    return m;
}

double modelFlops(const ClassifierModel& m, double pixels)
{
    return 2.0 * pixels * (double(m.bands) * m.features + double(m.features) * m.units + double(m.units) * m.classes);
}

double sgemmRate()
{
    const int n = 512;
    std::vector<float> a(size_t(n) * n, 0.5f), b(size_t(n) * n, 0.25f), c(size_t(n) * n);
    int reps = 0;
    const double start = seconds();
    while (seconds() - start < 1.0 || reps < 3) {
        cblas_sgemm(CblasColMajor, CblasNoTrans, CblasNoTrans, n, n, n, 1.0f, a.data(), n, b.data(), n, 0.0f, c.data(), n);
        ++reps;
    }
    return 2.0 * n * n * n * reps / (seconds() - start) / 1e9;
}

// Runs `block` for about a second, at least three times; returns blocks per second.
template <typename Block>
double rate(Block block)
{
    int reps = 0;
    const double start = seconds();
    while (seconds() - start < 1.0 || reps < 3) {
        block();
        ++reps;
    }
    return reps / (seconds() - start);
}

void report(const char* name, const char* kernel, double blocksPerSecond, int n, const ClassifierModel& model)
{
    std::printf("%-5s %-12s %10.1f blocks/s %12.3f Mpixel/s %8.1f GFLOP/s", name, kernel, blocksPerSecond,
                blocksPerSecond * n / 1e6, blocksPerSecond * modelFlops(model, n) / 1e9);
}

#ifdef ZELK_WITH_OPENCL
// The workload on the first OpenCL device: float spectra as the CPU kernel gets them,
// then 16-bit camera samples of twice the bands, of which the device selects the
// model's and corrects them per pixel.
void openClWorkload(const char* name, const ClassifierModel& model, const std::vector<float>& spectra, SpectraLayout layout,
                    int n, double cpuRate, std::mt19937& rng)
{
    QString error = QStringLiteral("no OpenCL device");
    const std::shared_ptr<Backend> device = openDevice(makeDevice(BackendOpenCl, 0));
    std::unique_ptr<ClassifierKernel> kernel = device ? device->prepareClassifier(model, &error) : nullptr;
    auto* cl = dynamic_cast<opencl::OpenClClassifier*>(kernel.get());
    if (!cl || !cl->reserve(n)) {
        std::printf("%-5s opencl       not run: %s\n", name, (cl ? cl->lastError() : error).toLocal8Bit().constData());
        return;
    }
    std::vector<quint8> out(static_cast<size_t>(n));
    const double floatRate = rate([&] { cl->classify(spectra.data(), layout, n, out.data()); });
    report(name, "opencl f32", floatRate, n, model);
    std::printf("   (cpu %.1fx faster) %lld B in, %lld B out a block\n", cpuRate / floatRate, cl->lastTraffic().toDevice,
                cl->lastTraffic().toHost);

    const int B = model.bands, cameraBands = 2 * B;
    InputStage stage;
    for (int b = 0; b < B; ++b)
        stage.bands.append(2 * b + 1);
    stage.width = n;
    stage.dark = QVector<float>(n * B, 100.0f);
    stage.gain = QVector<float>(n * B, 0.001f);
    cl->setInputStage(stage);
    std::vector<quint16> samples(size_t(n) * size_t(cameraBands));
    for (quint16& x : samples)
        x = quint16(100 + rng() % 4000);
    const SampleBlock block{samples.data(), SampleType::U16, layout, n, cameraBands};
    const double rawRate = rate([&] { cl->classifySamples(block, out.data()); });
    report(name, "opencl u16", rawRate, n, model);
    std::printf("   (%d camera bands, corrected on the device) %lld B in, %lld B out a block\n", cameraBands,
                cl->lastTraffic().toDevice, cl->lastTraffic().toHost);
}
#endif

void workload(const char* name, int n, int B, int F, int K, int C, bool reject, SpectraLayout layout, bool withReference)
{
    std::mt19937 rng(1);
    const ClassifierModel model = randomModel(B, F, K, C, reject, rng);
    std::normal_distribution<float> g(0, 1);
    std::vector<float> spectra(size_t(n) * B);
    for (float& x : spectra)
        x = g(rng);
    std::vector<quint8> out(static_cast<size_t>(n));

    cpu::CpuClassifier fast(model);
    const double fastRate = rate([&] { fast.classify(spectra.data(), layout, n, out.data()); });
    report(name, "cpu kernel", fastRate, n, model);
    std::printf("\n");
    if (withReference) {
        cpu::ReferenceClassifier plain(model);
        const double plainRate = rate([&] { plain.classify(spectra.data(), layout, n, out.data()); });
        report(name, "reference", plainRate, n, model);
        std::printf("   (kernel %.1fx faster)\n", fastRate / plainRate);
    }
#ifdef ZELK_WITH_OPENCL
    openClWorkload(name, model, spectra, layout, n, fastRate, rng);
#endif
}

} // namespace

int main()
{
    std::printf("OpenBLAS sgemm 512^3: %.1f GFLOP/s\n", sgemmRate());
#ifdef ZELK_WITH_OPENCL
    if (backendAvailable(BackendOpenCl))
        std::printf("device 0 of %s\n", deviceNames(BackendOpenCl).value(0).toLocal8Bit().constData());
#endif
    workload("W1", 640, 112, 24, 200, 5, true, SpectraLayout::PixelsByBands, true);
    workload("cube", 512 * 512, 25, 10, 100, 4, false, SpectraLayout::BandsByPixels, false);
    return 0;
}
