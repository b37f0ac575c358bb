// Whole sessions through the C interface on each backend: the CPU and the first OpenCL
// device run the same line-scan, snapshot and regression sessions and must agree on
// every decision and object record, and on every regression output and object mean up
// to float rounding. The models are those of model_files.h, on wider frames with three
// leaf blobs passing by.

#include "compute/backend.h"
#include "compute/device.h"
#include "model_files.h"
#include "spectral_fixtures.h"
#include "test_handle.h"

#include <QTextStream>
#include <algorithm>
#include <cmath>
#include <functional>
#include <gtest/gtest.h>
#include <vector>

using namespace modelfiles;

namespace {

constexpr int Width = 96, Bands = 4, Lines = 64;

// Leaf blobs: band 1 near 10 ("leaf") inside, near 0 ("bg") outside; band 3 small; bands
// 0 and 2 large. All values are whole numbers, so 16-bit frames carry them exactly.
bool leafAt(int line, int pixel)
{
    const int blobs[3][3] = {{20, 12, 9}, {70, 30, 14}, {45, 50, 7}}; // centre pixel, centre line, radius
    for (const auto& b : blobs)
        if ((pixel - b[0]) * (pixel - b[0]) + (line - b[1]) * (line - b[1]) <= b[2] * b[2])
            return true;
    return false;
}

double sample(int line, int pixel, int band)
{
    switch (band) {
    case 1: return (leafAt(line, pixel) ? 9 : 0) + (pixel + line) % 3;
    case 3: return (pixel * 7 + line * 3) % 3;
    default: return 1000 + 10 * band + pixel % 17;
    }
}

// What a session hands back: decisions and object records, compared exactly; outputs
// and object means, compared up to rounding; and the backend that ran it.
struct Session {
    std::vector<quint8> decisions;
    std::vector<qint32> records;
    std::vector<float> values;
    int backend = 0;
};

// A handle on list entry `device`, its model loaded and the acquisition started with
// segmentation on. `beforeLoad` describes the camera, `beforeStart` changes the loaded run.
struct Run {
    QTemporaryDir dir;
    TestHandle h;
    Session s;
    Run(int device, const Project& p, const std::function<void(ZelkHandle*)>& beforeLoad,
        const std::function<void(ZelkHandle*)>& beforeStart)
    {
        EXPECT_EQ(zelk_RefreshDeviceList(h, 0, 1), 0);
        EXPECT_EQ(zelk_SetDevice(h, device), 0);
        if (beforeLoad)
            beforeLoad(h);
        EXPECT_EQ(zelk_LoadModel(h, writeModel(dir, p).toLatin1()), 0) << zelk_GetErrorMsg(h);
        EXPECT_EQ(zelk_SetSegmentation(h, 1), 0);
        if (beforeStart)
            beforeStart(h);
        EXPECT_EQ(zelk_StartAcquisition(h), 0) << zelk_GetErrorMsg(h);
        // The selection of the start stays in force until the stop.
        s.backend = compute::activeBackend().number();
    }
    ~Run() { zelk_StopAcquisition(h); }

