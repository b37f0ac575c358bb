#include "runtime/report.h"
#include "runtime/handle.h"

#include <algorithm>
#include <cstring>
#include <mutex>

namespace {

// The pair is the process's, and handles are made on several threads at once: changes
// to it and reads of its code hold the lock.
constexpr int GlobalMessageSize = 4096;
std::mutex globalLock;
int globalCode = 0;
char globalMessage[GlobalMessageSize] = {0};

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
    h->errorCode = code;
    storeText(h->message.data(), h->messageSize, text);
    return code;
}

int setGlobalError(int code, const QString& text)
{
    const std::lock_guard<std::mutex> locked(globalLock);
    globalCode = code;
    storeText(globalMessage, GlobalMessageSize, text);
    return code;
}

void logToHandle(ZelkHandle* h, const QString& text)
{
    storeText(h->message.data(), h->messageSize, text);
}

int globalErrorCode()
{
    const std::lock_guard<std::mutex> locked(globalLock);
    return globalCode;
}

const char* globalErrorMessage()
{
    return globalMessage;
}

void clearGlobalErrorMessage()
{
    const std::lock_guard<std::mutex> locked(globalLock);
    globalMessage[0] = '\0';
}

int nullHandle(const char* function)
{
    return setGlobalError(-101, QStringLiteral("%1: Passing NULL pointer.").arg(QLatin1String(function)));
}

int noProject(ZelkHandle* h, const char* function)
{
    return setHandleError(h, -103, QStringLiteral("%1: Project not loaded.").arg(QLatin1String(function)));
}

int noClassifier(ZelkHandle* h, const char* function)
{
    return setHandleError(h, -104, QStringLiteral("%1: Classifier model not loaded.").arg(QLatin1String(function)));
}
