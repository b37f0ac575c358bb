#pragma once
// Writes compressed cubes ("TRZ", version 1): a 28-byte header, a run-length mask block
// "MSK1" and the uint16 spectra of the pixels whose mask value is not 0.

#include <QByteArray>
#include <QVector>

namespace modelwriter {

struct CompressedCube {
    int width = 0;
    int height = 0;
    int bands = 0;
    QVector<quint8> mask;     // width * height values, row by row
    QVector<quint16> samples; // a full BIL cube: (line * bands + band) * width + column
};

QByteArray writeCompressedCube(const CompressedCube& cube);

// The mask block alone: "MSK1", four zero bytes, then runs of (value, 32-bit length).
QByteArray writeMaskBlock(const QVector<quint8>& mask);

} // namespace modelwriter
