// The frame and cube paths on arbitrary programs (frame_program.h): a handle with one of
// a few small models gets frames, cubes and configuration calls in any order, and every
// result it hands out is read to its documented length.

#include "frame_program.h"
#include "modelwriter/scan_writer.h"
#include "runtime/handle_probe.h"
#include "zelk.h"

#include <QDir>
#include <QTemporaryDir>
#include <cstring>
#include <utility>
#include <vector>

using namespace frameprogram;

namespace {

// Written once per process, in memory where the system has a file system there: the
// model files, two camera descriptions (one that fits the models' 8 pixels, one that
// does not) and the place of the decision image.
struct Files {
    QTemporaryDir dir{(QDir(QStringLiteral("/dev/shm")).exists() ? QStringLiteral("/dev/shm") : QDir::tempPath()) +
                      QStringLiteral("/zelk-fuzz-XXXXXX")};
    QList<QByteArray> models;
    QByteArray cameras[2];
    QByteArray image;
    Files()
    {
        qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString&) {});
        const std::vector<modelwriter::Project> projects = frameprogram::models();
        for (size_t i = 0; i < projects.size(); ++i)
            models.append(modelfiles::writeModel(dir, projects[i], modelwriter::FileKind::Zelk, QString::number(i)).toLocal8Bit());
        for (int i = 0; i < 2; ++i) {
            modelwriter::EnviScan camera;
            camera.samples = i == 0 ? 8 : 5;
            camera.lines = 1;
            camera.bands = 6;
            camera.extraFields = QStringLiteral("wavelength = {880, 950, 1010, 1080, 1150, 1230}\n");
            const QString path = dir.filePath(QStringLiteral("camera%1.hdr").arg(i));
            modelwriter::writeFile(path, modelwriter::enviHeaderText(camera));
            cameras[i] = path.toLocal8Bit();
        }
        image = dir.filePath(QStringLiteral("decisions.png")).toLocal8Bit();
    }
};

volatile unsigned sink;

void touch(const void* p, size_t bytes)
{
    unsigned sum = 0;
    for (size_t i = 0; i < bytes; ++i)
        sum += static_cast<const quint8*>(p)[i];
    sink = sink + sum;
}

// A frame or cube of the size the handle expects now, as the caller must hand it in.
std::vector<char> samples(ZelkHandle* h, Reader& in, bool cube)
{
    const qint64 height = cube ? qMax(0, zelk_GetInputHeight(h)) : 1;
    const qint64 count = qMax(0, zelk_GetInputWidth(h)) * height * qMax(0, zelk_GetInputBands(h));
    const int bytesPerSample = handleprobe::inputDataType(h) == 1 ? 2 : 4;
    std::vector<char> buffer(size_t(count * bytesPerSample + 1), 0); // never empty: null is another case
    if (in.byte() & 1) {
        const QByteArray raw = in.take(size_t(count * bytesPerSample));
        std::memcpy(buffer.data(), raw.constData(), size_t(raw.size()));
        return buffer;
    }
    const QByteArray values = in.take(size_t(count));
    for (int i = 0; i < values.size(); ++i) {
        const quint8 v = quint8(values[i]);
        if (bytesPerSample == 2)
            reinterpret_cast<quint16*>(buffer.data())[i] = v;
        else
            reinterpret_cast<float*>(buffer.data())[i] = v;
    }
    return buffer;
}

void readResults(ZelkHandle* h, Reader& in)
{
    const int width = qMax(0, zelk_GetInputWidth(h)), height = qMax(0, zelk_GetInputHeight(h));
    const int variable = in.small(), mask = in.byte() % 3;
    const float maskValue = in.small();
    if (const unsigned char* row = zelk_GetFrameDecisions(h))
        touch(row, size_t(width));
    if (const unsigned char* cube = zelk_GetCubeDecisions(h))
        touch(cube, size_t(width) * size_t(height));
    if (const float* values = zelk_GetFrameRegOutputVar(h, variable, mask, maskValue))
        touch(values, size_t(width) * sizeof(float));
    const int variables = zelk_GetRegVarCount(h);
    for (int v = -1; v <= variables; ++v)
        if (const char* name = zelk_GetRegVarName(h, v))
            touch(name, std::strlen(name));
    const int decisions = zelk_GetDecCount(h);
    for (int d = -1; d <= decisions; ++d) {
        unsigned char rgb[3];
        zelk_GetDecColor(h, d, rgb, rgb + 1, rgb + 2);
        if (const char* name = zelk_GetDecName(h, d))
            touch(name, std::strlen(name));
    }
    const int objects = zelk_GetObjCount(h);
    // Up to the first index past the stored records, which may be fewer than the count.
    for (int i = -1; i <= objects; ++i) {
        int* record = nullptr;
        const int stored = zelk_GetObjDataInt(h, i, &record);
        if (stored == 0)
            touch(record, ZELK_OBJ_RECORD_INTS * sizeof(int));
        float* means = nullptr;
        if (zelk_GetObjDataRegOutput(h, i, &means) == 0)
            touch(means, size_t(qMax(0, variables)) * sizeof(float));
        const unsigned classIndex = in.byte() % 23;
        zelk_GetObjDataClassSize(h, i, classIndex);
        zelk_GetObjDataClassFrac(h, i, classIndex);
        if (i >= 0 && stored != 0)
            break;
    }
    touch(zelk_GetErrorMsg(h), std::strlen(zelk_GetErrorMsg(h)));
}

