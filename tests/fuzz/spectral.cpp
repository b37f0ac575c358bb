// The readers of recorded scans on arbitrary bytes. The first byte picks the reader:
// 0 an ENVI header and its raw file (the bytes up to the first zero byte are the
// header's text, the rest the samples), 1 a compressed cube, 2 a mask stream.

#include "wire/stream_reads.h"
#include "spectral/decompressor.h"
#include "spectral/mask_stream.h"
#include "spectral/spectral_cube.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <algorithm>
#include <cstdint>

namespace {

constexpr qint64 MaxSamples = qint64(1) << 20;

// The files of each run are new ones: a disk file system writes a file that is cut
// short and written again through to the disk when it is closed.
void write(const QString& path, const QByteArray& bytes)
{
    QFile::remove(path);
    QFile f(path);
    f.open(QIODevice::WriteOnly);
    f.write(bytes);
}

void readEnvi(const QByteArray& bytes)
{
    // In memory where the system has a file system there.
    static QTemporaryDir dir((QDir(QStringLiteral("/dev/shm")).exists() ? QStringLiteral("/dev/shm") : QDir::tempPath())
                             + QStringLiteral("/zelk-fuzz-XXXXXX"));
    const int split = bytes.indexOf('\0');
    const QString base = dir.filePath(QStringLiteral("scan"));
    write(base + QStringLiteral(".hdr"), split < 0 ? bytes : bytes.left(split));
    write(base + QStringLiteral(".raw"), split < 0 ? QByteArray() : bytes.mid(split + 1));
    ZelkSpectralCube cube;
    cube.load(base, QStringLiteral(".hdr"), QStringLiteral(".raw"), false);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size < 1)
        return 0;
    const QByteArray bytes(reinterpret_cast<const char*>(data + 1), int(size - 1));
    switch (data[0] % 3) {
    case 0:
        readEnvi(bytes);
        break;
    case 1: {
        // A compressed cube may rightly expand to gigabytes (background needs no bytes),
        // as a mask may cover a huge image with a few runs; the fuzzer looks at the
        // parsing, on cubes and masks of up to a million samples.
        if (bytes.size() >= 12) {
            const auto u16 = [&](int at) { return qint64(quint8(bytes[at])) | qint64(quint8(bytes[at + 1])) << 8; };
            if (u16(6) * u16(8) * std::max<qint64>(u16(10), 1) > MaxSamples)
                return 0;
        }
        ZelkDecompressor d;
        d.decompress(bytes.constData(), bytes.size());
        break;
    }
    default: {
        QDataStream header(bytes);
        streamreads::value<QString>(header);
        qint32 width = 0, height = 0;
        header >> width >> height;
        if (qint64(width) * height <= MaxSamples)
            maskstream::decode(bytes);
    }
    }
    return 0;
}
