#include "scene/scene.h"

#include "modelwriter/classifier_writer.h"
#include "modelwriter/envelope_writer.h"
#include "modelwriter/scan_writer.h"
#include "modelwriter/segmenter_writer.h"

#include <QDir>
#include <QFile>
#include <QTextStream>
#include <QtEndian>
#include <algorithm>
#include <array>
#include <cmath>

namespace scene {
namespace {

constexpr double Pi = 3.14159265358979323846;

// Standard normal quantiles at 4096 evenly spaced probabilities: a random index gives a
// normal variate, cut off at about 3.5 sigma, with no state beyond the index.
const std::array<float, 4096>& normalTable()
{
    static const std::array<float, 4096> table = [] {
        std::array<float, 4096> t{};
        for (size_t i = 0; i < t.size(); ++i) {
            const double p = (double(i) + 0.5) / double(t.size());
            double lo = -10, hi = 10;
            for (int step = 0; step < 80; ++step) {
                const double mid = 0.5 * (lo + hi);
                (0.5 * std::erfc(-mid / std::sqrt(2.0)) < p ? lo : hi) = mid;
            }
            t[i] = float(0.5 * (lo + hi));
        }
        return t;
    }();
    return table;
}

// A small counter-based generator: the stream of (seed, a, b) is the same whatever
// order lines are rendered in.
class Random {
public:
    Random(quint64 seed, quint64 a, quint64 b) : state_(mix(seed ^ mix(a * 0x9E3779B97F4A7C15ull + b))) {}
    quint64 next() { return mix(state_ += 0x9E3779B97F4A7C15ull); }
    double uniform() { return double(next() >> 11) * (1.0 / 9007199254740992.0); }
    double uniform(double lo, double hi) { return lo + (hi - lo) * uniform(); }
    float normal() { return normalTable()[next() >> 52]; }

private:
    static quint64 mix(quint64 z)
    {
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
        return z ^ (z >> 31);
    }
    quint64 state_;
};

double bump(double lambda, double centre, double width)
{
    const double u = (lambda - centre) / width;
    return std::exp(-0.5 * u * u);
}

struct Absorption {
    double centre, width, depth;
};

QVector<float> spectrum(const QVector<double>& wavelengths, double level, double slope, std::initializer_list<Absorption> bands)
{
    QVector<float> r;
    for (double lambda : wavelengths) {
        double v = level + slope * (lambda - 1300) / 400;
        for (const Absorption& a : bands)
            v -= a.depth * bump(lambda, a.centre, a.width);
        r.append(float(std::max(v, 0.005)));
    }
    return r;
}

// Counts of a pixel of reflectance r: the dark level, the lamp's signal and the noise
// of both (shot noise of the signal, read noise of the dark level).
quint16 count(double dark, double signal, Random& random)
{
    const double sigma = std::sqrt(0.5 * signal + 144.0);
    return quint16(std::clamp(std::lround(dark + signal + sigma * random.normal()), 0L, 65535L));
}

constexpr int Supersampling = 4;

double coverage(const SceneObject& o, int line, int column)
{
    const double c = std::cos(o.angle), s = std::sin(o.angle);
    int inside = 0;
    for (int i = 0; i < Supersampling; ++i) {
        const double dy = line + (i + 0.5) / Supersampling - 0.5 - o.centreLine;
        for (int j = 0; j < Supersampling; ++j) {
            const double dx = column + (j + 0.5) / Supersampling - 0.5 - o.centreColumn;
            const double u = (dx * c + dy * s) / o.semiMajor, v = (-dx * s + dy * c) / o.semiMinor;
            inside += u * u + v * v <= 1.0;
        }
    }
    return double(inside) / (Supersampling * Supersampling);
}

QByteArray enviHeader(const Scene& scene, int lines)
{
    modelwriter::EnviScan scan;
    scan.samples = scene.options().width;
    scan.lines = lines;
    scan.bands = scene.options().bands;
    scan.dataType = 12;
    scan.interleave = QStringLiteral("bil");
    QStringList values;
    for (double w : scene.wavelengths())
        values << QString::number(w, 'f', 2);
    scan.extraFields = QStringLiteral("wavelength units = Nanometers\nwavelength = {%1}\n").arg(values.join(QStringLiteral(", ")));
    return modelwriter::enviHeaderText(scan);
}

// Writes `lines` lines of `render` as a raw little-endian uint16 file, rendering a block
// of lines in parallel before writing it.
template <class Render>
bool writeRaw(const QString& path, int lines, qint64 lineValues, Render render)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        return false;
    constexpr int Block = 32;
    std::vector<quint16> block(size_t(Block * lineValues));
    for (int first = 0; first < lines; first += Block) {
        const int count = std::min(Block, lines - first);
#pragma omp parallel for schedule(dynamic)
        for (int i = 0; i < count; ++i) {
            quint16* line = block.data() + qint64(i) * lineValues;
            render(first + i, line);
            for (qint64 v = 0; v < lineValues; ++v)
                line[v] = qToLittleEndian(line[v]);
        }
        const qint64 bytes = qint64(count) * lineValues * 2;
        if (file.write(reinterpret_cast<const char*>(block.data()), bytes) != bytes)
            return false;
    }
    return file.flush();
}

} // namespace

