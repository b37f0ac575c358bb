// The compute device list and the choice of device.

#include "compute/backend.h"
#include "runtime/device_list.h"
#include "runtime/export.h"
#include "runtime/handle.h"

extern "C" ZELK_API int zelk_GetDeviceCount(ZelkHandle* h)
{
    return exported("zelk_GetDeviceCount", h, [&] { return h->computeDevices.list.size(); });
}

extern "C" ZELK_API const char* zelk_GetDeviceName(ZelkHandle* h, int index)
{
    return exported("zelk_GetDeviceName", h, [&]() -> const char* {
        if (index < 0 || index >= h->computeDevices.list.size()) {
            fail(h, msg::deviceIndex(index));
            return nullptr;
        }
        logToHandle(h, h->computeDevices.list[index].name);
        return h->error.text.data();
    });
}

extern "C" ZELK_API int zelk_SetDevice(ZelkHandle* h, int index)
{
    return exported("zelk_SetDevice", h, [&] {
        if (h->isAcquiring())
            return fail(h, msg::DeviceWhileAcquiring);
        if (index < 0 || index >= h->computeDevices.list.size())
            return fail(h, msg::deviceIndex(index));
        const ZelkDevice& d = h->computeDevices.list[index];
        const int device = compute::makeDevice(d.backend, d.deviceIndex);
        std::shared_ptr<compute::Backend> opened = compute::openDevice(device);
        if (!opened)
            return fail(h, msg::DeviceSwitch);
        h->computeDevices.opened = std::move(opened);
        h->computeDevices.selected = device;
        logToHandle(h, msg::selectedDevice(index, d.name));
        h->error.code = 0;
        return 0;
    });
}

extern "C" ZELK_API int zelk_RefreshDeviceList(ZelkHandle* h, int listNVIDIA, int listOpenCL)
{
    return exported("zelk_RefreshDeviceList", h, [&] {
        h->computeDevices.list.clear();
        if (unsigned(listNVIDIA) > 1 || unsigned(listOpenCL) > 1)
            return fail(h, msg::DeviceFlags);
        const int result = buildDeviceList(h->computeDevices.list, listNVIDIA, listOpenCL);
        switch (result) {
        case 0:
            return 0;
        case ZELK_E_OPENCL:
            return fail(h, msg::OpenClBackend);
        case ZELK_E_CUDA:
            return fail(h, msg::CudaBackend);
        default:
            // The list's own code comes back, with the text of a device switch.
            fail(h, msg::DeviceSwitch);
            return result;
        }
    });
}