    void keepObjects()
    {
        for (int i = 0; i < zelk_GetObjCount(h); ++i) {
            int* record = nullptr;
            ASSERT_EQ(zelk_GetObjDataInt(h, i, &record), 0);
            s.records.insert(s.records.end(), record, record + ZELK_OBJ_RECORD_INTS);
            float* means = nullptr;
            if (zelk_GetRegVarCount(h) > 0) {
                ASSERT_EQ(zelk_GetObjDataRegOutput(h, i, &means), 0);
                s.values.insert(s.values.end(), means, means + zelk_GetRegVarCount(h));
            }
        }
    }
};

using Hook = std::function<void(ZelkHandle*)>;

// The project for the camera of camera type 19 with acquisition type 4, whose frames
// are of 16 bits, or of type 10, which takes a reference pair and corrected frames of
// 16 bits.
Project sixteenBit(Project p, int type = 19)
{
    p.type = p.images[0].imageType = type;
    p.acqType = type == 19 ? 4 : 0;
    return p;
}

// Line-scan frames of 16 bits; `frame(line)` gives one in BIL. `midway` changes the run
// halfway through.
Session lineScan(int device, const Project& p, const std::function<std::vector<quint16>(int)>& frame, const Hook& beforeLoad = {},
                 const Hook& beforeStart = {}, const Hook& midway = {})
{
    Run run(device, p, beforeLoad, beforeStart);
    ZelkHandle* h = run.h;
    EXPECT_EQ(zelk_GetInputDataType(h), 1);
    for (int line = 0; line < Lines; ++line) {
        if (line == Lines / 2 && midway)
            midway(h);
        const std::vector<quint16> f = frame(line);
        EXPECT_EQ(zelk_ProcessFrame(h, f.data()), 0) << zelk_GetErrorMsg(h);
        const unsigned char* d = zelk_GetFrameDecisions(h);
        run.s.decisions.insert(run.s.decisions.end(), d, d + Width);
        for (int v = 0; v < zelk_GetRegVarCount(h); ++v) {
            const float* out = zelk_GetFrameRegOutputVar(h, v, 0, 0);
            run.s.values.insert(run.s.values.end(), out, out + Width);
        }
        run.keepObjects();
    }
    return run.s;
}

std::vector<quint16> projectFrame(int line)
{
    std::vector<quint16> f(size_t(Width) * Bands);
    for (int b = 0; b < Bands; ++b)
        for (int p = 0; p < Width; ++p)
            f[size_t(b * Width + p)] = quint16(sample(line, p, b));
    return f;
}

// Five camera bands halfway between the project's: the resampled band b is the rounded
// mean of camera bands b and b + 1, band 1 the leaf value itself.
std::vector<quint16> cameraFrame(int line)
{
    std::vector<quint16> f(size_t(Width) * 5);
    for (int p = 0; p < Width; ++p) {
        const double leaf = sample(line, p, 1), small = sample(line, p, 3);
        const double values[5] = {1000.0 + p, leaf, leaf, small, small + 1};
        for (int b = 0; b < 5; ++b)
            f[size_t(b * Width + p)] = quint16(values[b]);
    }
    return f;
}

void resampleAgain(ZelkHandle* h)
{
    testing::internal::CaptureStdout();
    ASSERT_EQ(zelk_SetResampling(h, 1), 0) << zelk_GetErrorMsg(h);
    testing::internal::GetCapturedStdout();
}

void describeCamera(ZelkHandle* h)
{
    QTemporaryDir dir;
    const QString header = writeFiveBandCameraHeader(dir, Width);
    ASSERT_EQ(zelk_SetDeviceWavelengthsFromENVIHeaderFile(h, header.toLatin1().constData()), 0);
    ASSERT_EQ(zelk_SetResamplingWavelengthsGrid(h, 900, 100, 1200), 0);
    resampleAgain(h);
}

// A reference pair of float samples that differ from sample to sample: dark 0.25 (i % 3)
// and a gain near 1 + 0.01 (i % 5), for sample i of band b and pixel p at i = b W + p.
// A leaf stays a leaf after correction.
void correctEveryBand(ZelkHandle* h)
{
    QTemporaryDir dir;
    const auto dark = [](int p, int, int b) { return 0.25 * ((b * Width + p) % 3); };
    const auto white = [&](int p, int l, int b) { return dark(p, l, b) + 1.0 / (1.0 + 0.01 * ((b * Width + p) % 5)); };
    ASSERT_TRUE(fixtures::writeFloatScan(dir.filePath("whiteReference"), ".bin", Width, 1, Bands, white, "bil"));
    ASSERT_TRUE(fixtures::writeFloatScan(dir.filePath("darkReference"), ".bin", Width, 1, Bands, dark, "bil"));
    ASSERT_EQ(zelk_LoadCorrection(h, dir.path().toLatin1(), nullptr), 0) << zelk_GetErrorMsg(h);
}

// One float cube in BIP of Lines rows; the project selects the classifier's bands.
Session snapshot(int device)
{
    Project p = lineScanProject(Width);
    p.type = 3;
    p.images[0].height = Lines;
    p.bandSelection = {false, true, false, true};
    Run run(device, p, {}, [](ZelkHandle* h) { ASSERT_EQ(zelk_SetInputDataLayout(h, 1), 0); });
    std::vector<float> cube(size_t(Width) * Lines * Bands);
    for (int line = 0; line < Lines; ++line)
        for (int pixel = 0; pixel < Width; ++pixel)
            for (int b = 0; b < Bands; ++b)
                cube[(size_t(line) * Width + pixel) * Bands + b] = float(sample(line, pixel, b));
    EXPECT_EQ(zelk_ProcessCube(run.h, cube.data()), 0) << zelk_GetErrorMsg(run.h);
    const unsigned char* d = zelk_GetCubeDecisions(run.h);
    if (d)
        run.s.decisions.assign(d, d + Width * Lines);
    run.keepObjects();
    return run.s;
}

struct SessionCase {
    const char* name;
    bool regression;
    Session (*run)(int device);
};

void PrintTo(const SessionCase& c, std::ostream* out)
{
    *out << c.name;
}

const SessionCase sessions[] = {
    {"LineScan", false, [](int d) { return lineScan(d, sixteenBit(lineScanProject(Width)), projectFrame); }},
    {"Snapshot", false, snapshot},
    {"Regression", true, [](int d) { return lineScan(d, sixteenBit(regressionProject(Width)), projectFrame); }},
    {"CorrectedRegression", true,
     [](int d) { return lineScan(d, sixteenBit(regressionProject(Width), 10), projectFrame, {}, correctEveryBand); }},
    // The resampler is made anew during the run, as a caller may.
    {"ResampledRegression", true,
     [](int d) { return lineScan(d, sixteenBit(regressionProject(Width)), cameraFrame, describeCamera, {}, resampleAgain); }},
};

class BackendSessions : public ::testing::TestWithParam<SessionCase> {
protected:
    // List entry of the first OpenCL device, or -1 when the machine has none.
    static int firstOpenClEntry()
    {
        TestHandle h;
        EXPECT_EQ(zelk_RefreshDeviceList(h, 0, 1), 0);
        for (int i = 0; i < zelk_GetDeviceCount(h); ++i)
            if (QString::fromLocal8Bit(zelk_GetDeviceName(h, i)).startsWith(QStringLiteral("OpenCL: ")))
                return i;
        return -1;
    }
};

} // namespace

