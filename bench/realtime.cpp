// What one frame or cube costs on the caller's thread, through the C interface: the
// reference workloads of workloads.h with segmentation on, every result read. One run
// prints one line of JSON, for bench/realtime.py to gather over rounds:
//   bench_realtime w1 FRAMES [LEVEL]   frames/s and latencies of W1 frames, with the CPU
//                                loops of one instruction-set level (baseline, v3, v4)
//                                instead of the processor's best
//   bench_realtime w1-same FRAMES   the same with one frame handed in again and again:
//                                identical work every time, so its spread is the machine's
//   bench_realtime sgemm-steady N   N sgemm calls of about a W1 frame's cost, each timed:
//                                the machine's spread without the library
//   bench_realtime gaps MS       the clock read again and again for MS milliseconds: the
//                                gaps longer than 50 µs, when the core was not this program's
//   bench_realtime cube CUBES    the same for cubes
//   bench_realtime sgemm         the BLAS's single-thread sgemm rate, GFLOP/s
//   bench_realtime cameras N FRAMES   W1 on N handles, each on a thread of its own,
//                                beside one handle alone: the frames/s of both
//   bench_realtime export DIR    the workloads' networks and data as raw files, for the
//                                references that redo the arithmetic in numpy and PyTorch
// Heap allocations are counted by wrapping the C library's allocator in this program
// (counting_allocator.h).

#include "tests/counting_allocator.h"
#include "workloads.h"
#include "compute/cpu/vector_math.h"
#include "zelk.h"

#include <QDir>
#include <thread>
#include <QFile>
#include <algorithm>
#include <cblas.h>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

double percentile(std::vector<double> v, double q)
{
    std::sort(v.begin(), v.end());
    return v[std::min(v.size() - 1, size_t(q * double(v.size() - 1) + 0.5))];
}

double modelFlops(const workloads::Network& n, double pixels)
{
    return 2.0 * pixels * (double(n.bands) * n.features + double(n.features) * n.units + double(n.units) * n.classes);
}

// Loads the workload's model file and starts it with segmentation on; null on failure.
ZelkHandle* start(const QString& modelPath, const workloads::Workload& w)
{
    ZelkHandle* h = zelk_Init(nullptr);
    if (zelk_LoadModel(h, modelPath.toLatin1().constData()) != 0 || zelk_SetInputDataLayout(h, w.layout) != 0
        || zelk_SetSegmentation(h, 1) != 0 || zelk_StartAcquisition(h) != 0) {
        std::fprintf(stderr, "cannot start: %s\n", zelk_GetErrorMsg(h));
        zelk_Release(h);
        return nullptr;
    }
    return h;
}

// Feeds `count` units after the library's warm-up, each timed alone, every result read.
int run(const char* name, const workloads::Workload& w, int count, bool cubes, bool sameUnit = false)
{
    QTemporaryDir dir;
    ZelkHandle* h = start(modelfiles::writeModel(dir, w.project), w);
    if (!h)
        return 1;
    long long objects = 0;
    auto feed = [&](int i) {
        const quint16* data = w.data.data() + size_t(sameUnit ? 0 : i % w.units) * w.unitSamples;
        const int r = cubes ? zelk_ProcessCube(h, data) : zelk_ProcessFrame(h, data);
        if (r != 0) {
            std::fprintf(stderr, "%s %d failed: %s\n", cubes ? "cube" : "frame", i, zelk_GetErrorMsg(h));
            return false;
        }
        const unsigned char* d = cubes ? zelk_GetCubeDecisions(h) : zelk_GetFrameDecisions(h);
        const int n = zelk_GetObjCount(h);
        for (int k = 0; k < n; ++k) {
            int* record = nullptr;
            zelk_GetObjDataInt(h, k, &record);
        }
        objects += n;
        return d != nullptr;
    };
    const int warmup = cubes ? 3 : 600; // past the library's own 500 warm-up frames
    for (int i = 0; i < warmup; ++i)
        if (!feed(i))
            return 1;
    objects = 0;
    std::vector<double> latencies(static_cast<size_t>(count));
    const long long allocationsBefore = heapAllocations();
    const Clock::time_point begin = Clock::now();
    for (int i = 0; i < count; ++i) {
        const Clock::time_point t = Clock::now();
        if (!feed(i))
            return 1;
        latencies[size_t(i)] = std::chrono::duration<double>(Clock::now() - t).count();
    }
    const double seconds = std::chrono::duration<double>(Clock::now() - begin).count();
    const long long allocated = heapAllocations() - allocationsBefore;
    zelk_StopAcquisition(h);
    zelk_Release(h);
    const double rate = count / seconds;
    const double p50 = percentile(latencies, 0.5);
    const auto slowest = std::max_element(latencies.begin(), latencies.end());
    const long long beyondFive = std::count_if(latencies.begin(), latencies.end(), [&](double t) { return t > 5 * p50; });
    std::printf("{\"workload\": \"%s\", \"units\": %d, \"per_second\": %.3f, \"mpixel_per_second\": %.4f, "
                "\"gflops\": %.3f, \"p50_us\": %.2f, \"p99_us\": %.2f, \"p999_us\": %.2f, \"max_us\": %.2f, "
                "\"slowest_at\": %lld, \"beyond_5x_p50\": %lld, \"allocations_per_unit\": %.4f, \"objects\": %lld}\n",
                name, count, rate, rate * w.pixels / 1e6, rate * modelFlops(w.network, w.pixels) / 1e9,
                1e6 * p50, 1e6 * percentile(latencies, 0.99), 1e6 * percentile(latencies, 0.999),
                1e6 * *slowest, (long long)(slowest - latencies.begin()), beyondFive, double(allocated) / count, objects);
    return 0;
}