Scene::Scene(const Options& options) : options_(options)
{
    const int bands = options_.bands;
    for (int b = 0; b < bands; ++b)
        wavelengths_.append(options_.firstWavelength +
                            (options_.lastWavelength - options_.firstWavelength) * b / std::max(1, bands - 1));

    auto material = [&](const char* name, QColor colour, bool trained, double r0, double r1, double a0, double a1,
                        QVector<float> reflectance) {
        Material m;
        m.name = QLatin1String(name);
        m.colour = colour;
        m.trained = trained;
        m.minRadius = r0;
        m.maxRadius = r1;
        m.minAspect = a0;
        m.maxAspect = a1;
        m.reflectance = std::move(reflectance);
        materials_.append(m);
    };
    const QVector<double>& w = wavelengths_;
    material("belt", QColor(45, 45, 55), true, 0, 0, 1, 1, spectrum(w, 0.07, 0.015, {}));
    material("hazelnut", QColor(80, 190, 90), true, 8, 11, 0.8, 1.0,
             spectrum(w, 0.52, 0.06, {{1210, 22, 0.10}, {1450, 45, 0.16}, {1030, 30, 0.06}, {1730, 30, 0.08}}));
    material("shell", QColor(170, 90, 40), true, 8, 13, 0.5, 0.75,
             spectrum(w, 0.36, 0.12, {{1200, 35, 0.05}, {1490, 70, 0.11}, {1660, 30, 0.04}}));
    material("stone", QColor(140, 150, 200), true, 6, 12, 0.6, 0.95,
             spectrum(w, 0.27, -0.05, {{1410, 18, 0.03}, {1000, 60, 0.02}}));
    // A foreign body the model never saw: it has to come out as rejected.
    material("plastic", QColor(40, 160, 230), false, 7, 12, 0.3, 0.6,
             spectrum(w, 0.78, 0.0, {{1215, 14, 0.28}, {1395, 16, 0.22}, {1540, 18, 0.12}}));

    place();

    // The effective references, from the reference scans as they are written.
    const qint64 values = qint64(options_.width) * bands;
    white_.assign(size_t(values), 0.0f);
    dark_.assign(size_t(values), 65535.0f);
    std::vector<quint16> line(static_cast<size_t>(values));
    for (int l = 0; l < options_.referenceLines; ++l) {
        renderReference(true, l, line.data());
        for (qint64 i = 0; i < values; ++i)
            white_[size_t(i)] = std::max(white_[size_t(i)], float(line[size_t(i)]));
        renderReference(false, l, line.data());
        for (qint64 i = 0; i < values; ++i)
            dark_[size_t(i)] = std::min(dark_[size_t(i)], float(line[size_t(i)]));
    }
}

// The lamp: strongest around 1150 nm, weaker towards the ends of the range and towards
// the edges of the belt.
double Scene::illumination(int column, int band) const
{
    const double u = (column - 0.5 * options_.width) / (0.5 * options_.width);
    return 26000.0 * (0.55 + 0.45 * bump(wavelengths_[band], 1150, 500)) * (1.0 - 0.25 * u * u);
}

// The dark level: an offset with a fixed pattern that differs by pixel and band.
double Scene::darkCount(int column, int band) const
{
    Random pattern(options_.seed, quint64(column), quint64(band) + 0x5EED);
    return 800.0 + 60.0 * pattern.uniform() + 30.0 * band / std::max(1, options_.bands - 1);
}

