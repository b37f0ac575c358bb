#include "runtime/report.h"
#include "runtime/export.h"
#include "runtime/handle.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <mutex>

namespace {

// The process-wide pair, written by calls on several threads (each zelk_Init clears
// the text): the writes take turns, so that two threads never write the text at once.
// The code reads without waiting; a text read while another thread fails may still be
// the older one, as with any process-wide pair.
constexpr int GlobalMessageSize = 4096;
std::atomic<int> globalCode{0};
char globalMessage[GlobalMessageSize] = {0};
std::mutex globalWriter;

} // namespace

void storeText(char* buffer, int capacity, const QString& text)
{
    const int n = text.size();
    if (n + 1 >= capacity)
        return;
    // n characters may take more than n bytes in the local encoding: the text is cut
    // to n bytes then, which keeps it inside the buffer.
    const QByteArray bytes = text.toLocal8Bit();
    const int copied = std::min(n, int(bytes.size()));
    std::memcpy(buffer, bytes.constData(), size_t(copied));
    buffer[copied] = '\0';
}

int setHandleError(ZelkHandle* h, int code, const QString& text)
{
    h->error.code = code;
    storeText(h->error.text.data(), int(h->error.text.size()), text);
    return code;
}

int setGlobalError(int code, const QString& text)
{
    const std::lock_guard<std::mutex> turn(globalWriter);
    globalCode = code;
    storeText(globalMessage, GlobalMessageSize, text);
    return code;
}

void logToHandle(ZelkHandle* h, const QString& text)
{
    storeText(h->error.text.data(), int(h->error.text.size()), text);
}

int globalErrorCode()
{
    return globalCode;
}

const char* globalErrorMessage()
{
    return globalMessage;
}

void clearGlobalErrorMessage()
{
    const std::lock_guard<std::mutex> turn(globalWriter);
    globalMessage[0] = '\0';
}

QString spelled(const Text& t, const char* name)
{
    if (t.naming == Naming::Unnamed || !name)
        return t.text;
    return QString::fromLatin1(name) + QStringLiteral(": ") + t.text;
}

QString spelled(const Text& t)
{
    return spelled(t, RunningCall::name());
}

int fail(ZelkHandle* h, const Text& t)
{
    return setHandleError(h, t.code, spelled(t));
}

int failGlobal(const Text& t)
{
    return setGlobalError(t.code, spelled(t));
}

int failUnder(const char* name, ZelkHandle* h, const Text& t)
{
    return setHandleError(h, t.code, spelled(t, name));
}