TEST_P(BackendSessions, EveryBackendGivesTheResultsOfTheCpu)
{
    const SessionCase& c = GetParam();
    const Session cpu = c.run(0);
    ASSERT_EQ(cpu.backend, compute::BackendCpu);
    // The session is worth comparing: both classes, objects and, with a regressor,
    // outputs of every frame.
    ASSERT_EQ(cpu.decisions.size(), size_t(Width) * Lines);
    EXPECT_NE(std::count(cpu.decisions.begin(), cpu.decisions.end(), 1), 0);
    EXPECT_NE(std::count(cpu.decisions.begin(), cpu.decisions.end(), 0), 0);
    ASSERT_GE(cpu.records.size(), size_t(2 * ZELK_OBJ_RECORD_INTS));
    if (c.regression)
        ASSERT_GT(cpu.values.size(), size_t(Width) * Lines);

    const int entry = firstOpenClEntry();
    if (entry < 0)
        return; // a machine without OpenCL has the CPU alone
    const Session device = c.run(entry);
    ASSERT_EQ(device.backend, compute::BackendOpenCl);
    EXPECT_EQ(device.decisions, cpu.decisions);
    EXPECT_EQ(device.records, cpu.records);
    ASSERT_EQ(device.values.size(), cpu.values.size());
    for (size_t i = 0; i < cpu.values.size(); ++i)
        ASSERT_NEAR(device.values[i], cpu.values[i], 1e-4 * std::max(1.0f, std::fabs(cpu.values[i]))) << "value " << i;
}

// One centre at the origin, unit exp(-d²), a zero bias row and a huge weight on "leaf":
// a pixel scores "leaf" exactly while its activation is not 0 in single precision, a
// subnormal included, and ties at 0 ("bg") beyond. Pixel p lies at distance p.
TEST(BackendAgreement, PixelsFarFromEveryCentreScoreTheBiasRowAlone)
{
    Project p = sixteenBit(lineScanProject(Width));
    ClassifierSpec c = twoCentreClassifier();
    c.network->unitCount = 1;
    c.network->centres = TypedArray::floats({2, 1, 1, 1}, {0, 0});
    c.network->gammas = TypedArray::floats({1, 1, 1, 1}, {-1});
    c.network->outputWeights = TypedArray::floats({2, 2, 1, 1}, {0, 0, 0, 1e30f});
    p.classifier = classifierBytes(c);
    std::vector<quint16> frame(size_t(Width) * Bands, 0);
    std::vector<quint8> expected(Width);
    for (int pixel = 0; pixel < Width; ++pixel) {
        frame[size_t(Width + pixel)] = quint16(pixel);
        expected[size_t(pixel)] = std::exp(-float(pixel * pixel)) > 0.0f ? 1 : 0;
    }
    ASSERT_EQ(expected[10], 1); // exp(-100) is a subnormal
    ASSERT_EQ(expected[11], 0);

    TestHandle list;
    ASSERT_EQ(zelk_RefreshDeviceList(list, 0, 1), 0);
    int devices = 0;
    for (int entry = 0; entry < zelk_GetDeviceCount(list); ++entry) {
        if (entry > 0 && !QString::fromLocal8Bit(zelk_GetDeviceName(list, entry)).startsWith(QStringLiteral("OpenCL: ")))
            continue;
        ::Run run(entry, p, {}, {});
        ASSERT_EQ(zelk_ProcessFrame(run.h, frame.data()), 0) << zelk_GetErrorMsg(run.h);
        const unsigned char* d = zelk_GetFrameDecisions(run.h);
        EXPECT_EQ(std::vector<quint8>(d, d + Width), expected) << "backend " << run.s.backend;
        ++devices;
    }
    EXPECT_GE(devices, 1);
}

INSTANTIATE_TEST_SUITE_P(Sessions, BackendSessions, ::testing::ValuesIn(sessions),
                         [](const testing::TestParamInfo<SessionCase>& info) { return std::string(info.param.name); });
