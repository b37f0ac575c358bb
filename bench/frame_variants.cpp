// Speed of the frame path of projects with a regressor, through the C interface, with
// classification and segmentation on.
//   Regression: W1 frames of 640 pixels and 224 bands; the classifier takes every other
//   band (F = 24, K = 200, C = 5, rejection on); the regressor smooths with a window of
//   11, keeps 60 of the 214 smoothed rows and maps them onto 3 variables.
//   Resampling: the same camera, its 224 bands resampled to a project of 200 bands,
//   against frames that arrive on the project's 200 bands already.
//
// Frames come from a belt picture of ellipses in four foreground classes on a background
// class; each class has its own spectrum, with noise. Times are wall-clock over the
// frames after the library's 500 warm-up frames. Where the build has the OpenCL backend,
// the regression runs on the first OpenCL device too, with the bytes that one frame
// moves between host and device.

#include "classify/regressor.h"
#ifdef ZELK_WITH_OPENCL
#include "compute/device.h"
#include "compute/opencl/opencl_classifier.h"
#include "compute/opencl/opencl_regression.h"
#endif
#include "runtime/handle.h"
#include "workloads.h"
#include "modelwriter/regression_writer.h"
#include "zelk.h"

#include <QTextStream>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <random>
#include <vector>

using namespace modelfiles;

