// The rows of the camera table against what the library does with a project of each
// camera: a row's call family, its sample type and layout, its cube form and its
// correction loader must fit together, so that a caller who hands in what the library
// reports for a camera gets it processed.

#include "model_files.h"
#include "spectral/camera_kinds.h"
#include "spectral/image_family.h"
#include "test_handle.h"

#include <QTemporaryDir>
#include <gtest/gtest.h>
#include <vector>

using namespace modelfiles;

namespace {

constexpr int Width = 8, Height = 6, Bands = 4;

struct Camera {
    int type, acqType;
};

// Every project type a stream may name, and type 19 with every acquisition type
// around the ones it knows.
std::vector<Camera> everyCamera()
{
    std::vector<Camera> cameras;
    for (int type = 1; type <= 22; ++type)
        if (type != 19)
            cameras.push_back({type, 0});
    for (int acqType = -2; acqType <= 12; ++acqType)
        cameras.push_back({19, acqType});
    return cameras;
}

// A project of the camera whose images its class can read.
Project projectOf(const Camera& c)
{
    Project p = lineScanProject(Width);
    p.type = c.type;
    p.acqType = c.acqType;
    p.images[0].imageType = c.type;
    p.images[0].height = Height;
    if (c.type == 1 || c.type == 5) // these classes store a text behind the image
        p.images[0].tailText = QString();
    if (c.type == 8) {
        p.images[0].tailVectors = {QVector<double>(), QVector<double>()};
        p.images[0].tailText = QStringLiteral("no gain");
    }
    return p;
}

// Loads the camera's project after a project of type `typeBefore` and says which call
// family the load reports, or none when it fails.
struct Loaded {
    int result = 0;
    QString family;
};

Loaded load(ZelkHandle* h, const QTemporaryDir& dir, const Camera& c, int typeBefore = 14)
{
    Camera before{typeBefore, 0};
    EXPECT_EQ(zelk_LoadModel(h, writeModel(dir, projectOf(before), FileKind::Zelk, QStringLiteral("before")).toLatin1()), 0);
    Loaded l;
    l.result = zelk_LoadModel(h, writeModel(dir, projectOf(c)).toLatin1());
    const QString log = QString::fromLatin1(zelk_GetErrorMsg(h));
    if (log.endsWith(QStringLiteral("(line-scan API)")))
        l.family = QStringLiteral("line-scan");
    else if (log.endsWith(QStringLiteral("(snapshot API)")))
        l.family = QStringLiteral("snapshot");
    return l;
}

QString expectedFamily(CallFamily f, const QString& before)
{
    switch (f) {
    case CallFamily::LineScan: return QStringLiteral("line-scan");
    case CallFamily::Snapshot: return QStringLiteral("snapshot");
    case CallFamily::AsBefore: return before;
    case CallFamily::RefusesToLoad: break;
    }
    return QString();
}

} // namespace

TEST(CameraKinds, EachRowGivesTheCallFamilyOfItsLoad)
{
    QTemporaryDir dir;
    for (const Camera& c : everyCamera()) {
        SCOPED_TRACE(testing::Message() << "type " << c.type << " acquisition " << c.acqType);
        const CameraKind& kind = cameraKind(c.type, c.acqType);
        EXPECT_EQ(int(kind.type), c.type);
        // The family of the project before shows through where the row keeps it.
        for (const auto& [typeBefore, before] : {std::pair{14, QStringLiteral("line-scan")}, {3, QStringLiteral("snapshot")}}) {
            TestHandle h;
            const Loaded l = load(h, dir, c, typeBefore);
            if (kind.family == CallFamily::RefusesToLoad) {
                EXPECT_EQ(l.result, -112);
                EXPECT_STREQ(zelk_GetErrorMsg(h), "Cannot load the project: Unknown acquisition type");
                continue;
            }
            ASSERT_EQ(l.result, 0);
            EXPECT_EQ(l.family, expectedFamily(kind.family, before));
            EXPECT_EQ(zelk_GetInputHeight(h), l.family == QStringLiteral("line-scan") ? 1 : Height);
        }
    }
}