// W1 frames through one started handle as fast as they go; frames/s.
double feedW1(const workloads::Workload& w, const QString& modelPath, int count)
{
    ZelkHandle* h = start(modelPath, w);
    if (!h)
        return 0;
    for (int i = 0; i < 600; ++i) // past the warm-up
        zelk_ProcessFrame(h, w.data.data() + size_t(i % w.units) * w.unitSamples);
    const Clock::time_point begin = Clock::now();
    for (int i = 0; i < count; ++i) {
        zelk_ProcessFrame(h, w.data.data() + size_t(i % w.units) * w.unitSamples);
        zelk_GetObjCount(h);
    }
    const double rate = count / std::chrono::duration<double>(Clock::now() - begin).count();
    zelk_Release(h);
    return rate;
}

int cameras(int n, int count)
{
    const workloads::Workload w = workloads::w1();
    QTemporaryDir dir;
    const QString modelPath = modelfiles::writeModel(dir, w.project); // written once, loaded by every handle
    const double alone = feedW1(w, modelPath, count);
    std::vector<double> rates(static_cast<size_t>(n));
    std::vector<std::thread> threads;
    const Clock::time_point begin = Clock::now();
    for (int i = 0; i < n; ++i)
        threads.emplace_back([&, i] { rates[size_t(i)] = feedW1(w, modelPath, count); });
    for (std::thread& t : threads)
        t.join();
    const double wall = std::chrono::duration<double>(Clock::now() - begin).count();
    double sum = 0;
    for (double r : rates) {
        if (r == 0 || alone == 0)
            return 1; // a handle that did not start has said why
        sum += r;
    }
    std::printf("{\"workload\": \"cameras\", \"handles\": %d, \"one_handle_per_second\": %.1f, "
                "\"all_handles_per_second\": %.1f, \"by_wall_clock\": %.1f, \"scaling\": %.3f}\n",
                n, alone, sum, n * count / wall, sum / alone);
    return 0;
}

// N sgemm calls of 200 x 200 (16 MFLOP, about one W1 frame), each timed alone.
int sgemmSteady(int count)
{
    const int n = 200;
    std::vector<float> a(size_t(n) * n, 0.5f), b(size_t(n) * n, 0.25f), c(size_t(n) * n);
    std::vector<double> latencies(static_cast<size_t>(count), 0.0);
    const Clock::time_point begin = Clock::now();
    for (int i = -200; i < count; ++i) { // the first 200 warm the caches
        const Clock::time_point t = Clock::now();
        cblas_sgemm(CblasColMajor, CblasNoTrans, CblasNoTrans, n, n, n, 1.0f, a.data(), n, b.data(), n, 0.0f, c.data(), n);
        if (i >= 0)
            latencies[size_t(i)] = std::chrono::duration<double>(Clock::now() - t).count();
    }
    const double seconds = std::chrono::duration<double>(Clock::now() - begin).count();
    const double p50 = percentile(latencies, 0.5);
    const double slowest = *std::max_element(latencies.begin(), latencies.end());
    const long long beyondFive = std::count_if(latencies.begin(), latencies.end(), [&](double t) { return t > 5 * p50; });
    std::printf("{\"workload\": \"sgemm-steady\", \"units\": %d, \"per_second\": %.3f, \"p50_us\": %.2f, \"p99_us\": %.2f, "
                "\"p999_us\": %.2f, \"max_us\": %.2f, \"beyond_5x_p50\": %lld}\n",
                count, (count + 200) / seconds, 1e6 * p50, 1e6 * percentile(latencies, 0.99), 1e6 * percentile(latencies, 0.999),
                1e6 * slowest, beyondFive);
    return 0;
}

// Reads the clock for `milliseconds` and notes every gap between two readings longer
// than 50 µs: the times the core was taken away from a program that does no work at all.
int clockGaps(int milliseconds)
{
    std::vector<double> gaps;
    Clock::time_point last = Clock::now();
    const Clock::time_point end = last + std::chrono::milliseconds(milliseconds);
    while (last < end) {
        const Clock::time_point t = Clock::now();
        const double gap = std::chrono::duration<double>(t - last).count();
        if (gap > 50e-6)
            gaps.push_back(gap);
        last = t;
    }
    const double longest = gaps.empty() ? 0.0 : *std::max_element(gaps.begin(), gaps.end());
    std::printf("{\"workload\": \"gaps\", \"milliseconds\": %d, \"gaps_over_50_us\": %zu, \"longest_us\": %.1f}\n", milliseconds,
                gaps.size(), 1e6 * longest);
    return 0;
}

