// A line-scan run through the C interface: start and stop, frames of each type and
// layout, corrected frames, the ring of decision rows and the objects it reports.

#include "model_files.h"
#include "runtime/handle_probe.h"
#include "saved_decisions.h"
#include "spectral_fixtures.h"
#include "test_handle.h"

#include <gtest/gtest.h>
#include <vector>

using namespace modelfiles;

namespace {

constexpr int Width = 8, Bands = 4;

// A BIL frame whose band 1 (the first feature) is `leaf` at the listed columns.
template <typename T>
std::vector<T> frame(std::initializer_list<int> leafColumns, T leaf = T(10), T other = T(0))
{
    std::vector<T> f(Width * Bands, other);
    for (int c : leafColumns)
        f[1 * Width + c] = leaf;
    return f;
}

QByteArray row(ZelkHandle* h, int r)
{
    return savedRow(savedDecisions(h), r);
}

QByteArray decisions(std::initializer_list<int> codes)
{
    QByteArray b;
    for (int c : codes)
        b.append(char(c));
    return b;
}

struct LoadedRun {
    QTemporaryDir dir;
    TestHandle h;
    explicit LoadedRun(Project p = lineScanProject(Width))
    {
        EXPECT_EQ(zelk_LoadModel(h, writeModel(dir, p).toLatin1()), 0);
    }
};

} // namespace

TEST(Acquisition, StartChecksAndStopReports)
{
    TestHandle bare;
    EXPECT_EQ(zelk_StartAcquisition(bare), -103);
    EXPECT_EQ(zelk_StopAcquisition(bare), -171);

    Project noClassifier = lineScanProject(Width);
    noClassifier.classifier.reset();
    LoadedRun none(noClassifier);
    EXPECT_EQ(zelk_StartAcquisition(none.h), -103);
    EXPECT_EQ(zelk_GetErrorCode(none.h), -104);

    Project undefinedType = lineScanProject(Width);
    undefinedType.type = 19;
    undefinedType.acqType = 2;
    LoadedRun typeless(undefinedType);
    EXPECT_EQ(zelk_StartAcquisition(typeless.h), -174);
    EXPECT_EQ(zelk_StopAcquisition(typeless.h), -171); // it did not start

    ClassifierSpec noPoint = twoCentreClassifier();
    noPoint.roc.reset(); // no operating point: refused, never read out of range
    Project pointless = lineScanProject(Width);
    pointless.classifier = classifierBytes(noPoint);
    LoadedRun refused(pointless);
    EXPECT_EQ(zelk_StartAcquisition(refused.h), -104);

    LoadedRun run;
    ZelkHandle* h = run.h;
    ASSERT_EQ(zelk_StartAcquisition(h), 0);
    EXPECT_EQ(zelk_GetInputDataType(h), 2); // float frames, band after band
    EXPECT_EQ(zelk_GetInputDataLayout(h), 2);
    EXPECT_EQ(zelk_StartAcquisition(h), -170);
    EXPECT_EQ(zelk_LoadModel(h, "any.zelk"), -170);
    EXPECT_EQ(zelk_StartAcquisition(h), -170); // the refused load left the run going
    const auto f = frame<float>({});
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(zelk_ProcessFrame(h, f.data()), 0);
    EXPECT_EQ(zelk_StopAcquisition(h), 0);
    EXPECT_EQ(zelk_GetErrorCode(h), 0);
    // All three frames fell in the warm-up: nothing was timed.
    EXPECT_TRUE(QString(zelk_GetErrorMsg(h)).startsWith("Average alg time: ")) << zelk_GetErrorMsg(h);
    EXPECT_TRUE(QString(zelk_GetErrorMsg(h)).endsWith("total:0, processed 3 frames, first 500 skipped for warm-up.\n"));
    EXPECT_EQ(zelk_ProcessFrame(h, f.data()), -171);
    EXPECT_EQ(zelk_StopAcquisition(h), -171);
}

