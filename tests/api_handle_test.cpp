// Handles, the error scheme and the text buffer.

#include "runtime/export.h"
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

TEST(Boundary, AnExportFailsWithTheValueOfItsResultType)
{
    TestHandle a;
    const auto thrown = [] { throw std::runtime_error("broken"); };
    EXPECT_EQ(exported("zelk_Int", a.h, [&]() -> int { thrown(); return 0; }), -199);
    EXPECT_EQ(exported("zelk_Float", a.h, [&]() -> float { thrown(); return 0; }), -199.0f);
    EXPECT_EQ(exported("zelk_Pointer", a.h, [&]() -> const char* { thrown(); return ""; }), nullptr);
    EXPECT_STREQ(zelk_GetErrorMsg(a.h), "zelk_Pointer: Internal error (broken)");

    setGlobalError(-7, QStringLiteral("left over"));
    bool ran = false;
    EXPECT_EQ(exported("zelk_Float", nullptr, [&] { ran = true; return 1.0f; }), -101.0f);
    EXPECT_EQ(exported("zelk_Pointer", nullptr, [&] { ran = true; return "text"; }), nullptr);
    EXPECT_FALSE(ran);
    EXPECT_EQ(zelk_GetErrorCode(nullptr), -101);
    EXPECT_STREQ(zelk_GetErrorMsg(nullptr), "zelk_Pointer: Passing NULL pointer.");

    EXPECT_EQ(exportedForAnyHandle("zelk_Any", nullptr, [&] { ran = true; return 3; }), 3);
    EXPECT_TRUE(ran);
}

TEST(Boundary, TextsCarryTheNameOfTheRunningExport)
{
    TestHandle a;
    EXPECT_EQ(exported("zelk_Outer", a.h, [&] {
                  // A nested export names its own texts; the outer name comes back after it.
                  exported("zelk_Inner", a.h, [&] { return fail(a.h, msg::NoProject); });
                  EXPECT_STREQ(zelk_GetErrorMsg(a.h), "zelk_Inner: Project not loaded.");
                  return fail(a.h, msg::WidthNotPositive);
              }),
              -230);
    EXPECT_STREQ(zelk_GetErrorMsg(a.h), "zelk_Outer: Width value must be positive");

    // Unnamed texts stand alone; another name is given where callers know one.
    EXPECT_EQ(exported("zelk_Outer", a.h, [&] { return fail(a.h, msg::UnknownAcquisitionType); }), -112);
    EXPECT_STREQ(zelk_GetErrorMsg(a.h), "Cannot load the project: Unknown acquisition type");
    exported("zelk_Outer", a.h, [&] { return failUnder("zelk_Other", a.h, msg::NoClassifier); });
    EXPECT_STREQ(zelk_GetErrorMsg(a.h), "zelk_Other: Classifier model not loaded.");

    // The texts, the null handle and an internal error may each go by another name.
    const ExportNames names{"zelk_Function", "zelk_Texts", "zelk_Null"};
    exported(names, a.h, [&] { return fail(a.h, msg::NoProject); });
    EXPECT_STREQ(zelk_GetErrorMsg(a.h), "zelk_Texts: Project not loaded.");
    exported(names, a.h, []() -> int { throw std::runtime_error("broken"); });
    EXPECT_STREQ(zelk_GetErrorMsg(a.h), "zelk_Function: Internal error (broken)");
    exported(names, nullptr, [] { return 0; });
    EXPECT_STREQ(zelk_GetErrorMsg(nullptr), "zelk_Null: Passing NULL pointer.");

    // Outside any export a named text has no name in front.
    EXPECT_EQ(fail(a.h, msg::NoProject), -103);
    EXPECT_STREQ(zelk_GetErrorMsg(a.h), "Project not loaded.");
}
