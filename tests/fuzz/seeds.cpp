// Writes the seed corpora of the fuzz targets, each input behind the byte that picks
// its form: for the model loader, whole projects of every revision as bare streams and
// in both envelopes; for the scan readers, ENVI scans, compressed cubes, masks and
// folders of references; for the frame paths, runs of each model that find objects.
//   fuzz_seeds DIRECTORY   (makes DIRECTORY/model, DIRECTORY/spectral, DIRECTORY/frames)

#include "frame_program.h"
#include "reference_folder.h"
#include "modelwriter/compressed_cube_writer.h"
#include "modelwriter/scan_writer.h"

#include <QDir>
#include <QFile>
#include <cstdio>

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: fuzz_seeds DIRECTORY\n");
        return 2;
    }
    const QDir root(QString::fromLocal8Bit(argv[1]));
    int written = 0;
    QString corpus;
    auto put = [&](char form, const QByteArray& bytes) {
        root.mkpath(corpus);
        QFile f(root.filePath(corpus + QStringLiteral("/seed-%1").arg(written++)));
        f.open(QIODevice::WriteOnly);
        f.write(QByteArray(1, form) + bytes);
    };
    corpus = QStringLiteral("model");
    for (int revision = 1; revision <= 17; ++revision) {
        modelwriter::Project p = modelfiles::lineScanProject(4);
        p.revision = revision;
        const QByteArray stream = modelwriter::projectBytes(p);
        put(0, stream);
        if (revision % 4 == 1) {
            put(1, modelwriter::fileContents(modelwriter::FileKind::Zelk, stream));
            put(2, modelwriter::fileContents(modelwriter::FileKind::ZplSecondKey, stream));
        }
    }

    corpus = QStringLiteral("spectral");
    for (const char* interleave : {"bil", "bip", "bsq"})
        for (int type : {1, 4, 12}) {
            modelwriter::EnviScan scan;
            scan.samples = 3, scan.lines = 2, scan.bands = 4;
            scan.dataType = type;
            scan.interleave = QLatin1String(interleave);
            scan.data = QByteArray(3 * 2 * 4 * (type == 1 ? 1 : type == 4 ? 4 : 2), '\x11');
            put(0, modelwriter::enviHeaderText(scan) + '\0' + scan.data);
        }
    modelwriter::CompressedCube cube;
    cube.width = 3, cube.height = 2, cube.bands = 2;
    cube.mask = {0, 1, 1, 0, 2, 0};
    cube.samples = QVector<quint16>(3 * 2 * 2, 7);
    put(1, modelwriter::writeCompressedCube(cube));
    QByteArray mask;
    {
        QDataStream out(&mask, QIODevice::WriteOnly);
        out << QStringLiteral("ZBA01") << qint32(3) << qint32(2) << quint8(0) << qint32(2) << quint8(5) << qint32(4);
    }
    put(2, mask);

    // Reference folders that each loader takes: a pair, a capture folder, and ".trf"
    // scans with point spectra in their binary header, with frame references named after
    // them and with cube references in their folder.
    {
        using namespace referencefolder;
        const auto counts = [](int columns, int lines, quint16 base) {
            QVector<quint16> v(columns * lines * 4);
            for (int i = 0; i < v.size(); ++i)
                v[i] = quint16(base + i % 7);
            return v;
        };
        const auto floats = [](int columns, int lines, float base) {
            QVector<float> v(columns * lines * 4);
            for (int i = 0; i < v.size(); ++i)
                v[i] = base + float(i % 5);
            return v;
        };
        const auto envi = [](int lines, int type, const QString& interleave, const QByteArray& data, const QByteArray& binary = {}) {
            modelwriter::EnviScan s;
            s.samples = Width, s.lines = lines, s.bands = 4, s.dataType = type, s.interleave = interleave;
            s.data = data, s.binaryHeader = binary;
            return s;
        };
        const QByteArray white = modelwriter::uint16Bytes(counts(Width, 2, 900)), dark = modelwriter::uint16Bytes(counts(Width, 2, 100));
        put(3, QByteArray(1, 0) + scan(0, envi(2, 12, "bil", white)) + scan(2, envi(2, 12, "bil", dark)));
        put(3, QByteArray(1, 1) + scan(4, envi(2, 12, "bil", white)) + scan(6, envi(2, 12, "bil", white)) +
                   scan(8, envi(2, 12, "bil", dark)));
        const QByteArray scanCounts = modelwriter::uint16Bytes(counts(Width, Height, 400));
        put(3, QByteArray(1, 3) +
                   scan(10, envi(Height, 12, "bip", scanCounts, modelwriter::referenceHeader({900, 901, 902, 903}, {10, 20, 30, 40}))));
        put(3, QByteArray(1, 2) + scan(10, envi(1, 12, "bil", modelwriter::uint16Bytes(counts(Width, 1, 400)))) +
                   scan(12, envi(1, 4, "bil", modelwriter::floatBytes(floats(Width, 1, 900)))) +
                   scan(14, envi(1, 4, "bil", modelwriter::floatBytes(floats(Width, 1, 100)))));
        put(3, QByteArray(1, 3) + scan(10, envi(Height, 12, "bip", scanCounts)) +
                   scan(16, envi(Height, 4, "bip", modelwriter::floatBytes(floats(Width, Height, 900)))) +
                   scan(18, envi(Height, 4, "bip", modelwriter::floatBytes(floats(Width, Height, 100)))));
    }

    // One byte per sample, BIL frames of 8 pixels and 4 bands and BIP cubes of 8 by 6:
    // band 1 at 10 is a leaf.
    using namespace frameprogram;
    corpus = QStringLiteral("frames");
    const auto frame = [](bool leaf) {
        QByteArray f = QByteArray(1, char(Frame)) + char(0) + QByteArray(32, '\0');
        if (leaf)
            f[2 + 8 + 3] = f[2 + 8 + 4] = 10;
        return f;
    };
    const auto bytes = [](std::initializer_list<int> values) {
        QByteArray b;
        for (int v : values)
            b.append(char(v));
        return b;
    };
    const QByteArray results = bytes({Results, 0, 1, -7}), start = bytes({Segmentation, 1, Start});
    for (char model : {0, 1, 2, 3}) {
        QByteArray run = start;
        for (int i = 0; i < 25; ++i)
            run += frame(i < 5) + (i % 5 == 0 ? results : QByteArray());
        put(model, run + results + char(Stop) + results);
        // A frame of another width during the run.
        put(model, start + frame(true) + frame(true) + char(InputWidth) + char(5) + frame(true) + results);
    }
    put(3, bytes({Resampling, 0, LoadModel, 2}) + start + frame(true) + results);
    QByteArray snapshot = QByteArray(1, char(Cube)) + char(0) + QByteArray(8 * 6 * 4, '\0');
    for (int pixel : {9, 10, 17, 18, 22, 30})
        snapshot[2 + pixel * 4 + 1] = 10;
    for (char model : {4, 5, 6, 7})
        put(model, start + snapshot + results + bytes({Roi, 1, 1, 4, 3, 2}) + snapshot + results + char(Stop) + char(SaveImage));
    std::printf("%d seeds in %s\n", written, argv[1]);
    return 0;
}
