// Handle life, errors and version.

#include "compute/backend.h"
#include "runtime/device_list.h"
#include "runtime/export.h"
#include "runtime/handle.h"

namespace {
const char* const Version = "5.1 (23-apr-2024)";
}

extern "C" ZELK_API ZelkHandle* zelk_Init(const char* /*arg*/)
{
    return exportedForAnyHandle("zelk_Init", nullptr, [] {
        clearGlobalErrorMessage();
        auto h = std::make_unique<ZelkHandle>();
        logToHandle(h.get(), msg::versionLine(Version));
        buildDeviceList(h->computeDevices.list, 0, 0);
        return h.release();
    });
}

// A failure while releasing goes into the process-wide pair: the handle is gone.
extern "C" ZELK_API void zelk_Release(ZelkHandle* h)
{
    exportedForAnyHandle("zelk_Release", nullptr, [h] {
        if (!h)
            return 0;
        // Device-resident members are freed on the device that holds them.
        compute::DeviceScope scope(h->computeDevices.selected);
        delete h;
        return 0;
    });
}

extern "C" ZELK_API const char* zelk_GetVersion(void)
{
    return exportedForAnyHandle("zelk_GetVersion", nullptr, [] { return Version; });
}

// With a null handle the error getters read the process-wide pair.
extern "C" ZELK_API int zelk_GetErrorCode(ZelkHandle* h)
{
    return exportedForAnyHandle("zelk_GetErrorCode", h, [h] { return h ? h->error.code : globalErrorCode(); });
}

extern "C" ZELK_API const char* zelk_GetErrorMsg(ZelkHandle* h)
{
    return exportedForAnyHandle("zelk_GetErrorMsg", h, [h] { return h ? h->error.text.data() : globalErrorMessage(); });
}
