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

/* Codes of failures; zelk_GetErrorMsg has the text. Groups of hundreds: -1xx arguments,
 * project, loading, correction, devices, objects and acquisition; -2xx data shape and
 * kind; -3xx regression; -4xx resampling; -4xxx correction. */
enum {
    ZELK_E_FAILED = -1, /* a failure that stores no text */
    ZELK_E_NULL_POINTER = -101, /* a null handle or pointer */
    ZELK_E_NAME_INDEX = -102, /* a device or variable index out of range */
    ZELK_E_NO_PROJECT = -103, /* no model loaded */
    ZELK_E_NO_CLASSIFIER = -104, /* the model has no classifier */
    ZELK_E_MODEL_READ = -110, /* the model file cannot be read */
    ZELK_E_MODEL_FORMAT = -111, /* not a model file */
    ZELK_E_MODEL_CONTENT = -112, /* the model's content cannot be used */
    ZELK_E_MODEL_OPEN = -113, /* the model file cannot be opened */
    ZELK_E_NO_DECISION_IMAGE = -120, /* no decision image yet */
    ZELK_E_SCAN_METADATA = -130, /* the meta-data of a correction scan */
    ZELK_E_REFERENCE_READ = -131, /* a reference cannot be read */
    ZELK_E_REFERENCE_SHAPE = -132, /* references of different shapes */
    ZELK_E_REFERENCE_PAIR = -134, /* only one of the two references */
    ZELK_E_REFERENCE_MISSING = -135, /* a reference file is missing */
    ZELK_E_LAYOUT = -136, /* a layout that cannot be used */
    ZELK_E_CORRECTION_SCAN = -137, /* a correction scan cannot be loaded */
    ZELK_E_DEVICE = -140, /* the device cannot be selected */
    ZELK_E_CUDA = -141, /* the CUDA backend cannot be set */
    ZELK_E_OPENCL = -142, /* the OpenCL backend cannot be set */
    ZELK_E_DEVICE_FLAGS = -143, /* device list flags other than 0 or 1 */
    ZELK_E_TOO_MANY_OBJECTS = -160, /* more objects than a frame or cube reports */
    ZELK_E_OBJECT_INDEX = -161, /* an object index out of range */
    ZELK_E_CLASS_INDEX = -162, /* a class index out of range */
    ZELK_E_NOT_ALL_FOREGROUND = -163, /* segmentation not in 'All foreground' mode */
    ZELK_E_NO_SEGMENTER = -164, /* the model defines no segmentation */
    ZELK_E_CAMERA_UNSUPPORTED = -165, /* project and acquisition type unsupported */
    ZELK_E_ACQUIRING = -170, /* not while acquiring */
    ZELK_E_NOT_ACQUIRING = -171, /* only while acquiring */
    ZELK_E_SEGMENTATION = -172, /* the segmentation cannot run */
    ZELK_E_LAYOUT_NOT_SET = -173, /* no input layout */
    ZELK_E_TYPE_NOT_SET = -174, /* no input sample type */
    ZELK_E_DECISION_INDEX = -180, /* a decision index out of range */
    ZELK_E_OBJECT_SIZE = -190, /* a minimum object size below 1 */
    ZELK_E_INTERNAL = -199, /* an unexpected internal failure */
    ZELK_E_NOT_SNAPSHOT_PROJECT = -201, /* a cube for a line-scan project */
    ZELK_E_LAYOUT_UNDEFINED = -205, /* the camera gives no layout */
    ZELK_E_TYPE_UNDEFINED = -206, /* the camera gives no sample type */
    ZELK_E_PROJECT_TYPE = -207, /* a camera whose cubes cannot be taken */
    ZELK_E_DATA_FORMAT = -208, /* a sample type or layout that cannot be taken */
    ZELK_E_BIP_CORRECTION = -209, /* correction of BIP frames */
    ZELK_E_ROI = -210, /* a region of interest outside the image */
    ZELK_E_LINE_SCAN_EXPECTED = -211, /* a line-scan call on a snapshot project */
    ZELK_E_SNAPSHOT_EXPECTED = -212, /* a snapshot call on a line-scan project */
    ZELK_E_CUBE_SEGMENTATION = -213, /* the labelling of a cube failed */
    ZELK_E_IMAGE_SAVE = -220, /* the image cannot be saved */
    ZELK_E_ROI_UNSUPPORTED = -221, /* a region of interest for this camera */
    ZELK_E_WIDTH = -230, /* a width below 1 */
    ZELK_E_VARIABLE_INDEX = -301, /* a regression variable out of range */
    ZELK_E_NO_REGRESSOR = -302, /* the model has no regressor */
    ZELK_E_MASK_WITHOUT_SEGMENTATION = -303, /* masking without segmentation */
    ZELK_E_REGRESSION = -304, /* the regressor cannot run */
    ZELK_E_NO_REGRESSION_OUTPUT = -305, /* no regression output before a start */
    ZELK_E_RESAMPLING_WAVELENGTHS = -402, /* no camera or target wavelengths */
    ZELK_E_RESAMPLING_CAMERA = -403, /* the camera's wavelengths or width do not fit */
    ZELK_E_RESAMPLING = -404, /* the resampler cannot run */
    ZELK_E_CORRECTION_INVALID = -4302, /* a correction that does not fit the scan */
    ZELK_E_CORRECTION_INFO = -4304, /* invalid correction information */
    ZELK_E_REFERENCE_NOT_BIP = -4305, /* a cube reference not in BIP */
    ZELK_E_REFERENCE_NOT_FLOAT = -4306 /* a cube reference not of float samples */
};

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

