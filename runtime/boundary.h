#pragma once
// No exception crosses the C boundary. Each exported call runs its body through
// `guarded`: an exception that escapes becomes code -199 with the function's name and
// the reason, stored like any other failure, and the call returns `failure`.

#include "zelk.h"

#include <exception>

struct ZelkHandle;

constexpr int InternalErrorCode = ZELK_E_INTERNAL;

void reportInternalError(ZelkHandle* h, const char* function, const char* reason);

template <class R, class Body>
R guarded(ZelkHandle* h, const char* function, R failure, Body&& body)
{
    try {
        return body();
    } catch (const std::exception& e) {
        reportInternalError(h, function, e.what());
    } catch (...) {
        reportInternalError(h, function, "unknown exception");
    }
    return failure;
}