void Scene::place()
{
    const int count = options_.objects >= 0 ? options_.objects : int(qint64(options_.width) * options_.lines / 12000);
    // Objects close in the tracker some lines after they end: the last ones keep clear
    // of the end of the recording, and none touches the first lines.
    const int top = 24, bottom = options_.lines - 60;
    const double weights[] = {0, 0.40, 0.25, 0.20, 0.15};
    Random random(options_.seed, 0xB17, 0);
    for (int attempt = 0; attempt < 400 * count && int(objects_.size()) < count; ++attempt) {
        double pick = random.uniform();
        int m = 1;
        while (m < materials_.size() - 1 && pick >= weights[m]) {
            pick -= weights[m];
            ++m;
        }
        const Material& material = materials_[m];
        SceneObject o;
        o.material = m;
        o.semiMajor = random.uniform(material.minRadius, material.maxRadius);
        o.semiMinor = o.semiMajor * random.uniform(material.minAspect, material.maxAspect);
        o.angle = random.uniform(0, Pi);
        o.brightness = random.uniform(0.9, 1.1);
        const double r = o.semiMajor;
        if (options_.width < 2 * r + 8 || bottom - top < 2 * r + 2)
            continue;
        o.centreColumn = random.uniform(r + 3, options_.width - r - 4);
        o.centreLine = random.uniform(top + r, bottom - r);
        const bool clear = std::all_of(objects_.begin(), objects_.end(), [&](const SceneObject& other) {
            return std::hypot(o.centreLine - other.centreLine, o.centreColumn - other.centreColumn) >= r + other.semiMajor + 5;
        });
        if (clear)
            objects_.push_back(o);
    }
    std::sort(objects_.begin(), objects_.end(), [](const SceneObject& a, const SceneObject& b) { return a.centreLine < b.centreLine; });

    for (size_t i = 0; i < objects_.size(); ++i) {
        SceneObject& o = objects_[i];
        o.id = int(i) + 1;
        const int r = int(std::ceil(o.semiMajor)) + 1;
        double lines = 0, columns = 0;
        o.firstLine = o.firstColumn = std::numeric_limits<int>::max();
        o.lastLine = o.lastColumn = -1;
        for (int l = int(o.centreLine) - r; l <= int(o.centreLine) + r + 1; ++l)
            for (int c = int(o.centreColumn) - r; c <= int(o.centreColumn) + r + 1; ++c)
                if (coverage(o, l, c) >= 0.5) {
                    lines += l;
                    columns += c;
                    ++o.pixels;
                    o.firstLine = std::min(o.firstLine, l);
                    o.lastLine = std::max(o.lastLine, l);
                    o.firstColumn = std::min(o.firstColumn, c);
                    o.lastColumn = std::max(o.lastColumn, c);
                }
        o.line = lines / std::max(1, o.pixels);
        o.column = columns / std::max(1, o.pixels);
    }
}

void Scene::renderLine(int line, quint16* counts) const
{
    const int width = options_.width, bands = options_.bands;
    Random random(options_.seed, quint64(line), 1);
    // Per pixel: the object's material (0 for bare belt), its share of the pixel, and
    // the brightness of the object's and of the belt's part.
    std::vector<int> material(size_t(width), 0);
    std::vector<double> share(size_t(width), 0.0), objectGain(size_t(width), 1.0), beltGain(size_t(width), 1.0);
    for (int c = 0; c < width; ++c)
        beltGain[size_t(c)] = 1.0 + 0.03 * random.normal();
    for (const SceneObject& o : objects_) {
        const double reach = o.semiMajor + 1;
        if (line < o.centreLine - reach || line > o.centreLine + reach)
            continue;
        const int from = std::max(0, int(o.centreColumn - reach)), to = std::min(width - 1, int(o.centreColumn + reach) + 1);
        for (int c = from; c <= to; ++c) {
            const double a = coverage(o, line, c);
            if (a <= 0)
                continue;
            material[size_t(c)] = o.material;
            share[size_t(c)] = a;
            objectGain[size_t(c)] = o.brightness * (1.0 + 0.02 * random.normal());
        }
    }
    const QVector<float>& belt = materials_[0].reflectance;
    for (int b = 0; b < bands; ++b) {
        quint16* row = counts + qint64(b) * width;
        for (int c = 0; c < width; ++c) {
            double r = (1.0 - share[size_t(c)]) * beltGain[size_t(c)] * belt[b];
            if (material[size_t(c)] > 0)
                r += share[size_t(c)] * objectGain[size_t(c)] * materials_[material[size_t(c)]].reflectance[b];
            row[c] = count(darkCount(c, b), r * illumination(c, b), random);
        }
    }
}

