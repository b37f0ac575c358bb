// Resampling a whole cube to another band grid, line by line.

#include "classify/resampler.h"
#include "spectral/spectral_cube.h"

std::unique_ptr<ZelkSpectralCube> ZelkSpectralCube::resampled(const ZelkResampler& resampler, int* status)
{
    auto refuse = [&](int code, const QString& message) -> std::unique_ptr<ZelkSpectralCube> {
        *status = fail(code, message);
        return nullptr;
    };
    if (layout != LayoutBIL)
        return refuse(-32030, QStringLiteral("Only BIL layout is supported in resampling"));
    if (dataType != DataUInt16)
        return refuse(-32031, QStringLiteral("Only uint16 data type is supported in resampling"));
    if (!resampler.resamplerReady || columns != resampler.width || bands != resampler.sourceBands ||
        dataBytes() < sampleCount() * 2)
        return refuse(-32032, QStringLiteral("Cube does not match the resampler (%1 columns, %2 bands)").arg(columns).arg(bands));

    auto out = std::make_unique<ZelkSpectralCube>(DataUInt16, LayoutBIL);
    out->columns = columns;
    out->lines = lines;
    out->bands = resampler.destBands;
    out->tag = tag;
    if (out->sampleCount() > 0 && out->allocate(out->sampleCount()) != 0)
        return refuse(out->errorCode, out->errorText);
    const qint64 inLine = qint64(columns) * bands, outLine = qint64(columns) * resampler.destBands;
    for (int l = 0; l < lines; ++l)
        resampler.resample(samples<quint16>() + l * inLine, out->samples<quint16>() + l * outLine);
    *status = 0;
    return out;
}
