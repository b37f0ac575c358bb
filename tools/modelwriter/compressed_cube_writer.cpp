#include "modelwriter/compressed_cube_writer.h"

#include <QtEndian>

namespace modelwriter {
namespace {

template <class T> void put(QByteArray& out, T value)
{
    char bytes[sizeof(T)];
    qToLittleEndian(value, bytes);
    out.append(bytes, sizeof(T));
}

} // namespace

QByteArray writeMaskBlock(const QVector<quint8>& mask)
{
    QByteArray block("MSK1");
    put<quint32>(block, 0);
    for (int i = 0; i < mask.size();) {
        int j = i;
        while (j < mask.size() && mask[j] == mask[i])
            ++j;
        block.append(char(mask[i]));
        put<qint32>(block, j - i);
        i = j;
    }
    return block;
}

QByteArray writeCompressedCube(const CompressedCube& cube)
{
    const QByteArray maskBlock = writeMaskBlock(cube.mask);
    QByteArray out("TRZ1");
    out.append(char(2)); // BIL
    out.append(char(1)); // uint16
    put<quint16>(out, quint16(cube.width));
    put<quint16>(out, quint16(cube.height));
    put<quint16>(out, quint16(cube.bands));
    put<quint64>(out, quint64(maskBlock.size()));
    put<quint64>(out, 0);
    out.append(maskBlock);
    for (int y = 0; y < cube.height; ++y)
        for (int x = 0; x < cube.width; ++x)
            if (cube.mask[y * cube.width + x])
                for (int b = 0; b < cube.bands; ++b)
                    put<quint16>(out, cube.samples[(y * cube.bands + b) * cube.width + x]);
    return out;
}

} // namespace modelwriter
