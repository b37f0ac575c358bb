// Line-scan runs of projects with a regressor through the C interface: outputs per
// pixel, masked outputs, object means, correction on all bands, frames resampled from
// another camera grid, and the refusals of both variants.
//
// The regressor of model_files.h: "fat" = w0 and "water" = w0 - w1 + 100 from bands 3
// and 1. Bands 0 and 2 carry large values that would show in any output that read them.

#include "model_files.h"
#include "runtime/handle_probe.h"
#include "runtime/report.h"
#include "spectral_fixtures.h"
#include "test_handle.h"

#include <QTextStream>
#include <cmath>
#include <functional>
#include <gtest/gtest.h>
#include <vector>

using namespace modelfiles;

namespace {

constexpr int Width = 8, Bands = 4;

// The outputs of one corrected spectrum of four bands.
std::vector<double> expectedOutputs(const double* x, int variables)
{
    const double w0 = (x[3] - 1) * 2, w1 = (x[1] - 2) * 0.5;
    return variables == 1 ? std::vector<double>{w0} : std::vector<double>{w0, w0 - w1 + 100};
}

// Project-band values of frame `f` at pixel `p`: band 1 is the leaf feature at columns 2
// to 4 of frames 0 to 4, band 3 a small value that the classifier tolerates.
double sample(int f, int p, int b)
{
    switch (b) {
    case 1: return f < 5 && p >= 2 && p <= 4 ? 10 : 0;
    case 3: return (p + f) % 4;
    default: return 1000 + 10 * b + p;
    }
}

bool isLeaf(double band1) { return band1 > 5; } // nearer the leaf centre (10, 0)

// The project of a camera of another kind: 19 with acquisition type 4 gives 16-bit
// frames, 10 takes a pair of references.
Project ofType(Project p, int type, int acqType = 0)
{
    p.type = p.images[0].imageType = type;
    p.acqType = acqType;
    return p;
}

// Describes a camera of five bands halfway between the project's and switches
// resampling on for the next load.
void describeFiveBandCamera(ZelkHandle* h, const QTemporaryDir& dir, int width)
{
    const QString header = writeFiveBandCameraHeader(dir, width);
    ASSERT_EQ(zelk_SetDeviceWavelengthsFromENVIHeaderFile(h, header.toLatin1().constData()), 0);
    ASSERT_EQ(zelk_SetResamplingWavelengthsGrid(h, 900, 100, 1200), 0);
    testing::internal::CaptureStdout();
    ASSERT_EQ(zelk_SetResampling(h, 1), 0);
    testing::internal::GetCapturedStdout();
}

struct LoadedRun {
    QTemporaryDir dir;
    TestHandle h;
    explicit LoadedRun(const Project& p, bool resampling = false)
    {
        if (resampling)
            describeFiveBandCamera(h, dir, Width);
        EXPECT_EQ(zelk_LoadModel(h, writeModel(dir, p).toLatin1()), 0);
    }

