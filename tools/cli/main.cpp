// zelk: the library's command-line program.

#include "zelk.h"

#include <cstdio>
#include <cstring>

namespace {

int usage()
{
    std::fprintf(stderr,
                 "usage: zelk COMMAND\n"
                 "  version   print the library version\n"
                 "  devices   list the compute devices\n");
    return 2;
}

int listDevices()
{
    ZelkHandle* h = zelk_Init(nullptr);
    if (!h) {
        std::fprintf(stderr, "zelk: %d: %s\n", zelk_GetErrorCode(nullptr), zelk_GetErrorMsg(nullptr));
        return 1;
    }
    int status = 0;
    const int refreshed = zelk_RefreshDeviceList(h, 1, 1);
    if (refreshed < 0) {
        std::fprintf(stderr, "zelk: %d: %s\n", zelk_GetErrorCode(h), zelk_GetErrorMsg(h));
        status = 1;
    }
    const int count = zelk_GetDeviceCount(h);
    for (int i = 0; i < count; ++i)
        std::printf("%d  %s\n", i, zelk_GetDeviceName(h, i));
    zelk_Release(h);
    return status;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 2)
        return usage();
    if (!std::strcmp(argv[1], "version")) {
        std::printf("%s\n", zelk_GetVersion());
        return 0;
    }
    if (!std::strcmp(argv[1], "devices"))
        return listDevices();
    return usage();
}