// What the library reports it expects is what it then takes: a start with the reported
// sample type and layout processes a frame of a line-scan camera, and a cube of a
// snapshot camera that has a cube form.
TEST(CameraKinds, CallersHandingInWhatIsReportedGetItProcessed)
{
    QTemporaryDir dir;
    const std::vector<float> zeros(Width * Height * Bands, 0.0f); // zero in either sample type
    for (const Camera& c : everyCamera()) {
        SCOPED_TRACE(testing::Message() << "type " << c.type << " acquisition " << c.acqType);
        const CameraKind& kind = cameraKind(c.type, c.acqType);
        TestHandle h;
        const Loaded l = load(h, dir, c);
        if (l.result != 0)
            continue;
        const int type = zelk_GetInputDataType(h), layout = zelk_GetInputDataLayout(h);
        if (type < 0) {
            // No sample type (an acquisition type without a mode): no start, whatever
            // the layout.
            EXPECT_EQ(kind.input, InputType::Unsupported);
            EXPECT_EQ(zelk_StartAcquisition(h), -174);
            continue;
        }
        if (l.family == QStringLiteral("line-scan")) {
            // Frames are read band after band or pixel after pixel, never as a cube.
            EXPECT_TRUE(layout == LayoutBIL || layout == LayoutBIP) << layout;
            ASSERT_EQ(zelk_StartAcquisition(h), 0);
            EXPECT_EQ(zelk_ProcessFrame(h, zeros.data()), 0);
            EXPECT_EQ(zelk_ProcessCube(h, zeros.data()), -201);
            continue;
        }
        if (layout < 0) // the camera leaves the layout to the caller: pixel after pixel
            ASSERT_EQ(zelk_SetInputDataLayout(h, LayoutBIP), 0);
        ASSERT_EQ(zelk_StartAcquisition(h), 0);
        int expected = kind.cube == CubeForm::None ? -207 : 0;
        // Type 9 reports float samples, yet its cube form reads 16-bit counts: its cubes
        // pass only where an earlier project left the handle at 16 bits.
        if (c.type == 9)
            expected = -208;
        EXPECT_EQ(zelk_ProcessCube(h, zeros.data()), expected);
    }
}

// The references of a camera are found the way its images find theirs: the scan's own
// image class for the cameras that correct through it, the pair in the directory for the
// one whose scans sit beside "whiteReference" and "darkReference", the capture folder for
// all others.
TEST(CameraKinds, EachCameraLoadsReferencesTheWayItsImagesFindThem)
{
    QTemporaryDir dir;
    const QTemporaryDir empty;
    for (const Camera& c : everyCamera()) {
        SCOPED_TRACE(testing::Message() << "type " << c.type << " acquisition " << c.acqType);
        const std::unique_ptr<ZelkImage> image = makeImage(c.type);
        ASSERT_NE(image, nullptr);
        CorrectionLoader expected = CorrectionLoader::CaptureFolder;
        if (dynamic_cast<ZelkImageTessaron*>(image.get()))
            expected = CorrectionLoader::CorrectionScan;
        else if (dynamic_cast<ZelkImageHeadwall*>(image.get()))
            expected = CorrectionLoader::ReferencePair;
        EXPECT_EQ(cameraKind(c.type, c.acqType).correction, expected);

        TestHandle h;
        if (load(h, dir, c).result != 0)
            continue;
        // A named scan in an empty directory: the pair loader takes no name, the capture
        // folder has no meta-data, the scan cannot be read.
        const int code = zelk_LoadCorrection(h, empty.path().toLatin1(), "scan");
        switch (expected) {
        case CorrectionLoader::ReferencePair: EXPECT_EQ(code, -1); break;
        case CorrectionLoader::CaptureFolder: EXPECT_EQ(code, -130); break;
        case CorrectionLoader::CorrectionScan: EXPECT_EQ(code, -137); break;
        }
    }
}
