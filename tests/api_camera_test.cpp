// Describing a camera whose bands differ from the project's, and switching resampling on.

#include "runtime/handle.h"
#include "test_handle.h"

#include <QTemporaryDir>
#include <QTextStream>
#include <gtest/gtest.h>

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
    EXPECT_EQ(h.h->deviceFrameWidth, 640);
    EXPECT_EQ(h.h->deviceBandCount, 3);
    EXPECT_EQ(*h.h->deviceWavelengths, (QVector<double>{400.5, 410, 420}));

    EXPECT_EQ(zelk_SetDeviceWavelengthCount(h, 2), 0); // empties the list for values given by hand
    EXPECT_TRUE(h.h->deviceWavelengths->isEmpty());
    EXPECT_EQ(zelk_AddDeviceWavelength(h, 430.5f), 0);
    EXPECT_EQ(*h.h->deviceWavelengths, (QVector<double>{430.5}));

    const QString noSamples = writeHeader(dir, "bands = 2\nwavelength = {1, 2}\n");
    EXPECT_EQ(zelk_SetDeviceWavelengthsFromENVIHeaderFile(h, noSamples.toLatin1().constData()), -1);
    EXPECT_EQ(*h.h->deviceWavelengths, (QVector<double>{1, 2})); // taken before the failure
    EXPECT_EQ(h.h->deviceFrameWidth, 640);
    const QString shortList = writeHeader(dir, "samples = 8\nbands = 3\nwavelength = {1, 2}\n");
    EXPECT_EQ(zelk_SetDeviceWavelengthsFromENVIHeaderFile(h, shortList.toLatin1().constData()), -1);
    EXPECT_EQ(zelk_SetDeviceWavelengthsFromENVIHeaderFile(h, nullptr), -101);
}

TEST(CameraDescription, GridIncludesBothEndsAndAlwaysTheFirst)
{
    TestHandle h;
    ASSERT_EQ(zelk_SetResamplingWavelengthsGrid(h, 400, 10, 420), 0);
    EXPECT_EQ(*h.h->resamplingWavelengths, (QVector<double>{400, 410, 420}));
    ASSERT_EQ(zelk_SetResamplingWavelengthsGrid(h, 400, 10, 390), 0);
    EXPECT_EQ(*h.h->resamplingWavelengths, (QVector<double>{400}));
    // Grids that never end are refused rather than run until memory is gone.
    EXPECT_EQ(zelk_SetResamplingWavelengthsGrid(h, 400, 0, 500), -1);
    EXPECT_EQ(zelk_GetErrorCode(h), -1);
    EXPECT_EQ(zelk_SetResamplingWavelengthsGrid(h, 0, 1e-6f, 1e6f), -1);
    EXPECT_EQ(*h.h->resamplingWavelengths, (QVector<double>{400}));
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
    EXPECT_FALSE(h.h->resamplingEnabled);

    ASSERT_EQ(zelk_SetDeviceWavelengthsFromENVIHeaderFile(h, header.toLatin1().constData()), 0);
    testing::internal::CaptureStdout();
    EXPECT_EQ(zelk_SetResampling(h, 1), 0);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), " deviceWidth=4  res_init=0 ");
    EXPECT_TRUE(h.h->resamplingEnabled);
    ASSERT_NE(h.h->resampler, nullptr);
    EXPECT_EQ(h.h->resampler->destBands, 4);
    EXPECT_EQ(zelk_SetResampling(h, 0), -1); // does not switch it off
    EXPECT_TRUE(h.h->resamplingEnabled);
}