void Scene::renderReference(bool white, int line, quint16* counts) const
{
    Random random(options_.seed, quint64(line), white ? 2 : 3);
    for (int b = 0; b < options_.bands; ++b)
        for (int c = 0; c < options_.width; ++c)
            counts[qint64(b) * options_.width + c] = count(darkCount(c, b), white ? 0.98 * illumination(c, b) : 0.0, random);
}

QStringList Scene::classNames() const
{
    QStringList names;
    for (const Material& m : materials_)
        if (m.trained)
            names << m.name;
    return names;
}

QVector<int> Scene::selectedBands() const
{
    const int edge = options_.bands >= 50 ? options_.bands / 25 : 0;
    QVector<int> bands;
    for (int b = edge; b < options_.bands - edge; ++b)
        bands.append(b);
    return bands;
}

trainer::Samples Scene::spectra(const QVector<int>& bands, int perClass, quint32 seed) const
{
    trainer::Samples samples;
    samples.bands = bands.size();
    std::vector<float> spectrum(size_t(bands.size()));
    int label = 0;
    for (int m = 0; m < materials_.size(); ++m) {
        if (!materials_[m].trained)
            continue;
        Random random(options_.seed ^ seed, quint64(m), 4);
        for (int i = 0; i < perClass; ++i) {
            const int c = int(random.uniform() * options_.width) % options_.width;
            const double gain = (m == 0 ? 1.0 : random.uniform(0.9, 1.1)) * (1.0 + 0.03 * random.normal());
            for (int j = 0; j < bands.size(); ++j) {
                const int b = bands[j];
                const size_t at = size_t(b) * size_t(options_.width) + size_t(c);
                const float raw = count(darkCount(c, b), gain * materials_[m].reflectance[b] * illumination(c, b), random);
                spectrum[size_t(j)] = (raw - dark_[at]) * (1.0f / (white_[at] - dark_[at]));
            }
            samples.add(spectrum.data(), label);
        }
        ++label;
    }
    return samples;
}

trainer::Model Scene::train(const trainer::Options& options) const
{
    const QVector<int> bands = selectedBands();
    return trainer::train(spectra(bands, options_.trainingSpectra, 1), spectra(bands, options_.heldOutSpectra, 2),
                          classNames().size(), options);
}

modelwriter::Project Scene::project(const trainer::Model& m) const
{
    using namespace modelwriter;
    const QStringList classes = classNames();
    const int c = classes.size();

    ClassifierSpec spec;
    spec.inputBands = m.bands;
    spec.totalBands = options_.bands;
    spec.selectedBands = selectedBands();
    spec.classNames = classes;
    spec.classCodes.clear();
    for (int i = 0; i < c; ++i)
        spec.classCodes.append(i);
    spec.randomSeed = int(options_.seed);
    Roc roc;
    roc.rowLength = c;
    roc.currentPoint = 0;
    roc.weightTable = QVector<float>(c, 1.0f);
    spec.roc = roc;
    spec.rejectEnabled = true;
    spec.rejectThresholds = QVector<float>(m.thresholds.begin(), m.thresholds.end());
    spec.rejection = RejectionTables();
    LinearElement projection;
    projection.inputCount = m.bands;
    projection.outputCount = m.features;
    projection.matrix = TypedArray::floats({m.bands, m.features, 1, 1}, QVector<float>(m.projection.begin(), m.projection.end()));
    projection.offset = TypedArray::floats({1, m.features, 1, 1}, QVector<float>(m.offset.begin(), m.offset.end()));
    spec.projection = projection;
    NetworkElement network;
    network.featureCount = m.features;
    network.unitCount = m.centres;
    network.classCount = c;
    network.classNames = classes;
    network.centres = TypedArray::floats({m.features, m.centres, 1, 1}, QVector<float>(m.centreValues.begin(), m.centreValues.end()));
    network.gammas = TypedArray::floats({m.centres, 1, 1, 1}, QVector<float>(m.gammas.begin(), m.gammas.end()));
    network.outputWeights =
        TypedArray::floats({m.centres + 1, c, 1, 1}, QVector<float>(m.outputWeights.begin(), m.outputWeights.end()));
    network.unitTags = QVector<qint32>(m.centreClass.begin(), m.centreClass.end());
    spec.network = network;
    spec.classFlags = QVector<bool>(c, true);
    spec.classFlags[0] = false;
    spec.trainingRound = 1;

    // Objects are all foreground pixels together, rejected ones included, so that the
    // mixed pixels at an object's rim stay part of it and a foreign body is an object of
    // its own, decided by the majority of its pixels.
    SegmenterSpec segmenter;
    segmenter.classNames = classes;
    segmenter.useUnknown = true;
    QVector<bool> foreground(c + 1, true);
    foreground[0] = false;
    segmenter.foregroundVec = foreground;
    segmenter.minObjSize = 40;
    segmenter.objMask = 2;
    segmenter.objDecOutput = 1;
    segmenter.objDecType = 1;
    segmenter.ruleDefDecName = classes.value(1);
    segmenter.rule1 = {classes.value(1), 1, 1, 0};
    segmenter.rule2Enabled = false;
    segmenter.rule2 = segmenter.rule1;
    segmenter.backgroundDecName = classes.value(0);

    Project p;
    p.type = 10;
    p.header = QStringLiteral("belt scene, %1 materials").arg(c);
    p.classNames = QStringList{QStringLiteral("Unknown")} + classes;
    p.classColors = {QColor(0, 0, 0, 0)};
    for (const Material& material : materials_)
        if (material.trained)
            p.classColors.append(material.colour);
    Image image;
    image.imageType = 10;
    image.cubeName = QStringLiteral("scene");
    image.width = options_.width;
    image.height = options_.lines;
    image.bands = options_.bands;
    image.wavelengths = wavelengths_;
    p.images = {image};
    p.bandSelection = QVector<bool>(options_.bands, true);
    StreamBuilder classifier;
    classifier.tag(QStringLiteral("ZelkClassifier:%1").arg(spec.version)).add(spec);
    p.classifier = classifier.bytes();
    QVector<bool> projectForeground(c + 1, true);
    projectForeground[0] = projectForeground[1] = false;
    p.classForeground = projectForeground;
    StreamBuilder segmenterStream;
    segmenterStream.add(segmenter);
    p.segmenter = segmenterStream.bytes();
    return p;
}