    // A reference pair of camera type 10 of `width` pixels, one line of `dark` and
    // `dark` + `span` counts per band.
    void loadPair(int width, int bands, int dark, int span)
    {
        const auto level = [](int count) { return [count](int, int, int) { return double(count); }; };
        ASSERT_TRUE(fixtures::writeUInt16Scan(dir.filePath("whiteReference"), ".bin", width, 1, bands, level(dark + span)));
        ASSERT_TRUE(fixtures::writeUInt16Scan(dir.filePath("darkReference"), ".bin", width, 1, bands, level(dark)));
        ASSERT_EQ(zelk_LoadCorrection(h, dir.path().toLatin1(), nullptr), 0) << zelk_GetErrorMsg(h);
    }
};

// Checks the outputs, plain and, with segmentation on, masked, and the decisions of
// the last frame against the corrected spectra `z` (BIL, project bands).
void expectFrame(ZelkHandle* h, const std::vector<double>& z, int variables, bool segmentation)
{
    const unsigned char* decisions = zelk_GetFrameDecisions(h);
    ASSERT_NE(decisions, nullptr);
    for (int v = 0; v < variables; ++v) {
        std::vector<float> plain(Width), masked(Width);
        std::copy_n(zelk_GetFrameRegOutputVar(h, v, 0, 0), Width, plain.begin());
        if (segmentation)
            std::copy_n(zelk_GetFrameRegOutputVar(h, v, 1, -7), Width, masked.begin());
        for (int p = 0; p < Width; ++p) {
            double x[Bands];
            for (int b = 0; b < Bands; ++b)
                x[b] = z[size_t(b * Width + p)];
            const double y = expectedOutputs(x, variables)[size_t(v)];
            EXPECT_NEAR(plain[size_t(p)], y, 1e-3) << "variable " << v << " pixel " << p;
            EXPECT_EQ(decisions[p], isLeaf(x[1]) ? 1 : 0) << "pixel " << p;
            if (segmentation)
                EXPECT_NEAR(masked[size_t(p)], isLeaf(x[1]) ? y : -7.0, 1e-3) << "variable " << v << " pixel " << p;
        }
    }
}

} // namespace

// Before the first start the index is checked against the loaded regressor, the mask
// next, and outputs that do not exist yet are refused rather than read.
TEST(RegressionVariant, OutputsBeforeTheFirstStart)
{
    LoadedRun run(regressionProject(Width, 2));
    ZelkHandle* h = run.h;
    const struct {
        int varIndex, mask, code;
    } cases[] = {{1, 1, -303}, {2, 1, -301}, {-1, 0, -301}, {1, 0, -305}, {0, 2, -305}};
    for (const auto& c : cases) {
        EXPECT_EQ(zelk_GetFrameRegOutputVar(h, c.varIndex, c.mask, 0), nullptr);
        EXPECT_EQ(zelk_GetErrorCode(h), c.code) << c.varIndex << " " << c.mask << ": " << zelk_GetErrorMsg(h);
    }
    EXPECT_STREQ(zelk_GetErrorMsg(h), "zelk_GetFrameRegOutputVar: No regression output yet. Start the acquisition first.");
}

TEST(RegressionVariant, OutputsAndObjectMeansFollowTheChain)
{
    for (int variables : {1, 2}) {
        for (int type : {1, 2}) {
            SCOPED_TRACE(testing::Message() << variables << " variables, data type " << type);
            const Project p = regressionProject(Width, variables);
            LoadedRun run(type == 1 ? ofType(p, 19, 4) : p);
            ZelkHandle* h = run.h;
            ASSERT_EQ(handleprobe::processingSetup(h), 7);
            ASSERT_EQ(zelk_GetInputDataType(h), type);
            ASSERT_EQ(zelk_SetSegmentation(h, 1), 0);
            ASSERT_EQ(zelk_StartAcquisition(h), 0);
            ASSERT_EQ(zelk_GetRegVarCount(h), variables);

            std::vector<double> sums(size_t(variables), 0.0);
            int leafPixels = 0;
            for (int f = 0; f <= 20; ++f) {
                std::vector<double> z(Width * Bands);
                std::vector<quint16> raw(z.size());
                std::vector<float> real(z.size());
                for (int b = 0; b < Bands; ++b)
                    for (int p = 0; p < Width; ++p) {
                        const size_t i = size_t(b * Width + p);
                        z[i] = sample(f, p, b);
                        raw[i] = quint16(z[i]);
                        real[i] = float(z[i]);
                    }
                ASSERT_EQ(zelk_ProcessFrame(h, type == 1 ? static_cast<const void*>(raw.data()) : real.data()), 0);
                expectFrame(h, z, variables, true);
                for (int p = 0; p < Width; ++p) {
                    double x[Bands];
                    for (int b = 0; b < Bands; ++b)
                        x[b] = z[size_t(b * Width + p)];
                    if (!isLeaf(x[1]))
                        continue;
                    ++leafPixels;
                    for (int v = 0; v < variables; ++v)
                        sums[size_t(v)] += expectedOutputs(x, variables)[size_t(v)];
                }
                if (f < 20)
                    EXPECT_EQ(zelk_GetObjCount(h), 0);
            }
            // The leaf block of frames 0 to 4 closes in the finishing pass of line 20.
            ASSERT_EQ(zelk_GetObjCount(h), 1);
            int* record = nullptr;
            ASSERT_EQ(zelk_GetObjDataInt(h, 0, &record), 0);
            EXPECT_EQ(record[7], leafPixels);
            EXPECT_EQ(record[8], 1);
            float* means = nullptr;
            ASSERT_EQ(zelk_GetObjDataRegOutput(h, 0, &means), 0);
            for (int v = 0; v < variables; ++v)
                EXPECT_NEAR(means[v], sums[size_t(v)] / leafPixels, 1e-4) << "variable " << v;
            EXPECT_EQ(zelk_StopAcquisition(h), 0);
        }
    }
}