TEST(FramePath, DecisionsFillTheRingAndObjectsAreReportedWithCrosses)
{
    LoadedRun run;
    ZelkHandle* h = run.h;
    ASSERT_EQ(zelk_SetSegmentation(h, 1), 0);
    ASSERT_EQ(zelk_StartAcquisition(h), 0);
    EXPECT_EQ(zelk_ProcessFrame(h, nullptr), -101);

    // A leaf object over frames 0 to 4, columns 2 to 4.
    const auto leaf = frame<float>({2, 3, 4}), empty = frame<float>({});
    ASSERT_EQ(zelk_ProcessFrame(h, leaf.data()), 0);
    EXPECT_EQ(row(h, 0), decisions({0, 0, 1, 1, 1, 0, 0, 0}));
    EXPECT_EQ(handleprobe::run(h).last, 0);
    EXPECT_EQ(handleprobe::run(h).next, 1);
    int reportedAt = -1;
    for (int i = 1; i < 40 && reportedAt < 0; ++i) {
        ASSERT_EQ(zelk_ProcessFrame(h, (i < 5 ? leaf : empty).data()), 0);
        if (zelk_GetObjCount(h) > 0)
            reportedAt = i;
    }
    EXPECT_EQ(reportedAt, 20); // the finishing pass of line 20
    ASSERT_EQ(zelk_GetObjCount(h), 1);
    int* r = nullptr;
    ASSERT_EQ(zelk_GetObjDataInt(h, 0, &r), 0);
    EXPECT_EQ(std::vector<qint32>(r, r + 9), (std::vector<qint32>{1, 2, 3, 0, 4, 2, 4, 15, 1}));
    // The centroid's row is 2: its arm spans the whole narrow row; the vertical arm
    // starts above the ring and is not drawn.
    EXPECT_EQ(row(h, 2), QByteArray(Width, char(255)));
    EXPECT_EQ(row(h, 1), decisions({0, 0, 1, 1, 1, 0, 0, 0}));

    // The ring wraps after 500 rows.
    while (handleprobe::run(h).frames < 500)
        ASSERT_EQ(zelk_ProcessFrame(h, empty.data()), 0);
    EXPECT_EQ(handleprobe::run(h).next, 0);
    EXPECT_EQ(handleprobe::run(h).last, 499);
}

TEST(FramePath, AnUnknownSetUpIsRefusedBeforeTheRingMoves)
{
    // Resampling for a project without a regressor leaves it no set-up.
    QTemporaryDir dir;
    TestHandle h;
    const QString header = writeFiveBandCameraHeader(dir, Width);
    ASSERT_EQ(zelk_SetDeviceWavelengthsFromENVIHeaderFile(h, header.toLatin1().constData()), 0);
    ASSERT_EQ(zelk_SetResamplingWavelengthsGrid(h, 900, 100, 1200), 0);
    testing::internal::CaptureStdout();
    ASSERT_EQ(zelk_SetResampling(h, 1), 0);
    testing::internal::GetCapturedStdout();
    ASSERT_EQ(zelk_LoadModel(h, writeModel(dir, lineScanProject(Width)).toLatin1()), 0);
    ASSERT_EQ(handleprobe::processingSetup(h), 0);
    ASSERT_EQ(zelk_StartAcquisition(h), 0) << zelk_GetErrorMsg(h);
    const auto empty = frame<float>({});
    EXPECT_EQ(zelk_ProcessFrame(h, empty.data()), -171);
    EXPECT_STREQ(zelk_GetErrorMsg(h), "zelk_ProcessFrame: Unsupported processing setup.");
    EXPECT_EQ(handleprobe::run(h).next, 0);
    EXPECT_EQ(handleprobe::run(h).frames, 0);
}

TEST(FramePath, ObjectsBeyondTheRecordsAreCountedAndRefused)
{
    constexpr int Wide = 601;
    LoadedRun run(lineScanProject(Wide));
    ZelkHandle* h = run.h;
    ASSERT_EQ(zelk_SetSegmentation(h, 1), 0);
    ASSERT_EQ(zelk_StartAcquisition(h), 0);
    // Leaf at every other pixel: 301 objects, one more than the 300 records of a handle,
    // all finished by the pass of line 20.
    std::vector<float> many(size_t(Wide) * Bands, 0.0f), empty = many;
    for (int c = 0; c < Wide; c += 2)
        many[size_t(Wide + c)] = 10;
    ASSERT_EQ(zelk_ProcessFrame(h, many.data()), 0);
    int result = 0;
    for (int line = 1; line <= 20; ++line)
        result = zelk_ProcessFrame(h, empty.data());
    EXPECT_EQ(result, -160);
    EXPECT_EQ(zelk_GetObjCount(h), 301);
    EXPECT_EQ(handleprobe::run(h).objectSerial, 301);
    int* record = nullptr;
    ASSERT_EQ(zelk_GetObjDataInt(h, 299, &record), 0);
    EXPECT_EQ(record[ZELK_OBJ_NUMBER], 300);
    EXPECT_STREQ(zelk_GetErrorMsg(h), "zelk_ProcessFrame: Max number of objects per frame reached");
}

