#pragma once
// One entry of the tracker's table of open objects; the index of an entry is its label.

#include "segment/object_record.h"

#include <QtGlobal>

struct OpenObject {
    // 1 open, -1 finished and reported, -2 rejected by size, 0 never used or cleared.
    // An entry whose state is below 1 is free for a new label.
    qint32 state;
    // 0 on a live root; on a merged-away entry the label it was merged into.
    qint32 root;
    qint32 decision;      // code of the pixel that created the label
    qint32 pixelCount;
    qint32 firstLine;
    qint32 lastLine;
    qint32 minColumn;
    qint32 maxColumn;
    qint32 lineOffsetSum; // sum of (pixel line - firstLine at the time the pixel came in)
    qint32 columnSum;
    qint32 classCounts[ObjectClassSlots]; // per decision code, 'All foreground' mode only
};

static_assert(sizeof(OpenObject) == 31 * sizeof(qint32), "an open object is 31 integers");
