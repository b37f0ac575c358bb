#pragma once
// The record that a finished object leaves: 30 signed 32-bit integers. Callers read it
// by position, so the positions are part of the library's interface and are named in
// the public header; these are their names inside. No entry holds a float.

#include "zelk.h"

#include <QtGlobal>

constexpr int ObjectRecordInts = ZELK_OBJ_RECORD_INTS;
// Entries 9 to 29: pixels of the object per decision code, room for 20 foreground
// classes and the unknown decision.
constexpr int ObjectClassSlots = ZELK_OBJ_CLASS_SLOTS;

namespace objectfield {
enum : int {
    Number = ZELK_OBJ_NUMBER,
    CentroidLine = ZELK_OBJ_CENTROID_LINE,
    CentroidColumn = ZELK_OBJ_CENTROID_COLUMN,
    FirstLine = ZELK_OBJ_FIRST_LINE,
    LastLine = ZELK_OBJ_LAST_LINE,
    FirstColumn = ZELK_OBJ_FIRST_COLUMN,
    LastColumn = ZELK_OBJ_LAST_COLUMN,
    PixelCount = ZELK_OBJ_PIXEL_COUNT,
    Decision = ZELK_OBJ_DECISION,
    ClassSizes = ZELK_OBJ_CLASS_SIZES,
};
} // namespace objectfield

static_assert(objectfield::ClassSizes + ObjectClassSlots == ObjectRecordInts, "record layout");
