// The camera's own band grid, for projects trained on another grid: the calls that
// describe it and the one that builds the resampler from it.

#include "runtime/boundary.h"
#include "runtime/handle.h"
#include "runtime/report.h"
#include "spectral/envi_header.h"

#include <cmath>
#include <cstdio>

namespace {

// More grid points than any spectrometer has bands: a grid beyond this is a mistake in
// its arguments, and building it would only exhaust memory.
constexpr int MaxGridPoints = 1000000;

// The grid first, first + step, ... summed in double, for as long as `last` >= the value,
// the test coming after the append; false, with `grid` unfinished, for a grid that never
// ends (the sum stops moving, or it passes MaxGridPoints).
bool buildGrid(float first, float step, float last, QVector<double>& grid)
{
    const double end = last;
    double value = first;
    do {
        if (grid.size() == MaxGridPoints)
            return false;
        grid.append(value);
        const double next = value + double(step);
        if (next == value && end >= next)
            return false; // the sum no longer moves: no end
        value = next;
    } while (end >= value);
    return true;
}

} // namespace

extern "C" ZELK_API int zelk_SetDeviceFrameWidth(ZelkHandle* h, int width)
{
    if (!h)
        return nullHandle("zelk_SetDeviceFrameWidth");
    h->deviceFrameWidth = width;
    return 0;
}

extern "C" ZELK_API int zelk_SetDeviceWavelengthCount(ZelkHandle* h, int count)
{
    if (!h)
        return nullHandle("zelk_SetDeviceWavelengthCount");
    h->deviceBandCount = count;
    if (h->deviceWavelengths)
        h->deviceWavelengths->resize(0); // keeps the capacity
    return 0;
}

extern "C" ZELK_API int zelk_AddDeviceWavelength(ZelkHandle* h, float wavelength)
{
    if (!h)
        return nullHandle("zelk_AddDeviceWavelength");
    if (!h->deviceWavelengths)
        return -1;
    return guarded<int>(h, "zelk_AddDeviceWavelength", InternalErrorCode, [&] {
        h->deviceWavelengths->append(double(wavelength));
        return 0;
    });
}

extern "C" ZELK_API int zelk_SetDeviceWavelengthsFromENVIHeaderFile(ZelkHandle* h, const char* fileName)
{
    if (!h)
        return nullHandle("zelk_SetDeviceWavelengthsFromENVIHeaderFile");
    return guarded<int>(h, "zelk_SetDeviceWavelengthsFromENVIHeaderFile", InternalErrorCode, [&] {
        const EnviHeader header = EnviHeader::read(QString::fromLatin1(fileName)); // null: empty, unopenable
        const int bands = header.headerInt(QStringLiteral("bands"));
        if (bands < 0)
            return -1;
        auto wavelengths = header.headerDoubles(QStringLiteral("Wavelength"), bands);
        if (!wavelengths)
            return -1;
        h->deviceWavelengths = std::make_unique<QVector<double>>(*wavelengths);
        h->deviceBandCount = h->deviceWavelengths->size();
        const int samples = header.headerInt(QStringLiteral("samples"));
        if (samples < 0)
            return -1;
        h->deviceFrameWidth = samples;
        return 0;
    });
}

extern "C" ZELK_API int zelk_SetResamplingWavelengthsGrid(ZelkHandle* h, float first, float step, float last)
{
    if (!h)
        return nullHandle("zelk_SetResamplingWavelengthsGrid");
    // The grid is built aside and taken only when it ends: one that never ends (a step of
    // 0 or below with `last` not below the second value, `last` = +inf, or a step too
    // small to move the sum) or that would hold more points than any spectrometer has
    // bands is refused rather than left to exhaust memory. NaN or -inf arguments end the
    // grid after its first value, as the end test says.
    return guarded<int>(h, "zelk_SetResamplingWavelengthsGrid", InternalErrorCode, [&] {
        QVector<double> grid;
        if (!buildGrid(first, step, last, grid))
            return setHandleError(h, ZELK_E_FAILED,
                                  QStringLiteral("zelk_SetResamplingWavelengthsGrid: The grid from %1 in steps of %2 to %3 has no end")
                                      .arg(double(first)).arg(double(step)).arg(double(last)));
        if (!h->resamplingWavelengths)
            h->resamplingWavelengths = std::make_unique<QVector<double>>();
        h->resamplingWavelengths->swap(grid);
        return 0;
    });
}

extern "C" ZELK_API int zelk_SetResampling(ZelkHandle* h, int mode)
{
    if (!h)
        return nullHandle("zelk_SetResampling");
    if (mode != 1)
        return -1;
    if (!h->deviceWavelengths || !h->resamplingWavelengths)
        return -402;
    if (h->deviceWavelengths->size() != h->deviceBandCount || h->deviceFrameWidth == -1 || h->deviceBandCount == -1)
        return -403;
    return guarded<int>(h, "zelk_SetResampling", InternalErrorCode, [&] {
        h->resampler = std::make_unique<ZelkResampler>();
        const ZelkBandSet source(h->deviceWavelengths.get()), target(h->resamplingWavelengths.get());
        std::printf(" deviceWidth=%d ", h->deviceFrameWidth);
        const int result = h->resampler->init(h->deviceFrameWidth, source, target);
        std::printf(" res_init=%d ", result);
        std::fflush(stdout);
        if (result == 0)
            h->resamplingEnabled = true;
        return result;
    });
}
