// Handle life, errors and version.

#include "runtime/boundary.h"
#include "runtime/device_list.h"
#include "runtime/handle.h"
#include "runtime/report.h"

namespace {
const char* const Version = "5.1 (23-apr-2024)";
}

extern "C" ZELK_API ZelkHandle* zelk_Init(const char* /*arg*/)
{
    return guarded<ZelkHandle*>(nullptr, "zelk_Init", nullptr, [] {
        clearGlobalErrorMessage();
        auto h = std::make_unique<ZelkHandle>();
        logToHandle(h.get(), QStringLiteral("Tessaron Zelk Runtime version %1").arg(QLatin1String(Version)));
        buildDeviceList(h->devices, 0, 0);
        return h.release();
    });
}

extern "C" ZELK_API void zelk_Release(ZelkHandle* h)
{
    if (!h)
        return;
    guarded<int>(nullptr, "zelk_Release", 0, [h] {
        delete h;
        return 0;
    });
}

extern "C" ZELK_API const char* zelk_GetVersion(void)
{
    return Version;
}

extern "C" ZELK_API int zelk_GetErrorCode(ZelkHandle* h)
{
    return h ? h->errorCode : globalErrorCode();
}

extern "C" ZELK_API const char* zelk_GetErrorMsg(ZelkHandle* h)
{
    return h ? h->message.data() : globalErrorMessage();
}
