// Snapshot runs through the C interface: the three forms in which cameras hand in
// cubes, the region of interest, the objects of both masks, and the refusals.

#include "model_files.h"
#include "runtime/handle_probe.h"
#include "test_handle.h"

#include <QtEndian>
#include <gtest/gtest.h>
#include <vector>

using namespace modelfiles;

namespace {

constexpr int Width = 8, Height = 6, Bands = 4;

// 'L' marks a pixel whose band 1 is 10 ("leaf", code 1); all others are "bg" (code 0).
const char* const Picture[Height] = {
    "........",
    ".LL.....",
    ".LL...L.",
    "......L.",
    "L.......",
    "........",
};

bool leafAt(int pixel)
{
    return Picture[pixel / Width][pixel % Width] == 'L';
}

QByteArray expectedDecisions()
{
    QByteArray d(Width * Height, 0);
    for (int i = 0; i < d.size(); ++i)
        d[i] = char(leafAt(i) ? 1 : 0);
    return d;
}

// Pixel after pixel; bands 0 and 2 carry values that the classifier must not read.
template <typename T>
std::vector<T> bipCube()
{
    std::vector<T> cube(Width * Height * Bands, T(0));
    for (int i = 0; i < Width * Height; ++i) {
        cube[i * Bands + 0] = T(50);
        cube[i * Bands + 1] = T(leafAt(i) ? 10 : 0);
        cube[i * Bands + 2] = T(70);
    }
    return cube;
}

// The camera's form: big-endian, band after band, band 1 of the stored order in file
// plane 3 at half its value (gain 2), band 3 in plane 2 (gain 0, so its noise vanishes).
const QVector<double> FileOrder{2, 0, 3, 1}, Gains{1, 2, 1, 0};
std::vector<quint16> bigEndianCube(bool gained)
{
    std::vector<quint16> cube(Width * Height * Bands, 0);
    for (int i = 0; i < Width * Height; ++i) {
        const quint16 leaf = leafAt(i) ? (gained ? 5 : 10) : 0, noise = gained ? 999 : 0;
        const quint16 plane[Bands] = {40, 60, noise, leaf};
        for (int b = 0; b < Bands; ++b)
            qToBigEndian<quint16>(plane[b], &cube[b * Width * Height + i]);
    }
    return cube;
}

// The project of a camera type, with the stored band order and gains of type 8.
Project cameraProject(int type, int acqType = 0, int objMask = 1)
{
    Project p = snapshotProject(type, acqType, objMask, Width, Height);
    if (type == 8)
        p.images[0].tailVectors = {QVector<double>{1000, 900, 1200, 1100}, FileOrder, Gains};
    return p;
}

struct CubeRun {
    QTemporaryDir dir;
    TestHandle h;
    // `device`: an entry of the list with the OpenCL devices, else the default CPU.
    // `ranBefore`: a project whose run of 16-bit cubes comes first; the handle keeps
    // the sample type of its first start.
    explicit CubeRun(const Project& p, int device = -1, const Project* ranBefore = nullptr)
    {
        if (device >= 0) {
            EXPECT_EQ(zelk_RefreshDeviceList(h, 0, 1), 0);
            EXPECT_EQ(zelk_SetDevice(h, device), 0);
        }
        if (ranBefore) {
            EXPECT_EQ(zelk_LoadModel(h, writeModel(dir, *ranBefore, FileKind::Zelk, QStringLiteral("before")).toLatin1()), 0);
            EXPECT_EQ(zelk_StartAcquisition(h), 0) << zelk_GetErrorMsg(h);
            EXPECT_EQ(zelk_StopAcquisition(h), 0);
        }
        EXPECT_EQ(zelk_LoadModel(h, writeModel(dir, p).toLatin1()), 0);
    }
    operator ZelkHandle*() const { return h.h; }
    QByteArray decisions() const
    {
        const unsigned char* d = zelk_GetCubeDecisions(h);
        return d ? QByteArray(reinterpret_cast<const char*>(d), Width * Height) : QByteArray();
    }
    std::vector<qint32> record(int i) const
    {
        int* r = nullptr;
        EXPECT_EQ(zelk_GetObjDataInt(h, i, &r), 0);
        return r ? std::vector<qint32>(r, r + 11) : std::vector<qint32>();
    }
};

} // namespace