// Camera type 10 with a reference pair of dark 100 and white 102: gain 0.5, so a raw
// count of 120 is reflectance 10, a leaf. A loaded correction makes its frames raw
// counts.
void loadReferences(LoadedRun& run, int width = Width)
{
    const auto level = [](int count) { return [count](int, int, int) { return double(count); }; };
    ASSERT_TRUE(fixtures::writeUInt16Scan(run.dir.filePath("whiteReference"), ".bin", width, 1, Bands, level(102)));
    ASSERT_TRUE(fixtures::writeUInt16Scan(run.dir.filePath("darkReference"), ".bin", width, 1, Bands, level(100)));
    ASSERT_EQ(zelk_LoadCorrection(run.h, run.dir.path().toLatin1(), nullptr), 0) << zelk_GetErrorMsg(run.h);
}

TEST(FramePath, TypesLayoutsAndCorrection)
{
    LoadedRun run(projectOfType(10, 0, Width));
    ZelkHandle* h = run.h;
    loadReferences(run);
    ASSERT_EQ(zelk_StartAcquisition(h), 0);
    const auto raw = frame<quint16>({1, 7}, 120, 100);
    ASSERT_EQ(zelk_ProcessFrame(h, raw.data()), 0);
    EXPECT_EQ(row(h, 0), decisions({0, 1, 0, 0, 0, 0, 0, 1}));
    ASSERT_EQ(zelk_StopAcquisition(h), 0);

    // Pixel after pixel: floats only, and no correction.
    ASSERT_EQ(zelk_SetInputDataLayout(h, 1), 0);
    ASSERT_EQ(zelk_StartAcquisition(h), 0);
    EXPECT_EQ(zelk_ProcessFrame(h, raw.data()), -208);
    ASSERT_EQ(zelk_StopAcquisition(h), 0);

    // A handle whose first run took floats keeps taking them, corrected or not.
    LoadedRun floats;
    h = floats.h;
    ASSERT_EQ(zelk_StartAcquisition(h), 0);
    ASSERT_EQ(zelk_StopAcquisition(h), 0);
    ASSERT_EQ(zelk_LoadModel(h, writeModel(floats.dir, projectOfType(10, 0, Width), FileKind::Zelk, "typed").toLatin1()), 0);
    loadReferences(floats);
    ASSERT_EQ(zelk_SetInputDataLayout(h, 1), 0);
    ASSERT_EQ(zelk_StartAcquisition(h), 0);
    EXPECT_EQ(zelk_ProcessFrame(h, raw.data()), -209);
    EXPECT_EQ(zelk_ProcessFrame(h, raw.data()), -209);
    EXPECT_EQ(handleprobe::run(h).frames, 2); // failed frames count
    ASSERT_EQ(zelk_StopAcquisition(h), 0);

    // A load drops the correction.
    ASSERT_EQ(zelk_LoadModel(h, writeModel(floats.dir, projectOfType(10, 0, Width), FileKind::Zelk, "typed").toLatin1()), 0);
    ASSERT_EQ(zelk_StartAcquisition(h), 0);
    std::vector<float> bip(Width * Bands, 0);
    bip[5 * Bands + 1] = 10;
    ASSERT_EQ(zelk_ProcessFrame(h, bip.data()), 0);
    EXPECT_EQ(row(h, 0), decisions({0, 0, 0, 0, 0, 1, 0, 0})); // a new start begins the ring again
    ASSERT_EQ(zelk_StopAcquisition(h), 0);

    // References of the wrong size are refused at start.
    loadReferences(floats, 3);
    ASSERT_EQ(zelk_SetInputDataLayout(h, 2), 0);
    EXPECT_EQ(zelk_StartAcquisition(h), -4304);
}
