#include "compute/backend.h"
#include "compute/cpu/cpu_backend.h"
#include "compute/device.h"
#ifdef ZELK_WITH_OPENCL
#include "compute/opencl/opencl_backend.h"
#endif

namespace compute {
namespace {

#ifdef ZELK_WITH_OPENCL
// Enumerated on first use: a process that never asks for OpenCL never loads a driver.
OpenClDevices& openCl()
{
    static OpenClDevices instance;
    return instance;
}
#endif

} // namespace

bool backendAvailable(int number)
{
    switch (number) {
    case BackendCpu:
        return true;
#ifdef ZELK_WITH_OPENCL
    case BackendOpenCl:
        return openCl().count() > 0;
#endif
    default:
        return false;
    }
}

int availableBackends()
{
    int mask = 0;
    for (int number : {BackendCpu, BackendCuda, BackendOpenCl})
        if (backendAvailable(number))
            mask |= number;
    return mask;
}

QStringList deviceNames(int number)
{
    QStringList names;
    if (number == BackendCpu)
        names << QStringLiteral("CPU:") + CpuBackend::deviceName();
#ifdef ZELK_WITH_OPENCL
    if (number == BackendOpenCl && backendAvailable(number))
        for (const QString& name : openCl().names())
            names << QStringLiteral("OpenCL:") + name;
#endif
    return names;
}

std::shared_ptr<Backend> openDevice(int device, QString* error)
{
    const int number = deviceBackend(device), index = deviceIndex(device);
    if (number == BackendCpu && index == 0)
        return std::make_shared<CpuBackend>();
#ifdef ZELK_WITH_OPENCL
    if (number == BackendOpenCl)
        return openCl().open(index, error);
#endif
    if (error)
        *error = QStringLiteral("no device %1 of backend %2").arg(index).arg(number);
    return nullptr;
}

} // namespace compute