TEST(CubePath, EachFormGivesTheDecisions)
{
    const auto floats = bipCube<float>();
    const auto counts = bipCube<quint16>();
    const auto swapped = bigEndianCube(true);
    const auto ungained = bigEndianCube(false);
    const struct {
        const char* name;
        int type, acqType;
        const void* cube;
        bool after16Bit; // a run of 16-bit cubes came first, where the project's type is float
        bool gains = true;
    } forms[] = {
        {"float", 3, 0, floats.data(), false},
        {"float of acquisition type 1", 19, 1, floats.data(), false},
        {"uint16", 11, 0, counts.data(), false},
        {"uint16 of acquisition type 0", 19, 0, counts.data(), false},
        {"uint16 of a camera typed float", 9, 0, counts.data(), true},
        {"big-endian with gains", 8, 0, swapped.data(), false},
        {"big-endian without gains", 8, 0, ungained.data(), false, false},
    };
    const Project uint16Camera = cameraProject(11);
    TestHandle probe; // every device of the machine, the CPU first
    ASSERT_EQ(zelk_RefreshDeviceList(probe, 0, 1), 0);
    for (int device = 0; device < zelk_GetDeviceCount(probe); ++device) {
        for (const auto& f : forms) {
            SCOPED_TRACE(f.name);
            SCOPED_TRACE(zelk_GetDeviceName(probe, device));
            Project p = cameraProject(f.type, f.acqType);
            if (!f.gains) {
                p.images[0].tailVectors.removeLast();
                p.images[0].tailText = QStringLiteral("no gain");
            }
            CubeRun run(p, device, f.after16Bit ? &uint16Camera : nullptr);
            ASSERT_EQ(zelk_SetInputDataLayout(run, 1), 0);
            ASSERT_EQ(zelk_StartAcquisition(run), 0) << zelk_GetErrorMsg(run);
            for (int cube = 1; cube <= 2; ++cube) { // the work buffers of the camera are reused
                ASSERT_EQ(zelk_ProcessCube(run, f.cube), 0) << zelk_GetErrorMsg(run);
                EXPECT_EQ(run.decisions(), expectedDecisions());
            }
            EXPECT_EQ(handleprobe::run(run).frames, 2);
            EXPECT_EQ(handleprobe::run(run).next, 0);
            ASSERT_EQ(zelk_StopAcquisition(run), 0);
            EXPECT_TRUE(QString(zelk_GetErrorMsg(run)).endsWith("processed 2 cubes, first 0 skipped for warm-up.\n"));
        }
    }

    // A cube that holds only the classifier's two bands is taken as it is.
    Project twoBands = cameraProject(3);
    twoBands.images[0].bands = 2;
    twoBands.images[0].wavelengths = {1000, 1200};
    CubeRun run(twoBands);
    ASSERT_EQ(zelk_GetInputBands(run), 2);
    ASSERT_EQ(zelk_StartAcquisition(run), 0);
    std::vector<float> selected(Width * Height * 2, 0);
    for (int i = 0; i < Width * Height; ++i)
        selected[i * 2] = leafAt(i) ? 10 : 0;
    ASSERT_EQ(zelk_ProcessCube(run, selected.data()), 0);
    EXPECT_EQ(run.decisions(), expectedDecisions());
}

// A project that selects all its bands for a classifier of fewer: the full-band cube
// of every 16-bit form has its classifier's bands looked up.
TEST(CubePath, FullBandCubesOfAProjectSelectingAllBands)
{
    const auto counts = bipCube<quint16>();
    const auto swapped = bigEndianCube(true);
    for (const int type : {11, 8}) {
        SCOPED_TRACE(type);
        Project p = cameraProject(type);
        p.bandSelection = QVector<bool>(Bands, true);
        CubeRun run(p);
        ASSERT_EQ(zelk_GetInputBands(run), Bands);
        ASSERT_EQ(zelk_SetInputDataLayout(run, 1), 0);
        ASSERT_EQ(zelk_StartAcquisition(run), 0) << zelk_GetErrorMsg(run);
        ASSERT_EQ(zelk_ProcessCube(run, type == 8 ? static_cast<const void*>(swapped.data()) : counts.data()), 0)
            << zelk_GetErrorMsg(run);
        EXPECT_EQ(run.decisions(), expectedDecisions());
    }
}

