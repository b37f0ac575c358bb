// Handles, the error scheme and the text buffer.

#include "runtime/export.h"
#include "runtime/handle.h"
#include "runtime/report.h"
#include "test_handle.h"

#include <QString>
#include <cstring>
#include <new>
#include <stdexcept>
#include <gtest/gtest.h>

TEST(Handle, StartsWithTheVersionLineAndNoError)
{
    setGlobalError(-7, QStringLiteral("left over"));
    TestHandle a;
    ASSERT_NE(a.h, nullptr);
    EXPECT_STREQ(zelk_GetVersion(), "5.1 (23-apr-2024)");
    EXPECT_STREQ(zelk_GetErrorMsg(a.h), "Tessaron Zelk Runtime version 5.1 (23-apr-2024)");
    EXPECT_EQ(zelk_GetErrorCode(a.h), 0);
    // Init empties the global text and keeps the global code.
    EXPECT_STREQ(zelk_GetErrorMsg(nullptr), "");
    EXPECT_EQ(zelk_GetErrorCode(nullptr), -7);
}

TEST(Handle, HandlesKeepTheirOwnErrors)
{
    TestHandle a, b;
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
    TestHandle a;
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
    TestHandle a;
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
    TestHandle a;
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