/* Model. */

/* Loads a ".zelk" or ".zpl" model file (path in Latin-1), replacing the project: 0;
 * -113 when the file cannot be opened; -110, -111, -112 when it cannot be read, with no
 * project left; -1 when the project holds no image to take the geometry from. */
ZELK_API int zelk_LoadModel(ZelkHandle* h, const char* fileName);

/* Input configuration, between a load and a start. */

ZELK_API int zelk_GetInputWidth(ZelkHandle* h);
ZELK_API int zelk_GetInputHeight(ZelkHandle* h);
ZELK_API int zelk_GetInputBands(ZelkHandle* h);
/* 1 unsigned 16-bit samples, 2 float. */
ZELK_API int zelk_GetInputDataType(ZelkHandle* h);
/* 1 pixel after pixel (BIP), 2 band after band per line (BIL), 3 band after band per cube. */
ZELK_API int zelk_GetInputDataLayout(ZelkHandle* h);
/* 1: each decision forms its own objects; 2: all foreground decisions together. */
ZELK_API int zelk_GetMaskType(ZelkHandle* h);
/* The frame width of a line-scan camera; call it after zelk_LoadModel. */
ZELK_API int zelk_SetInputWidth(ZelkHandle* h, int width);
/* 1, 2 or 3 as above; another value gives -136 in the process-wide pair. */
ZELK_API int zelk_SetInputDataLayout(ZelkHandle* h, unsigned int layout);
/* The region of a cube to classify, the rest filled with `fill`; -1 in any of the four
 * numbers switches it off. */
ZELK_API int zelk_SetCubeROI(ZelkHandle* h, int col, int row, int width, int height, unsigned char fill);
/* 1 switches object segmentation on after checking the project's definition; 0 off. */
ZELK_API int zelk_SetSegmentation(ZelkHandle* h, unsigned int mode);
/* Objects smaller than `size` pixels are dropped: 0, -1 or -164. */
ZELK_API int zelk_SetMinObjSize(ZelkHandle* h, int size);

/* Acquisition. */

ZELK_API int zelk_StartAcquisition(ZelkHandle* h);
/* Ends the run and logs its timing statistics in the handle's text; clears the code. */
ZELK_API int zelk_StopAcquisition(ZelkHandle* h);
/* One line of a line-scan camera: zelk_GetInputWidth pixels of all bands, in the
 * input type and layout. Its decisions, values and finished objects stay readable
 * until the next frame. */
ZELK_API int zelk_ProcessFrame(ZelkHandle* h, const void* frame);
/* One cube of a snapshot camera: zelk_GetInputWidth by zelk_GetInputHeight pixels of
 * zelk_GetInputBands bands, in the form of the project's camera. Its decisions and
 * objects stay readable until the next cube. */
ZELK_API int zelk_ProcessCube(ZelkHandle* h, const void* cube);
/* Results of the last frame or cube. Pointers handed out stay the library's and stand
 * until the next frame or cube. */

/* Objects finished by the last frame, or found in the last cube. */
ZELK_API int zelk_GetObjCount(ZelkHandle* h);
/* The positions in an object record: ZELK_OBJ_RECORD_INTS signed 32-bit integers. The
 * centroid is the rounded mean line and column (in a stream of lines, the line counts
 * from the start of the acquisition); from ZELK_OBJ_CLASS_SIZES on, ZELK_OBJ_CLASS_SLOTS
 * counts of the object's pixels per decision code (20 foreground classes and the
 * unknown decision). */
