// Handles, the error scheme and the text buffer.

#include "runtime/boundary.h"
#include "runtime/handle.h"
#include "runtime/report.h"
#include "zelk.h"

#include <QString>
#include <cstring>
#include <new>
#include <stdexcept>
#include <gtest/gtest.h>

namespace {

struct Handle {
    ZelkHandle* h = zelk_Init(nullptr);
    ~Handle() { zelk_Release(h); }
};

} // namespace

TEST(Handle, StartsWithTheVersionLineAndNoError)
{
    setGlobalError(-7, QStringLiteral("left over"));
    Handle a;
    ASSERT_NE(a.h, nullptr);
    EXPECT_STREQ(zelk_GetVersion(), "5.1 (23-apr-2024)");
    EXPECT_STREQ(zelk_GetErrorMsg(a.h), "Tessaron Zelk Runtime version 5.1 (23-apr-2024)");
    EXPECT_EQ(zelk_GetErrorCode(a.h), 0);
    // Init empties the global text and keeps the global code.
    EXPECT_STREQ(zelk_GetErrorMsg(nullptr), "");
    EXPECT_EQ(zelk_GetErrorCode(nullptr), -7);
}

TEST(Handle, DefaultsMatchAFreshCaller)
{
    Handle a;
    const ZelkHandle& h = *a.h;
    EXPECT_EQ(h.messageSize, 4096);
    EXPECT_EQ(h.device, 65536);
    EXPECT_EQ(h.frameCount, -1);
    EXPECT_EQ(h.maxObjects, 300);
    EXPECT_EQ(h.objects.size(), 300u * 30u);
    EXPECT_EQ(h.ringRows, 500);
    EXPECT_EQ(h.warmupFrames, 500);
    EXPECT_EQ(h.roiCol, -1);
    EXPECT_EQ(h.roiHeight, -1);
    EXPECT_EQ(h.deviceBandCount, -1);
    EXPECT_EQ(h.deviceFrameWidth, -1);
    EXPECT_TRUE(h.fullBandFrames && h.markObjects && h.fusedKernel && h.hasRegression);
    EXPECT_FALSE(h.rawKernel || h.acquiring || h.lineScan || h.segmentationEnabled);
}

TEST(Handle, NullHandleCallsUseTheGlobalPair)
{
    zelk_Release(nullptr); // nothing to do, nothing reported
    EXPECT_EQ(zelk_GetDeviceCount(nullptr), -101);
    EXPECT_EQ(zelk_GetErrorCode(nullptr), -101);
    EXPECT_STREQ(zelk_GetErrorMsg(nullptr), "zelk_GetDeviceCount: Passing NULL pointer.");

    EXPECT_EQ(zelk_GetDeviceName(nullptr, 0), nullptr);
    EXPECT_STREQ(zelk_GetErrorMsg(nullptr), "zelk_GetDeviceName: Passing NULL pointer.");
    EXPECT_EQ(zelk_SetDevice(nullptr, 0), -101);
    EXPECT_STREQ(zelk_GetErrorMsg(nullptr), "zelk_SetDevice: Passing NULL pointer.");
    EXPECT_EQ(zelk_RefreshDeviceList(nullptr, 0, 0), -101);
    EXPECT_STREQ(zelk_GetErrorMsg(nullptr), "zelk_RefreshDeviceList: Passing NULL pointer.");
}

TEST(Handle, HandlesKeepTheirOwnErrors)
{
    Handle a, b;
    EXPECT_EQ(zelk_SetDevice(a.h, 50), -102);
    EXPECT_EQ(zelk_GetErrorCode(a.h), -102);
    EXPECT_STREQ(zelk_GetErrorMsg(a.h), "zelk_SetDevice: Device index out of bounds (50)");
    EXPECT_EQ(zelk_GetErrorCode(b.h), 0);
    EXPECT_STREQ(zelk_GetErrorMsg(b.h), "Tessaron Zelk Runtime version 5.1 (23-apr-2024)");
}

TEST(TextBuffer, StoresUpTo4094CharactersAndKeepsTheOlderTextBeyond)
{
    char buffer[4096];
    storeText(buffer, 4096, QStringLiteral("first"));
    EXPECT_STREQ(buffer, "first");

    const QString longest(4094, QLatin1Char('a'));
    storeText(buffer, 4096, longest);
    EXPECT_EQ(QString::fromLatin1(buffer), longest);

    storeText(buffer, 4096, QStringLiteral("first"));
    storeText(buffer, 4096, QString(4095, QLatin1Char('b')));
    EXPECT_STREQ(buffer, "first");
}

TEST(TextBuffer, TooLongErrorStillSetsTheCode)
{
    Handle a;
    EXPECT_EQ(setHandleError(a.h, -150, QString(5000, QLatin1Char('x'))), -150);
    EXPECT_EQ(zelk_GetErrorCode(a.h), -150);
    EXPECT_STREQ(zelk_GetErrorMsg(a.h), "Tessaron Zelk Runtime version 5.1 (23-apr-2024)");

    setGlobalError(-3, QStringLiteral("short"));
    setGlobalError(-4, QString(4095, QLatin1Char('y')));
    EXPECT_EQ(zelk_GetErrorCode(nullptr), -4);
    EXPECT_STREQ(zelk_GetErrorMsg(nullptr), "short");
}

TEST(TextBuffer, LoggingReplacesTheTextButNotTheCode)
{
    Handle a;
    setHandleError(a.h, -120, QStringLiteral("an error"));
    logToHandle(a.h, QStringLiteral("a log line"));
    EXPECT_EQ(zelk_GetErrorCode(a.h), -120);
    EXPECT_STREQ(zelk_GetErrorMsg(a.h), "a log line");
}

TEST(TextBuffer, MultiByteCharactersAreCutToTheCharacterCount)
{
    // Under a UTF-8 locale "Zürich" takes 7 bytes for 6 characters: 6 bytes are kept,
    // which cuts the last letter. Under Latin-1 all six fit. Either way the text stays
    // inside the buffer and is terminated.
    char buffer[16];
    std::memset(buffer, 'z', sizeof buffer);
    storeText(buffer, sizeof buffer, QStringLiteral("Z\u00fcrich"));
    EXPECT_EQ(std::strlen(buffer), 6u);
    EXPECT_EQ(buffer[0], 'Z');
}

TEST(Boundary, EscapingExceptionsBecomeAnInternalErrorCode)
{
    Handle a;
    const int code = guarded<int>(a.h, "zelk_Something", InternalErrorCode, []() -> int { throw std::runtime_error("broken"); });
    EXPECT_EQ(code, -199);
    EXPECT_EQ(zelk_GetErrorCode(a.h), -199);
    EXPECT_STREQ(zelk_GetErrorMsg(a.h), "zelk_Something: Internal error (broken)");

    const char* text = guarded<const char*>(nullptr, "zelk_Other", nullptr, []() -> const char* { throw std::bad_alloc(); });
    EXPECT_EQ(text, nullptr);
    EXPECT_EQ(zelk_GetErrorCode(nullptr), -199);
    EXPECT_STREQ(zelk_GetErrorMsg(nullptr), "zelk_Other: Internal error (std::bad_alloc)");

    EXPECT_EQ(guarded<int>(a.h, "zelk_Fine", InternalErrorCode, [] { return 7; }), 7);
}
