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
    if (zelk_GetObjCount(h) != 0 || zelk_GetDecCount(h) != -103 || zelk_SaveImage(h, "none.png") != -120
        || zelk_GetFrameDecisions(NULL) != NULL || zelk_GetObjDataClassFrac(NULL, 0, 0) != -101.0f) {
        fprintf(stderr, "C caller: result calls did not answer as expected\n");
        return 1;
    }
    zelk_Release(h);
    zelk_Release(NULL);
    return 0;
}
