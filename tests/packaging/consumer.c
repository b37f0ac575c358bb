/* A program from outside the project, built against the installed files only: it
 * prints the library's version. */
#include <zelk.h>

#include <stdio.h>

int main(void)
{
    ZelkHandle* h = zelk_Init(NULL);
    if (!h)
        return 1;
    printf("%s\n", zelk_GetVersion());
    zelk_Release(h);
    return 0;
}