TEST(CubePath, RegionOfInterestIsClassifiedAndTheRestFilled)
{
    CubeRun run(cameraProject(3));
    ASSERT_EQ(zelk_SetSegmentation(run, 1), 0);
    ASSERT_EQ(zelk_StartAcquisition(run), 0);
    const auto cube = bipCube<float>();

    // The whole image as ROI gives what no ROI gives.
    ASSERT_EQ(zelk_SetCubeROI(run, 0, 0, Width, Height, 9), 0);
    ASSERT_EQ(zelk_ProcessCube(run, cube.data()), 0);
    EXPECT_EQ(run.decisions(), expectedDecisions());

    // Rows 1 and 2 of columns 2 to 6: the rest reads the fill.
    ASSERT_EQ(zelk_SetCubeROI(run, 2, 1, 5, 2, 9), 0);
    ASSERT_EQ(zelk_ProcessCube(run, cube.data()), 0);
    QByteArray expected(Width * Height, 9);
    for (int r = 1; r <= 2; ++r)
        for (int c = 2; c <= 6; ++c)
            expected[r * Width + c] = char(leafAt(r * Width + c) ? 1 : 0);
    EXPECT_EQ(run.decisions(), expected);

    // A fill of "leaf" is labelled like classified leaf: the left half forms one object
    // with the leaf at its edge, and the leaf of the right half stays apart.
    ASSERT_EQ(zelk_SetCubeROI(run, 4, 0, 4, Height, 1), 0);
    ASSERT_EQ(zelk_ProcessCube(run, cube.data()), 0);
    ASSERT_EQ(zelk_GetObjCount(run), 2);
    EXPECT_EQ(run.record(0), (std::vector<qint32>{1, 3, 2, 0, 5, 0, 3, 24, 1, 0, 0}));
    EXPECT_EQ(run.record(1), (std::vector<qint32>{2, 3, 6, 2, 3, 6, 6, 2, 1, 0, 0}));

    // A width set during the run fits neither the buffers nor the kernel.
    ASSERT_EQ(zelk_SetInputWidth(run, Width / 2), 0);
    EXPECT_EQ(zelk_ProcessCube(run, cube.data()), -199);
    EXPECT_STREQ(zelk_GetErrorMsg(run), "zelk_ProcessCube: Cube size changed during acquisition.");
}

TEST(CubePath, ObjectsOfBothMasksAreNumberedInEachCube)
{
    for (int mask : {1, 2}) {
        SCOPED_TRACE(mask);
        CubeRun run(cameraProject(3, 0, mask));
        ASSERT_EQ(zelk_SetSegmentation(run, 1), 0);
        ASSERT_EQ(zelk_StartAcquisition(run), 0);
        const auto cube = bipCube<float>();
        // Class sizes: pixels of code 0 and of code 1, in the 'All foreground' mode only.
        const qint32 sizes = mask == 2 ? 1 : 0;
        for (int i = 0; i < 2; ++i) {
            ASSERT_EQ(zelk_ProcessCube(run, cube.data()), 0);
            ASSERT_EQ(zelk_GetObjCount(run), 3);
            EXPECT_EQ(run.record(0), (std::vector<qint32>{1, 2, 2, 1, 2, 1, 2, 4, 1, 0, 4 * sizes}));
            EXPECT_EQ(run.record(1), (std::vector<qint32>{2, 3, 6, 2, 3, 6, 6, 2, 1, 0, 2 * sizes}));
            EXPECT_EQ(run.record(2), (std::vector<qint32>{3, 4, 0, 4, 4, 0, 0, 1, 1, 0, 1 * sizes}));
        }
        // An empty cube has no objects, and segmentation off reports none.
        const auto empty = std::vector<float>(cube.size(), 0.0f);
        ASSERT_EQ(zelk_ProcessCube(run, empty.data()), 0);
        EXPECT_EQ(zelk_GetObjCount(run), 0);
        ASSERT_EQ(zelk_SetSegmentation(run, 0), 0);
        ASSERT_EQ(zelk_ProcessCube(run, cube.data()), 0);
        EXPECT_EQ(zelk_GetObjCount(run), 0);
    }
}

TEST(CubePath, MoreObjectsThanRecordsAreCountedAndRefused)
{
    // Leaf on every other pixel of every other row: 325 single-pixel objects, more than
    // the 300 records of a handle.
    constexpr int W = 50, H = 26, Objects = 25 * 13;
    Project p = cameraProject(3);
    p.images[0].width = W;
    p.images[0].height = H;
    CubeRun run(p);
    ASSERT_EQ(zelk_SetSegmentation(run, 1), 0);
    ASSERT_EQ(zelk_StartAcquisition(run), 0);
    std::vector<float> cube(size_t(W) * H * Bands, 0.0f);
    for (int y = 0; y < H; y += 2)
        for (int x = 0; x < W; x += 2)
            cube[(size_t(y) * W + x) * Bands + 1] = 10;
    EXPECT_EQ(zelk_ProcessCube(run, cube.data()), -160);
    EXPECT_STREQ(zelk_GetErrorMsg(run), "zelk_ProcessCube: Max number of objects reached");
    EXPECT_EQ(zelk_GetObjCount(run), Objects);
    EXPECT_EQ(handleprobe::run(run).objectSerial, 301); // numbered up to the first one refused
    EXPECT_EQ(run.record(299)[0], 300);
    EXPECT_EQ(handleprobe::run(run).frames, 0); // a refused cube is not counted
    // The segmenter was not reset: its counters run on into the next cube.
    EXPECT_EQ(handleprobe::segmentation(run).objects, Objects);
}

