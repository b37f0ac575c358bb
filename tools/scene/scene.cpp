// The belt scene: materials, where the objects lie, and the camera's counts of each
// line and of the references.

#include "scene/scene.h"

#include "scene/noise.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace scene {
namespace {

constexpr double Pi = 3.14159265358979323846;

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


} // namespace scene
