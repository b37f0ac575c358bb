// Line-scan runs of projects with a regressor through the C interface: outputs per
// pixel, masked outputs, object means, correction on all bands, frames resampled from
// another camera grid, and the refusals of both variants.
//
// The regressor of model_files.h: "fat" = w0 and "water" = w0 - w1 + 100 from bands 3
// and 1. Bands 0 and 2 carry large values that would show in any output that read them.

#include "model_files.h"
#include "runtime/handle.h"
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

struct LoadedRun {
    QTemporaryDir dir;
    TestHandle h;
    explicit LoadedRun(const Project& p) { EXPECT_EQ(zelk_LoadModel(h, writeModel(dir, p).toLatin1()), 0); }
};

// Checks the outputs, plain and masked, and the decisions of the last frame against
// the corrected spectra `z` (BIL, project bands).
void expectFrame(ZelkHandle* h, const std::vector<double>& z, int variables)
{
    const unsigned char* decisions = zelk_GetFrameDecisions(h);
    ASSERT_NE(decisions, nullptr);
    for (int v = 0; v < variables; ++v) {
        std::vector<float> plain(Width), masked(Width);
        std::copy_n(zelk_GetFrameRegOutputVar(h, v, 0, 0), Width, plain.begin());
        if (h->segmentation.enabled)
            std::copy_n(zelk_GetFrameRegOutputVar(h, v, 1, -7), Width, masked.begin());
        for (int p = 0; p < Width; ++p) {
            double x[Bands];
            for (int b = 0; b < Bands; ++b)
                x[b] = z[size_t(b * Width + p)];
            const double y = expectedOutputs(x, variables)[size_t(v)];
            EXPECT_NEAR(plain[size_t(p)], y, 1e-3) << "variable " << v << " pixel " << p;
            EXPECT_EQ(decisions[p], isLeaf(x[1]) ? 1 : 0) << "pixel " << p;
            if (h->segmentation.enabled)
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
            LoadedRun run(regressionProject(Width, variables));
            ZelkHandle* h = run.h;
            ASSERT_EQ(h->project->processingSetup, 7);
            h->input.sampleType = InputType(type);
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
                expectFrame(h, z, variables);
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
    ASSERT_EQ(h->project->processingSetup, 3);
    h->input.sampleType = InputType::UInt16;
    ASSERT_EQ(zelk_StartAcquisition(h), 0);

    for (int pair = 0; pair < 2; ++pair) {
        if (pair == 1)
            loadPair(40, 7);
        std::vector<quint16> raw(Width * Bands);
        std::vector<double> z(raw.size());
        for (int i = 0; i < Width * Bands; ++i) {
            const float dark = h->correction.darkRef[i], gain = h->correction.gainRef[i];
            raw[size_t(i)] = quint16(std::lround(dark + sample(0, i % Width, i / Width) / gain));
            z[size_t(i)] = (float(raw[size_t(i)]) - dark) * gain;
        }
        ASSERT_EQ(zelk_ProcessFrame(h, raw.data()), 0);
        expectFrame(h, z, 2);
    }
}

TEST(ResamplingVariant, CameraFramesAreInterpolatedOntoTheProjectBands)
{
    // Five camera bands halfway between the project's 900 to 1200 nm: each project band
    // is the rounded mean of its two neighbours.
    for (bool corrected : {false, true}) {
        SCOPED_TRACE(corrected ? "corrected" : "raw");
        QTemporaryDir dir;
        TestHandle h;
        const QString header = writeFiveBandCameraHeader(dir, Width);
        ASSERT_EQ(zelk_SetDeviceWavelengthsFromENVIHeaderFile(h, header.toLatin1().constData()), 0);
        ASSERT_EQ(zelk_SetResamplingWavelengthsGrid(h, 900, 100, 1200), 0);
        testing::internal::CaptureStdout();
        ASSERT_EQ(zelk_SetResampling(h, 1), 0);
        testing::internal::GetCapturedStdout();
        ASSERT_EQ(zelk_LoadModel(h, writeModel(dir, regressionProject(Width)).toLatin1()), 0);
        ASSERT_EQ(h.h->project->processingSetup, 9);
        ASSERT_EQ(zelk_GetInputBands(h), 5);
        h.h->input.sampleType = InputType::UInt16;
        if (corrected) {
            h.h->correction.enabled = true;
            h.h->correction.darkRef = QVector<float>(Width * Bands, 2);
            h.h->correction.gainRef = QVector<float>(Width * Bands, 0.5f);
        }
        ASSERT_EQ(zelk_SetSegmentation(h, 1), 0);
        ASSERT_EQ(zelk_StartAcquisition(h), 0);

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
        expectFrame(h, z, 2);

        // Float frames are not resampled: -1 with no text, and the ring row stays as it was.
        const int code = zelk_GetErrorCode(h);
        QImage& ring = *h.h->ring.labels;
        std::fill_n(ring.scanLine(h.h->ring.nextRow), Width, quint8(77));
        h.h->input.sampleType = InputType::Float;
        EXPECT_EQ(zelk_ProcessFrame(h, camera.data()), -1);
        EXPECT_EQ(zelk_GetErrorCode(h), code);
        EXPECT_EQ(QByteArray(reinterpret_cast<const char*>(zelk_GetFrameDecisions(h)), Width), QByteArray(Width, char(77)));
    }
}

TEST(FrameVariants, RefuseWhatTheyCannotRun)
{
    using Change = std::function<void(ZelkHandle*)>;
    const QVector<float> refs(Width * Bands, 1);
    struct Case {
        const char* name;
        Change change; // applied to a running acquisition of set-up 7
        int code;
        const char* text; // null: no text is stored
    };
    const std::vector<Case> cases = {
        {"BIL of another type", [](ZelkHandle* h) { h->input.sampleType = InputType(3); }, -208, "zelk_ProcessFrame: Unsupported data type."},
        {"BIP of 16 bits", [](ZelkHandle* h) { h->input.layout = InputLayout::BIP, h->input.sampleType = InputType::UInt16; }, -208,
         "zelk_ProcessFrame: Unsupported data type."},
        {"BIP corrected", [&](ZelkHandle* h) { h->input.layout = InputLayout::BIP, h->correction.enabled = true, h->correction.darkRef = h->correction.gainRef = refs; },
         -209, "zelk_ProcessFrame: Correction not supported for the BIP frame layout type"},
        {"BIP", [](ZelkHandle* h) { h->input.layout = InputLayout::BIP; }, -208, "zelk_ProcessFrame: Regression needs frames in the BIL layout."},
        {"BSQ", [](ZelkHandle* h) { h->input.layout = InputLayout::BSQ; }, -208, "zelk_ProcessFrame: Unsupported data layout (3)."},
        {"width changed", [](ZelkHandle* h) { zelk_SetInputWidth(h, Width - 2); }, -199,
         "zelk_ProcessFrame: Frame width changed during acquisition."},
        {"references of another size", [](ZelkHandle* h) { h->correction.enabled = true, h->correction.darkRef = h->correction.gainRef = QVector<float>(3, 1); },
         -4304, "zelk_ProcessFrame: Invalid correction information"},
        {"resampling a float frame", [](ZelkHandle* h) { h->project->processingSetup = 9; }, -1, nullptr},
        {"resampling without a resampler", [](ZelkHandle* h) { h->project->processingSetup = 9, h->input.sampleType = InputType::UInt16; }, -199,
         "zelk_ProcessFrame: The resampler does not fit the frames."},
        {"resampling another type", [](ZelkHandle* h) { h->project->processingSetup = 9, h->input.sampleType = InputType(3); }, -208,
         "zelk_ProcessFrame: Unsupported data type."},
    };
    const std::vector<float> frame(Width * Bands, 1);
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        LoadedRun run(regressionProject(Width));
        ZelkHandle* h = run.h;
        ASSERT_EQ(zelk_StartAcquisition(h), 0);
        c.change(h);
        logToHandle(h, QStringLiteral("before"));
        EXPECT_EQ(zelk_ProcessFrame(h, frame.data()), c.code);
        EXPECT_STREQ(zelk_GetErrorMsg(h), c.text ? c.text : "before");
        EXPECT_EQ(h->ring.frameCount, 1); // failed frames are counted and use their ring row
        EXPECT_EQ(h->ring.nextRow, 1);
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
    EXPECT_FALSE(noScaling.h.h->isAcquiring());

    // A camera of another width than the frames.
    LoadedRun resampled(regressionProject(Width));
    ZelkHandle* h = resampled.h;
    h->project->processingSetup = 9;
    h->resampling.resampler = std::make_unique<ZelkResampler>();
    const QVector<double> camera{850, 950, 1050, 1150, 1250}, project{900, 1000, 1100, 1200};
    ASSERT_EQ(h->resampling.resampler->init(Width + 1, ZelkBandSet(&camera), ZelkBandSet(&project)), 0);
    h->input.bands = 5;
    EXPECT_EQ(zelk_StartAcquisition(h), -404);
    ASSERT_EQ(zelk_SetInputWidth(h, Width + 1), 0);
    EXPECT_EQ(zelk_StartAcquisition(h), 0);
}