TEST(CubePath, RefusalsAndTheirTexts)
{
    const auto cube = bipCube<float>();
    const int before = -190; // the code of a refused minimum object size
    const struct {
        const char* name;
        Project project;
        int layout; // 0: the project's own
        bool roi, acquire;
        int code;
        const char* text;
    } cases[] = {
        {"line-scan", lineScanProject(Width), 0, false, true, -201, "zelk_ProcessCube: Line-scan project type cannot process cubes"},
        {"not acquiring", cameraProject(3), 0, false, false, -171, "zelk_ProcessCube: Acquisition not running."},
        {"snapshot camera of no cube form", cameraProject(4), 1, false, true, -207, "zelk_ProcessCube: Unsupported project type (4)"},
        {"type 19 of acquisition type 7", cameraProject(19, 7), 0, false, true, -207, "zelk_ProcessCube: Unsupported project type (19)"},
        {"float in band order", cameraProject(3), 3, false, true, -208, "zelk_ProcessCube: Unsupported data type (2) or data layout (3)"},
        {"uint16 line by line", cameraProject(11), 2, false, true, -208, "zelk_ProcessCube: Unsupported data type (1) or data layout (2)"},
        {"ROI of uint16", cameraProject(11), 0, true, true, -221, "zelk_ProcessCube: ROI processing unsupported for this project type"},
        {"ROI of type 19", cameraProject(19, 0), 0, true, true, -221, "zelk_ProcessCube: ROI processing unsupported for this project type"},
        {"ROI of big-endian", cameraProject(8), 0, true, true, -221, "zelk_ProcessCube: ROI processing unsupported for this project type"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        CubeRun run(c.project);
        if (c.layout)
            ASSERT_EQ(zelk_SetInputDataLayout(run, unsigned(c.layout)), 0);
        if (c.roi)
            ASSERT_EQ(zelk_SetCubeROI(run, 1, 1, 2, 2, 0), 0);
        if (c.acquire)
            ASSERT_EQ(zelk_StartAcquisition(run), 0) << zelk_GetErrorMsg(run);
        const int counted = handleprobe::run(run).frames;
        EXPECT_EQ(zelk_ProcessCube(run, cube.data()), c.code);
        EXPECT_EQ(zelk_GetErrorCode(run), c.code);
        EXPECT_STREQ(zelk_GetErrorMsg(run), c.text);
        EXPECT_EQ(handleprobe::run(run).frames, counted);

        // A null cube goes to the process-wide pair and leaves the handle alone.
        ASSERT_EQ(zelk_SetMinObjSize(run, 0), -1);
        ASSERT_EQ(zelk_GetErrorCode(run), before);
        EXPECT_EQ(zelk_ProcessCube(run, nullptr), -101);
        EXPECT_EQ(zelk_GetErrorCode(run), before);
        EXPECT_EQ(zelk_GetErrorCode(nullptr), -101);
        EXPECT_STREQ(zelk_GetErrorMsg(nullptr), "zelk_ProcessCube: Passing NULL pointer.");
    }
}

TEST(CubePath, FullLabelTablesAreASegmentationError)
{
    // Leaf on every other pixel of every other row: 52000 single-pixel objects, more
    // than the segmenter can finish in one image.
    constexpr int W = 400, H = 520;
    Project p = cameraProject(3);
    p.images[0].width = W;
    p.images[0].height = H;
    QTemporaryDir dir;
    TestHandle h;
    ASSERT_EQ(zelk_LoadModel(h, writeModel(dir, p).toLatin1()), 0);
    ASSERT_EQ(zelk_SetSegmentation(h, 1), 0);
    ASSERT_EQ(zelk_StartAcquisition(h), 0);
    std::vector<float> cube(size_t(W) * H * Bands, 0.0f);
    for (int y = 0; y < H; y += 2)
        for (int x = 0; x < W; x += 2)
            cube[(size_t(y) * W + x) * Bands + 1] = 10;
    EXPECT_EQ(zelk_ProcessCube(h, cube.data()), -213);
    EXPECT_STREQ(zelk_GetErrorMsg(h), "zelk_ProcessCube: Object segmentation error");
    EXPECT_EQ(handleprobe::run(h).frames, 0);
}
