#pragma once
// The "ZBA01" mask stream in which an image keeps its mask: a QDataStream with the tag,
// width and height, then runs of an 8-bit value and a 32-bit length over the pixels in
// row order. A run may span rows.

#include <QByteArray>
#include <QImage>

namespace maskstream {

// The stream of an 8-bit indexed image; empty for any other format. `nonZero` counts the
// pixels with a value other than 0.
QByteArray encode(const QImage& image, qint64* nonZero = nullptr);

// The image of a stream, or a null image when the stream is not a mask stream or its
// sizes are absurd. Runs beyond the last pixel stop there.
QImage decode(const QByteArray& stream, qint64* nonZero = nullptr);

// The stream of the window at (x, y), w by h, of the image that `stream` holds. An empty
// stream stands for an all-zero image. A window outside the image gives an empty array.
QByteArray crop(const QByteArray& stream, int x, int y, int w, int h);

} // namespace maskstream