int sgemm()
{
    const int n = 512;
    std::vector<float> a(size_t(n) * n, 0.5f), b(size_t(n) * n, 0.25f), c(size_t(n) * n);
    int reps = 0;
    const Clock::time_point begin = Clock::now();
    double seconds = 0;
    while (seconds < 1.0 || reps < 3) {
        cblas_sgemm(CblasColMajor, CblasNoTrans, CblasNoTrans, n, n, n, 1.0f, a.data(), n, b.data(), n, 0.0f, c.data(), n);
        ++reps;
        seconds = std::chrono::duration<double>(Clock::now() - begin).count();
    }
    std::printf("{\"workload\": \"sgemm\", \"gflops\": %.3f}\n", 2.0 * n * n * n * reps / seconds / 1e9);
    return 0;
}

template <typename T>
bool writeRaw(const QString& path, const std::vector<T>& v)
{
    QFile f(path);
    return f.open(QIODevice::WriteOnly)
           && f.write(reinterpret_cast<const char*>(v.data()), qint64(v.size() * sizeof(T))) == qint64(v.size() * sizeof(T));
}

// DIR/NAME.json with the sizes, and one raw little-endian file per array beside it.
bool exportWorkload(const QDir& dir, const char* name, const workloads::Workload& w, const char* layout)
{
    const workloads::Network& n = w.network;
    const QString base = dir.filePath(QLatin1String(name));
    const bool arrays = writeRaw(base + ".bands.i32", n.selectedBands) && writeRaw(base + ".matrix.f32", n.matrix)
                        && writeRaw(base + ".offset.f32", n.offset) && writeRaw(base + ".centres.f32", n.centres)
                        && writeRaw(base + ".gammas.f32", n.gammas) && writeRaw(base + ".weights.f32", n.weights)
                        && writeRaw(base + ".thresholds.f32", n.thresholds) && writeRaw(base + ".data.u16", w.data);
    QFile meta(base + ".json");
    if (!arrays || !meta.open(QIODevice::WriteOnly))
        return false;
    meta.write(QStringLiteral("{\"bands\": %1, \"features\": %2, \"units\": %3, \"classes\": %4, \"pixels\": %5, "
                              "\"count\": %6, \"camera_bands\": %7, \"layout\": \"%8\"}\n")
                   .arg(n.bands).arg(n.features).arg(n.units).arg(n.classes).arg(w.pixels).arg(w.units)
                   .arg(qint64(w.unitSamples) / w.pixels).arg(QLatin1String(layout)).toUtf8());
    return true;
}

} // namespace

int main(int argc, char** argv)
{
    const QString what = argc > 1 ? QString::fromLocal8Bit(argv[1]) : QString();
    const int count = argc > 2 ? std::atoi(argv[2]) : 0;
    if (what == QLatin1String("w1") && count > 0 && argc > 3) {
        using compute::cpu::VectorLevel;
        const QString level = QString::fromLocal8Bit(argv[3]);
        const VectorLevel wanted = level == QLatin1String("v4") ? VectorLevel::V4
                                   : level == QLatin1String("v3") ? VectorLevel::V3
                                                                  : VectorLevel::Baseline;
        if ((level != QLatin1String("baseline") && wanted == VectorLevel::Baseline) || !compute::cpu::useVectorLevel(wanted)) {
            std::fprintf(stderr, "this build or processor cannot run level %s\n", argv[3]);
            return 2;
        }
    }
    if (what == QLatin1String("w1") && count > 0)
        return run("w1", workloads::w1(), count, false);
    if (what == QLatin1String("w1-same") && count > 0)
        return run("w1-same", workloads::w1(), count, false, true);
    if (what == QLatin1String("cube") && count > 0)
        return run("cube", workloads::cube(), count, true);
    if (what == QLatin1String("sgemm-steady") && count > 0)
        return sgemmSteady(count);
    if (what == QLatin1String("sgemm"))
        return sgemm();
    if (what == QLatin1String("gaps") && count > 0)
        return clockGaps(count);
    if (what == QLatin1String("cameras") && count > 0 && argc > 3)
        return cameras(count, std::atoi(argv[3]));
    if (what == QLatin1String("export") && argc > 2) {
        const QDir dir(QString::fromLocal8Bit(argv[2]));
        if (!dir.mkpath(QStringLiteral(".")) || !exportWorkload(dir, "w1", workloads::w1(), "bil")
            || !exportWorkload(dir, "cube", workloads::cube(), "bip")) {
            std::fprintf(stderr, "cannot write into %s\n", argv[2]);
            return 1;
        }
        return 0;
    }
    std::fprintf(stderr, "usage: bench_realtime w1 FRAMES [baseline|v3|v4] | w1-same FRAMES | sgemm-steady N | gaps MS | cube CUBES | sgemm | cameras N FRAMES | export DIR\n");
    return 2;
}
