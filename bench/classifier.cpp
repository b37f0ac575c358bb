// Classifier kernel speed on two reference workloads, beside the BLAS's own rate.
//   W1: line-scan frames of 640 pixels, 112 bands, F = 24, K = 200, C = 5, rejection on.
//   Cube: 512 x 512 pixels, 25 bands, F = 10, K = 100, C = 4.

#include "compute/cpu/cpu_classifier.h"
#include "compute/cpu/reference_classifier.h"

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

// Runs the kernel on `blocks` for about a second; returns blocks per second.
double rate(ClassifierKernel& kernel, const std::vector<float>& spectra, SpectraLayout layout, int n, std::vector<quint8>& out)
{
    int reps = 0;
    const double start = seconds();
    while (seconds() - start < 1.0 || reps < 3) {
        kernel.classify(spectra.data(), layout, n, out.data());
        ++reps;
    }
    return reps / (seconds() - start);
}

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
    const double fastRate = rate(fast, spectra, layout, n, out);
    std::printf("%-5s cpu kernel   %10.1f blocks/s %12.3f Mpixel/s %8.1f GFLOP/s\n", name, fastRate, fastRate * n / 1e6,
                fastRate * modelFlops(model, n) / 1e9);
    if (withReference) {
        cpu::ReferenceClassifier plain(model);
        const double plainRate = rate(plain, spectra, layout, n, out);
        std::printf("%-5s reference    %10.1f blocks/s %12.3f Mpixel/s %8.1f GFLOP/s   (kernel %.1fx faster)\n", name, plainRate,
                    plainRate * n / 1e6, plainRate * modelFlops(model, n) / 1e9, fastRate / plainRate);
    }
}

} // namespace

int main()
{
    std::printf("OpenBLAS sgemm 512^3: %.1f GFLOP/s\n", sgemmRate());
    workload("W1", 640, 112, 24, 200, 5, true, SpectraLayout::PixelsByBands, true);
    workload("cube", 512 * 512, 25, 10, 100, 4, false, SpectraLayout::BandsByPixels, false);
    return 0;
}
