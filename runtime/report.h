#pragma once
// The operations through which the runtime reports. Each failure returns its code, so
// that a failing check is one line: `return fail(h, msg::WidthNotPositive);`.

#include "runtime/messages.h"

#include <QString>

struct ZelkHandle;

int setHandleError(ZelkHandle* h, int code, const QString& text);
int setGlobalError(int code, const QString& text);
void logToHandle(ZelkHandle* h, const QString& text);

// The text as it is reported: after "<name>: " unless it is Unnamed. Without a name,
// the name is that of the exported call running on this thread (RunningCall, export.h).
QString spelled(const Text& t, const char* name);
QString spelled(const Text& t);

// Code and text into the handle's pair, or into the process-wide one.
int fail(ZelkHandle* h, const Text& t);
int failGlobal(const Text& t);
// Under the name of another call than the running one (see msg's deliberate names).
int failUnder(const char* name, ZelkHandle* h, const Text& t);

// A failure that returns its code and stores no text, leaving the handle's code and text
// as the last report left them. Those calls have always answered so: their callers read
// the returned code alone, and some read the earlier text after them.
inline int failWithoutText(int code)
{
    return code;
}

// Writes `text` into a buffer of `capacity` bytes in the local 8-bit encoding. A text
// of capacity - 1 characters or more is not stored and the older content stays.
void storeText(char* buffer, int capacity, const QString& text);

// The process-wide pair, read through the exported calls with a null handle.
int globalErrorCode();
const char* globalErrorMessage();
void clearGlobalErrorMessage();
