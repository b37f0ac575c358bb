/* Run-time library for machine vision with hyperspectral cameras.
 *
 * A caller makes a handle with zelk_Init, loads a model, describes its camera and
 * hands in frames or cubes; every call takes the handle first. A failing call
 * returns a negative code (or null, for calls that return a pointer) and keeps the
 * code and a text in the handle, read with zelk_GetErrorCode and zelk_GetErrorMsg.
 * Calls given a null handle keep them in a process-wide pair, read by passing NULL.
 * A handle is used by one thread at a time. */
#ifndef ZELK_H
#define ZELK_H

#if defined(ZELK_BUILDING_LIBRARY)
#define ZELK_API __attribute__((visibility("default")))
#else
#define ZELK_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

typedef struct ZelkHandle ZelkHandle;

/* Handle, errors and version. */

/* A new handle; the argument is not used. Its text reads the library's version line. */
ZELK_API ZelkHandle* zelk_Init(const char* arg);
/* Ends any state of the handle and frees it; NULL does nothing. */
ZELK_API void zelk_Release(ZelkHandle* h);
/* "5.1 (23-apr-2024)". */
ZELK_API const char* zelk_GetVersion(void);
/* The handle's last error code, or the process-wide one for NULL. Success does not
 * clear it, except in zelk_SetDevice and zelk_StopAcquisition. */
ZELK_API int zelk_GetErrorCode(ZelkHandle* h);
/* The handle's text buffer (last error, log line or name), or the process-wide text
 * for NULL. The pointer stays valid until the handle is released. */
ZELK_API const char* zelk_GetErrorMsg(ZelkHandle* h);

/* Compute devices. The list holds the CPU entries first, then CUDA, then OpenCL. */

ZELK_API int zelk_GetDeviceCount(ZelkHandle* h);
/* The name of list entry `index`, kept in the handle's text buffer. */
ZELK_API const char* zelk_GetDeviceName(ZelkHandle* h, int index);
/* Chooses list entry `index` for models loaded from now on; not while acquiring. */
ZELK_API int zelk_SetDevice(ZelkHandle* h, int index);
/* Rebuilds the list; each flag is 0 or 1 and adds that GPU family when available. */
ZELK_API int zelk_RefreshDeviceList(ZelkHandle* h, int listNVIDIA, int listOpenCL);

/* Camera description for spectral resampling, in this order: the camera's frame width
 * and wavelengths, the target grid, then zelk_SetResampling(h, 1), then the model. */

ZELK_API int zelk_SetDeviceFrameWidth(ZelkHandle* h, int width);
/* Sets the band count and empties the wavelength list loaded before. */
ZELK_API int zelk_SetDeviceWavelengthCount(ZelkHandle* h, int count);
/* Appends a wavelength; -1 unless a header was loaded first. */
ZELK_API int zelk_AddDeviceWavelength(ZelkHandle* h, float wavelength);
/* Wavelengths, band count and frame width from an ENVI header; -1 when a field is missing. */
ZELK_API int zelk_SetDeviceWavelengthsFromENVIHeaderFile(ZelkHandle* h, const char* fileName);
/* The grid first, first + step, ... up to last; first is always in it. */
ZELK_API int zelk_SetResamplingWavelengthsGrid(ZelkHandle* h, float first, float step, float last);
/* Mode 1 switches resampling on for the next model load. */
ZELK_API int zelk_SetResampling(ZelkHandle* h, int mode);

#ifdef __cplusplus
}
#endif

#endif