enum {
    ZELK_OBJ_NUMBER = 0,
    ZELK_OBJ_CENTROID_LINE = 1,
    ZELK_OBJ_CENTROID_COLUMN = 2,
    ZELK_OBJ_FIRST_LINE = 3,
    ZELK_OBJ_LAST_LINE = 4,
    ZELK_OBJ_FIRST_COLUMN = 5,
    ZELK_OBJ_LAST_COLUMN = 6,
    ZELK_OBJ_PIXEL_COUNT = 7,
    ZELK_OBJ_DECISION = 8,
    ZELK_OBJ_CLASS_SIZES = 9,
    ZELK_OBJ_CLASS_SLOTS = 21,
    ZELK_OBJ_RECORD_INTS = 30
};
/* Points *out at the record of object `index`, 0 <= index < zelk_GetObjCount. */
ZELK_API int zelk_GetObjDataInt(ZelkHandle* h, int index, int** out);
/* Pixels of decision `classIndex` (0..20) in object `index`; needs 'All foreground'
 * segmentation and a running acquisition. */
ZELK_API int zelk_GetObjDataClassSize(ZelkHandle* h, int index, unsigned classIndex);
/* The same as a fraction of the object's pixels; a failure returns the code as a float. */
ZELK_API float zelk_GetObjDataClassFrac(ZelkHandle* h, int index, unsigned classIndex);
/* Points *out at the mean regression outputs of object `index`, one per variable. */
ZELK_API int zelk_GetObjDataRegOutput(ZelkHandle* h, int index, float** out);
/* Line-scan: the decisions of the last frame, one byte per pixel; 255 marks an object. */
ZELK_API unsigned char* zelk_GetFrameDecisions(ZelkHandle* h);
/* Snapshot: the decisions of the last cube, row by row; NULL before the first start. */
ZELK_API unsigned char* zelk_GetCubeDecisions(ZelkHandle* h);
/* Line-scan: regression variable `varIndex` of the last frame, one value per pixel.
 * With `mask` 1 (needs segmentation) pixels outside the foreground read `maskValue`. */
ZELK_API float* zelk_GetFrameRegOutputVar(ZelkHandle* h, int varIndex, int mask, float maskValue);
/* Number of decisions: the classes, then the rejected decision when there is one. */
ZELK_API int zelk_GetDecCount(ZelkHandle* h);
/* Name of a decision, kept in the handle's text buffer. */
ZELK_API const char* zelk_GetDecName(ZelkHandle* h, int index);
/* Display colour of a decision. */
ZELK_API int zelk_GetDecColor(ZelkHandle* h, int index, unsigned char* r, unsigned char* g, unsigned char* b);
/* Number of regression variables, 0 without a regressor. */
ZELK_API int zelk_GetRegVarCount(ZelkHandle* h);
/* Name of a regression variable, kept in the handle's text buffer. Without a regressor
 * NULL, with the code -302 in the process-wide pair. */
ZELK_API const char* zelk_GetRegVarName(ZelkHandle* h, int index);

/* Correction. */

/* Loads white and dark references for the loaded model, so that frames are corrected
 * to reflectance from the next zelk_StartAcquisition on; call it after zelk_LoadModel,
 * which drops the correction. Both strings are Latin-1 and a NULL directory reads as
 * the current one. Camera type 10 reads "whiteReference" and "darkReference" from
 * `directory`, and `name` must be NULL; type 19 reads the references of the scan
 * `name`; other types read those of the scan `name` in its capture folder. 0, or a
 * negative code (-1, -103, -130 ... -137, -4302 ... -4306); after a failure the handle
 * reads the report of the last failed reference load, and the correction loaded before
 * stays in use. Line-scan frames take references of one line only: a correction of
 * one spectrum or of a whole cube is refused with -133. */
ZELK_API int zelk_LoadCorrection(ZelkHandle* h, const char* directory, const char* name);

/* Writes the decision image (the ring of the last 500 lines, or the last cube) as an
 * indexed PNG with the decisions' colours; the file name is Latin-1. */
ZELK_API int zelk_SaveImage(ZelkHandle* h, const char* fileName);

#ifdef __cplusplus
}
#endif

#endif
