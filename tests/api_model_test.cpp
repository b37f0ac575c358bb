// Loading model files through the C interface: the envelope's outcomes, what the
// handle derives from the project, and the input configuration calls.

#include "model_files.h"
#include "runtime/handle_probe.h"
#include "spectral_fixtures.h"
#include "test_handle.h"

#include <QDir>
#include <gtest/gtest.h>
#include <vector>

using namespace modelfiles;

namespace {

QString errorText(ZelkHandle* h)
{
    return QString::fromLocal8Bit(zelk_GetErrorMsg(h));
}

// A float cube in BIP of the handle's size and four bands, "leaf" at `leaf` pixels.
std::vector<float> cube(ZelkHandle* h, std::initializer_list<int> leaf)
{
    std::vector<float> c(size_t(zelk_GetInputWidth(h)) * size_t(zelk_GetInputHeight(h)) * 4, 0.0f);
    for (int pixel : leaf)
        c[size_t(pixel) * 4 + 1] = 10;
    return c;
}

} // namespace

TEST(LoadModel, EnvelopeOutcomesLeaveTheDocumentedProject)
{
    QTemporaryDir dir;
    TestHandle h;
    const QByteArray stream = projectBytes(lineScanProject());

    EXPECT_EQ(zelk_LoadModel(h, nullptr), -101);

    // Each kind of file loads, the .zpl one with its second key on the second attempt
    // without leaving a trace of the first.
    for (FileKind kind : {FileKind::Zelk, FileKind::Zpl, FileKind::ZplSecondKey}) {
        zelk_GetInputWidth(nullptr); // leaves -101 in the global pair, not in the handle
        ASSERT_EQ(zelk_GetDeviceName(h, -1), nullptr);
        const QString path = writeModel(dir, lineScanProject(), kind, QStringLiteral("k%1").arg(int(kind)));
        ASSERT_EQ(zelk_LoadModel(h, path.toLatin1()), 0) << errorText(h).toStdString();
        EXPECT_EQ(zelk_GetErrorCode(h), -102);
        EXPECT_EQ(errorText(h), QStringLiteral("Model loaded from '%1' (line-scan API)").arg(path));
    }

    // A missing file leaves a new, empty project: the old geometry still answers.
    EXPECT_EQ(zelk_LoadModel(h, dir.filePath("missing.zelk").toLatin1()), -113);
    EXPECT_EQ(errorText(h), "zelk_LoadModel: File cannot be opened");
    EXPECT_EQ(zelk_GetInputWidth(h), 8);

    const struct {
        const char* name;
        QByteArray contents;
        int result;
        bool projectLeft;
    } cases[] = {
        {"plain.zelk", QByteArray("not an envelope at all"), -111, false},
        {"stream.zelk", seal(QByteArray("ZELK99")), -110, false},
        // A damaged checksum of a .zelk file goes on with an empty project: no images.
        {"damaged.zelk", seal(stream, {Compressed | Checksum, keys::Zelk, 1}).replace(40, 1, "!"), -1, true},
        {"wrongkey.zpl", seal(stream, {Checksum, keys::Zelk}).toBase64(), -112, false},
        {"other.ZELK", fileContents(FileKind::Zelk, stream), -1, true},
        {"empty.zelk", seal(projectBytes([] {
              Project p = lineScanProject();
              p.images.clear();
              return p;
          }())),
         -1, true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const QString path = dir.filePath(c.name);
        writeFile(path, c.contents);
        EXPECT_EQ(zelk_LoadModel(h, path.toLatin1()), c.result);
        EXPECT_EQ(zelk_GetInputWidth(h) != ZELK_E_NO_PROJECT, c.projectLeft); // the old geometry, or no project
    }
    ASSERT_EQ(zelk_LoadModel(h, dir.filePath("plain.zelk").toLatin1()), -111);
    EXPECT_EQ(zelk_GetInputWidth(h), -103);
    EXPECT_EQ(errorText(h), "zelk_GetInputWidth: Project not loaded.");
}

TEST(LoadModel, ApiKindSetUpAndGeometryFollowTheProject)
{
    QTemporaryDir dir;
    TestHandle h;
    Project p = lineScanProject(16);
    p.images[0].cropped = true;
    const int crop[6] = {640, 480, 2, 3, 16, 100}; // size before cropping first
    std::copy(crop, crop + 6, p.images[0].crop);
    ASSERT_EQ(zelk_LoadModel(h, writeModel(dir, p).toLatin1()), 0);
    EXPECT_TRUE(errorText(h).endsWith("(line-scan API)")) << errorText(h).toStdString();
    EXPECT_EQ(zelk_GetInputWidth(h), 640);
    EXPECT_EQ(zelk_GetInputHeight(h), 1);
    EXPECT_EQ(zelk_GetInputBands(h), 4);
    EXPECT_EQ(handleprobe::processingSetup(h), 6); // classifier and segmenter

    // Snapshot cameras, and type 19 by its acquisition type; type 2 of it keeps the
    // kind of the project before.
    const struct {
        int type, acqType;
        bool lineScan;
        int dataType, layout;
    } kinds[] = {{3, -1, false, 2, 1}, {8, -1, false, 2, 3}, {13, -1, true, 2, 1}, {4, -1, false, 1, -205},
                 {19, 1, false, 2, 1}, {19, 2, false, -165, -205}, {19, 4, true, 1, 2}, {19, 2, true, -165, -205}};
    for (const auto& k : kinds) {
        SCOPED_TRACE(k.type * 100 + k.acqType);
        p = lineScanProject();
        p.type = k.type;
        p.acqType = k.acqType;
        if (k.type == 8) { // this camera's images store two vectors and an optional gain behind
            p.images[0].tailVectors = {QVector<double>(), QVector<double>()};
            p.images[0].tailText = QStringLiteral("no gain");
        }
        ASSERT_EQ(zelk_LoadModel(h, writeModel(dir, p).toLatin1()), 0);
        EXPECT_TRUE(errorText(h).endsWith(k.lineScan ? "(line-scan API)" : "(snapshot API)")) << errorText(h).toStdString();
        EXPECT_EQ(zelk_GetInputHeight(h), k.lineScan ? 1 : 100);
        EXPECT_EQ(zelk_GetInputDataType(h), k.dataType);
        EXPECT_EQ(zelk_GetInputDataLayout(h), k.layout);
    }
    p.type = 19;
    p.acqType = -1;
    EXPECT_EQ(zelk_LoadModel(h, writeModel(dir, p).toLatin1()), -112);
    EXPECT_EQ(errorText(h), "Cannot load the project: Unknown acquisition type");

    // A snapshot project of type 3 has no type once a correction is in place: references
    // from the capture folder of its scan.
    p = lineScanProject();
    p.type = 3;
    ASSERT_EQ(zelk_LoadModel(h, writeModel(dir, p).toLatin1()), 0);
    const auto level = [](int dark) { return [dark](int, int, int) { return double(dark); }; };
    ASSERT_TRUE(QDir(dir.path()).mkpath("scan/capture"));
    ASSERT_TRUE(fixtures::writeUInt16Scan(dir.filePath("scan/capture/scan"), ".raw", 8, 2, 4, level(7)));
    ASSERT_TRUE(fixtures::writeUInt16Scan(dir.filePath("scan/capture/WHITEREF_scan"), ".raw", 8, 1, 4, level(900)));
    ASSERT_TRUE(fixtures::writeUInt16Scan(dir.filePath("scan/capture/DARKREF_scan"), ".raw", 8, 1, 4, level(100)));
    ASSERT_EQ(zelk_LoadCorrection(h, dir.path().toLatin1(), "scan"), 0) << errorText(h).toStdString();
    ASSERT_TRUE(handleprobe::correction(h).enabled);
    EXPECT_EQ(zelk_GetInputDataType(h), -206);
    // ... and the next load drops the correction.
    ASSERT_EQ(zelk_LoadModel(h, writeModel(dir, p).toLatin1()), 0);
    EXPECT_FALSE(handleprobe::correction(h).enabled);
    EXPECT_EQ(zelk_GetInputDataType(h), 2);

    // Without a segmenter the set-up names the classifier; resampling without a
    // regressor leaves none.
    p = lineScanProject();
    p.segmenter.reset();
    p.revision = 8; // no stored segmenter: one is derived from the classifier
    ASSERT_EQ(zelk_LoadModel(h, writeModel(dir, p).toLatin1()), 0);
    EXPECT_EQ(handleprobe::processingSetup(h), 6);
    // The derived segmenter takes "bg" as the background: a leaf block is one "leaf"
    // object and the background none.
    ASSERT_EQ(zelk_SetMinObjSize(h, 1), 0);
    ASSERT_EQ(zelk_SetSegmentation(h, 1), 0);
    ASSERT_EQ(zelk_StartAcquisition(h), 0) << errorText(h).toStdString();
    std::vector<float> leaf(8 * 4, 0.0f), empty = leaf;
    leaf[8 + 3] = leaf[8 + 4] = 10;
    int objects = 0;
    for (int line = 0; line < 40 && objects == 0; ++line) {
        ASSERT_EQ(zelk_ProcessFrame(h, (line < 3 ? leaf : empty).data()), 0) << errorText(h).toStdString();
        objects = zelk_GetObjCount(h);
    }
    ASSERT_EQ(objects, 1);
    int* record = nullptr;
    ASSERT_EQ(zelk_GetObjDataInt(h, 0, &record), 0);
    EXPECT_EQ(record[ZELK_OBJ_PIXEL_COUNT], 6);
    EXPECT_EQ(record[ZELK_OBJ_DECISION], 1);
    ASSERT_EQ(zelk_StopAcquisition(h), 0);

    const QString header = writeFiveBandCameraHeader(dir, 8);
    ASSERT_EQ(zelk_SetDeviceWavelengthsFromENVIHeaderFile(h, header.toLatin1().constData()), 0);
    ASSERT_EQ(zelk_SetResamplingWavelengthsGrid(h, 900, 100, 1200), 0);
    testing::internal::CaptureStdout();
    ASSERT_EQ(zelk_SetResampling(h, 1), 0);
    testing::internal::GetCapturedStdout();
    ASSERT_EQ(zelk_LoadModel(h, writeModel(dir, p).toLatin1()), 0);
    EXPECT_EQ(handleprobe::processingSetup(h), 0);
}

TEST(InputConfiguration, ChecksAndCodes)
{
    QTemporaryDir dir;
    TestHandle h;
    for (auto call : {zelk_GetInputWidth, zelk_GetInputHeight, zelk_GetInputBands, zelk_GetMaskType})
        EXPECT_EQ(call(h), -103);
    EXPECT_EQ(zelk_SetCubeROI(h, 0, 0, 1, 1, 0), -103);
    EXPECT_EQ(zelk_SetMinObjSize(h, 5), -1);
    EXPECT_EQ(zelk_GetErrorCode(h), -103);

    // The layout setter needs no project and reports in the process-wide pair only.
    ASSERT_EQ(zelk_GetDeviceName(h, -1), nullptr);
    EXPECT_EQ(zelk_SetInputDataLayout(h, 0), -136);
    EXPECT_EQ(zelk_GetErrorCode(h), -102);
    EXPECT_EQ(zelk_GetErrorCode(nullptr), -136);
    EXPECT_EQ(zelk_SetInputDataLayout(h, 3), 0);

    Project p = lineScanProject();
    p.type = 3; // snapshot: 8 by 100
    ASSERT_EQ(zelk_LoadModel(h, writeModel(dir, p).toLatin1()), 0);
    EXPECT_EQ(zelk_SetCubeROI(h, 7, 99, 1, 1, 9), 0);
    // The region in force shows in the decisions: the fill outside it.
    ASSERT_EQ(zelk_SetInputDataLayout(h, 1), 0);
    ASSERT_EQ(zelk_StartAcquisition(h), 0) << errorText(h).toStdString();
    const auto decided = [&] {
        const std::vector<float> c = cube(h, {});
        EXPECT_EQ(zelk_ProcessCube(h, c.data()), 0) << errorText(h).toStdString();
        const unsigned char* d = zelk_GetCubeDecisions(h);
        return d ? QByteArray(reinterpret_cast<const char*>(d), 8 * 100) : QByteArray();
    };
    QByteArray filled(8 * 100, char(9));
    filled[8 * 99 + 7] = 0;
    EXPECT_EQ(decided(), filled);
    EXPECT_EQ(zelk_SetCubeROI(h, 0, 0, 8, 100, 9), 0);
    EXPECT_EQ(zelk_SetCubeROI(h, 1, 0, 8, 100, 9), -210);
    EXPECT_EQ(errorText(h), "zelk_SetCubeROI: Invalid ROI specification (col=1,row=0,width=8,height=100 while "
                            "imageWidth=8, imageHeight=100");
    EXPECT_EQ(zelk_SetCubeROI(h, 0, 0, 2147483647, 1, 9), -210); // no wrap-around
    // Off again, from a region that shows: nothing is filled.
    ASSERT_EQ(zelk_SetCubeROI(h, 7, 99, 1, 1, 9), 0);
    EXPECT_EQ(zelk_SetCubeROI(h, -1, 0, 0, 0, 0), 0);
    EXPECT_EQ(decided(), QByteArray(8 * 100, 0));
    ASSERT_EQ(zelk_StopAcquisition(h), 0);

    EXPECT_EQ(zelk_SetInputWidth(h, 0), -230);
    EXPECT_EQ(zelk_SetInputWidth(h, 32), 0);
    EXPECT_EQ(zelk_GetInputWidth(h), 32);
    EXPECT_EQ(zelk_GetMaskType(h), 1);
    EXPECT_EQ(zelk_SetMinObjSize(h, 0), -1);
    EXPECT_EQ(zelk_GetErrorCode(h), -190);
    EXPECT_EQ(zelk_SetMinObjSize(h, 4), 0);

    EXPECT_EQ(zelk_SetSegmentation(h, 1), 0);
    EXPECT_TRUE(handleprobe::segmentation(h).enabled);
    EXPECT_TRUE(handleprobe::segmentation(h).lent);
    // Objects of three pixels are dropped now, one of four is kept.
    ASSERT_EQ(zelk_StartAcquisition(h), 0) << errorText(h).toStdString();
    const int w = zelk_GetInputWidth(h);
    const std::vector<float> twoObjects = cube(h, {1, 2, 3, 10 * w + 1, 10 * w + 2, 11 * w + 1, 11 * w + 2});
    ASSERT_EQ(zelk_ProcessCube(h, twoObjects.data()), 0) << errorText(h).toStdString();
    ASSERT_EQ(zelk_GetObjCount(h), 1);
    int* record = nullptr;
    ASSERT_EQ(zelk_GetObjDataInt(h, 0, &record), 0);
    EXPECT_EQ(record[ZELK_OBJ_PIXEL_COUNT], 4);
    ASSERT_EQ(zelk_StopAcquisition(h), 0);
    EXPECT_EQ(zelk_SetSegmentation(h, 0), 0);
    EXPECT_FALSE(handleprobe::segmentation(h).enabled);

    // A definition that does not compile is refused with its own code and text.
    SegmenterSpec broken = leafObjects(1);
    broken.foregroundVec = QVector<bool>{false}; // fewer flags than classes
    p.segmenter = segmenterBytes(broken);
    ASSERT_EQ(zelk_LoadModel(h, writeModel(dir, p).toLatin1()), 0);
    EXPECT_EQ(zelk_SetSegmentation(h, 1), -172);
    EXPECT_TRUE(errorText(h).startsWith("zelk_StartAcquisition: Object segmentation cannot proceed (-35"));
    EXPECT_FALSE(handleprobe::segmentation(h).lent);

    // Without a segmenter at all (no classifier, no segmenter).
    p.classifier.reset();
    ASSERT_EQ(zelk_LoadModel(h, writeModel(dir, p).toLatin1()), 0);
    EXPECT_EQ(zelk_GetMaskType(h), -164);
    EXPECT_EQ(zelk_SetMinObjSize(h, 3), -164);
    EXPECT_EQ(zelk_SetSegmentation(h, 1), -164);
    EXPECT_EQ(zelk_SetSegmentation(h, 0), 0);
}