// One handle per model as zelk_Init and zelk_LoadModel leave it, whatever came before in
// the process. A program takes its handles from here; one that it replaces or ends with
// before any call reached it comes back, and the set is whole again after each program,
// so that the program after it finds the same, and the allocations of a program that
// leaks nothing balance. Programs renew their handle again and again, often before using
// it, and a load costs more than all else that they do.
class FreshHandles {
public:
    explicit FreshHandles(const Files& files) : files_(files), kept_(size_t(files.models.size()), nullptr) {}

    ZelkHandle* take(int model)
    {
        if (ZelkHandle* h = std::exchange(kept_[size_t(model)], nullptr))
            return h;
        ZelkHandle* h = zelk_Init(nullptr);
        zelk_LoadModel(h, files_.models[model].constData());
        return h;
    }
    // `model` is that of a handle no call has reached, or -1.
    void giveBack(ZelkHandle* h, int model)
    {
        if (model >= 0 && !kept_[size_t(model)])
            kept_[size_t(model)] = h;
        else
            zelk_Release(h);
    }
    void fill()
    {
        for (size_t m = 0; m < kept_.size(); ++m)
            if (!kept_[m])
                kept_[m] = take(int(m));
    }

private:
    const Files& files_;
    std::vector<ZelkHandle*> kept_;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static Files files;
    // Never destroyed: the handles stay reachable until the leak check at exit.
    static FreshHandles& fresh = *new FreshHandles(files);
    Reader in{data, size};
    const auto model = [&] { return int(in.byte() % files.models.size()); };
    int freshModel = model(); // the model of a handle that no call has reached, else -1
    ZelkHandle* h = fresh.take(freshModel);
    while (!in.done()) {
        const quint8 op = in.byte() % OpCount;
        if (op == Renew) {
            fresh.giveBack(h, freshModel);
            freshModel = model();
            h = fresh.take(freshModel);
            continue;
        }
        freshModel = -1;
        switch (op) {
        case Start: zelk_StartAcquisition(h); break;
        case Stop: zelk_StopAcquisition(h); break;
        case Frame: zelk_ProcessFrame(h, samples(h, in, false).data()); break;
        case Cube: zelk_ProcessCube(h, samples(h, in, true).data()); break;
        case Results: readResults(h, in); break;
        case Segmentation: zelk_SetSegmentation(h, in.byte() % 4); break;
        case InputWidth: zelk_SetInputWidth(h, in.small()); break;
        case Layout: zelk_SetInputDataLayout(h, in.byte() % 5); break;
        case Roi: {
            const int col = in.small(), row = in.small(), width = in.small(), height = in.small();
            zelk_SetCubeROI(h, col, row, width, height, in.byte());
            break;
        }
        case MinObjSize: zelk_SetMinObjSize(h, in.small()); break;
        case FrameWidth: zelk_SetDeviceFrameWidth(h, in.small()); break;
        case Resampling:
            zelk_SetDeviceWavelengthsFromENVIHeaderFile(h, files.cameras[in.byte() % 2].constData());
            zelk_SetResamplingWavelengthsGrid(h, 900, 100, 1200);
            zelk_SetResampling(h, 1);
            break;
        case LoadModel: zelk_LoadModel(h, files.models[model()].constData()); break;
        case SaveImage: zelk_SaveImage(h, files.image.constData()); break;
        }
    }
    fresh.giveBack(h, freshModel);
    fresh.fill();
    return 0;
}
