#include "runtime/device_list.h"
#include "compute/backend.h"

int buildDeviceList(QList<ZelkDevice>& devices, int listNVIDIA, int listOpenCL)
{
    const struct {
        int number;
        bool wanted;
        int failure;
    } families[] = {
        {compute::BackendCpu, true, -140},
        {compute::BackendCuda, listNVIDIA == 1, -141},
        {compute::BackendOpenCl, listOpenCL == 1, -142},
    };
    for (const auto& family : families) {
        // Asked only for the families wanted, so that a CPU-only list loads no GPU driver
        // (whose threads would run beside the caller's).
        if (!family.wanted || !compute::backendAvailable(family.number))
            continue;
        const QStringList names = compute::deviceNames(family.number);
        if (names.isEmpty())
            return family.failure;
        for (int i = 0; i < names.size(); ++i)
            devices.append(ZelkDevice{family.number, i, names[i]});
    }
    return 0;
}
