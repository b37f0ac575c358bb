#pragma once
// The long runs of the soak test and its benchmark: line-scan frames through
// classification, regression and segmentation with every result read, and whole
// lives of a handle (load, start, frames, stop, release). Memory is sampled as they go,
// and judged flat when, after a warm-up, no sample lies more than a tolerance above the
// first sample after the warm-up.

#include "model_files.h"
#include "zelk.h"

#include <QFile>
#include <functional>
#include <unistd.h>
#include <vector>

namespace soak {

constexpr int Width = 64, Bands = 4, PatternLines = 40;

// Resident bytes of the process, from /proc/self/statm.
inline qint64 residentBytes()
{
    QFile statm(QStringLiteral("/proc/self/statm"));
    if (!statm.open(QIODevice::ReadOnly))
        return -1;
    const QList<QByteArray> fields = statm.readAll().split(' ');
    return fields.size() > 1 ? fields[1].toLongLong() * sysconf(_SC_PAGESIZE) : -1;
}

struct Sample {
    qint64 step; // frames or cycles done
    qint64 bytes;
};

// A stretch of belt, repeated: leaf blobs of a few pixels (band 1 at 10) of several
// sizes at several columns, so that objects start, merge and finish all the time.
inline std::vector<std::vector<float>> beltPattern()
{
    std::vector<std::vector<float>> lines(PatternLines, std::vector<float>(Width * Bands, 0.0f));
    for (int l = 0; l < PatternLines; ++l) {
        std::vector<float>& f = lines[size_t(l)];
        for (int c = 0; c < Width; ++c) {
            f[size_t(3 * Width + c)] = float((c + l) % 4); // a value the regressor reads
            const bool blob = (l % 10 < 3 + c % 4) && (c % 9 < 2 + l % 3);
            if (blob)
                f[size_t(1 * Width + c)] = 10;
        }
    }
    return lines;
}

struct Run {
    qint64 frames = 0;
    qint64 objects = 0;
    qint64 failures = 0; // calls that returned an error
};

// `frames` frames into a running acquisition, reading every result after each; calls
// `sample` every `every` frames with the number done.
inline void feed(ZelkHandle* h, qint64 frames, qint64 every, const std::function<void(qint64)>& sample, Run* run)
{
    static const std::vector<std::vector<float>> belt = beltPattern();
    for (qint64 i = 0; i < frames; ++i) {
        if (zelk_ProcessFrame(h, belt[size_t(run->frames % PatternLines)].data()) != 0)
            ++run->failures;
        ++run->frames;
        if (!zelk_GetFrameDecisions(h) || !zelk_GetFrameRegOutputVar(h, 1, 1, -1.0f))
            ++run->failures;
        const int n = zelk_GetObjCount(h);
        for (int k = 0; k < n; ++k) {
            int* record = nullptr;
            float* means = nullptr;
            if (zelk_GetObjDataInt(h, k, &record) != 0 || zelk_GetObjDataRegOutput(h, k, &means) != 0)
                ++run->failures;
        }
        run->objects += qMax(0, n);
        if (every > 0 && (i + 1) % every == 0)
            sample(i + 1);
    }
}

// One life of a handle: the model at `path` loaded, segmentation on, a run of 45 frames
// (two finishing passes), stopped and released.
inline void cycle(const QByteArray& path, Run* run)
{
    ZelkHandle* h = zelk_Init(nullptr);
    if (zelk_LoadModel(h, path.constData()) != 0 || zelk_SetSegmentation(h, 1) != 0 || zelk_StartAcquisition(h) != 0)
        ++run->failures;
    feed(h, 45, 0, {}, run);
    if (zelk_StopAcquisition(h) != 0)
        ++run->failures;
    zelk_Release(h);
}

// The largest rise over the first sample after `warmup` steps; -1 without such samples.
inline qint64 rise(const std::vector<Sample>& samples, qint64 warmup)
{
    qint64 base = -1, top = -1;
    for (const Sample& s : samples) {
        if (s.step <= warmup)
            continue;
        if (base < 0)
            base = s.bytes;
        top = std::max(top, s.bytes);
    }
    return base < 0 ? -1 : top - base;
}

// The model of the runs: line-scan with a regressor of two variables.
inline QString writeModel(const QTemporaryDir& dir)
{
    return modelfiles::writeModel(dir, modelfiles::regressionProject(Width, 2));
}

} // namespace soak
