// Loading white and dark references through the C interface: corrected line-scan
// frames decide as the reflectance r = level * (x - dark) / (white - dark) computed
// here says, each refusal has its code and report, and a failed load keeps the
// correction loaded before.

#include "model_files.h"
#include "runtime/handle_probe.h"
#include "spectral_fixtures.h"
#include "test_handle.h"

#include <QDir>
#include <functional>
#include <gtest/gtest.h>
#include <vector>

using namespace modelfiles;

namespace {

constexpr int Width = 8, Bands = 4;

// The effective references per pixel and band: the darkest dark and the brightest white
// line, white - dark differing by pixel and band.
int darkCount(int c, int b) { return 100 + 3 * c + b; }
int whiteCount(int c, int b) { return darkCount(c, b) + 20 + 2 * c + b; }

// Reference scans of three lines, only one of which holds the effective level of a pixel:
// a loader that averaged or took one line would decide otherwise.
double whiteLines(int c, int l, int b) { return whiteCount(c, b) - (l == c % 3 ? 0 : 5 + l); }
double darkLines(int c, int l, int b) { return darkCount(c, b) + (l == (c + 1) % 3 ? 0 : 4 + l); }

// Counts above the dark level in band 1, the classifier's first feature: with r above 5 a
// pixel is "leaf" (1), below "bg" (0). Columns 2 and 5 fall on different sides of 5 with
// and without the white level 0.95.
const int Excess[Width] = {63, 150, 129, 130, 160, 157, 200, 170};

std::vector<quint16> frame()
{
    std::vector<quint16> f(Width * Bands);
    for (int b = 0; b < Bands; ++b)
        for (int c = 0; c < Width; ++c)
            f[b * Width + c] = quint16(darkCount(c, b) + (b == 1 ? Excess[c] : 0));
    return f;
}

QByteArray expectedDecisions(float level)
{
    QByteArray row(Width, '\0');
    for (int c = 0; c < Width; ++c)
        row[c] = fixtures::reflectance(level, float(darkCount(c, 1) + Excess[c]), float(whiteCount(c, 1)), float(darkCount(c, 1))) > 5.0f;
    return row;
}

struct Session {
    QTemporaryDir dir;
    TestHandle h;
    explicit Session(const Project& p) { EXPECT_EQ(zelk_LoadModel(h, writeModel(dir, p).toLatin1()), 0); }
    QString path(const QString& name) const { return dir.filePath(name); }
    int load(const char* name) { return zelk_LoadCorrection(h, dir.path().toLatin1(), name); }

    // One frame through a fresh acquisition: the decision row it leaves.
    QByteArray decide()
    {
        EXPECT_EQ(zelk_StartAcquisition(h), 0) << zelk_GetErrorMsg(h);
        const std::vector<quint16> f = frame();
        EXPECT_EQ(zelk_ProcessFrame(h, f.data()), 0) << zelk_GetErrorMsg(h);
        const unsigned char* row = zelk_GetFrameDecisions(h);
        QByteArray out = row ? QByteArray(reinterpret_cast<const char*>(row), Width) : QByteArray();
        EXPECT_EQ(zelk_StopAcquisition(h), 0);
        return out;
    }
};

using Writer = std::function<bool(const Session&)>;

using fixtures::writeFloatScan;
using fixtures::writeUInt16Scan;

double constant(int, int, int) { return 7; }

// The references of camera type 10, in the directory.
bool writePair(const Session& s)
{
    return writeUInt16Scan(s.path("whiteReference"), ".bin", Width, 3, Bands, whiteLines) &&
           writeUInt16Scan(s.path("darkReference"), ".bin", Width, 3, Bands, darkLines);
}

// A capture folder: the scan and its "WHITEREF_" and "DARKREF_" scans.
bool writeCapture(const Session& s, int darkWidth = Width, int darkBands = Bands)
{
    QDir(s.dir.path()).mkpath("scan/capture");
    return writeUInt16Scan(s.path("scan/capture/scan"), ".raw", Width, 2, Bands, constant) &&
           writeUInt16Scan(s.path("scan/capture/WHITEREF_scan"), ".raw", Width, 3, Bands, whiteLines) &&
           writeUInt16Scan(s.path("scan/capture/DARKREF_scan"), ".raw", darkWidth, 3, darkBands, darkLines);
}

// A ".trf" scan of `lines` lines with one-line float references in its directory.
bool writeCorrectionScan(const Session& s, const QString& whiteInterleave = "bip", const QString& darkInterleave = "bip",
                         int lines = 2, int refLines = 1, int refWidth = Width)
{
    return writeUInt16Scan(s.path("scan"), ".trf", Width, lines, Bands, constant) &&
           writeFloatScan(s.path("whiteref"), ".bin", refWidth, refLines, Bands, [](int c, int, int b) { return whiteCount(c, b); },
                          whiteInterleave) &&
           writeFloatScan(s.path("darkref"), ".bin", refWidth, refLines, Bands, [](int c, int, int b) { return darkCount(c, b); },
                          darkInterleave);
}

// A BIP or BIL reference of bytes, a data type that no reference may have.
bool writeBytes(const QString& base, int lines, const QString& interleave)
{
    modelwriter::EnviScan bytes;
    bytes.samples = Width, bytes.lines = lines, bytes.bands = Bands, bytes.dataType = 1, bytes.interleave = interleave;
    bytes.data = QByteArray(Width * lines * Bands, char(200));
    return modelwriter::writeEnviScan(base, ".bin", bytes);
}

bool writePointScan(const Session& s)
{
    return fixtures::writePointScan(s.path("scan"), Width, 2);
}

} // namespace

