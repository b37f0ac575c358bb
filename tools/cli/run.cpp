// zelk run: an ENVI cube through a model. A line-scan model gets the cube line by line
// as camera frames, a snapshot model gets it as one cube; what comes back is written as
// the decision image (PNG), the object records (CSV and JSON) and, for a model with a
// regressor, the regression outputs (an ENVI float cube).

#include "cli.h"
#include "envi_cube.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QImage>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMap>
#include <QTemporaryDir>
#include <QTextStream>
#include <QtEndian>
#include <algorithm>
#include <array>
#include <memory>
#include <cstdio>
#include <unistd.h>
#include <vector>

namespace cli {
namespace {

constexpr const char* Command = "run";
constexpr int RecordInts = 30;
constexpr int ClassSizes = 9; // first of the per-decision pixel counts of a record
constexpr quint8 Cross = 255; // marks an object's centroid in the decision image

struct ObjectRow {
    std::array<int, RecordInts> record{};
    QVector<float> means; // mean regression outputs, one per variable
};

// A progress bar on a terminal; nothing when standard error is not one.
class Progress {
public:
    explicit Progress(int total) : total_(total), shown_(isatty(STDERR_FILENO) == 1) { timer_.start(); }
    void update(int done, double framesPerSecond)
    {
        if (!shown_ || (done < total_ && timer_.elapsed() < next_))
            return;
        next_ = timer_.elapsed() + 100;
        constexpr int Width = 30;
        const int filled = int(qint64(done) * Width / std::max(1, total_));
        std::fprintf(stderr, "\r  [%s%s] %d/%d lines  %.0f frames/s ", std::string(size_t(filled), '#').c_str(),
                     std::string(size_t(Width - filled), '-').c_str(), done, total_, framesPerSecond);
        std::fflush(stderr);
    }
    void finish()
    {
        if (shown_)
            std::fprintf(stderr, "\n");
    }

private:
    int total_;
    bool shown_;
    QElapsedTimer timer_;
    qint64 next_ = 0;
};

QString csvField(const QString& text)
{
    if (!text.contains(QLatin1Char(',')) && !text.contains(QLatin1Char('"')) && !text.contains(QLatin1Char('\n')))
        return text;
    return QLatin1Char('"') + QString(text).replace(QLatin1String("\""), QLatin1String("\"\"")) + QLatin1Char('"');
}

QString hexColour(unsigned rgb)
{
    return QStringLiteral("#%1").arg(rgb, 6, 16, QLatin1Char('0'));
}

class Run {
public:
    int exec(const Arguments& args);

private:
    bool prepare(const Arguments& args);
    bool stageReferences(const QString& white, const QString& dark);
    bool lineScan();
    bool snapshot();
    bool collectObjects();
    bool writeObjects() const;
    bool writeRegressionHeader() const;
    void markCrosses(QImage& image) const;
    bool failed(const QString& text) const { return refuse(Command, text); }
    QString output(const QString& suffix) const { return QDir(outDir_).filePath(base_ + suffix); }

