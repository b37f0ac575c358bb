#include "runtime/boundary.h"
#include "runtime/report.h"

void reportInternalError(ZelkHandle* h, const char* function, const char* reason)
{
    const QString text = QStringLiteral("%1: Internal error (%2)").arg(QLatin1String(function), QString::fromLocal8Bit(reason));
    try {
        if (h)
            setHandleError(h, InternalErrorCode, text);
        else
            setGlobalError(InternalErrorCode, text);
    } catch (...) {
        // Out of memory while reporting: the text is lost, the caller still gets the code.
    }
}
