#pragma once
// The three operations through which the runtime reports. Each error setter returns
// the code, so that a failing check is one line.

#include <QString>

struct ZelkHandle;

int setHandleError(ZelkHandle* h, int code, const QString& text);
int setGlobalError(int code, const QString& text);
void logToHandle(ZelkHandle* h, const QString& text);

// The common refusals: "<function>: Passing NULL pointer." to the global pair, and
// "<function>: Project not loaded." or ": Classifier model not loaded." to the handle.
int nullHandle(const char* function);
int noProject(ZelkHandle* h, const char* function);
int noClassifier(ZelkHandle* h, const char* function);

// Writes `text` into a buffer of `capacity` bytes in the local 8-bit encoding. A text
// of capacity - 1 characters or more is not stored and the older content stays.
void storeText(char* buffer, int capacity, const QString& text);

// The process-wide pair, read through the exported calls with a null handle.
int globalErrorCode();
const char* globalErrorMessage();
void clearGlobalErrorMessage();
