#include "runtime/export.h"

void reportInternalError(ZelkHandle* h, const char* function, const char* reason)
{
    try {
        const Text text = msg::internalError(QString::fromLocal8Bit(reason));
        if (h)
            setHandleError(h, text.code, spelled(text, function));
        else
            setGlobalError(text.code, spelled(text, function));
    } catch (...) {
        // Out of memory while reporting: the text is lost, the caller still gets the code.
    }
}
