#pragma once
// What the acquisition start shares with the frame and cube paths.

struct ZelkHandle;
struct Text;
class ZelkClassifier;

// The kernel of a snapshot run, with room for a whole cube: a cube of all the camera's
// bands has the classifier's bands picked in the stage, one of the selected band count
// is taken as it is. -1 with the classifier's lastError set.
int prepareCubeKernel(ZelkHandle* h, ZelkClassifier& c);

// Copies the objects that the segmenter finished into the handle's records and, on the
// frame path, marks them in the ring. 0, or the failure `overflow` (-160) once the
// records are full.
int reportObjects(ZelkHandle* h, bool markInRing, const Text& overflow);

// The regression and resampling variants of the frame path (set-ups 3, 7 and 9 of a
// line-scan project), in frame_variants.cpp. Their frames are corrected on all bands
// before the classifier picks its bands, so its kernel then corrects nothing itself.
bool regressionFrames(const ZelkHandle* h);
// What the variants need at acquisition start: the regressor's folded chain for the
// frame shape and the frame buffers. 0, or a negative code with the handle's text.
int prepareFrameVariant(ZelkHandle* h);
int regressFrame(ZelkHandle* h, const void* frame);
int resampleFrame(ZelkHandle* h, const void* frame);
