#pragma once
// The record that a finished object leaves: 30 signed 32-bit integers. Callers read it
// by position, so the positions below are part of the library's interface. No entry
// holds a float.

#include <QtGlobal>

constexpr int ObjectRecordInts = 30;
// Entries 9 to 29: pixels of the object per decision code, room for 20 foreground
// classes and the unknown decision.
constexpr int ObjectClassSlots = 21;

namespace objectfield {
enum : int {
    Number = 0,         // object number
    CentroidLine = 1,   // mean line, rounded; absolute line number in a stream
    CentroidColumn = 2, // mean column, rounded
    FirstLine = 3,
    LastLine = 4,
    FirstColumn = 5,
    LastColumn = 6,
    PixelCount = 7,
    Decision = 8,       // decision code assigned to the object
    ClassSizes = 9,     // first of ObjectClassSlots per-code pixel counts
};
} // namespace objectfield

static_assert(objectfield::ClassSizes + ObjectClassSlots == ObjectRecordInts, "record layout");
