#pragma once
// Every exported call runs its body through `exported`, which
// - refuses a null handle with -101 "<name>: Passing NULL pointer." in the process-wide
//   pair, for the calls that need a handle,
// - names the call (RunningCall), so that the texts of its body are reported as
//   "<name>: ..." (report.h),
// - turns an exception that escapes into -199 "<name>: Internal error (<reason>)",
//   stored like any other failure: no exception crosses the C boundary.
// A failed call returns its code, as a float for the float call, or null for the calls
// that return a pointer.

#include "runtime/messages.h"
#include "runtime/report.h"

#include <exception>
#include <type_traits>
#include <utility>

struct ZelkHandle;

constexpr int InternalErrorCode = ZELK_E_INTERNAL;

// The exported call that runs on this thread, set by `exported` for the length of the
// call. Its name goes in front of the texts its body reports (report.h). Calls nest (the
// acquisition start asks zelk_GetInputDataType), so the outer name comes back.
class RunningCall {
public:
    explicit RunningCall(const char* textName) : outer(running) { running = textName; }
    ~RunningCall() { running = outer; }
    RunningCall(const RunningCall&) = delete;
    RunningCall& operator=(const RunningCall&) = delete;
    static const char* name() { return running; }

private:
    static inline thread_local const char* running = nullptr;
    const char* outer;
};

// -199 with the function's name and the reason, in the handle's pair or, without a
// handle, in the process-wide one.
void reportInternalError(ZelkHandle* h, const char* function, const char* reason);

template <class R>
R failedWith(int code)
{
    if constexpr (std::is_pointer_v<R>)
        return nullptr;
    else
        return R(code);
}

// Runs `body`; an exception that escapes it is reported under `function` into `h`, and
// `failure` comes back instead.
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

// An exported call that needs its handle `h`.
template <class Body>
auto exported(const ExportNames& names, ZelkHandle* h, Body&& body) -> decltype(body())
{
    using R = decltype(body());
    const RunningCall call(names.texts);
    if (!h)
        return guarded<R>(nullptr, names.function, failedWith<R>(InternalErrorCode), [&] {
            return failedWith<R>(setGlobalError(msg::NullPointer.code, spelled(msg::NullPointer, names.nullText)));
        });
    return guarded<R>(h, names.function, failedWith<R>(InternalErrorCode), body);
}

template <class Body>
auto exported(const char* function, ZelkHandle* h, Body&& body) -> decltype(body())
{
    return exported(ExportNames{function, function, function}, h, std::forward<Body>(body));
}

// An exported call that answers a null handle itself (or takes none); an internal
// error goes into `reportTo`, or the process-wide pair when that is null.
template <class Body>
auto exportedForAnyHandle(const char* function, ZelkHandle* reportTo, Body&& body) -> decltype(body())
{
    using R = decltype(body());
    const RunningCall call(function);
    return guarded<R>(reportTo, function, failedWith<R>(InternalErrorCode), body);
}