namespace {

constexpr int Width = 640, CameraBands = 224, ProjectBands = 200, Classes = 5;
constexpr int PictureRows = 160; // the picture repeats along the belt
constexpr int TimedFrames = 6000;
constexpr int OpenClTimedFrames = 1000;

double seconds()
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

double projectWavelength(int b) { return 410.0 + 2.7 * b; }

// BIL frames of the picture's rows on the given wavelengths.
std::vector<quint16> frames(const std::vector<quint8>& picture, int bands, double (*wavelength)(int), std::mt19937& rng)
{
    std::normal_distribution<float> noise(0, 15);
    std::vector<quint16> out(size_t(PictureRows) * bands * Width);
    for (int r = 0; r < PictureRows; ++r)
        for (int b = 0; b < bands; ++b)
            for (int p = 0; p < Width; ++p) {
                const int c = picture[size_t(r) * Width + p];
                out[(size_t(r) * bands + b) * Width + p] = quint16(std::lround(workloads::classCounts(c, wavelength(b)) + noise(rng)));
            }
    return out;
}

// A project on `bands` bands: every other band goes to the classifier, whose centres sit
// at the projected class spectra (W1's classifier on these bands); the regressor as in
// the heading.
Project project(int bands, double (*wavelength)(int), bool withRegressor, std::mt19937& rng)
{
    std::normal_distribution<float> g(0, 1);
    const int selected = bands / 2;
    workloads::Network n = workloads::networkNear(
        selected, 24, 200, Classes, -2e-5f, 20.0f,
        [&](int c, int b) { return workloads::classCounts(c, wavelength(2 * b + 1)); }, rng);
    for (int i = 0; i < selected; ++i)
        n.selectedBands.push_back(2 * i + 1);
    n.thresholds.assign(Classes, 1e-3f);
    Project p = workloads::projectOf(14, 0, n, bands, Width, 100, QStringList{"belt", "a", "b", "c", "d"});
    p.images.front().wavelengths.clear();
    for (int b = 0; b < bands; ++b)
        p.images.front().wavelengths.append(wavelength(b));
    if (!withRegressor)
        return p;

    RegressorSpec r;
    const int filtered = bands - 10, features = 60, variables = 3;
    r.prep = FilterElement{QStringLiteral("ZelkAFPipelineM7:1"), bands, filtered, 0, 11};
    QVector<qint32> rows;
    for (int i = 0; i < features; ++i)
        rows.append(qint32(i * (filtered - 1) / (features - 1)));
    r.selection = SelectionElement{QStringLiteral("ZelkAFPipelineM10:1"), filtered, features, TypedArray::ints({features, 1, 1, 1}, rows)};
    r.scaling = ScalingElement{QStringLiteral("ZelkAFPipelineM9:1"), features, 0,
                               TypedArray::floats({features, 1, 1, 1}, QVector<float>(features, 2000)),
                               TypedArray::floats({features, 1, 1, 1}, QVector<float>(features, 1e-3f))};
    QVector<float> map(features * variables);
    for (float& x : map)
        x = g(rng);
    r.model = LinearElement{QStringLiteral("ZelkAFPipelineM1:1"), features, variables,
                            TypedArray::floats({features, variables, 1, 1}, map), TypedArray::floats({1, variables, 1, 1}, {1, 2, 3})};
    r.varNames = QStringList{"sugar", "water", "firmness"};
    StreamBuilder out;
    out.add(r);
    p.regressor = out.bytes();
    return p;
}

struct Timing {
    double framesPerSecond = 0;
    int objects = 0;
};

// Runs the frames through a started acquisition: the warm-up, then the timed frames.
Timing run(ZelkHandle* h, const std::vector<quint16>& data, int bands, int timedFrames = TimedFrames)
{
    Timing t;
    const size_t frameSize = size_t(bands) * Width;
    auto frame = [&](int i) { return data.data() + size_t(i % PictureRows) * frameSize; };
    for (int i = 0; i < h->timing.warmupFrames; ++i)
        zelk_ProcessFrame(h, frame(i));
    const double start = seconds();
    for (int i = 0; i < timedFrames; ++i) {
        const int r = zelk_ProcessFrame(h, frame(i));
        if (r != 0) {
            std::printf("frame %d failed: %d %s\n", i, r, zelk_GetErrorMsg(h));
            return t;
        }
        t.objects += zelk_GetObjCount(h);
    }
    t.framesPerSecond = timedFrames / (seconds() - start);
    zelk_StopAcquisition(h);
    return t;
}

bool start(ZelkHandle* h, const QTemporaryDir& dir, const Project& p, const char* name)
{
    const QString path = writeModel(dir, p, FileKind::Zelk, QLatin1String(name));
    if (zelk_LoadModel(h, path.toLatin1().constData()) != 0 || zelk_SetSegmentation(h, 1) != 0
        || (h->input.sampleType = InputType::UInt16, zelk_StartAcquisition(h) != 0)) {
        std::printf("%s: cannot start: %s\n", name, zelk_GetErrorMsg(h));
        return false;
    }
    return true;
}

void report(const char* name, const ZelkHandle* h, const Timing& t)
{
    std::printf("%-34s set-up %d  %8.0f frames/s  %7.1f us/frame  %d objects\n", name, h->project->processingSetup,
                t.framesPerSecond, 1e6 / t.framesPerSecond, t.objects);
}

#ifdef ZELK_WITH_OPENCL
// The regression project on the first OpenCL device of the list.
void openClRegression(const QTemporaryDir& dir, const Project& p, const std::vector<quint16>& camera, double cpuRate)
{
    ZelkHandle* h = zelk_Init(nullptr);
    zelk_RefreshDeviceList(h, 0, 1);
    int entry = -1;
    for (int i = 0; i < zelk_GetDeviceCount(h) && entry < 0; ++i)
        if (h->computeDevices.list[i].backend == compute::BackendOpenCl)
            entry = i;
    if (entry >= 0 && zelk_SetDevice(h, entry) == 0 && start(h, dir, p, "regress-opencl")) {
        const Timing t = run(h, camera, CameraBands, OpenClTimedFrames);
        report("W1 regression, OpenCL", h, t);
        const auto* c = dynamic_cast<const compute::opencl::OpenClClassifier*>(h->project->classifier->kernel.get());
        const auto* r = dynamic_cast<const compute::opencl::OpenClRegression*>(h->project->regressor->frameKernel());
        if (c && r && t.framesPerSecond > 0)
            std::printf("  (cpu %.1fx faster) %lld B in, %lld B out a frame: classifier %lld / %lld, regressor %lld / %lld\n",
                        cpuRate / t.framesPerSecond, c->lastTraffic().toDevice + r->lastTraffic().toDevice,
                        c->lastTraffic().toHost + r->lastTraffic().toHost, c->lastTraffic().toDevice, c->lastTraffic().toHost,
                        r->lastTraffic().toDevice, r->lastTraffic().toHost);
        ZelkRegressor& regressor = *h->project->regressor;
        std::vector<float> z(h->regression.correctedFrame.size()), out(size_t(Width) * 3);
        for (size_t i = 0; i < z.size(); ++i)
            z[i] = float(camera[i]);
        const double begin = seconds();
        for (int i = 0; i < OpenClTimedFrames; ++i)
            regressor.predictFrame(z.data(), Width, CameraBands, out.data());
        std::printf("%-34s %17.1f us/frame\n", "  regressor alone", 1e6 * (seconds() - begin) / OpenClTimedFrames);
    } else {
        std::printf("W1 regression, OpenCL: not run: %s\n", entry < 0 ? "no OpenCL device" : zelk_GetErrorMsg(h));
    }
    zelk_Release(h);
}
#endif

} // namespace