TEST(LoadCorrection, CorrectedFramesDecideAsTheReflectance)
{
    // The frame tells the white level, and uncorrected counts would all be "leaf".
    ASSERT_NE(expectedDecisions(0.95f), expectedDecisions(1.0f));
    ASSERT_NE(expectedDecisions(1.0f), QByteArray(Width, 1));
    struct Case {
        const char* what;
        Project project;
        Writer write;
        const char* name;
        float level;
    } cases[] = {
        {"reference pair", projectOfType(10), writePair, nullptr, 1.0f},
        {"capture folder", projectOfType(1), [](const Session& s) { return writeCapture(s); }, "scan", 1.0f},
        {"BIP references of a scan", projectOfType(19, 3), [](const Session& s) { return writeCorrectionScan(s); }, "scan", 0.95f},
        {"BIL references of a scan", projectOfType(19, 3), [](const Session& s) { return writeCorrectionScan(s, "bil", "bil"); }, "scan", 0.95f},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        Session s(c.project);
        ASSERT_TRUE(c.write(s));
        ASSERT_EQ(s.load(c.name), 0) << zelk_GetErrorMsg(s.h);
        EXPECT_TRUE(handleprobe::correction(s.h).enabled);
        EXPECT_EQ(handleprobe::processingSetup(s.h), 2); // corrected, with a segmenter
        EXPECT_EQ(s.decide(), expectedDecisions(c.level));
    }
}

TEST(LoadCorrection, ResamplingKeepsTheSetupOfTheModel)
{
    // A camera of the project's own four bands, so that the references resample.
    QTemporaryDir cameraDir;
    TestHandle h;
    const QString header = cameraDir.filePath("camera.hdr");
    QFile f(header);
    ASSERT_TRUE(f.open(QIODevice::WriteOnly));
    f.write(QStringLiteral("ENVI\nsamples = %1\nbands = 4\nwavelength = {900, 1000, 1100, 1200}\n").arg(Width).toLatin1());
    f.close();
    ASSERT_EQ(zelk_SetDeviceWavelengthsFromENVIHeaderFile(h, header.toLatin1().constData()), 0);
    ASSERT_EQ(zelk_SetResamplingWavelengthsGrid(h, 900, 100, 1200), 0);
    testing::internal::CaptureStdout();
    ASSERT_EQ(zelk_SetResampling(h, 1), 0);
    testing::internal::GetCapturedStdout();
    Project p = projectOfType(10);
    p.regressor = regressionProject(Width).regressor;
    QTemporaryDir dir;
    ASSERT_EQ(zelk_LoadModel(h, writeModel(dir, p).toLatin1()), 0);
    ASSERT_EQ(handleprobe::processingSetup(h), 9);
    ASSERT_TRUE(fixtures::writeUInt16Scan(dir.filePath("whiteReference"), ".bin", Width, 3, Bands, whiteLines));
    ASSERT_TRUE(fixtures::writeUInt16Scan(dir.filePath("darkReference"), ".bin", Width, 3, Bands, darkLines));
    ASSERT_EQ(zelk_LoadCorrection(h, dir.path().toLatin1(), nullptr), 0) << zelk_GetErrorMsg(h);
    EXPECT_TRUE(handleprobe::correction(h).enabled);
    EXPECT_EQ(handleprobe::processingSetup(h), 9);
}

TEST(LoadCorrection, PointSpectraFillEveryPixelOfASnapshot)
{
    Session s(projectOfType(19, 0));
    ASSERT_TRUE(writePointScan(s));
    ASSERT_EQ(s.load("scan"), 0) << zelk_GetErrorMsg(s.h);
    const handleprobe::Correction c = handleprobe::correction(s.h);
    ASSERT_EQ(c.dark.size(), Width * 2 * Bands);
    ASSERT_EQ(c.gain.size(), Width * 2 * Bands);
    const float white[Bands] = {900, 901, 902, 903}, dark[Bands] = {10, 20, 30, 40};
    for (int i = 0; i < c.dark.size(); i += 5) {
        EXPECT_EQ(c.dark[i], dark[i % Bands]);
        EXPECT_FLOAT_EQ(c.gain[i], 0.95f / (white[i % Bands] - dark[i % Bands]));
    }
}

