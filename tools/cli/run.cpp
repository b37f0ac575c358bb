#include "run.h"

#include "progress.h"

#include "classify/classifier.h"
#include "model/project.h"
#include "runtime/handle.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QMap>
#include <QTemporaryDir>
#include <QtEndian>
#include <algorithm>
#include <csignal>
#include <cstdio>

namespace cli {
namespace {

// Set by the first Ctrl-C; the frame loop stops at the next line and the outputs are
// written for the lines done. A second Ctrl-C ends the program at once.
volatile std::sig_atomic_t interruptRequested = 0;

extern "C" void onInterrupt(int)
{
    interruptRequested = 1;
    std::signal(SIGINT, SIG_DFL);
}

} // namespace

Run::Run(RunOptions options) : o_(std::move(options)) {}
Run::~Run() = default;

QString Run::output(const QString& suffix) const
{
    return QDir(o_.outDir).filePath(QFileInfo(o_.cube).completeBaseName() + suffix);
}

// The library takes references from a directory, as "whiteReference" and
// "darkReference" scans: the given ones are linked (or copied) into a private one under
// those names.
bool Run::loadReferences()
{
    references_ = std::make_unique<QTemporaryDir>();
    if (!references_->isValid())
        return failed(QStringLiteral("cannot make a temporary directory for the references"));
    for (const auto& [path, name] : {std::pair{o_.white, QStringLiteral("whiteReference")}, std::pair{o_.dark, QStringLiteral("darkReference")}}) {
        EnviCube reference;
        QString error;
        if (!reference.open(path, &error))
            return failed(QStringLiteral("reference: %1").arg(error));
        const QString from[2] = {QFileInfo(path).absoluteFilePath(), QFileInfo(reference.dataPath).absoluteFilePath()};
        const QString to[2] = {references_->filePath(name + QStringLiteral(".hdr")), references_->filePath(name + QStringLiteral(".bin"))};
        for (int i = 0; i < 2; ++i)
            if (!QFile::link(from[i], to[i]) && !QFile::copy(from[i], to[i]))
                return failed(QStringLiteral("cannot stage the reference %1").arg(from[i]));
    }
    const int r = zelk_LoadCorrection(s_.h, references_->path().toLatin1().constData(), nullptr);
    if (r < 0)
        return failed(QStringLiteral("the references were refused: %1").arg(s_.failure(r)));
    corrected_ = true;
    return true;
}

bool Run::prepare()
{
    if (!s_.chooseDevice("run", o_.device) || !s_.loadModel("run", o_.model))
        return false;
    QString error;
    if (!cube_.open(o_.cube, &error))
        return failed(error);
    if (!QDir().mkpath(o_.outDir))
        return failed(QStringLiteral("cannot make the output directory %1").arg(o_.outDir));
    if (!o_.white.isEmpty()) {
        if (cube_.reflectanceScale > 0)
            return failed(QStringLiteral("%1 holds reflectance (its header states a reflectance scale factor); references correct raw counts only")
                              .arg(o_.cube));
        if (s_.snapshot)
            return failed(QStringLiteral("references correct line-scan frames; %1 is a snapshot model").arg(o_.model));
        if (!loadReferences())
            return false;
    }

    const int bands = zelk_GetInputBands(s_.h);
    if (bands != cube_.bands)
        return failed(QStringLiteral("the model takes %1 bands, the cube %2 has %3").arg(bands).arg(o_.cube).arg(cube_.bands));
    if (o_.ignoreWavelengths)
        std::fprintf(stderr, "zelk run: note: the wavelengths of the cube are not compared with the model's\n");
    else if (!checkWavelengths())
        return false;
    if (cube_.reflectanceScale > 0)
        scale_ = float(1.0 / cube_.reflectanceScale);
    const ZelkProject& project = *s_.h->project;
    if (const ZelkClassifier* c = project.classifier.get(); c && c->rejectEnabled)
        rejected_ = c->classCount();
    takesReflectance_ = !s_.snapshot && !corrected_ && takesReferences(project.projectType, project.acqType);
    if (takesReflectance_ && !o_.ignoreValueRange && !checkValueRange())
        return false;
    if (s_.snapshot) {
        const int width = zelk_GetInputWidth(s_.h), height = zelk_GetInputHeight(s_.h);
        if (width != cube_.samples || height != cube_.lines)
            return failed(QStringLiteral("the model takes cubes of %1 x %2 pixels, the cube is %3 x %4")
                              .arg(width).arg(height).arg(cube_.samples).arg(cube_.lines));
    } else if (const int r = zelk_SetInputWidth(s_.h, cube_.samples); r < 0) {
        return failed(QStringLiteral("cannot set the frame width: %1").arg(s_.failure(r)));
    }

    if (!decisions_.read(s_.h))
        return failed(QStringLiteral("the model has no classifier: %1").arg(s_.failure(zelk_GetErrorCode(s_.h))));
    for (int v = 0; v < zelk_GetRegVarCount(s_.h); ++v) {
        const char* name = zelk_GetRegVarName(s_.h, v);
        regNames_ << (name ? QString::fromLocal8Bit(name) : QStringLiteral("var%1").arg(v + 1));
    }

    // Objects when the model defines a segmenter that can run; decisions alone otherwise.
    maskType_ = zelk_GetMaskType(s_.h);
    if (maskType_ > 0) {
        if (const int r = zelk_SetSegmentation(s_.h, 1); r < 0)
            std::fprintf(stderr, "zelk run: no objects: %s\n", qPrintable(s_.failure(r)));
        else
            segmented_ = true;
    }
    if (o_.minSize > 0 && segmented_)
        if (const int r = zelk_SetMinObjSize(s_.h, o_.minSize); r < 0)
            return failed(QStringLiteral("cannot set the minimum object size: %1").arg(s_.failure(r)));
    return true;
}

bool Run::readLine(int line, float* out, std::vector<bool>& noData, QString* error)
{
    if (!cube_.readLine(line, out, error))
        return false;
    const int width = cube_.samples, bands = cube_.bands;
    noData.assign(size_t(width), false);
    if (cube_.ignoreValue) {
        const float ignore = float(*cube_.ignoreValue);
        for (int b = 0; b < bands; ++b)
            for (int x = 0; x < width; ++x)
                if (out[size_t(b) * width + x] == ignore)
                    noData[size_t(x)] = true;
        for (int b = 0; b < bands; ++b)
            for (int x = 0; x < width; ++x)
                if (noData[size_t(x)])
                    out[size_t(b) * width + x] = 0;
    }
    if (scale_ != 1)
        for (size_t i = 0; i < size_t(width) * size_t(bands); ++i)
            out[i] *= scale_;
    return true;
}

void Run::count(const uchar* labels, int pixels)
{
    for (int i = 0; i < pixels; ++i)
        ++labelCounts_[labels[i]];
}

// Reads the records of the objects the last frame or cube reported.
void Run::collectObjects()
{
    const int count = zelk_GetObjCount(s_.h);
    for (int i = 0; i < count; ++i) {
        int* record = nullptr;
        if (zelk_GetObjDataInt(s_.h, i, &record) < 0 || !record) {
            // More objects ended at once than the library keeps records for.
            if (!overflowSeen_)
                std::fprintf(stderr, "zelk run: %d objects ended at once, only the first %d have records\n", count, i);
            overflowSeen_ = true;
            return;
        }
        ObjectRow row;
        std::copy_n(record, RecordInts, row.record.begin());
        float* means = nullptr;
        if (!regNames_.isEmpty() && zelk_GetObjDataRegOutput(s_.h, i, &means) == 0 && means)
            row.means = QVector<float>(means, means + regNames_.size());
        objects_.push_back(row);
    }
}

bool Run::lineScan()
{
    const int width = cube_.samples, bands = cube_.bands;
    const int type = zelk_GetInputDataType(s_.h), layout = zelk_GetInputDataLayout(s_.h);
    if (type < 0)
        return failed(QStringLiteral("the model states no input type: %1").arg(s_.failure(type)));
    if (layout < 0)
        return failed(QStringLiteral("the model states no input layout: %1").arg(s_.failure(layout)));
    const bool counts = type == 1; // else float
    if (counts && !cube_.countsOnly())
        return failed(QStringLiteral("the model takes 16-bit counts%1, the cube holds floating-point samples")
                          .arg(corrected_ ? QStringLiteral(" with its references") : QString()));
    if (counts && cube_.reflectanceScale > 0)
        return failed(QStringLiteral("the model takes 16-bit counts, the cube holds reflectance (its header states a reflectance scale factor)"));

    QImage image(width, cube_.lines, QImage::Format_Indexed8);
    if (image.isNull())
        return failed(QStringLiteral("no memory for a decision image of %1 x %2").arg(width).arg(cube_.lines));
    QFile regression(output(QStringLiteral("_regression.bin")));
    if (!regNames_.isEmpty() && !regression.open(QIODevice::WriteOnly))
        return failed(QStringLiteral("cannot write %1").arg(regression.fileName()));

    if (const int r = zelk_StartAcquisition(s_.h); r < 0)
        return failed(QStringLiteral("cannot start: %1").arg(s_.failure(r)));
    const size_t values = size_t(width) * size_t(bands);
    std::vector<float> line(values), floats(counts ? 0 : values), outputs(static_cast<size_t>(width));
    std::vector<quint16> u16(counts ? values : 0);
    std::vector<bool> noData;
    QString error;
    bool ok = true;
    interruptRequested = 0;
    const auto previous = std::signal(SIGINT, onInterrupt);
    {
        Progress progress(cube_.lines);
        QElapsedTimer timer;
        for (int l = 0; l < cube_.lines && ok && !interruptRequested; ++l) {
            if (!readLine(l, line.data(), noData, &error)) {
                ok = failed(error);
                break;
            }
            // The model's form of a frame: band after band (BIL) or pixel after pixel.
            for (int b = 0; b < bands; ++b)
                for (int x = 0; x < width; ++x) {
                    const float v = line[size_t(b) * width + x];
                    const size_t at = layout == 1 ? size_t(x) * bands + b : size_t(b) * width + x;
                    if (counts)
                        u16[at] = quint16(std::clamp(v, 0.0f, 65535.0f));
                    else
                        floats[at] = v;
                }
            timer.start();
            const int r = zelk_ProcessFrame(s_.h, counts ? static_cast<const void*>(u16.data()) : floats.data());
            seconds_ += double(timer.nsecsElapsed()) * 1e-9;
            ++frames_;
            // -160: more objects ended than the handle keeps records for; the frame stands.
            if (r < 0 && r != -160) {
                ok = failed(QStringLiteral("line %1: %2").arg(l).arg(s_.failure(r)));
                break;
            }
            const unsigned char* decisions = zelk_GetFrameDecisions(s_.h);
            if (!decisions) {
                ok = failed(QStringLiteral("line %1: no decisions: %2").arg(l).arg(s_.failure(zelk_GetErrorCode(s_.h))));
                break;
            }
            uchar* labels = image.scanLine(l);
            std::copy_n(decisions, width, labels);
            for (int x = 0; x < width; ++x)
                if (noData[size_t(x)])
                    labels[x] = NoData;
            count(labels, width);
            if (segmented_)
                collectObjects();
            for (int v = 0; v < regNames_.size() && ok; ++v) {
                const float* values = zelk_GetFrameRegOutputVar(s_.h, v, 0, 0.0f);
                if (!values) {
                    ok = failed(QStringLiteral("line %1: no regression output: %2").arg(l).arg(s_.failure(zelk_GetErrorCode(s_.h))));
                    break;
                }
                std::transform(values, values + width, outputs.begin(), [](float f) { return qToLittleEndian(f); });
                const qint64 bytes = qint64(width) * 4;
                if (regression.write(reinterpret_cast<const char*>(outputs.data()), bytes) != bytes)
                    ok = failed(QStringLiteral("cannot write %1").arg(regression.fileName()));
            }
            linesDone_ = l + 1;
            progress.update(linesDone_);
        }
    }
    std::signal(SIGINT, previous == SIG_ERR ? SIG_DFL : previous);
    zelk_StopAcquisition(s_.h);
    if (!ok)
        return false;
    if (linesDone_ == 0)
        return failed(QStringLiteral("interrupted before the first line: nothing written"));
    if (linesDone_ < cube_.lines)
        image = image.copy(0, 0, width, linesDone_);
    if (!regNames_.isEmpty() && (!regression.flush() || !writeRegressionHeader()))
        return failed(QStringLiteral("cannot write %1").arg(output(QStringLiteral("_regression.hdr"))));
    return saveImages(image);
}

bool Run::snapshot()
{
    const int type = zelk_GetInputDataType(s_.h), layout = zelk_GetInputDataLayout(s_.h);
    if (layout < 0)
        return failed(QStringLiteral("the model states no input layout: %1").arg(s_.failure(layout)));
    // Band-sequential cubes of this camera family are big-endian 16-bit counts whatever
    // the type; the others take the type the model states.
    const bool bigEndianCounts = layout == 3;
    if (!bigEndianCounts && type < 0)
        return failed(QStringLiteral("the model states no input type: %1").arg(s_.failure(type)));
    const bool counts = bigEndianCounts || type == 1;
    if (counts && !cube_.countsOnly())
        return failed(QStringLiteral("the model takes 16-bit counts, the cube holds floating-point samples"));
    if (counts && cube_.reflectanceScale > 0)
        return failed(QStringLiteral("the model takes 16-bit counts, the cube holds reflectance (its header states a reflectance scale factor)"));

    const int width = cube_.samples, height = cube_.lines, bands = cube_.bands;
    const size_t pixels = size_t(width) * size_t(height), values = pixels * size_t(bands);
    std::vector<quint16> u16(counts ? values : 0);
    std::vector<float> f32(counts ? 0 : values), line(size_t(width) * size_t(bands));
    std::vector<bool> noData(pixels, false), lineNoData;
    QString error;
    for (int l = 0; l < height; ++l) {
        if (!readLine(l, line.data(), lineNoData, &error))
            return failed(error);
        std::copy(lineNoData.cbegin(), lineNoData.cend(), noData.begin() + qint64(l) * width);
        for (int b = 0; b < bands; ++b)
            for (int x = 0; x < width; ++x) {
                const float v = line[size_t(b) * width + x];
                const size_t pixel = size_t(l) * width + x;
                const size_t at = layout == 3 ? size_t(b) * pixels + pixel
                                  : layout == 2 ? (size_t(l) * bands + b) * width + x
                                                : pixel * bands + b;
                if (counts) {
                    const quint16 c = quint16(std::clamp(v, 0.0f, 65535.0f));
                    u16[at] = bigEndianCounts ? qToBigEndian(c) : c;
                } else {
                    f32[at] = v;
                }
            }
    }

    if (const int r = zelk_StartAcquisition(s_.h); r < 0)
        return failed(QStringLiteral("cannot start: %1").arg(s_.failure(r)));
    QElapsedTimer timer;
    timer.start();
    const int r = zelk_ProcessCube(s_.h, counts ? static_cast<const void*>(u16.data()) : f32.data());
    seconds_ = double(timer.nsecsElapsed()) * 1e-9;
    frames_ = 1;
    if (r < 0 && r != -160) {
        const QString why = s_.failure(r);
        zelk_StopAcquisition(s_.h);
        return failed(QStringLiteral("the cube was refused: %1").arg(why));
    }
    if (segmented_)
        collectObjects();
    const unsigned char* decisions = zelk_GetCubeDecisions(s_.h);
    if (!decisions) {
        const QString why = s_.failure(zelk_GetErrorCode(s_.h));
        zelk_StopAcquisition(s_.h);
        return failed(QStringLiteral("no decisions: %1").arg(why));
    }
    QImage image(width, height, QImage::Format_Indexed8);
    for (int l = 0; l < height; ++l) {
        uchar* labels = image.scanLine(l);
        std::copy_n(decisions + size_t(l) * width, width, labels);
        for (int x = 0; x < width; ++x)
            if (noData[size_t(l) * width + x])
                labels[x] = NoData;
        count(labels, width);
    }
    linesDone_ = height;
    zelk_StopAcquisition(s_.h);
    return saveImages(image);
}

void Run::printSummary() const
{
    std::printf("cube: %s, data %s%s\n", qPrintable(cube_.headerPath), qPrintable(cube_.dataPath),
                cube_.dataBySize ? " (found by its size: no file has the name the header implies)" : "");
    if (linesDone_ < cube_.lines)
        std::printf("interrupted after %d of %d lines: the outputs hold those lines\n", linesDone_, cube_.lines);
    if (s_.snapshot)
        std::printf("%d x %d pixels classified in %.1f ms\n", cube_.samples, cube_.lines, seconds_ * 1e3);
    else
        std::printf("%d lines of %d pixels at %.0f frames/s%s\n", frames_, cube_.samples, frames_ / std::max(seconds_, 1e-9),
                    corrected_ ? ", corrected with the references" : "");
    if (segmented_) {
        QMap<QString, int> perDecision;
        for (const ObjectRow& o : objects_)
            ++perDecision[decisions_.name(o.record[8])];
        QStringList counts;
        for (auto it = perDecision.cbegin(); it != perDecision.cend(); ++it)
            counts << QStringLiteral("%1 %2").arg(it.value()).arg(it.key());
        std::printf("objects: %d%s\n", int(objects_.size()),
                    counts.isEmpty() ? "" : qPrintable(QStringLiteral(" (%1)").arg(counts.join(QStringLiteral(", ")))));
    } else {
        std::printf("objects: none (the model does not segment objects)\n");
    }
    std::printf("decision labels: %s\noverview: %s\nobject records: %s, %s\n", qPrintable(output(QStringLiteral("_decisions.png"))),
                qPrintable(output(QStringLiteral("_overview.png"))), qPrintable(output(QStringLiteral("_objects.csv"))),
                qPrintable(output(QStringLiteral("_objects.json"))));
    if (!regNames_.isEmpty() && !s_.snapshot)
        std::printf("regression outputs: %s\n", qPrintable(output(QStringLiteral("_regression.hdr"))));
}

int Run::exec()
{
    if (!prepare())
        return Failed;
    if (!(s_.snapshot ? snapshot() : lineScan()) || !writeObjects())
        return interruptRequested ? Interrupted : Failed;
    printSummary();
    if (linesDone_ < cube_.lines)
        return Interrupted;
    return checkRejections() ? 0 : Failed;
}

int run(int argc, char** argv)
{
    Arguments args;
    RunOptions o;
    if (!args.parse("run", argc, argv, 2, {"white", "dark", "out", "device", "min-size"}, {"ignore-wavelengths", "ignore-value-range"}) ||
        !args.number("run", QStringLiteral("device"), 0, 1000, -1, &o.device) ||
        !args.number("run", QStringLiteral("min-size"), 1, 1 << 30, 0, &o.minSize))
        return BadUsage;
    if (args.positional.size() != 2) {
        fail("run", QStringLiteral("needs a model and a cube: zelk run MODEL CUBE.hdr [--white W.hdr --dark D.hdr] [--out DIR] (zelk help run)"));
        return BadUsage;
    }
    o.model = args.positional[0];
    o.cube = args.positional[1];
    o.white = args.options.value(QStringLiteral("white"));
    o.dark = args.options.value(QStringLiteral("dark"));
    o.outDir = args.options.value(QStringLiteral("out"), o.outDir);
    o.ignoreWavelengths = args.options.contains(QStringLiteral("ignore-wavelengths"));
    o.ignoreValueRange = args.options.contains(QStringLiteral("ignore-value-range"));
    if (o.white.isEmpty() != o.dark.isEmpty()) {
        fail("run", QStringLiteral("--white and --dark go together"));
        return BadUsage;
    }
    return Run(o).exec();
}

} // namespace cli