int main()
{
    std::mt19937 rng(5);
    const std::vector<quint8> picture = workloads::beltPicture(Width, PictureRows, Classes, 30, rng);
    const std::vector<quint16> camera = frames(picture, CameraBands, workloads::cameraWavelength, rng);
    const std::vector<quint16> onProjectBands = frames(picture, ProjectBands, projectWavelength, rng);
    QTemporaryDir dir;

    // Regression on the camera's own bands, beside classification alone.
    std::mt19937 same = rng; // the same classifier in both projects
    const Project classifying = project(CameraBands, workloads::cameraWavelength, false, rng);
    const Project regressing = project(CameraBands, workloads::cameraWavelength, true, same);
    double classifyRate = 0, regressRate = 0;
    {
        ZelkHandle* h = zelk_Init(nullptr);
        if (start(h, dir, classifying, "classify")) {
            const Timing t = run(h, camera, CameraBands);
            report("W1 classification", h, t);
            classifyRate = t.framesPerSecond;
        }
        zelk_Release(h);
    }
    for (bool corrected : {false, true}) {
        ZelkHandle* h = zelk_Init(nullptr);
        if (start(h, dir, regressing, "regress")) {
            if (corrected) { // references as a loaded correction leaves them, set-up 3
                zelk_StopAcquisition(h);
                h->correction.enabled = true;
                // Dark 0 and gain 1: the arithmetic of a correction, the same decisions.
                h->correction.darkRef = QVector<float>(Width * CameraBands, 0);
                h->correction.gainRef = QVector<float>(Width * CameraBands, 1);
                h->project->processingSetup = 3;
                zelk_StartAcquisition(h);
            }
            const Timing t = run(h, camera, CameraBands);
            report(corrected ? "W1 regression, corrected" : "W1 regression", h, t);
            if (!corrected)
                regressRate = t.framesPerSecond;

            // The regressor alone on one corrected frame.
            ZelkRegressor& r = *h->project->regressor;
            std::vector<float> z(h->regression.correctedFrame.size()), out(size_t(Width) * 3);
            for (size_t i = 0; i < z.size(); ++i)
                z[i] = float(camera[i]);
            const double begin = seconds();
            for (int i = 0; i < TimedFrames; ++i)
                r.predictFrame(z.data(), Width, CameraBands, out.data());
            if (!corrected)
                std::printf("%-34s %17.1f us/frame\n", "  regressor alone", 1e6 * (seconds() - begin) / TimedFrames);
        }
        zelk_Release(h);
    }
    if (classifyRate > 0 && regressRate > 0)
        std::printf("  regression adds %.1f%% to the frame time of classification\n", 100 * (classifyRate / regressRate - 1));
#ifdef ZELK_WITH_OPENCL
    openClRegression(dir, regressing, camera, regressRate);
#endif

    // Resampling 224 -> 200 bands, beside frames on the 200 bands already.
    const Project small = project(ProjectBands, projectWavelength, true, rng);
    double plainRate = 0;
    {
        ZelkHandle* h = zelk_Init(nullptr);
        if (start(h, dir, small, "project-bands")) {
            const Timing t = run(h, onProjectBands, ProjectBands);
            report("200-band frames", h, t);
            plainRate = t.framesPerSecond;
        }
        zelk_Release(h);
    }
    {
        ZelkHandle* h = zelk_Init(nullptr);
        const QString header = dir.filePath("camera.hdr");
        QFile f(header);
        f.open(QIODevice::WriteOnly);
        QTextStream text(&f);
        text << "ENVI\nsamples = " << Width << "\nbands = " << CameraBands << "\nwavelength = {";
        for (int b = 0; b < CameraBands; ++b)
            text << (b ? ", " : "") << workloads::cameraWavelength(b);
        text << "}\n";
        text.flush();
        f.close();
        zelk_SetDeviceWavelengthsFromENVIHeaderFile(h, header.toLatin1().constData());
        zelk_SetResamplingWavelengthsGrid(h, float(projectWavelength(0)), 2.7f, float(projectWavelength(ProjectBands - 1)) + 0.1f);
        if (zelk_SetResampling(h, 1) == 0 && start(h, dir, small, "resampled")) {
            std::printf("\n");
            const Timing t = run(h, camera, CameraBands);
            report("224-band frames resampled to 200", h, t);
            std::vector<quint16> out(size_t(Width) * ProjectBands);
            const double begin = seconds();
            for (int i = 0; i < TimedFrames; ++i)
                h->resampling.resampler->resample(camera.data() + size_t(i % PictureRows) * CameraBands * Width, out.data());
            const double alone = (seconds() - begin) / TimedFrames;
            std::printf("%-34s %17.1f us/frame\n", "  resampler alone", 1e6 * alone);
            if (plainRate > 0 && t.framesPerSecond > 0)
                std::printf("  resampling is %.1f%% of the frame time (%.1f%% by the resampler alone)\n",
                            100 * (1 - t.framesPerSecond / plainRate), 100 * alone * t.framesPerSecond);
        } else {
            std::printf("resampling cannot start: %s\n", zelk_GetErrorMsg(h));
        }
        zelk_Release(h);
    }
    return 0;
}
