// Damaged reference files for each of the correction loaders: headers cut short or with
// a field spoiled, raw files cut short, files gone. Each load is refused with its code,
// the correction loaded before stays in force, and the handle decides as it did.

#include "model_files.h"
#include "runtime/handle_probe.h"
#include "spectral_fixtures.h"
#include "test_handle.h"

#include <QDir>
#include <QFile>
#include <functional>
#include <gtest/gtest.h>
#include <set>
#include <vector>

using namespace modelfiles;

namespace {

constexpr int Width = 8, Bands = 4;

// One line of references: white - dark is 20 to 37 counts.
double darkCount(int c, int, int b) { return 100 + 3 * c + b; }
double whiteCount(int c, int l, int b) { return darkCount(c, l, b) + 20 + 2 * c + b; }

// An ENVI header of a loader, cut short anywhere before the end of the line of its last
// needed field; `describesData` when its sizes and data type are those of samples read.
struct Header {
    QString file;
    QString lastField;
    bool describesData = true;
};

// The files of one loader, written whole into a folder, named relative to it.
struct Loader {
    const char* what;
    Project project;
    const char* name; // the scan name handed to the call
    std::function<bool(const QDir&)> write;
    std::vector<Header> headers;
    QStringList raws;
    std::set<int> codes; // the refusals that a damaged file may give
};

bool writeCapture(const QDir& d)
{
    d.mkpath("scan/capture");
    return fixtures::writeUInt16Scan(d.filePath("scan/capture/scan"), ".raw", Width, 2, Bands, [](int, int, int) { return 7; }) &&
           fixtures::writeUInt16Scan(d.filePath("scan/capture/WHITEREF_scan"), ".raw", Width, 1, Bands, whiteCount) &&
           fixtures::writeUInt16Scan(d.filePath("scan/capture/DARKREF_scan"), ".raw", Width, 1, Bands, darkCount);
}

// A ".trf" scan of `lines` lines with float references of `refLines` lines beside it.
bool writeScanWithReferences(const QDir& d, int lines, int refLines, const QString& interleave)
{
    return fixtures::writeUInt16Scan(d.filePath("scan"), ".trf", Width, lines, Bands, [](int, int, int) { return 7; }) &&
           fixtures::writeFloatScan(d.filePath("whiteref"), ".bin", Width, refLines, Bands, whiteCount, interleave) &&
           fixtures::writeFloatScan(d.filePath("darkref"), ".bin", Width, refLines, Bands, darkCount, interleave);
}

bool writePointScan(const QDir& d)
{
    return fixtures::writePointScan(d.filePath("scan"), Width, 100);
}

std::vector<Loader> loaders()
{
    const std::set<int> scanCodes = {-137, -4302, -4304, -4305, -4306};
    return {
        {"reference pair", projectOfType(10), nullptr,
         [](const QDir& d) {
             return fixtures::writeUInt16Scan(d.filePath("whiteReference"), ".bin", Width, 1, Bands, whiteCount) &&
                    fixtures::writeUInt16Scan(d.filePath("darkReference"), ".bin", Width, 1, Bands, darkCount);
         },
         {{"whiteReference.hdr", "interleave"}, {"darkReference.hdr", "interleave"}}, {"whiteReference.bin", "darkReference.bin"}, {-131, -135}},
        // The scan's header is its meta-data, up to its band count; each reference is
        // read at the size and type that its own header gives, whatever its interleave.
        {"capture folder", projectOfType(1), "scan", writeCapture,
         {{"scan/capture/scan.hdr", "bands", false}, {"scan/capture/WHITEREF_scan.hdr", "data type"}, {"scan/capture/DARKREF_scan.hdr", "data type"}},
         {"scan/capture/WHITEREF_scan.raw", "scan/capture/DARKREF_scan.raw"}, {-130, -131}},
        {"frame references of a scan", projectOfType(19, 3), "scan", [](const QDir& d) { return writeScanWithReferences(d, 2, 1, "bil"); },
         {{"scan.hdr", "interleave"}, {"whiteref.hdr", "interleave"}, {"darkref.hdr", "interleave"}}, {"scan.trf", "whiteref.bin", "darkref.bin"},
         scanCodes},
        {"cube references of a scan", projectOfType(19, 0), "scan", [](const QDir& d) { return writeScanWithReferences(d, 100, 100, "bip"); },
         {{"scan.hdr", "interleave"}, {"whiteref.hdr", "interleave"}, {"darkref.hdr", "interleave"}}, {"scan.trf", "whiteref.bin", "darkref.bin"},
         scanCodes},
        {"point references of a scan", projectOfType(19, 0), "scan", writePointScan, {{"scan.hdr", "interleave"}}, {"scan.trf"}, scanCodes},
    };
}

QByteArray contents(const QString& path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

// A frame, or a whole cube, of counts that the loaded correction turns into "leaf" at odd
// pixels (reflectance 10 in band 1) and "bg" elsewhere (0): the decisions it leaves. The
// references hold a value per sample of the input, band after band in a frame, band
// fastest in a cube.
QByteArray decide(ZelkHandle* h, bool cube)
{
    EXPECT_EQ(zelk_StartAcquisition(h), 0) << zelk_GetErrorMsg(h);
    const int width = zelk_GetInputWidth(h), lines = cube ? zelk_GetInputHeight(h) : 1, bands = zelk_GetInputBands(h);
    std::vector<quint16> counts(size_t(width) * lines * bands);
    const handleprobe::Correction c = handleprobe::correction(h);
    EXPECT_EQ(c.dark.size(), int(counts.size()));
    for (int i = 0; i < int(counts.size()) && i < c.dark.size(); ++i) {
        const int band = cube ? i % bands : i / width, pixel = cube ? i / bands : i % width;
        counts[size_t(i)] = quint16(c.dark[i] + (band == 1 && pixel % 2 ? 10 / c.gain[i] : 0) + 0.5f);
    }
    EXPECT_EQ(cube ? zelk_ProcessCube(h, counts.data()) : zelk_ProcessFrame(h, counts.data()), 0) << zelk_GetErrorMsg(h);
    const unsigned char* decided = cube ? zelk_GetCubeDecisions(h) : zelk_GetFrameDecisions(h);
    const QByteArray out = decided ? QByteArray(reinterpret_cast<const char*>(decided), width * lines) : QByteArray();
    EXPECT_EQ(zelk_StopAcquisition(h), 0);
    return out;
}

} // namespace

TEST(DamagedReferences, RefusedAndTheEarlierCorrectionStays)
{
    for (const Loader& loader : loaders()) {
        SCOPED_TRACE(loader.what);
        QTemporaryDir modelDir, dir;
        const QDir d(dir.path());
        TestHandle h;
        ASSERT_EQ(zelk_LoadModel(h, writeModel(modelDir, loader.project).toLatin1()), 0);
        const auto load = [&] { return zelk_LoadCorrection(h, dir.path().toLatin1(), loader.name); };
        ASSERT_TRUE(loader.write(d));
        ASSERT_EQ(load(), 0) << zelk_GetErrorMsg(h);
        // Only snapshot projects have a height beyond one line.
        const bool cube = zelk_GetInputHeight(h) > 1;
        const handleprobe::Correction loaded = handleprobe::correction(h);
        const QByteArray decided = decide(h, cube);
        QByteArray alternating(decided.size(), '\0');
        for (int i = 1; i < alternating.size(); i += 2)
            alternating[i] = 1;
        // Only frames are corrected on their way in; cubes are classified in counts.
        if (!cube)
            ASSERT_EQ(decided, alternating);

        // Each damage on the whole set of files, one at a time; a null `damaged` removes
        // the file.
        const auto refused = [&](const QString& file, const QByteArray& damaged, const std::string& how) {
            SCOPED_TRACE(file.toStdString() + ": " + how);
            ASSERT_TRUE(loader.write(d));
            if (damaged.isNull())
                ASSERT_TRUE(QFile::remove(d.filePath(file)));
            else
                ASSERT_TRUE(writeFile(d.filePath(file), damaged));
            const int result = load();
            EXPECT_EQ(loader.codes.count(result), 1u) << result << " " << zelk_GetErrorMsg(h);
            EXPECT_TRUE(handleprobe::correction(h).enabled);
            EXPECT_EQ(handleprobe::correction(h).dark, loaded.dark);
            EXPECT_EQ(handleprobe::correction(h).gain, loaded.gain);
        };
        ASSERT_TRUE(loader.write(d));
        for (const Header& header : loader.headers) {
            const QString& file = header.file;
            const QByteArray whole = contents(d.filePath(file));
            const int needed = whole.indexOf('\n', whole.indexOf(header.lastField.toLatin1()));
            ASSERT_GT(needed, 0);
            for (int length = 0; length < needed; ++length)
                refused(file, whole.left(length), "cut at " + std::to_string(length));
            refused(file, QByteArray(), "gone");
            refused(file, QByteArray("\xff\xfe\x00\x01ENVI", 8), "not text");
            QByteArray spoiled = whole;
            refused(file, spoiled.replace("lines = ", "lines = -"), "lines");
            if (header.describesData) {
                spoiled = whole;
                refused(file, spoiled.replace("data type = ", "data type = 9"), "data type");
                spoiled = whole;
                refused(file, spoiled.replace("samples = 8", "samples = 80"), "samples");
            }
        }
        for (const QString& file : loader.raws) {
            const QByteArray whole = contents(d.filePath(file));
            for (int length : {0, 1, whole.size() / 2, whole.size() - 1})
                refused(file, whole.left(length), "raw cut at " + std::to_string(length));
            refused(file, QByteArray(), "gone");
        }

        EXPECT_EQ(decide(h, cube), decided);
        ASSERT_TRUE(loader.write(d));
        EXPECT_EQ(load(), 0) << zelk_GetErrorMsg(h);
        EXPECT_EQ(handleprobe::correction(h).dark, loaded.dark);
        EXPECT_EQ(handleprobe::correction(h).gain, loaded.gain);
    }
}
