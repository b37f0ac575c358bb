// The library on the caller's threads: it starts no thread of its own, and several
// cameras, each a handle on a thread of its own, get exactly the results that the same
// work gives one handle at a time, while another thread loads models beside them.

#include "model_files.h"
#include "segment/object_record.h"
#include "soak_run.h"
#include "test_handle.h"

#include <QDir>
#include <atomic>
#include <functional>
#include <gtest/gtest.h>
#include <thread>
#include <vector>

using namespace modelfiles;

namespace {

int threadCount()
{
    return int(QDir(QStringLiteral("/proc/self/task")).entryList(QDir::Dirs | QDir::NoDotAndDotDot).size());
}

// What a camera's run hands back, all of it compared exactly.
struct Results {
    std::vector<quint8> decisions;
    std::vector<qint32> records;
    std::vector<float> values;
    bool operator==(const Results& o) const { return decisions == o.decisions && records == o.records && values == o.values; }
};

void keepObjects(ZelkHandle* h, int variables, Results& r)
{
    for (int i = 0; i < zelk_GetObjCount(h); ++i) {
        int* record = nullptr;
        ASSERT_EQ(zelk_GetObjDataInt(h, i, &record), 0);
        r.records.insert(r.records.end(), record, record + ObjectRecordInts);
        float* means = nullptr;
        if (variables > 0 && zelk_GetObjDataRegOutput(h, i, &means) == 0)
            r.values.insert(r.values.end(), means, means + variables);
    }
}

// A line-scan camera of the soak belt: `frames` frames from belt line `offset` on, with
// segmentation and, when the model has one, the regressor; every result is kept.
Results lineScan(const QByteArray& model, int frames, int offset)
{
    Results r;
    TestHandle h;
    EXPECT_EQ(zelk_LoadModel(h, model.constData()), 0) << zelk_GetErrorMsg(h);
    EXPECT_EQ(zelk_SetSegmentation(h, 1), 0);
    EXPECT_EQ(zelk_StartAcquisition(h), 0) << zelk_GetErrorMsg(h);
    const int variables = zelk_GetRegVarCount(h);
    static const std::vector<std::vector<float>> belt = soak::beltPattern();
    for (int i = 0; i < frames; ++i) {
        EXPECT_EQ(zelk_ProcessFrame(h, belt[size_t((i + offset) % soak::PatternLines)].data()), 0) << zelk_GetErrorMsg(h);
        const unsigned char* d = zelk_GetFrameDecisions(h);
        r.decisions.insert(r.decisions.end(), d, d + soak::Width);
        for (int v = 0; v < variables; ++v) {
            const float* out = zelk_GetFrameRegOutputVar(h, v, 1, -1.0f);
            r.values.insert(r.values.end(), out, out + soak::Width);
        }
        keepObjects(h, variables, r);
    }
    EXPECT_EQ(zelk_StopAcquisition(h), 0);
    return r;
}

// A snapshot camera: `cubes` float cubes of leaf blobs that move from cube to cube.
Results snapshot(const QByteArray& model, int cubes)
{
    constexpr int Width = 40, Height = 30, Bands = 4;
    Results r;
    TestHandle h;
    EXPECT_EQ(zelk_LoadModel(h, model.constData()), 0) << zelk_GetErrorMsg(h);
    EXPECT_EQ(zelk_SetInputDataLayout(h, 1), 0);
    EXPECT_EQ(zelk_SetSegmentation(h, 1), 0);
    EXPECT_EQ(zelk_StartAcquisition(h), 0) << zelk_GetErrorMsg(h);
    std::vector<float> cube(size_t(Width) * Height * Bands);
    for (int c = 0; c < cubes; ++c) {
        for (int y = 0; y < Height; ++y)
            for (int x = 0; x < Width; ++x) {
                float* s = &cube[(size_t(y) * Width + x) * Bands];
                s[0] = 50, s[2] = 70;
                s[1] = ((x + c) % 11 < 4 && (y + 2 * c) % 7 < 3) ? 10 : 0;
                s[3] = float((x + y) % 3);
            }
        EXPECT_EQ(zelk_ProcessCube(h, cube.data()), 0) << zelk_GetErrorMsg(h);
        const unsigned char* d = zelk_GetCubeDecisions(h);
        r.decisions.insert(r.decisions.end(), d, d + Width * Height);
        keepObjects(h, 0, r);
    }
    EXPECT_EQ(zelk_StopAcquisition(h), 0);
    return r;
}

struct Models {
    QTemporaryDir dir;
    QByteArray regression = soak::writeModel(dir).toLocal8Bit();
    QByteArray classification = writeModel(dir, lineScanProject(soak::Width), FileKind::Zelk, "lines").toLocal8Bit();
    QByteArray cube = writeModel(dir, snapshotProject(3, 0, 1, 40, 30), FileKind::Zelk, "cube").toLocal8Bit();
};

} // namespace

TEST(CallerThread, FramesAndCubesStartNoThread)
{
    Models m;
    const int before = threadCount();
    Results lines = lineScan(m.regression, 300, 0);
    EXPECT_EQ(threadCount(), before);
    Results cubes = snapshot(m.cube, 20);
    EXPECT_EQ(threadCount(), before);
    EXPECT_FALSE(lines.records.empty());
    EXPECT_FALSE(cubes.records.empty());
}

TEST(ManyCameras, HandlesOnTheirOwnThreadsGiveTheResultsOfOneAtATime)
{
    Models m;
    const std::vector<std::function<Results()>> cameras = {
        [&] { return lineScan(m.regression, 2000, 0); },
        [&] { return lineScan(m.regression, 2000, 17); },
        [&] { return lineScan(m.classification, 2000, 5); },
        [&] { return snapshot(m.cube, 200); },
    };
    std::vector<Results> alone;
    for (const auto& camera : cameras)
        alone.push_back(camera());
    for (const Results& r : alone)
        ASSERT_FALSE(r.records.empty());

    // The same cameras at once, while another handle loads and releases models.
    std::vector<Results> together(cameras.size());
    std::atomic<bool> done{false};
    std::atomic<int> loads{0};
    std::thread loader([&] {
        while (!done) {
            TestHandle h;
            EXPECT_EQ(zelk_LoadModel(h, (loads % 2 ? m.cube : m.regression).constData()), 0) << zelk_GetErrorMsg(h);
            ++loads;
        }
    });
    std::vector<std::thread> threads;
    for (size_t i = 0; i < cameras.size(); ++i)
        threads.emplace_back([&, i] { together[i] = cameras[i](); });
    for (std::thread& t : threads)
        t.join();
    done = true;
    loader.join();
    EXPECT_GT(loads, 0);
    for (size_t i = 0; i < cameras.size(); ++i)
        EXPECT_TRUE(together[i] == alone[i]) << "camera " << i;
}
