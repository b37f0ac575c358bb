#include "compute/backend.h"
#include "compute/cpu/cpu_backend.h"
#include "compute/device.h"

namespace compute {
namespace {

CpuBackend& cpu()
{
    static CpuBackend instance;
    return instance;
}

thread_local Backend* selected = nullptr;

} // namespace

int availableBackends()
{
    return 1 << 0;
}

Backend* backend(int number)
{
    switch (number) {
    case BackendCpu:
        return &cpu();
    default:
        return nullptr;
    }
}

bool setBackend(int number)
{
    Backend* b = backend(number);
    if (!b)
        return false;
    selected = b;
    return true;
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
