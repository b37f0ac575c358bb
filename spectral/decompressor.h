#pragma once
// Reads compressed cubes: a run-length mask of the image followed by the uint16
// spectra of the masked pixels only. The result is a full BIL cube, zero outside the
// mask, and the mask as an 8-bit indexed image.

#include "spectral/spectral_cube.h"

#include <QImage>
#include <memory>

class ZelkDecompressor {
public:
    std::unique_ptr<ZelkSpectralCube> cube;
    std::unique_ptr<QImage> mask;
    int errorCode = 0;
    QString errorText;

    // 0, or a negative code with errorText. A failing mask block gives -1, its own
    // code staying in errorCode.
    int decompress(const char* buffer, qint64 size);
    // Fills `mask` from a mask block ("MSK1", four unread bytes, then runs).
    int decodeMask(const char* block, qint64 blockSize);

private:
    int fail(int code, const QString& message);
};

// Run-length helpers shared by the compressed cube and the mask stream: runs of an
// 8-bit value over the pixels of an image in row order.
namespace maskruns {

// Writes a run into `image` from pixel `position` on; a run that passes the last pixel
// stops there. Returns the position behind the run.
qint64 paint(QImage& image, qint64 position, quint8 value, qint64 length);

// A new 8-bit indexed image of that size with a grey colour table, all zero.
QImage blank(int width, int height);

} // namespace maskruns
