/* A plain C caller: the header compiles as C99 and the library answers through it. */
#include "zelk.h"

#include <stdio.h>
#include <string.h>

int main(void)
{
    ZelkHandle* h = zelk_Init(NULL);
    if (!h || strcmp(zelk_GetVersion(), "5.1 (23-apr-2024)") != 0 || zelk_GetDeviceCount(h) < 1) {
        fprintf(stderr, "C caller: unexpected answer from the library\n");
        return 1;
    }
    if (zelk_SetDevice(h, 999) != -102 || zelk_GetErrorCode(h) != -102) {
        fprintf(stderr, "C caller: error code did not come through\n");
        return 1;
    }
    zelk_Release(h);
    zelk_Release(NULL);
    return 0;
}