TEST(LoadCorrection, RefusalsReportTheKeptFailure)
{
    // A report made straight in the handle is replaced by the kept one, which is empty in
    // a fresh handle: the returned code alone tells.
    const QString none;
    struct Case {
        const char* what;
        Project project;
        Writer write;
        const char* name;
        int result;
        int code;
        QString text; // %1: the session's directory
        bool resampling = false; // on, for a camera of five bands that the references do not have
    } cases[] = {
        {"pair with a name", projectOfType(10), writePair, "scan", -1, 0, none},
        {"no white reference", projectOfType(10), [](const Session&) { return true; }, nullptr, -135, -135,
         "White reference file not present ('%1/whiteReference')"},
        {"no dark reference", projectOfType(10),
         [](const Session& s) { return writeUInt16Scan(s.path("whiteReference"), ".bin", Width, 3, Bands, whiteLines); }, nullptr, -135,
         -135, "Dark reference file not present ('%1/darkReference')"},
        {"white header without data", projectOfType(10),
         [](const Session& s) { return writePair(s) && QFile::remove(s.path("whiteReference.bin")); }, nullptr, -131, -131,
         "Cannot load white reference file ('%1/whiteReference'). Details: Did not find cube file with '.bin' extension."},
        {"BIP dark reference", projectOfType(10),
         [](const Session& s) { return writePair(s) && writeUInt16Scan(s.path("darkReference"), ".bin", Width, 3, Bands, darkLines, "bip"); },
         nullptr, -136, -136, "Unsupported data layout for correction (BIL)"},
        {"narrow dark reference", projectOfType(10),
         [](const Session& s) { return writePair(s) && writeUInt16Scan(s.path("darkReference"), ".bin", Width - 1, 3, Bands, darkLines); },
         nullptr, -132, -132, "Correction scans must have identical width and band count."},
        {"float white of three lines", projectOfType(10),
         [](const Session& s) { return writePair(s) && writeFloatScan(s.path("whiteReference"), ".bin", Width, 3, Bands, whiteLines); },
         nullptr, -133, -133, "zelk_LoadCorrection: A reference of 3 lines cannot correct frames (float references must have exactly one line)"},
        {"bytes as white", projectOfType(10), [](const Session& s) { return writePair(s) && writeBytes(s.path("whiteReference"), 1, "bil"); },
         nullptr, -136, -136, "Unsupported data type for correction (3)"},

        {"no capture folder", projectOfType(1), [](const Session&) { return true; }, "scan", -130, 0, none},
        {"no dark capture", projectOfType(1), [](const Session& s) { return writeCapture(s) && QFile::remove(s.path("scan/capture/DARKREF_scan.raw")); },
         "scan", -131, -131, "-131: zelk_LoadCorrection: Error loading dark reference data"},
        {"capture bands differ", projectOfType(1), [](const Session& s) { return writeCapture(s, Width, Bands - 1); }, "scan", -132, 0, none},
        {"capture widths differ", projectOfType(1), [](const Session& s) { return writeCapture(s, Width - 2); }, "scan", -132, -132,
         "Correction scans must have identical width and band count."},

        {"no scan", projectOfType(19, 3), [](const Session&) { return true; }, "scan", -137, 0, none},
        {"scan without references", projectOfType(19, 3),
         [](const Session& s) { return writeUInt16Scan(s.path("scan"), ".trf", Width, 2, Bands, constant); }, "scan", -137, 0, none},
        {"references narrower than the scan", projectOfType(19, 3),
         [](const Session& s) { return writeCorrectionScan(s, "bil", "bil", 2, 1, Width - 1); }, "scan", -4304, 0, none},
        {"one line in two layouts", projectOfType(19, 3), [](const Session& s) { return writeCorrectionScan(s, "bil", "bip", 1); },
         "scan", -4302, 0, none},
        {"resampling for another camera", projectOfType(19, 3), [](const Session& s) { return writeCorrectionScan(s); }, "scan", -137,
         0, none, true},
        {"point spectra for frames", projectOfType(19, 3), writePointScan, "scan", -133, -133,
         "zelk_LoadCorrection: A point correction cannot correct line-scan frames (references of one line expected)"},
        {"cube for frames", projectOfType(19, 3), [](const Session& s) { return writeCorrectionScan(s, "bip", "bip", 3, 3); }, "scan",
         -133, -133, "zelk_LoadCorrection: A cube correction cannot correct line-scan frames (references of one line expected)"},
        {"BIL cube for a snapshot", projectOfType(19, 0), [](const Session& s) { return writeCorrectionScan(s, "bil", "bil", 3, 3); },
         "scan", -4305, -4305, "-4305: BIP cube reference expected, got 2"},
        {"byte cube for a snapshot", projectOfType(19, 0),
         [](const Session& s) { return writeCorrectionScan(s, "bip", "bip", 3, 3) && writeBytes(s.path("whiteref"), 3, "bip"); }, "scan",
         -4306, -4306, "-4306: white cube reference should have float data type, got 3"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        Session s(c.project);
        ASSERT_TRUE(c.write(s));
        if (c.resampling) {
            const QString header = writeFiveBandCameraHeader(s.dir, Width);
            ASSERT_EQ(zelk_SetDeviceWavelengthsFromENVIHeaderFile(s.h, header.toLatin1().constData()), 0);
            ASSERT_EQ(zelk_SetResamplingWavelengthsGrid(s.h, 900, 100, 1200), 0);
            testing::internal::CaptureStdout();
            ASSERT_EQ(zelk_SetResampling(s.h, 1), 0);
            testing::internal::GetCapturedStdout();
        }
        EXPECT_EQ(s.load(c.name), c.result);
        EXPECT_EQ(zelk_GetErrorCode(s.h), c.code);
        EXPECT_EQ(QString::fromLocal8Bit(zelk_GetErrorMsg(s.h)), c.text.contains("%1") ? c.text.arg(s.dir.path()) : c.text);
        EXPECT_FALSE(handleprobe::correction(s.h).enabled);
        EXPECT_TRUE(handleprobe::correction(s.h).dark.isEmpty());
    }
}

TEST(LoadCorrection, PairScansStayUntilTheNextLoad)
{
    Session s(projectOfType(10));
    ASSERT_TRUE(writeUInt16Scan(s.path("whiteReference"), ".bin", Width, 3, Bands, whiteLines));
    EXPECT_EQ(s.load(nullptr), -135);
    EXPECT_TRUE(handleprobe::pairScans(s.h).white && !handleprobe::pairScans(s.h).dark);
    ASSERT_TRUE(writeUInt16Scan(s.path("darkReference"), ".bin", Width, 3, Bands, darkLines, "bip"));
    EXPECT_EQ(s.load(nullptr), -136);
    EXPECT_FALSE(handleprobe::pairScans(s.h).white || handleprobe::pairScans(s.h).dark); // a refused pair is dropped
}

TEST(LoadCorrection, AFailedLoadKeepsTheEarlierCorrection)
{
    Session s(projectOfType(19, 3));
    ASSERT_TRUE(writeCorrectionScan(s));
    ASSERT_EQ(s.load("scan"), 0);
    const handleprobe::Correction loaded = handleprobe::correction(s.h);

    // A kept failure, then failures reported straight in the handle: the handle reads
    // the kept one after each.
    ASSERT_TRUE(writePointScan(s));
    EXPECT_EQ(s.load("scan"), -133);
    EXPECT_EQ(s.load("missing"), -137);
    EXPECT_EQ(zelk_GetErrorCode(s.h), -133);
    EXPECT_TRUE(QString(zelk_GetErrorMsg(s.h)).startsWith("zelk_LoadCorrection: A point correction"));
    // A scan whose header holds no references asks for no correction and changes nothing.
    modelwriter::EnviScan bare;
    bare.samples = Width, bare.lines = 1, bare.bands = Bands;
    bare.data = modelwriter::uint16Bytes(QVector<quint16>(Width * Bands, 7));
    bare.binaryHeader = "TRFv1|::";
    ASSERT_TRUE(modelwriter::writeEnviScan(s.path("bare"), ".trf", bare));
    EXPECT_EQ(s.load("bare"), 0);

    EXPECT_TRUE(handleprobe::correction(s.h).enabled);
    EXPECT_EQ(handleprobe::correction(s.h).dark, loaded.dark);
    EXPECT_EQ(handleprobe::correction(s.h).gain, loaded.gain);
    EXPECT_EQ(s.decide(), expectedDecisions(0.95f));
}

TEST(LoadCorrection, NeedsAHandleAndAProject)
{
    EXPECT_EQ(zelk_LoadCorrection(nullptr, ".", nullptr), -101);
    EXPECT_STREQ(zelk_GetErrorMsg(nullptr), "zelk_LoadCorrection: Passing NULL pointer.");
    TestHandle h;
    EXPECT_EQ(zelk_LoadCorrection(h, nullptr, nullptr), -103);
    EXPECT_STREQ(zelk_GetErrorMsg(h), "zelk_LoadCorrection: Project not loaded.");
}
