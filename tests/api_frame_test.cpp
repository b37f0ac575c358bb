// A line-scan run through the C interface: start and stop, frames of each type and
// layout, corrected frames, the ring of decision rows and the objects it reports.

#include "model_files.h"
#include "runtime/handle.h"
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
    return QByteArray(reinterpret_cast<const char*>(h->ring.labels->constScanLine(r)), Width);
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
    EXPECT_FALSE(typeless.h.h->isAcquiring());

    ClassifierSpec noPoint = twoCentreClassifier();
    noPoint.roc.reset(); // no operating point: refused, never read out of range
    Project pointless = lineScanProject(Width);
    pointless.classifier = classifierBytes(noPoint);
    LoadedRun refused(pointless);
    EXPECT_EQ(zelk_StartAcquisition(refused.h), -104);

    LoadedRun run;
    ZelkHandle* h = run.h;
    ASSERT_EQ(zelk_StartAcquisition(h), 0);
    EXPECT_EQ(h->input.sampleType, InputType::Float);
    EXPECT_EQ(h->input.layout, InputLayout::BIL);
    EXPECT_EQ(zelk_StartAcquisition(h), -170);
    EXPECT_EQ(zelk_LoadModel(h, "any.zelk"), -170);
    EXPECT_TRUE(h->isAcquiring());
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
    EXPECT_EQ(h->ring.lastRow, 0);
    EXPECT_EQ(h->ring.nextRow, 1);
    int reportedAt = -1;
    for (int i = 1; i < 40 && reportedAt < 0; ++i) {
        ASSERT_EQ(zelk_ProcessFrame(h, (i < 5 ? leaf : empty).data()), 0);
        if (h->segmentation.count > 0)
            reportedAt = i;
    }
    EXPECT_EQ(reportedAt, 20); // the finishing pass of line 20
    ASSERT_EQ(h->segmentation.count, 1);
    const qint32* r = h->segmentation.records.data();
    EXPECT_EQ(std::vector<qint32>(r, r + 9), (std::vector<qint32>{1, 2, 3, 0, 4, 2, 4, 15, 1}));
    // The centroid's row is 2: its arm spans the whole narrow row; the vertical arm
    // starts above the ring and is not drawn.
    EXPECT_EQ(row(h, 2), QByteArray(Width, char(255)));
    EXPECT_EQ(row(h, 1), decisions({0, 0, 1, 1, 1, 0, 0, 0}));

    // The ring wraps after 500 rows.
    while (h->ring.frameCount < 500)
        ASSERT_EQ(zelk_ProcessFrame(h, empty.data()), 0);
    EXPECT_EQ(h->ring.nextRow, 0);
    EXPECT_EQ(h->ring.lastRow, 499);

    // An unknown set-up is refused before the ring moves.
    h->project->processingSetup = 8;
    EXPECT_EQ(zelk_ProcessFrame(h, empty.data()), -171);
    EXPECT_EQ(h->ring.nextRow, 0);
    EXPECT_EQ(h->ring.frameCount, 500);
}

TEST(FramePath, ObjectsBeyondTheRecordsAreCountedAndRefused)
{
    LoadedRun run;
    ZelkHandle* h = run.h;
    ASSERT_EQ(zelk_SetSegmentation(h, 1), 0);
    ASSERT_EQ(zelk_StartAcquisition(h), 0);
    h->segmentation.maxObjects = 2;
    const auto three = frame<float>({0, 3, 6}), empty = frame<float>({});
    ASSERT_EQ(zelk_ProcessFrame(h, three.data()), 0);
    int result = 0;
    while (h->ring.frameCount <= 20)
        result = zelk_ProcessFrame(h, empty.data());
    EXPECT_EQ(result, -160);
    EXPECT_EQ(h->segmentation.count, 3);
    EXPECT_EQ(h->segmentation.serial, 3);
    EXPECT_STREQ(zelk_GetErrorMsg(h), "zelk_ProcessFrame: Max number of objects per frame reached");
}

TEST(FramePath, TypesLayoutsAndCorrection)
{
    // Raw counts with dark 100 and gain 0.5: 120 becomes 10, a leaf.
    LoadedRun run;
    ZelkHandle* h = run.h;
    h->correction.enabled = true;
    h->correction.darkRef = QVector<float>(Width * Bands, 100);
    h->correction.gainRef = QVector<float>(Width * Bands, 0.5f);
    h->input.sampleType = InputType::UInt16;
    ASSERT_EQ(zelk_StartAcquisition(h), 0);
    const auto raw = frame<quint16>({1, 7}, 120, 100);
    ASSERT_EQ(zelk_ProcessFrame(h, raw.data()), 0);
    EXPECT_EQ(row(h, 0), decisions({0, 1, 0, 0, 0, 0, 0, 1}));
    ASSERT_EQ(zelk_StopAcquisition(h), 0);

    // Pixel after pixel: floats only, and no correction.
    ASSERT_EQ(zelk_SetInputDataLayout(h, 1), 0);
    ASSERT_EQ(zelk_StartAcquisition(h), 0);
    EXPECT_EQ(zelk_ProcessFrame(h, raw.data()), -208);
    h->input.sampleType = InputType::Float;
    EXPECT_EQ(zelk_ProcessFrame(h, raw.data()), -209);
    EXPECT_EQ(h->ring.frameCount, 2); // failed frames count
    ASSERT_EQ(zelk_StopAcquisition(h), 0);

    h->correction.enabled = false;
    ASSERT_EQ(zelk_StartAcquisition(h), 0);
    std::vector<float> bip(Width * Bands, 0);
    bip[5 * Bands + 1] = 10;
    ASSERT_EQ(zelk_ProcessFrame(h, bip.data()), 0);
    EXPECT_EQ(row(h, 0), decisions({0, 0, 0, 0, 0, 1, 0, 0})); // a new start begins the ring again
    ASSERT_EQ(zelk_StopAcquisition(h), 0);

    // References of the wrong size are refused at start.
    h->correction.enabled = true;
    h->correction.darkRef.resize(3);
    ASSERT_EQ(zelk_SetInputDataLayout(h, 2), 0);
    EXPECT_EQ(zelk_StartAcquisition(h), -4304);
}
