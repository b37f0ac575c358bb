// The readers of recorded scans on arbitrary bytes. The first byte picks the reader:
// 0 an ENVI header and its raw file (the bytes up to the first zero byte are the
// header's text, the rest the samples), 1 a compressed cube, 2 a mask stream, 3 a
// folder of references for the correction loaders (reference_folder.h).

#include "reference_folder.h"
#include "wire/stream_reads.h"
#include "spectral/decompressor.h"
#include "spectral/mask_stream.h"
#include "spectral/spectral_cube.h"
#include "zelk.h"

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

// In memory where the system has a file system there.
QString scratch()
{
    static QTemporaryDir dir((QDir(QStringLiteral("/dev/shm")).exists() ? QStringLiteral("/dev/shm") : QDir::tempPath())
                             + QStringLiteral("/zelk-fuzz-XXXXXX"));
    return dir.path();
}

void readEnvi(const QByteArray& bytes)
{
    const QDir dir(scratch());
    const int split = bytes.indexOf('\0');
    const QString base = dir.filePath(QStringLiteral("scan"));
    write(base + QStringLiteral(".hdr"), split < 0 ? bytes : bytes.left(split));
    write(base + QStringLiteral(".raw"), split < 0 ? QByteArray() : bytes.mid(split + 1));
    ZelkSpectralCube cube;
    cube.load(base, QStringLiteral(".hdr"), QStringLiteral(".raw"), false);
}

// The first byte picks the loader and the model of its camera type; the folder holds
// the input's files and no others.
void loadReferences(const QByteArray& bytes)
{
    using namespace referencefolder;
    static const QStringList modelPaths = [] {
        // The loaders' diagnostics would be most of the output.
        qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString&) {});
        QStringList paths;
        const std::vector<modelwriter::Project> projects = models();
        for (size_t i = 0; i < projects.size(); ++i) {
            const QString path = QDir(scratch()).filePath(QStringLiteral("model%1.zelk").arg(i));
            write(path, modelwriter::fileContents(modelwriter::FileKind::Zelk, modelwriter::projectBytes(projects[i])));
            paths.append(path);
        }
        return paths;
    }();
    if (bytes.isEmpty())
        return;
    QDir folder(QDir(scratch()).filePath(QStringLiteral("references")));
    folder.removeRecursively();
    folder.mkpath(QStringLiteral("scan/capture"));
    for (int at = 1; at + 3 <= bytes.size();) {
        const int name = quint8(bytes[at]) % NameCount, length = quint8(bytes[at + 1]) | quint8(bytes[at + 2]) << 8;
        write(folder.filePath(QLatin1String(Names[name])), bytes.mid(at + 3, length));
        at += 3 + length;
    }
    const int loader = quint8(bytes[0]) % modelPaths.size();
    ZelkHandle* h = zelk_Init(nullptr);
    zelk_LoadModel(h, modelPaths[loader].toLocal8Bit().constData());
    zelk_LoadCorrection(h, folder.path().toLocal8Bit().constData(), loader == 0 ? nullptr : "scan");
    zelk_Release(h);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size < 1)
        return 0;
    const QByteArray bytes(reinterpret_cast<const char*>(data + 1), int(size - 1));
    switch (data[0] % 4) {
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
    case 3:
        loadReferences(bytes);
        break;
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
