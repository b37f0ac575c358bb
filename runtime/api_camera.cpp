// The camera's own band grid, for projects trained on another grid: the calls that
// describe it and the one that builds the resampler from it.

#include "compute/backend.h"
#include "runtime/export.h"
#include "runtime/handle.h"
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
    return exported("zelk_SetDeviceFrameWidth", h, [&] {
        h->resampling.deviceWidth = width;
        return 0;
    });
}

extern "C" ZELK_API int zelk_SetDeviceWavelengthCount(ZelkHandle* h, int count)
{
    return exported("zelk_SetDeviceWavelengthCount", h, [&] {
        h->resampling.deviceBands = count;
        if (h->resampling.deviceWavelengths)
            h->resampling.deviceWavelengths->resize(0); // keeps the capacity
        return 0;
    });
}

// The describing calls of this file report their refusals by code alone.
extern "C" ZELK_API int zelk_AddDeviceWavelength(ZelkHandle* h, float wavelength)
{
    return exported("zelk_AddDeviceWavelength", h, [&] {
        if (!h->resampling.deviceWavelengths)
            return failWithoutText(ZELK_E_FAILED);
        h->resampling.deviceWavelengths->append(double(wavelength));
        return 0;
    });
}

extern "C" ZELK_API int zelk_SetDeviceWavelengthsFromENVIHeaderFile(ZelkHandle* h, const char* fileName)
{
    return exported("zelk_SetDeviceWavelengthsFromENVIHeaderFile", h, [&] {
        const EnviHeader header = EnviHeader::read(QString::fromLatin1(fileName)); // null: empty, unopenable
        const EnviFields& fields = header.fields();
        const int bands = fields.bands;
        if (bands < 0)
            return failWithoutText(ZELK_E_FAILED);
        auto wavelengths = fields.wavelengthsFor(bands);
        if (!wavelengths)
            return failWithoutText(ZELK_E_FAILED);
        h->resampling.deviceWavelengths = std::make_unique<QVector<double>>(*wavelengths);
        h->resampling.deviceBands = h->resampling.deviceWavelengths->size();
        const int samples = fields.samples;
        if (samples < 0)
            return failWithoutText(ZELK_E_FAILED);
        h->resampling.deviceWidth = samples;
        return 0;
    });
}

// The grid is built aside and taken only when it ends: one that never ends (a step of
// 0 or below with `last` not below the second value, `last` = +inf, or a step too small
// to move the sum) or that would hold more points than any spectrometer has bands is
// refused rather than left to exhaust memory. NaN or -inf arguments end the grid after
// its first value, as the end test says.
extern "C" ZELK_API int zelk_SetResamplingWavelengthsGrid(ZelkHandle* h, float first, float step, float last)
{
    return exported("zelk_SetResamplingWavelengthsGrid", h, [&] {
        QVector<double> grid;
        if (!buildGrid(first, step, last, grid))
            return fail(h, msg::gridWithoutEnd(double(first), double(step), double(last)));
        if (!h->resampling.targetWavelengths)
            h->resampling.targetWavelengths = std::make_unique<QVector<double>>();
        h->resampling.targetWavelengths->swap(grid);
        return 0;
    });
}

extern "C" ZELK_API int zelk_SetResampling(ZelkHandle* h, int mode)
{
    return exported("zelk_SetResampling", h, [&] {
        if (mode != 1)
            return failWithoutText(ZELK_E_FAILED);
        if (!h->resampling.deviceWavelengths || !h->resampling.targetWavelengths)
            return failWithoutText(ZELK_E_RESAMPLING_WAVELENGTHS);
        if (h->resampling.deviceWavelengths->size() != h->resampling.deviceBands || h->resampling.deviceWidth == -1 || h->resampling.deviceBands == -1)
            return failWithoutText(ZELK_E_RESAMPLING_CAMERA);
        h->resampling.resampler = std::make_unique<ZelkResampler>();
        const ZelkBandSet source(h->resampling.deviceWavelengths.get()), target(h->resampling.targetWavelengths.get());
        compute::DeviceScope scope(h->computeDevices.selected);
        std::printf(" deviceWidth=%d ", h->resampling.deviceWidth);
        const int result = h->resampling.resampler->init(h->resampling.deviceWidth, source, target);
        std::printf(" res_init=%d ", result);
        std::fflush(stdout);
        if (result == 0)
            h->resampling.enabled = true;
        return result;
    });
}