bool Scene::write(const QString& directory, QString* error) const
{
    const QDir dir(directory);
    if (!QDir().mkpath(directory)) {
        *error = QStringLiteral("cannot make the directory %1").arg(directory);
        return false;
    }
    const qint64 lineValues = qint64(options_.width) * options_.bands;
    auto fail = [&](const QString& file) {
        *error = QStringLiteral("cannot write %1").arg(dir.filePath(file));
        return false;
    };
    if (!modelwriter::writeFile(dir.filePath(QStringLiteral("scene.hdr")), enviHeader(*this, options_.lines)) ||
        !writeRaw(dir.filePath(QStringLiteral("scene.bin")), options_.lines, lineValues,
                  [this](int line, quint16* out) { renderLine(line, out); }))
        return fail(QStringLiteral("scene.bin"));
    for (const bool white : {true, false}) {
        const QString base = white ? QStringLiteral("whiteReference") : QStringLiteral("darkReference");
        if (!modelwriter::writeFile(dir.filePath(base + QStringLiteral(".hdr")), enviHeader(*this, options_.referenceLines)) ||
            !writeRaw(dir.filePath(base + QStringLiteral(".bin")), options_.referenceLines, lineValues,
                      [this, white](int line, quint16* out) { renderReference(white, line, out); }))
            return fail(base + QStringLiteral(".bin"));
    }

    QFile truth(dir.filePath(QStringLiteral("truth.csv")));
    if (!truth.open(QIODevice::WriteOnly | QIODevice::Text))
        return fail(QStringLiteral("truth.csv"));
    QTextStream out(&truth);
    out << "id,material,trained,centroid_line,centroid_column,pixels,first_line,last_line,first_column,last_column\n";
    for (const SceneObject& o : objects_)
        out << o.id << ',' << materials_[o.material].name << ',' << (materials_[o.material].trained ? 1 : 0) << ','
            << QString::number(o.line, 'f', 2) << ',' << QString::number(o.column, 'f', 2) << ',' << o.pixels << ','
            << o.firstLine << ',' << o.lastLine << ',' << o.firstColumn << ',' << o.lastColumn << '\n';
    out.flush();
    if (out.status() != QTextStream::Ok)
        return fail(QStringLiteral("truth.csv"));

    trainer::Model model;
    try {
        model = train();
    } catch (const std::exception& e) {
        *error = QStringLiteral("training failed: %1").arg(QLatin1String(e.what()));
        return false;
    }
    const QByteArray file = modelwriter::fileContents(modelwriter::FileKind::Zelk, modelwriter::projectBytes(project(model)));
    if (!modelwriter::writeFile(dir.filePath(QStringLiteral("model.zelk")), file))
        return fail(QStringLiteral("model.zelk"));
    return true;
}

} // namespace scene
