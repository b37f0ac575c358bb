#pragma once
// Tagged arrays of the model streams. An array announces itself with a QString tag:
// "FloatArray:1", "IntArray:1", "CharArray:1" or "UcharArray:1" followed by a QVector
// (32-bit count, then the entries; floats travel as doubles), or the same name with
// "=NULL" for an absent array, with nothing behind it. "AFArray:1" is a typed array of
// four dimensions: element type, the four dimensions, then a tagged host array.
//
// Counts are not trusted: a count that the rest of the stream cannot hold reads as a
// truncated stream does, an empty array and a stream at its end with status
// ReadPastEnd, and nothing is reserved for it.

#include "compute/host_array.h"

#include <QDataStream>
#include <QVector>

// 0 on success; -1 on a wrong tag, with the tag consumed and the outputs left as they
// were. An absent array sets *out to null and *count to 0. A present one sets *count
// and *out to a buffer of that many entries allocated with new[], which the caller owns
// and releases with delete[]; a count of 0 still gives a buffer (of no entries). A
// stream that fails inside the entries gives count 0.
int readFloatArray(QDataStream& in, float** out, int* count);
int readIntArray(QDataStream& in, int** out, int* count);
int readCharArray(QDataStream& in, char** out, int* count);
int readUcharArray(QDataStream& in, unsigned char** out, int* count);

// The same readers into vectors. An absent array empties the vector; `present`, when
// given, tells it from a present one of no entries. On a wrong tag nothing changes.
int readFloatArray(QDataStream& in, QVector<float>* out, bool* present = nullptr);
int readIntArray(QDataStream& in, QVector<qint32>* out, bool* present = nullptr);
int readCharArray(QDataStream& in, QVector<qint8>* out, bool* present = nullptr);
int readUcharArray(QDataStream& in, QVector<quint8>* out, bool* present = nullptr);

// An "AFArray:1" with element type 0 (float), 5 (int) or 7 (unsigned char), its
// dimensions kept as stored. A wrong tag gives an empty array and *ok false.
// Any other element type reads nothing behind the dimensions and gives an empty array
// with *ok true; the stream is then out of step and the enclosing reader fails on it.
// Entries beyond the product of the dimensions are dropped; fewer entries than the
// product, or a negative dimension, give an empty array and *ok false.
compute::HostArray readAFArray(QDataStream& in, bool* ok);
