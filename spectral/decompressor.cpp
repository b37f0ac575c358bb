#include "spectral/decompressor.h"

#include <QtEndian>
#include <algorithm>
#include <climits>
#include <cstring>

namespace maskruns {

QImage blank(int width, int height)
{
    QImage image(width, height, QImage::Format_Indexed8);
    QVector<QRgb> grey(256);
    for (int i = 0; i < 256; ++i)
        grey[i] = qRgb(i, i, i);
    image.setColorTable(grey);
    image.fill(0);
    return image;
}

qint64 paint(QImage& image, qint64 position, quint8 value, qint64 length)
{
    const qint64 width = image.width(), end = width * image.height();
    if (end == 0)
        return position;
    const qint64 stop = std::min(end, position + std::max<qint64>(length, 0));
    while (position < stop) {
        const int y = int(position / width), x = int(position % width);
        const qint64 run = std::min(stop - position, width - x);
        std::memset(image.scanLine(y) + x, value, size_t(run));
        position += run;
    }
    return position;
}

} // namespace maskruns

int ZelkDecompressor::fail(int code, const QString& message)
{
    errorCode = code;
    errorText = QStringLiteral("%1: %2").arg(code).arg(message);
    return code;
}

int ZelkDecompressor::decodeMask(const char* block, qint64 blockSize)
{
    if (blockSize < 4 || std::memcmp(block, "MSK1", 4) != 0)
        return fail(-3401, QStringLiteral("Unknown mask image format"));
    qint64 position = 0;
    for (qint64 offset = 8; offset + 5 <= blockSize; offset += 5) {
        const quint8 value = quint8(block[offset]);
        const qint32 length = qFromLittleEndian<qint32>(block + offset + 1);
        if (length < 0)
            return fail(-3405, QStringLiteral("Negative run length in mask image"));
        position = maskruns::paint(*mask, position, value, length);
    }
    return 0;
}

int ZelkDecompressor::decompress(const char* buffer, qint64 size)
{
    if (!buffer || size < 24)
        return fail(-3401, QStringLiteral("Buffer too small"));
    if (std::memcmp(buffer, "TRZ", 3) != 0)
        return fail(-3402, QStringLiteral("Wrong format, expects TRZ"));
    if (buffer[3] != '1')
        return fail(-3403, QStringLiteral("Unsupported version"));
    if (buffer[4] != 2)
        return fail(-3404, QStringLiteral("Unsupported output cube layout (expects BIL)"));
    if (buffer[5] != 1)
        return fail(-3404, QStringLiteral("Unsupported output cube data type (expects uint16)"));
    const int width = qFromLittleEndian<quint16>(buffer + 6);
    const int height = qFromLittleEndian<quint16>(buffer + 8);
    const int bands = qFromLittleEndian<quint16>(buffer + 10);
    const qint64 maskBytes = qFromLittleEndian<quint32>(buffer + 12); // low 32 bits of a 64-bit size
    if (28 + maskBytes > size)
        return fail(-3406, QStringLiteral("Mask block runs past the end of the buffer"));
    if (qint64(width) * height * std::max(bands, 1) > INT32_MAX)
        return fail(-3408, QStringLiteral("Cube of %1 x %2 x %3 samples is too large").arg(width).arg(height).arg(bands));

    cube.reset();
    mask.reset();
    auto out = std::make_unique<ZelkSpectralCube>(DataUInt16, LayoutBIL);
    out->columns = width;
    out->lines = height;
    out->bands = bands;
    if (out->allocate(out->sampleCount()) != 0)
        return fail(out->errorCode, out->errorText.section(QStringLiteral(": "), 1));
    mask = std::make_unique<QImage>(maskruns::blank(width, height));
    if (mask->isNull())
        return fail(-32023, QStringLiteral("Cannot allocate memory"));
    if (decodeMask(buffer + 28, maskBytes) != 0)
        return -1;

    quint16* samples = out->samples<quint16>();
    std::memset(samples, 0, size_t(out->dataBytes()));
    const char* pixel = buffer + 28 + maskBytes;
    const char* end = buffer + size;
    for (int y = 0; y < height; ++y) {
        const uchar* row = mask->constScanLine(y);
        for (int x = 0; x < width; ++x) {
            if (!row[x])
                continue;
            if (end - pixel < qint64(bands) * 2)
                return fail(-3407, QStringLiteral("Pixel block shorter than the mask asks for"));
            for (int b = 0; b < bands; ++b, pixel += 2)
                samples[(qint64(y) * bands + b) * width + x] = qFromLittleEndian<quint16>(pixel);
        }
    }
    cube = std::move(out);
    return 0;
}
