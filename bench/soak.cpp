// The long soak: line-scan frames of 64 pixels through classification, regression and
// segmentation with every result read, then whole lives of a handle; the resident size
// is sampled twenty times in each part. The verdict: after a warm-up of a tenth of each
// part, no sample more than 1 MB (frames) or 4 MB (lives) above the first one.
//   bench_soak [FRAMES [CYCLES]]   (defaults 1000000 and 1000)

#include "tests/soak_run.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>

namespace {

double seconds()
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

bool verdict(const char* part, const std::vector<soak::Sample>& samples, qint64 warmup, qint64 tolerance)
{
    const qint64 rise = soak::rise(samples, warmup);
    const bool flat = rise >= 0 && rise <= tolerance;
    std::printf("%s: rise after warm-up %lld bytes (tolerance %lld): %s\n", part, static_cast<long long>(rise),
                static_cast<long long>(tolerance), flat ? "flat" : "GROWING");
    return flat;
}

} // namespace

int main(int argc, char** argv)
{
    const qint64 frames = argc > 1 ? std::atoll(argv[1]) : 1000000;
    const qint64 cycles = argc > 2 ? std::atoll(argv[2]) : 1000;
    if (frames < 20 || cycles < 20) {
        std::fprintf(stderr, "usage: bench_soak [FRAMES [CYCLES]], each at least 20\n");
        return 2;
    }
    QTemporaryDir dir;
    const QByteArray model = soak::writeModel(dir).toLocal8Bit();
    soak::Run run;
    std::vector<soak::Sample> samples;
    const auto sample = [&](qint64 step) {
        samples.push_back({step, soak::residentBytes()});
        std::printf("  %10lld  RSS %8.2f MB\n", static_cast<long long>(step), double(samples.back().bytes) / (1 << 20));
        std::fflush(stdout);
    };

    std::printf("frames (%d pixels, %d bands, regression and segmentation on), resident size:\n", soak::Width, soak::Bands);
    ZelkHandle* h = zelk_Init(nullptr);
    if (zelk_LoadModel(h, model.constData()) != 0 || zelk_SetSegmentation(h, 1) != 0 || zelk_StartAcquisition(h) != 0) {
        std::fprintf(stderr, "cannot start: %s\n", zelk_GetErrorMsg(h));
        return 1;
    }
    double t0 = seconds();
    soak::feed(h, frames, frames / 20, sample, &run);
    const double frameSeconds = seconds() - t0;
    zelk_StopAcquisition(h);
    zelk_Release(h);
    std::printf("%lld frames in %.1f s: %.0f frames/s, %lld objects, %lld failed calls\n", static_cast<long long>(run.frames),
                frameSeconds, double(run.frames) / frameSeconds, static_cast<long long>(run.objects),
                static_cast<long long>(run.failures));
    const bool framesFlat = verdict("frames", samples, frames / 10, 1 << 20);

    std::printf("lives of a handle (load, start, 45 frames, stop, release), resident size:\n");
    samples.clear();
    const qint64 failedBefore = run.failures;
    t0 = seconds();
    for (qint64 c = 1; c <= cycles; ++c) {
        soak::cycle(model, &run);
        if (c % (cycles / 20) == 0)
            sample(c);
    }
    const double cycleSeconds = seconds() - t0;
    std::printf("%lld lives in %.1f s: %.1f ms each, %lld failed calls\n", static_cast<long long>(cycles), cycleSeconds,
                1000 * cycleSeconds / double(cycles), static_cast<long long>(run.failures - failedBefore));
    const bool cyclesFlat = verdict("lives", samples, cycles / 10, 4 << 20);

    const bool pass = framesFlat && cyclesFlat && run.failures == 0;
    std::printf("verdict: %s\n", pass ? "PASS" : "FAIL");
    return pass ? 0 : 1;
}
