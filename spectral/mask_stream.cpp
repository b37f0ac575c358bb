#include "spectral/mask_stream.h"
#include "spectral/decompressor.h"

#include <QDataStream>
#include <algorithm>

namespace maskstream {
namespace {

const QString Tag = QStringLiteral("ZBA01");
// Larger masks than this are not images of a camera; refuse them before allocating.
constexpr qint64 MaxPixels = qint64(1) << 28;

} // namespace

QByteArray encode(const QImage& image, qint64* nonZero)
{
    if (nonZero)
        *nonZero = 0;
    if (image.format() != QImage::Format_Indexed8)
        return {};
    QByteArray out;
    QDataStream s(&out, QIODevice::WriteOnly);
    s << Tag << qint32(image.width()) << qint32(image.height());
    qint64 count = 0;
    bool open = false;
    quint8 value = 0;
    qint32 length = 0;
    for (int y = 0; y < image.height(); ++y) {
        const uchar* row = image.constScanLine(y);
        for (int x = 0; x < image.width(); ++x) {
            count += row[x] != 0;
            if (open && row[x] == value && length < INT32_MAX) {
                ++length;
                continue;
            }
            if (open)
                s << value << length;
            open = true;
            value = row[x];
            length = 1;
        }
    }
    if (open)
        s << value << length;
    if (nonZero)
        *nonZero = count;
    return out;
}

QImage decode(const QByteArray& stream, qint64* nonZero)
{
    if (nonZero)
        *nonZero = 0;
    QDataStream s(stream);
    QString tag;
    qint32 width = 0, height = 0;
    s >> tag >> width >> height;
    if (s.status() != QDataStream::Ok || tag != Tag || width < 0 || height < 0 || qint64(width) * height > MaxPixels)
        return QImage();
    QImage image = maskruns::blank(width, height);
    qint64 position = 0, count = 0;
    while (!s.atEnd()) {
        quint8 value = 0;
        qint32 length = 0;
        s >> value >> length;
        if (s.status() != QDataStream::Ok || length < 0)
            return QImage();
        const qint64 after = maskruns::paint(image, position, value, length);
        if (value)
            count += after - position;
        position = after;
    }
    if (nonZero)
        *nonZero = count;
    return image;
}

QByteArray crop(const QByteArray& stream, int x, int y, int w, int h)
{
    if (x < 0 || y < 0 || w < 0 || h < 0)
        return {};
    QImage full = stream.isEmpty() ? maskruns::blank(x + w, y + h) : decode(stream);
    if (full.isNull() || qint64(x) + w > full.width() || qint64(y) + h > full.height())
        return {};
    QImage window = maskruns::blank(w, h);
    for (int row = 0; row < h; ++row)
        std::copy_n(full.constScanLine(y + row) + x, w, window.scanLine(row));
    return encode(window);
}

} // namespace maskstream
