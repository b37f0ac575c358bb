// The compute device list and the choice of device.

#include "compute/backend.h"
#include "runtime/boundary.h"
#include "runtime/device_list.h"
#include "runtime/handle.h"
#include "runtime/report.h"

extern "C" ZELK_API int zelk_GetDeviceCount(ZelkHandle* h)
{
    if (!h)
        return setGlobalError(ZELK_E_NULL_POINTER, QStringLiteral("zelk_GetDeviceCount: Passing NULL pointer."));
    return h->devices.size();
}

extern "C" ZELK_API const char* zelk_GetDeviceName(ZelkHandle* h, int index)
{
    if (!h) {
        setGlobalError(ZELK_E_NULL_POINTER, QStringLiteral("zelk_GetDeviceName: Passing NULL pointer."));
        return nullptr;
    }
    return guarded<const char*>(h, "zelk_GetDeviceName", nullptr, [&]() -> const char* {
        if (index < 0 || index >= h->devices.size()) {
            setHandleError(h, ZELK_E_NAME_INDEX, QStringLiteral("zelk_GetDeviceName: Device index out of bounds (%1)").arg(index));
            return nullptr;
        }
        logToHandle(h, h->devices[index].name);
        return h->message.data();
    });
}

extern "C" ZELK_API int zelk_SetDevice(ZelkHandle* h, int index)
{
    if (!h)
        return setGlobalError(ZELK_E_NULL_POINTER, QStringLiteral("zelk_SetDevice: Passing NULL pointer."));
    return guarded<int>(h, "zelk_SetDevice", InternalErrorCode, [&] {
        if (h->acquiring)
            return setHandleError(h, ZELK_E_ACQUIRING, QStringLiteral("zelk_SetDevice: Cannot set device when running acquisition. Stop acquisition first."));
        if (index < 0 || index >= h->devices.size())
            return setHandleError(h, ZELK_E_NAME_INDEX, QStringLiteral("zelk_SetDevice: Device index out of bounds (%1)").arg(index));
        const ZelkDevice& d = h->devices[index];
        const int device = compute::makeDevice(d.backend, d.deviceIndex);
        std::shared_ptr<compute::Backend> opened = compute::openDevice(device);
        if (!opened)
            return setHandleError(h, ZELK_E_DEVICE, QStringLiteral("zelk_SetDevice: Error switching to computation device"));
        h->backend = std::move(opened);
        h->device = device;
        logToHandle(h, QStringLiteral("Selected device %1: ").arg(index) + d.name);
        h->errorCode = 0;
        return 0;
    });
}

extern "C" ZELK_API int zelk_RefreshDeviceList(ZelkHandle* h, int listNVIDIA, int listOpenCL)
{
    if (!h)
        return setGlobalError(ZELK_E_NULL_POINTER, QStringLiteral("zelk_RefreshDeviceList: Passing NULL pointer."));
    return guarded<int>(h, "zelk_RefreshDeviceList", InternalErrorCode, [&] {
        h->devices.clear();
        if (unsigned(listNVIDIA) > 1 || unsigned(listOpenCL) > 1)
            return setHandleError(h, ZELK_E_DEVICE_FLAGS, QStringLiteral("zelk_RefreshDeviceList: listNVIDIA and listOpenCL must be specified as 0 or 1 values"));
        const int result = buildDeviceList(h->devices, listNVIDIA, listOpenCL);
        switch (result) {
        case 0:
            return 0;
        case -142:
            return setHandleError(h, result, QStringLiteral("zelk_RefreshDeviceList: Error setting OpenCL backend"));
        case -141:
            return setHandleError(h, result, QStringLiteral("zelk_RefreshDeviceList: Error setting CUDA backend"));
        default:
            setHandleError(h, ZELK_E_DEVICE, QStringLiteral("zelk_RefreshDeviceList: Error switching to computation device"));
            return result;
        }
    });
}
