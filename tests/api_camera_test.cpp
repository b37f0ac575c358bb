// Describing a camera whose bands differ from the project's, and switching resampling on.

#include "runtime/handle_probe.h"
#include "test_handle.h"

#include <QTemporaryDir>
#include <QTextStream>
#include <cmath>
#include <gtest/gtest.h>
#include <limits>
#include <string>

namespace {

QString writeHeader(const QTemporaryDir& dir, const QString& body)
{
    const QString path = dir.filePath("camera.hdr");
    QFile f(path);
    f.open(QIODevice::WriteOnly);
    QTextStream(&f) << "ENVI\n" << body;
    return path;
}

} // namespace

TEST(CameraDescription, WavelengthsComeFromAHeaderBeforeAnyAreAdded)
{
    TestHandle h;
    EXPECT_EQ(zelk_AddDeviceWavelength(h, 500), -1);
    QTemporaryDir dir;
    const QString full = writeHeader(dir, "samples = 640\nbands = 3\nwavelength = {400.5, 410, 420}\n");
    ASSERT_EQ(zelk_SetDeviceWavelengthsFromENVIHeaderFile(h, full.toLatin1().constData()), 0);
    EXPECT_EQ(handleprobe::camera(h).frameWidth, 640);
    EXPECT_EQ(handleprobe::camera(h).bandCount, 3);
    EXPECT_EQ(handleprobe::camera(h).wavelengths, (QVector<double>{400.5, 410, 420}));

    EXPECT_EQ(zelk_SetDeviceWavelengthCount(h, 2), 0); // empties the list for values given by hand
    EXPECT_TRUE(handleprobe::camera(h).wavelengths.isEmpty());
    EXPECT_EQ(zelk_AddDeviceWavelength(h, 430.5f), 0);
    EXPECT_EQ(handleprobe::camera(h).wavelengths, (QVector<double>{430.5}));

    const QString noSamples = writeHeader(dir, "bands = 2\nwavelength = {1, 2}\n");
    EXPECT_EQ(zelk_SetDeviceWavelengthsFromENVIHeaderFile(h, noSamples.toLatin1().constData()), -1);
    EXPECT_EQ(handleprobe::camera(h).wavelengths, (QVector<double>{1, 2})); // taken before the failure
    EXPECT_EQ(handleprobe::camera(h).frameWidth, 640);
    const QString shortList = writeHeader(dir, "samples = 8\nbands = 3\nwavelength = {1, 2}\n");
    EXPECT_EQ(zelk_SetDeviceWavelengthsFromENVIHeaderFile(h, shortList.toLatin1().constData()), -1);
    // A null name is an empty one: no header to open, and no text, like any failure.
    const std::string before = zelk_GetErrorMsg(h);
    const int code = zelk_GetErrorCode(h);
    EXPECT_EQ(zelk_SetDeviceWavelengthsFromENVIHeaderFile(h, nullptr), -1);
    EXPECT_EQ(zelk_GetErrorCode(h), code);
    EXPECT_EQ(zelk_GetErrorMsg(h), before);
}

TEST(CameraDescription, GridIncludesBothEndsAndAlwaysTheFirst)
{
    const float inf = std::numeric_limits<float>::infinity();
    TestHandle h;
    ASSERT_EQ(zelk_SetResamplingWavelengthsGrid(h, 400, 10, 420), 0);
    EXPECT_EQ(handleprobe::camera(h).grid, (QVector<double>{400, 410, 420}));
    ASSERT_EQ(zelk_SetResamplingWavelengthsGrid(h, 400, 10, 390), 0);
    EXPECT_EQ(handleprobe::camera(h).grid, (QVector<double>{400}));
    // Grids that never end are refused rather than run until memory is gone.
    EXPECT_EQ(zelk_SetResamplingWavelengthsGrid(h, 400, 0, 500), -1);
    EXPECT_EQ(zelk_GetErrorCode(h), -1);
    EXPECT_EQ(zelk_SetResamplingWavelengthsGrid(h, 400, -10, 500), -1);
    EXPECT_EQ(zelk_SetResamplingWavelengthsGrid(h, 400, 10, inf), -1);
    EXPECT_EQ(zelk_SetResamplingWavelengthsGrid(h, -inf, 10, 500), -1);
    EXPECT_EQ(zelk_SetResamplingWavelengthsGrid(h, 1e20f, 1, 1e20f), -1); // the sum never moves
    EXPECT_EQ(zelk_SetResamplingWavelengthsGrid(h, 0, 1e-6f, 1e6f), -1);
    EXPECT_EQ(handleprobe::camera(h).grid, (QVector<double>{400}));

    // NaN or -inf arguments end the grid after its first value.
    const float nan = std::nanf("");
    const struct {
        float first, step, last;
    } oneValue[] = {{nan, 10, 500}, {400, nan, 500}, {400, 10, nan}, {400, 10, -inf}, {400, -10, 300}, {400, 0, 300}};
    for (const auto& g : oneValue) {
        zelk_SetResamplingWavelengthsGrid(h, 1, 1, 3);
        ASSERT_EQ(zelk_SetResamplingWavelengthsGrid(h, g.first, g.step, g.last), 0) << g.first << " " << g.step << " " << g.last;
        ASSERT_EQ(handleprobe::camera(h).grid.size(), 1);
        EXPECT_EQ(std::isnan(handleprobe::camera(h).grid.front()), std::isnan(g.first));
    }
}

TEST(CameraDescription, ResamplingNeedsAConsistentCameraAndGrid)
{
    TestHandle h;
    EXPECT_EQ(zelk_SetResampling(h, 0), -1);
    EXPECT_EQ(zelk_SetResampling(h, 1), -402);
    QTemporaryDir dir;
    const QString header = writeHeader(dir, "samples = 4\nbands = 3\nwavelength = {400, 450, 500}\n");
    ASSERT_EQ(zelk_SetDeviceWavelengthsFromENVIHeaderFile(h, header.toLatin1().constData()), 0);
    EXPECT_EQ(zelk_SetResampling(h, 1), -402); // no grid yet
    zelk_SetResamplingWavelengthsGrid(h, 420, 20, 480);
    zelk_SetDeviceWavelengthCount(h, 3); // the list is now empty
    EXPECT_EQ(zelk_SetResampling(h, 1), -403);
    EXPECT_FALSE(handleprobe::camera(h).resampling);

    ASSERT_EQ(zelk_SetDeviceWavelengthsFromENVIHeaderFile(h, header.toLatin1().constData()), 0);
    testing::internal::CaptureStdout();
    EXPECT_EQ(zelk_SetResampling(h, 1), 0);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), " deviceWidth=4  res_init=0 ");
    EXPECT_TRUE(handleprobe::camera(h).resampling);
    EXPECT_EQ(handleprobe::camera(h).resamplerBands, 4);
    EXPECT_EQ(zelk_SetResampling(h, 0), -1); // does not switch it off
    EXPECT_TRUE(handleprobe::camera(h).resampling);
}