    Session s_;
    EnviCube cube_;
    QString model_;
    std::unique_ptr<QTemporaryDir> references_;
    bool corrected_ = false;
    bool segmented_ = false;
    int maskType_ = 0;
    bool snapshot_ = false;
    Decisions decisions_;
    QStringList regNames_;
    QString outDir_, base_;
    std::vector<ObjectRow> objects_;
    bool overflowSeen_ = false;
    double seconds_ = 0; // inside the processing calls
    int frames_ = 0;
    QString png_;
};

// The type 10 reference loader takes "whiteReference" and "darkReference" from a
// directory: the given scans are linked (or copied) into a private one under those names.
bool Run::stageReferences(const QString& white, const QString& dark)
{
    references_ = std::make_unique<QTemporaryDir>();
    if (!references_->isValid())
        return failed(QStringLiteral("cannot make a temporary directory for the references"));
    for (const auto& [path, name] : {std::pair{white, QStringLiteral("whiteReference")}, std::pair{dark, QStringLiteral("darkReference")}}) {
        EnviCube reference;
        QString error;
        if (!reference.open(path, &error))
            return failed(QStringLiteral("reference: %1").arg(error));
        const QString header = references_->filePath(name + QStringLiteral(".hdr")), data = references_->filePath(name + QStringLiteral(".bin"));
        const QString from[2] = {QFileInfo(path).absoluteFilePath(), QFileInfo(reference.dataPath).absoluteFilePath()};
        const QString to[2] = {header, data};
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

bool Run::prepare(const Arguments& args)
{
    if (args.positional.size() != 2)
        return failed(QStringLiteral("needs a model and a cube: zelk run MODEL CUBE.hdr [--white W.hdr --dark D.hdr] [--out DIR]"));
    model_ = args.positional[0];
    const QString white = args.options.value(QStringLiteral("white")), dark = args.options.value(QStringLiteral("dark"));
    if (white.isEmpty() != dark.isEmpty())
        return failed(QStringLiteral("--white and --dark go together"));
    int device = -1, minSize = 0;
    if (!args.number(Command, QStringLiteral("device"), 0, 1000, -1, &device) ||
        !args.number(Command, QStringLiteral("min-size"), 1, 1 << 30, 0, &minSize))
        return false;

    QString error;
    if (!cube_.open(args.positional[1], &error))
        return failed(error);
    outDir_ = args.options.value(QStringLiteral("out"), QStringLiteral("."));
    base_ = QFileInfo(args.positional[1]).completeBaseName();
    if (!QDir().mkpath(outDir_))
        return failed(QStringLiteral("cannot make the output directory %1").arg(outDir_));

    if (!s_.chooseDevice(Command, device) || !s_.loadModel(Command, model_))
        return false;
    snapshot_ = QString::fromLocal8Bit(zelk_GetErrorMsg(s_.h)).contains(QLatin1String("(snapshot API)"));
    if (!white.isEmpty()) {
        if (snapshot_)
            return failed(QStringLiteral("references correct line-scan frames; %1 is a snapshot model").arg(model_));
        if (!stageReferences(white, dark))
            return false;
    }

    const int bands = zelk_GetInputBands(s_.h);
    if (bands != cube_.bands)
        return failed(QStringLiteral("the model takes %1 bands, the cube %2 has %3").arg(bands).arg(cube_.headerPath).arg(cube_.bands));
    if (snapshot_) {
        const int width = zelk_GetInputWidth(s_.h), height = zelk_GetInputHeight(s_.h);
        if (width != cube_.samples || height != cube_.lines)
            return failed(QStringLiteral("the model takes cubes of %1 x %2 pixels, the cube is %3 x %4")
                              .arg(width).arg(height).arg(cube_.samples).arg(cube_.lines));
    } else if (const int r = zelk_SetInputWidth(s_.h, cube_.samples); r < 0) {
        return failed(QStringLiteral("cannot set the frame width: %1").arg(s_.failure(r)));
    }

    if (!decisions_.read(s_.h))
        return failed(QStringLiteral("the model has no classifier: %1").arg(s_.failure(zelk_GetErrorCode(s_.h))));
    const int regVars = zelk_GetRegVarCount(s_.h);
    for (int v = 0; v < regVars; ++v) {
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
    if (minSize > 0 && segmented_)
        if (const int r = zelk_SetMinObjSize(s_.h, minSize); r < 0)
            return failed(QStringLiteral("cannot set the minimum object size: %1").arg(s_.failure(r)));
    return true;
}

// Reads the records of the objects the last frame or cube reported.
bool Run::collectObjects()
{
    const int count = zelk_GetObjCount(s_.h);
    for (int i = 0; i < count; ++i) {
        int* record = nullptr;
        if (zelk_GetObjDataInt(s_.h, i, &record) < 0 || !record) {
            // More objects ended at once than the library keeps records for.
            if (!overflowSeen_)
                std::fprintf(stderr, "zelk run: %d objects ended at once, only the first %d have records\n", count, i);
            overflowSeen_ = true;
            break;
        }
        ObjectRow row;
        std::copy_n(record, RecordInts, row.record.begin());
        if (!regNames_.isEmpty()) {
            float* means = nullptr;
            if (zelk_GetObjDataRegOutput(s_.h, i, &means) == 0 && means)
                row.means = QVector<float>(means, means + regNames_.size());
        }
        objects_.push_back(row);
    }
    return true;
}

bool Run::writeRegressionHeader() const
{
    QFile header(output(QStringLiteral("_regression.hdr")));
    if (!header.open(QIODevice::WriteOnly | QIODevice::Text))
        return false;
    QTextStream out(&header);
    out << "ENVI\ndescription = {regression outputs of " << QFileInfo(model_).fileName() << "}\nsamples = " << cube_.samples
        << "\nlines = " << cube_.lines << "\nbands = " << regNames_.size()
        << "\nheader offset = 0\nfile type = ENVI Standard\ndata type = 4\ninterleave = bil\nbyte order = 0\nband names = {"
        << regNames_.join(QStringLiteral(", ")) << "}\n";
    out.flush();
    return out.status() == QTextStream::Ok;
}

bool Run::lineScan()
{
    const int width = cube_.samples, bands = cube_.bands;
    const int type = zelk_GetInputDataType(s_.h), layout = zelk_GetInputDataLayout(s_.h);
    if (type < 0)
        return failed(QStringLiteral("the model states no input type: %1").arg(s_.failure(type)));
    if (layout < 0)
        return failed(QStringLiteral("the model states no input layout: %1").arg(s_.failure(layout)));
    if (type == 1 && !cube_.countsOnly())
        return failed(QStringLiteral("the model takes 16-bit counts%1, the cube holds floating-point samples")
                          .arg(corrected_ ? QStringLiteral(" with its references") : QString()));

    QImage image(width, cube_.lines, QImage::Format_Indexed8);
    if (image.isNull())
        return failed(QStringLiteral("no memory for a decision image of %1 x %2").arg(width).arg(cube_.lines));
    QFile regression;
    if (!regNames_.isEmpty()) {
        regression.setFileName(output(QStringLiteral("_regression.bin")));
        if (!writeRegressionHeader() || !regression.open(QIODevice::WriteOnly))
            return failed(QStringLiteral("cannot write %1").arg(regression.fileName()));
    }

    if (const int r = zelk_StartAcquisition(s_.h); r < 0)
        return failed(QStringLiteral("cannot start: %1").arg(s_.failure(r)));
    std::vector<float> line(size_t(width) * size_t(bands)), frame(type == 2 ? line.size() : 0);
    std::vector<quint16> counts(type == 1 ? line.size() : 0);
    QString error;
    Progress progress(cube_.lines);
    QElapsedTimer timer;
    bool ok = true;
    for (int l = 0; l < cube_.lines && ok; ++l) {
        if (!cube_.readLine(l, line.data(), &error)) {
            ok = failed(error);
            break;
        }
        // The model's form of a frame: band after band (BIL) or pixel after pixel.
        for (int b = 0; b < bands; ++b)
            for (int x = 0; x < width; ++x) {
                const float v = line[size_t(b) * width + x];
                const size_t at = layout == 1 ? size_t(x) * bands + b : size_t(b) * width + x;
                if (type == 1)
                    counts[at] = quint16(std::clamp(v, 0.0f, 65535.0f));
                else
                    frame[at] = v;
            }
        timer.start();
        const int r = zelk_ProcessFrame(s_.h, type == 1 ? static_cast<const void*>(counts.data()) : frame.data());
        seconds_ += double(timer.nsecsElapsed()) * 1e-9;
        ++frames_;
        if (r < 0 && r != -160) {
            ok = failed(QStringLiteral("line %1: %2").arg(l).arg(s_.failure(r)));
            break;
        }
        const unsigned char* decisions = zelk_GetFrameDecisions(s_.h);
        if (!decisions) {
            ok = failed(QStringLiteral("line %1: no decisions: %2").arg(l).arg(s_.failure(zelk_GetErrorCode(s_.h))));
            break;
        }
        std::copy_n(decisions, width, image.scanLine(l));
        if (segmented_)
            collectObjects();
        for (int v = 0; v < regNames_.size() && ok; ++v) {
            const float* values = zelk_GetFrameRegOutputVar(s_.h, v, 0, 0.0f);
            if (!values)
                ok = failed(QStringLiteral("line %1: no regression output: %2").arg(l).arg(s_.failure(zelk_GetErrorCode(s_.h))));
            else {
                std::vector<float> le(values, values + width);
                for (float& f : le)
                    f = qToLittleEndian(f);
                const qint64 bytes = qint64(width) * 4;
                if (regression.write(reinterpret_cast<const char*>(le.data()), bytes) != bytes)
                    ok = failed(QStringLiteral("cannot write %1").arg(regression.fileName()));
            }
        }
        progress.update(l + 1, frames_ / std::max(seconds_, 1e-9));
    }
    progress.finish();
    zelk_StopAcquisition(s_.h);
    if (!ok)
        return false;

    QVector<QRgb> table(256, qRgb(0, 0, 0));
    for (int i = 0; i < decisions_.colours.size() && i < 255; ++i)
        table[i] = 0xFF000000u | decisions_.colours[i];
    table[Cross] = qRgb(255, 255, 255);
    image.setColorTable(table);
    markCrosses(image);
    png_ = output(QStringLiteral("_decisions.png"));
    if (!image.save(png_, "png"))
        return failed(QStringLiteral("cannot write %1").arg(png_));
    return true;
}

// A cross at each object's centroid, as the library marks them in its ring of rows: an
// arm of 11 pixels along the centroid's line and one of 10 lines through its column.
void Run::markCrosses(QImage& image) const
{
    for (const ObjectRow& o : objects_) {
        const int line = o.record[1], column = o.record[2];
        if (line >= 0 && line < image.height())
            for (int x = std::max(0, column - 5); x <= std::min(image.width() - 1, column + 5); ++x)
                image.scanLine(line)[x] = Cross;
        if (column >= 0 && column < image.width())
            for (int y = std::max(0, line - 5); y < std::min(image.height(), line + 5); ++y)
                image.scanLine(y)[column] = Cross;
    }
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

    const int width = cube_.samples, height = cube_.lines, bands = cube_.bands;
    const size_t pixels = size_t(width) * size_t(height), values = pixels * size_t(bands);
    std::vector<quint16> u16(counts ? values : 0);
    std::vector<float> f32(counts ? 0 : values), line(size_t(width) * size_t(bands));
    QString error;
    for (int l = 0; l < height; ++l) {
        if (!cube_.readLine(l, line.data(), &error))
            return failed(error);
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
    png_ = output(QStringLiteral("_decisions.png"));
    const int saved = zelk_SaveImage(s_.h, png_.toLatin1().constData());
    const QString why = saved < 0 ? s_.failure(saved) : QString();
    zelk_StopAcquisition(s_.h);
    if (saved < 0 || !QFileInfo::exists(png_))
        return failed(QStringLiteral("cannot write %1%2").arg(png_, why.isEmpty() ? QString() : QStringLiteral(": ") + why));
    return true;
}

bool Run::writeObjects() const
{
    // Pixels per decision exist only when all foreground decisions form objects together.
    const bool classSizes = maskType_ == 2;
    QFile csv(output(QStringLiteral("_objects.csv")));
    if (!csv.open(QIODevice::WriteOnly | QIODevice::Text))
        return failed(QStringLiteral("cannot write %1").arg(csv.fileName()));
    QTextStream out(&csv);
    out << "object,decision,decision_name,centroid_line,centroid_column,first_line,last_line,first_column,last_column,pixels";
    if (classSizes)
        for (const QString& name : decisions_.names)
            out << ',' << csvField(QStringLiteral("pixels_") + name);
    for (const QString& name : regNames_)
        out << ',' << csvField(name);
    out << '\n';

    QJsonArray objects;
    for (const ObjectRow& o : objects_) {
        const auto& r = o.record;
        out << r[0] << ',' << r[8] << ',' << csvField(decisions_.name(r[8]));
        for (int i : {1, 2, 3, 4, 5, 6, 7})
            out << ',' << r[size_t(i)];
        QJsonObject json{{QStringLiteral("object"), r[0]},
                         {QStringLiteral("decision"), r[8]},
                         {QStringLiteral("decision_name"), decisions_.name(r[8])},
                         {QStringLiteral("centroid"), QJsonObject{{QStringLiteral("line"), r[1]}, {QStringLiteral("column"), r[2]}}},
                         {QStringLiteral("lines"), QJsonArray{r[3], r[4]}},
                         {QStringLiteral("columns"), QJsonArray{r[5], r[6]}},
                         {QStringLiteral("pixels"), r[7]}};
        if (classSizes) {
            QJsonObject sizes;
            for (int d = 0; d < decisions_.names.size(); ++d) {
                const int n = d < RecordInts - ClassSizes ? r[size_t(ClassSizes + d)] : 0;
                out << ',' << n;
                sizes[decisions_.names[d]] = n;
            }
            json[QStringLiteral("decision_pixels")] = sizes;
        }
        QJsonObject means;
        for (int v = 0; v < regNames_.size(); ++v) {
            const double mean = v < o.means.size() ? double(o.means[v]) : 0.0;
            out << ',' << mean;
            means[regNames_[v]] = mean;
        }
        if (!regNames_.isEmpty())
            json[QStringLiteral("regression")] = means;
        out << '\n';
        objects.append(json);
    }
    out.flush();
    if (out.status() != QTextStream::Ok)
        return failed(QStringLiteral("cannot write %1").arg(csv.fileName()));

    QJsonArray decisions;
    for (int d = 0; d < decisions_.names.size(); ++d)
        decisions.append(QJsonObject{{QStringLiteral("code"), d}, {QStringLiteral("name"), decisions_.names[d]},
                                     {QStringLiteral("colour"), hexColour(decisions_.colours[d])}});
    const QJsonObject root{{QStringLiteral("model"), model_},
                           {QStringLiteral("cube"), cube_.headerPath},
                           {QStringLiteral("kind"), snapshot_ ? QStringLiteral("snapshot") : QStringLiteral("line-scan")},
                           {QStringLiteral("width"), cube_.samples},
                           {QStringLiteral("lines"), cube_.lines},
                           {QStringLiteral("bands"), cube_.bands},
                           {QStringLiteral("corrected"), corrected_},
                           {QStringLiteral("seconds"), seconds_},
                           {QStringLiteral("decisions"), decisions},
                           {QStringLiteral("objects"), objects}};
    QFile json(output(QStringLiteral("_objects.json")));
    if (!json.open(QIODevice::WriteOnly) || json.write(QJsonDocument(root).toJson()) < 0)
        return failed(QStringLiteral("cannot write %1").arg(json.fileName()));
    return true;
}

int Run::exec(const Arguments& args)
{
    if (!prepare(args) || !(snapshot_ ? snapshot() : lineScan()) || !writeObjects())
        return Failed;

    QMap<QString, int> perDecision;
    for (const ObjectRow& o : objects_)
        ++perDecision[decisions_.name(o.record[8])];
    QStringList counts;
    for (auto it = perDecision.cbegin(); it != perDecision.cend(); ++it)
        counts << QStringLiteral("%1 %2").arg(it.value()).arg(it.key());
    if (snapshot_)
        std::printf("%d x %d pixels classified in %.1f ms%s\n", cube_.samples, cube_.lines, seconds_ * 1e3,
                    corrected_ ? " (corrected)" : "");
    else
        std::printf("%d lines of %d pixels at %.0f frames/s%s\n", frames_, cube_.samples, frames_ / std::max(seconds_, 1e-9),
                    corrected_ ? ", corrected with the references" : "");
    if (segmented_)
        std::printf("objects: %d%s%s%s\n", int(objects_.size()), counts.isEmpty() ? "" : " (",
                    qPrintable(counts.join(QStringLiteral(", "))), counts.isEmpty() ? "" : ")");
    else
        std::printf("objects: none (the model does not segment objects)\n");
    std::printf("decision image: %s\nobject records: %s, %s\n", qPrintable(png_), qPrintable(output(QStringLiteral("_objects.csv"))),
                qPrintable(output(QStringLiteral("_objects.json"))));
    if (!regNames_.isEmpty() && !snapshot_)
        std::printf("regression outputs: %s\n", qPrintable(output(QStringLiteral("_regression.hdr"))));
    return 0;
}

} // namespace

int run(int argc, char** argv)
{
    Arguments args;
    int unused = 0;
    if (!args.parse(Command, argc, argv, 2, {"white", "dark", "out", "device", "min-size"}) ||
        !args.number(Command, QStringLiteral("device"), 0, 1000, -1, &unused) ||
        !args.number(Command, QStringLiteral("min-size"), 1, 1 << 30, 0, &unused))
        return BadUsage;
    Run r;
    return r.exec(args);
}

} // namespace cli