TEST(RegressionVariant, CorrectsAllBandsWithTheReferencesOfTheMoment)
{
    // A reference pair of camera type 10: dark and white differ by pixel and band, and
    // a pair loaded again during the run counts from the next frame on.
    Project p = regressionProject(Width);
    p.type = p.images[0].imageType = 10;
    LoadedRun run(p);
    ZelkHandle* h = run.h;
    auto loadPair = [&](int darkBase, int span) {
        auto dark = [=](int c, int, int b) { return double(darkBase + 3 * c + b); };
        auto white = [=](int c, int l, int b) { return dark(c, l, b) + span + 2 * c + 5 * b; };
        ASSERT_TRUE(fixtures::writeUInt16Scan(run.dir.filePath("whiteReference"), ".bin", Width, 1, Bands, white));
        ASSERT_TRUE(fixtures::writeUInt16Scan(run.dir.filePath("darkReference"), ".bin", Width, 1, Bands, dark));
        ASSERT_EQ(zelk_LoadCorrection(h, run.dir.path().toLatin1(), nullptr), 0) << zelk_GetErrorMsg(h);
    };
    loadPair(100, 20);
    ASSERT_EQ(handleprobe::processingSetup(h), 3);
    ASSERT_EQ(zelk_GetInputDataType(h), 1); // corrected frames are raw counts
    ASSERT_EQ(zelk_StartAcquisition(h), 0);

    for (int pair = 0; pair < 2; ++pair) {
        if (pair == 1)
            loadPair(40, 7);
        std::vector<quint16> raw(Width * Bands);
        std::vector<double> z(raw.size());
        const handleprobe::Correction loaded = handleprobe::correction(h);
        ASSERT_EQ(loaded.dark.size(), Width * Bands);
        for (int i = 0; i < Width * Bands; ++i) {
            const float dark = loaded.dark[i], gain = loaded.gain[i];
            raw[size_t(i)] = quint16(std::lround(dark + sample(0, i % Width, i / Width) / gain));
            z[size_t(i)] = (float(raw[size_t(i)]) - dark) * gain;
        }
        ASSERT_EQ(zelk_ProcessFrame(h, raw.data()), 0);
        expectFrame(h, z, 2, false);
    }
}

