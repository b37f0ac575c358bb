// The device list and the choice of device.

#include "compute/backend.h"
#include "compute/device.h"
#include "model_files.h"
#include "runtime/handle_probe.h"
#include "test_handle.h"

#include <QString>
#include <gtest/gtest.h>

TEST(DeviceList, InitListsTheCpuFirstAndOnlyTheCpu)
{
    TestHandle a;
    const int n = zelk_GetDeviceCount(a.h);
    ASSERT_GE(n, 1);
    for (int i = 0; i < n; ++i) {
        const QString name = QString::fromLocal8Bit(zelk_GetDeviceName(a.h, i));
        EXPECT_TRUE(name.startsWith(QStringLiteral("CPU: "))) << name.toStdString();
        EXPECT_GT(name.size(), 5);
    }
}

TEST(DeviceList, RefreshRejectsFlagsOtherThanZeroAndOneAndLeavesTheListEmpty)
{
    TestHandle a;
    for (auto flags : {std::pair{2, 0}, std::pair{0, -1}, std::pair{1, 7}}) {
        EXPECT_EQ(zelk_RefreshDeviceList(a.h, flags.first, flags.second), -143);
        EXPECT_EQ(zelk_GetErrorCode(a.h), -143);
        EXPECT_STREQ(zelk_GetErrorMsg(a.h), "zelk_RefreshDeviceList: listNVIDIA and listOpenCL must be specified as 0 or 1 values");
        EXPECT_EQ(zelk_GetDeviceCount(a.h), 0);
    }
    EXPECT_EQ(zelk_SetDevice(a.h, 0), -102);
    // Asking for a GPU family that the machine may lack still lists the CPU first.
    EXPECT_EQ(zelk_RefreshDeviceList(a.h, 1, 0), 0);
    ASSERT_GE(zelk_GetDeviceCount(a.h), 1);
    EXPECT_TRUE(QString::fromLocal8Bit(zelk_GetDeviceName(a.h, 0)).startsWith(QStringLiteral("CPU: ")));
}

TEST(DeviceList, NameCallOverwritesTheErrorTextButNotTheCode)
{
    TestHandle a;
    EXPECT_EQ(zelk_GetDeviceName(a.h, -1), nullptr);
    EXPECT_EQ(zelk_GetErrorCode(a.h), -102);
    EXPECT_STREQ(zelk_GetErrorMsg(a.h), "zelk_GetDeviceName: Device index out of bounds (-1)");
    const char* name = zelk_GetDeviceName(a.h, 0);
    EXPECT_EQ(name, zelk_GetErrorMsg(a.h));
    EXPECT_EQ(zelk_GetErrorCode(a.h), -102);
}

namespace {

// The list of a handle with the OpenCL devices that the machine has: the entry of the
// last one, or -1 without any.
int lastOpenClEntry(ZelkHandle* h)
{
    EXPECT_EQ(zelk_RefreshDeviceList(h, 0, 1), 0);
    const int last = zelk_GetDeviceCount(h) - 1;
    return QString::fromLocal8Bit(zelk_GetDeviceName(h, last)).startsWith(QStringLiteral("OpenCL: ")) ? last : -1;
}

} // namespace

TEST(SetDevice, SelectsTheEntryLogsItAndClearsTheCode)
{
    TestHandle a;
    zelk_SetDevice(a.h, 99);
    ASSERT_EQ(zelk_GetErrorCode(a.h), -102);
    ASSERT_EQ(zelk_SetDevice(a.h, 0), 0);
    EXPECT_EQ(zelk_GetErrorCode(a.h), 0);
    EXPECT_EQ(handleprobe::selectedDevice(a), 65536);
    const QString logged = QString::fromLocal8Bit(zelk_GetErrorMsg(a.h));
    EXPECT_EQ(logged, QStringLiteral("Selected device 0: ") + QString::fromLocal8Bit(zelk_GetDeviceName(a.h, 0)));
    // Device work outside an acquisition rests on the CPU afterwards.
    EXPECT_EQ(compute::activeBackend().number(), 1);
}

TEST(SetDevice, IsRefusedDuringAcquisitionAndChangesNothing)
{
    // On a machine with OpenCL the running acquisition is on its device, which entry 0
    // (the CPU) would replace.
    TestHandle a;
    const int entry = lastOpenClEntry(a);
    ASSERT_EQ(zelk_SetDevice(a.h, entry < 0 ? 0 : entry), 0);
    const int device = handleprobe::selectedDevice(a);
    EXPECT_EQ(device == compute::defaultDevice, entry < 0);
    QTemporaryDir dir;
    ASSERT_EQ(zelk_LoadModel(a, modelfiles::writeModel(dir, modelfiles::lineScanProject()).toLatin1()), 0);
    ASSERT_EQ(zelk_StartAcquisition(a), 0) << zelk_GetErrorMsg(a);
    EXPECT_EQ(zelk_SetDevice(a.h, 0), -170);
    EXPECT_STREQ(zelk_GetErrorMsg(a.h), "zelk_SetDevice: Cannot set device when running acquisition. Stop acquisition first.");
    EXPECT_EQ(handleprobe::selectedDevice(a), device);
    EXPECT_EQ(zelk_StopAcquisition(a), 0);
}

TEST(SetDevice, RefreshKeepsTheChosenDevice)
{
    // The OpenCL device, where the machine has one, is not on the CPU-only list.
    TestHandle a;
    const int entry = lastOpenClEntry(a);
    ASSERT_EQ(zelk_SetDevice(a.h, entry < 0 ? 0 : entry), 0);
    const int device = handleprobe::selectedDevice(a);
    ASSERT_EQ(zelk_RefreshDeviceList(a.h, 0, 0), 0);
    EXPECT_EQ(handleprobe::selectedDevice(a), device);
}
