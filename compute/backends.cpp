#include "compute/backend.h"
#include "compute/cpu/cpu_backend.h"
#include "compute/device.h"
#ifdef ZELK_WITH_OPENCL
#include "compute/opencl/opencl_backend.h"
#endif

namespace compute {
namespace {

CpuBackend& cpu()
{
    static CpuBackend instance;
    return instance;
}

#ifdef ZELK_WITH_OPENCL
// Enumerated on first use: a process that never asks for OpenCL never loads a driver.
OpenClBackend& openCl()
{
    static OpenClBackend instance;
    return instance;
}
#endif

thread_local Backend* selected = nullptr;

} // namespace

bool backendAvailable(int number)
{
    return backend(number) != nullptr;
}

int availableBackends()
{
    int mask = 0;
    for (int number : {BackendCpu, BackendCuda, BackendOpenCl})
        if (backendAvailable(number))
            mask |= number;
    return mask;
}

Backend* backend(int number)
{
    switch (number) {
    case BackendCpu:
        return &cpu();
#ifdef ZELK_WITH_OPENCL
    case BackendOpenCl:
        return openCl().deviceCount() > 0 ? &openCl() : nullptr;
#endif
    default:
        return nullptr;
    }
}

bool selectDevice(int device)
{
    Backend* b = backend(deviceBackend(device));
    if (!b || !b->setDevice(deviceIndex(device)))
        return false;
    selected = b;
    return true;
}

Backend& activeBackend()
{
    return selected ? *selected : cpu();
}

void rest()
{
    selected = &cpu();
}

} // namespace compute
