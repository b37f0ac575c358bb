#pragma once
// Views of handle state that no exported call shows, for the tests of the C interface,
// and the one state that no caller can bring about. The tests link the library's
// objects; the shared library exports the zelk_* calls only, so none of this leaves it.

#include <QVector>

struct ZelkHandle;

namespace handleprobe {

// The references a correction load put in force: the exports load them but never
// hand them back.
struct Correction {
    bool enabled = false;
    QVector<float> dark, gain;
};
Correction correction(const ZelkHandle* h);

// Whether the last load of a reference pair kept its white and dark scans: they are
// kept for later loads and never handed out.
struct PairScans {
    bool white = false, dark = false;
};
PairScans pairScans(const ZelkHandle* h);

// The processing set-up a load derived from the project: the exports show only which
// frame path then runs.
int processingSetup(const ZelkHandle* h);

// Whether segmentation is on, the project's segmenter is lent to the handle, and the
// objects that segmenter holds: the exports show them only through the records of a
// frame or cube that went well.
struct Segmentation {
    bool enabled = false, lent = false;
    int objects = -1; // -1 with no segmenter lent
};
Segmentation segmentation(const ZelkHandle* h);

// Frames counted since the start, the ring rows of the last and the next frame, and the
// serial number of the last object: the exports hand out the last row's contents and
// the records that were stored, and the frame count only when the run stops.
struct Run {
    int frames = 0, last = 0, next = 0, objectSerial = 0;
};
Run run(const ZelkHandle* h);

// The device that loads and starts run on: zelk_SetDevice logs the chosen entry's
// name, but nothing hands back the device itself.
int selectedDevice(const ZelkHandle* h);

// The camera description and the resampling target: the exports take them but give
// back only the band count of the resampler, through a later load.
struct Camera {
    int frameWidth = -1, bandCount = -1;
    QVector<double> wavelengths, grid; // empty when never set
    bool resampling = false;
    int resamplerBands = -1; // the target bands of the resampler, -1 without one
};
Camera camera(const ZelkHandle* h);

// The sample type that frames and cubes are read in: fixed by the handle's first start,
// while zelk_GetInputDataType answers for the project loaded now.
int inputDataType(const ZelkHandle* h);

// Every camera gives frames of unsigned 16-bit or float samples; the frame path still
// refuses any other type, and only this can put one in place.
void forceInputDataType(ZelkHandle* h, int type);

} // namespace handleprobe
