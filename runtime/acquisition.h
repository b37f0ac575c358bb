#pragma once
// What the acquisition start shares with the frame and cube paths.

struct ZelkHandle;
class ZelkClassifier;

// Adds the time of one frame or cube to the statistics, unless it falls in the
// warm-up, and counts it.
void accountTime(ZelkHandle* h, double milliseconds);

// The kernel of a snapshot run, with room for a whole cube: a cube of all the camera's
// bands has the classifier's bands picked in the stage, one of the selected band count
// is taken as it is. -1 with the classifier's lastError set.
int prepareCubeKernel(ZelkHandle* h, ZelkClassifier& c);

// Copies the objects that the segmenter finished into the handle's records and, on the
// frame path, marks them in the ring. 0, or -160 with `overflowText` once the records
// are full.
int reportObjects(ZelkHandle* h, bool markInRing, const char* overflowText);