TEST(ResamplingVariant, CameraFramesAreInterpolatedOntoTheProjectBands)
{
    // Five camera bands halfway between the project's 900 to 1200 nm: each project band
    // is the rounded mean of its two neighbours. Raw frames come from a camera of type
    // 19; corrected ones from one of type 10 whose references, on the project's bands,
    // are dark 2 and white 4: gain 0.5.
    for (bool corrected : {false, true}) {
        SCOPED_TRACE(corrected ? "corrected" : "raw");
        const Project p = corrected ? ofType(regressionProject(Width), 10) : ofType(regressionProject(Width), 19, 4);
        LoadedRun run(p, true);
        ZelkHandle* h = run.h;
        ASSERT_EQ(handleprobe::processingSetup(h), 9);
        ASSERT_EQ(zelk_GetInputBands(h), 5);
        if (corrected)
            run.loadPair(Width, Bands, 2, 2);
        ASSERT_EQ(zelk_GetInputDataType(h), 1);
        ASSERT_EQ(zelk_SetSegmentation(h, 1), 0);
        ASSERT_EQ(zelk_StartAcquisition(h), 0) << zelk_GetErrorMsg(h);

        // Camera bands 1 and 2 around the leaf feature, 3 and 4 around the small one; odd
        // sums make the halves that round away from zero.
        std::vector<quint16> camera(size_t(Width) * 5);
        for (int p = 0; p < Width; ++p) {
            const int leaf = p >= 2 && p <= 4 ? (corrected ? 22 : 10) : 2;
            const int values[5] = {1000 + p, leaf - 1, leaf + 2, 2 + p % 3, 3};
            for (int b = 0; b < 5; ++b)
                camera[size_t(b * Width + p)] = quint16(values[b]);
        }
        std::vector<double> z(Width * Bands);
        for (int b = 0; b < Bands; ++b)
            for (int p = 0; p < Width; ++p) {
                const double mean = std::round((camera[size_t(b * Width + p)] + camera[size_t((b + 1) * Width + p)]) / 2.0);
                z[size_t(b * Width + p)] = corrected ? (mean - 2) * 0.5 : mean;
            }
        ASSERT_EQ(zelk_ProcessFrame(h, camera.data()), 0);
        expectFrame(h, z, 2, true);
    }
}

TEST(ResamplingVariant, FloatFramesAreNotResampled)
{
    // A first run of float frames without resampling leaves leaf at columns 0 and 1 in
    // row 0 of the ring and fixes the handle's sample type. Resampled, the same frames
    // give -1 with no text and leave the ring row as it was.
    LoadedRun run(regressionProject(Width));
    ZelkHandle* h = run.h;
    ASSERT_EQ(zelk_StartAcquisition(h), 0);
    std::vector<float> frame(Width * Bands, 0.0f);
    frame[Width + 0] = frame[Width + 1] = 10;
    ASSERT_EQ(zelk_ProcessFrame(h, frame.data()), 0);
    const QByteArray before(reinterpret_cast<const char*>(zelk_GetFrameDecisions(h)), Width);
    ASSERT_EQ(before, QByteArray::fromHex("0101000000000000"));
    ASSERT_EQ(zelk_StopAcquisition(h), 0);

    describeFiveBandCamera(h, run.dir, Width);
    ASSERT_EQ(zelk_LoadModel(h, writeModel(run.dir, regressionProject(Width)).toLatin1()), 0);
    ASSERT_EQ(handleprobe::processingSetup(h), 9);
    ASSERT_EQ(zelk_StartAcquisition(h), 0) << zelk_GetErrorMsg(h);
    const int code = zelk_GetErrorCode(h);
    const std::string text = zelk_GetErrorMsg(h);
    std::vector<float> camera(size_t(Width) * 5, 0.0f);
    for (int p = 2; p <= 4; ++p)
        camera[size_t(Width + p)] = camera[size_t(2 * Width + p)] = 10;
    EXPECT_EQ(zelk_ProcessFrame(h, camera.data()), -1);
    EXPECT_EQ(zelk_GetErrorCode(h), code);
    EXPECT_EQ(zelk_GetErrorMsg(h), text);
    EXPECT_EQ(QByteArray(reinterpret_cast<const char*>(zelk_GetFrameDecisions(h)), Width), before);
}

TEST(FrameVariants, RefuseWhatTheyCannotRun)
{
    using Change = std::function<void(LoadedRun&)>;
    const Project floats = regressionProject(Width), counts = ofType(floats, 19, 4), pairs = ofType(floats, 10);
    struct Case {
        const char* name;
        Project project; // of set-up 7, or 9 with `resampling`
        bool resampling;
        Change change; // applied to the running acquisition
        int code;
        const char* text; // null: no text is stored
    };
    const auto layout = [](unsigned l) { return [l](LoadedRun& r) { ASSERT_EQ(zelk_SetInputDataLayout(r.h, l), 0); }; };
    const auto forceType = [](LoadedRun& r) { handleprobe::forceInputDataType(r.h, 3); };
    const std::vector<Case> cases = {
        {"BIL of another type", floats, false, forceType, -208, "zelk_ProcessFrame: Unsupported data type."},
        {"BIP of 16 bits", counts, false, layout(1), -208, "zelk_ProcessFrame: Unsupported data type."},
        // The references loaded during the run of float frames.
        {"BIP corrected", pairs, false, [&](LoadedRun& r) { r.loadPair(Width, Bands, 1, 1), layout(1)(r); }, -209,
         "zelk_ProcessFrame: Correction not supported for the BIP frame layout type"},
        {"BIP", floats, false, layout(1), -208, "zelk_ProcessFrame: Regression needs frames in the BIL layout."},
        {"BSQ", floats, false, layout(3), -208, "zelk_ProcessFrame: Unsupported data layout (3)."},
        {"width changed", floats, false, [](LoadedRun& r) { zelk_SetInputWidth(r.h, Width - 2); }, -199,
         "zelk_ProcessFrame: Frame width changed during acquisition."},
        {"references of another size", pairs, false, [](LoadedRun& r) { r.loadPair(3, Bands, 1, 1); }, -4304,
         "zelk_ProcessFrame: Invalid correction information"},
        {"resampling a float frame", floats, true, {}, -1, nullptr},
        {"resampling with a resampler of another width", counts, true,
         [](LoadedRun& r) { describeFiveBandCamera(r.h, r.dir, Width + 1); }, -199, "zelk_ProcessFrame: The resampler does not fit the frames."},
        {"resampling another type", counts, true, forceType, -208, "zelk_ProcessFrame: Unsupported data type."},
    };
    const std::vector<float> frame(size_t(Width) * 5, 1);
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        LoadedRun run(c.project, c.resampling);
        ZelkHandle* h = run.h;
        ASSERT_EQ(handleprobe::processingSetup(h), c.resampling ? 9 : 7);
        ASSERT_EQ(zelk_StartAcquisition(h), 0) << zelk_GetErrorMsg(h);
        if (c.change)
            c.change(run);
        logToHandle(h, QStringLiteral("before"));
        EXPECT_EQ(zelk_ProcessFrame(h, frame.data()), c.code);
        EXPECT_STREQ(zelk_GetErrorMsg(h), c.text ? c.text : "before");
        EXPECT_EQ(handleprobe::run(h).frames, 1); // failed frames are counted and use their ring row
        EXPECT_EQ(handleprobe::run(h).next, 1);
    }
}

TEST(FrameVariants, StartRefusesChainsThatCannotRun)
{
    RegressorSpec unscaled = twoBandRegressor(2);
    unscaled.scaling.reset();
    Project p = regressionProject(Width);
    StreamBuilder out;
    out.add(unscaled);
    p.regressor = out.bytes();
    LoadedRun noScaling(p);
    EXPECT_EQ(zelk_StartAcquisition(noScaling.h), -304);
    EXPECT_TRUE(QString(zelk_GetErrorMsg(noScaling.h)).startsWith("zelk_StartAcquisition: Regression model cannot run ("));
    EXPECT_EQ(zelk_StopAcquisition(noScaling.h), -171); // it did not start

    // A camera of another width than the frames.
    QTemporaryDir dir;
    TestHandle h;
    describeFiveBandCamera(h, dir, Width + 1);
    ASSERT_EQ(zelk_LoadModel(h, writeModel(dir, regressionProject(Width)).toLatin1()), 0);
    ASSERT_EQ(handleprobe::processingSetup(h), 9);
    ASSERT_EQ(zelk_GetInputBands(h), 5);
    EXPECT_EQ(zelk_StartAcquisition(h), -404);
    ASSERT_EQ(zelk_SetInputWidth(h, Width + 1), 0);
    EXPECT_EQ(zelk_StartAcquisition(h), 0);
}
