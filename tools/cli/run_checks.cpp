// The checks of zelk run that stop a cube from giving a plausible but wrong result: its
// wavelengths against the model's, its values against the reflectance that a model
// without references takes, and afterwards the share of pixels the model rejected.

#include "run.h"

#include "classify/classifier.h"
#include "model/project.h"
#include "runtime/handle.h"

#include <QFileInfo>
#include <algorithm>
#include <cmath>
#include <cstdio>

namespace cli {
namespace {

// Nanometres per unit of an ENVI "wavelength units" word; 0 for units that are no
// length (wavenumber, GHz, index), -1 when the header states none.
double nanometresPer(const QString& units)
{
    const QString u = units.trimmed().toLower();
    if (u.isEmpty() || u == QLatin1String("unknown"))
        return -1;
    if (u == QLatin1String("nanometers") || u == QLatin1String("nanometres") || u == QLatin1String("nm"))
        return 1;
    if (u == QLatin1String("micrometers") || u == QLatin1String("micrometres") || u == QLatin1String("microns") ||
        u == QLatin1String("um") || u == QString::fromUtf8("µm") || u == QString::fromUtf8("μm"))
        return 1e3;
    if (u == QLatin1String("millimeters") || u == QLatin1String("millimetres") || u == QLatin1String("mm"))
        return 1e6;
    return 0;
}

QString span(const QVector<double>& w)
{
    return QStringLiteral("%1 %2 %3 nm").arg(w.first(), 0, 'f', 1).arg(w.first() <= w.last() ? "up to" : "down to").arg(w.last(), 0, 'f', 1);
}

} // namespace

bool Run::checkWavelengths() const
{
    const ZelkProject& p = *s_.h->project;
    const ZelkImage* image = p.images.empty() ? nullptr : p.images.front().get();
    if (!image || !image->wavelengths || image->wavelengths->size() != cube_.bands || cube_.bands < 2)
        return true; // nothing to compare with
    const QVector<double>& model = *image->wavelengths;
    const QString name = QFileInfo(cube_.headerPath).fileName();
    if (cube_.wavelengths.isEmpty()) {
        std::fprintf(stderr, "zelk run: note: %s states no wavelengths; its bands are taken as the model's (%s)\n",
                     qPrintable(name), qPrintable(span(model)));
        return true;
    }
    const QString override = QStringLiteral("; --ignore-wavelengths runs it as it is");
    double unit = nanometresPer(cube_.wavelengthUnits);
    if (unit == 0)
        return failed(QStringLiteral("%1 gives its wavelengths in '%2', which cannot be compared with the model's nanometres%3")
                          .arg(name, cube_.wavelengthUnits, override));
    // Without units, micrometres when the values are that small, as the convention goes.
    if (unit < 0) {
        const double largest = *std::max_element(cube_.wavelengths.cbegin(), cube_.wavelengths.cend(),
                                                 [](double a, double b) { return std::abs(a) < std::abs(b); });
        unit = std::abs(largest) < 100 ? 1e3 : 1;
    }
    QVector<double> cube;
    for (double w : cube_.wavelengths)
        cube << w * unit;
    const bool modelRises = model.last() > model.first(), cubeRises = cube.last() > cube.first();
    if (modelRises != cubeRises)
        return failed(QStringLiteral("the bands of %1 run from %2, the model's from %3: the band order is reversed%4")
                          .arg(name, span(cube), span(model), override));
    // A band further from the model's than half a band step reads the model's neighbour.
    const double tolerance = std::abs(model.last() - model.first()) / (model.size() - 1) / 2;
    int worst = 0;
    for (int b = 1; b < model.size(); ++b)
        if (std::abs(cube[b] - model[b]) > std::abs(cube[worst] - model[worst]))
            worst = b;
    if (std::abs(cube[worst] - model[worst]) > tolerance)
        return failed(QStringLiteral("the bands of %1 run from %2, the model's from %3: band %4 lies at %5 nm, the model's at %6 nm, "
                                     "more than half a band step (%7 nm) apart%8")
                          .arg(name, span(cube), span(model))
                          .arg(worst)
                          .arg(cube[worst], 0, 'f', 1)
                          .arg(model[worst], 0, 'f', 1)
                          .arg(tolerance, 0, 'f', 1)
                          .arg(override));
    return true;
}

// A model that takes reflectance, given counts, rejects nearly every pixel. Reflectance
// stays below about 1, a little above for glints; counts reach the hundreds.
bool Run::checkValueRange()
{
    constexpr double Highest = 2.0;
    constexpr int SampledLines = 64;
    const int step = std::max(1, cube_.lines / SampledLines);
    std::vector<float> line(size_t(cube_.samples) * size_t(cube_.bands));
    std::vector<bool> noData;
    qint64 values = 0, above = 0;
    float largest = 0;
    QString error;
    for (int l = 0; l < cube_.lines; l += step) {
        if (!readLine(l, line.data(), noData, &error))
            return failed(error);
        for (size_t i = 0; i < line.size(); ++i) {
            if (noData[i % size_t(cube_.samples)])
                continue;
            ++values;
            above += line[i] > Highest;
            largest = std::max(largest, line[i]);
        }
    }
    if (above * 100 <= values)
        return true;
    QString why = QStringLiteral("%1 cannot hold reflectance: %2% of its values exceed %3, up to %4")
                      .arg(QFileInfo(cube_.headerPath).fileName())
                      .arg(double(above) * 100 / double(values), 0, 'f', 0)
                      .arg(Highest)
                      .arg(double(largest), 0, 'g', 6);
    if (cube_.reflectanceScale > 0)
        why += QStringLiteral(" after its reflectance scale factor %1").arg(cube_.reflectanceScale);
    return failed(why + QStringLiteral(". Without references the model takes reflectance: give the recording's white and dark references "
                                       "with --white W.hdr --dark D.hdr, or, if the cube stores reflectance as whole numbers, state "
                                       "'reflectance scale factor' (e.g. 10000) in its header; --ignore-value-range runs it as it is"));
}

bool Run::checkRejections() const
{
    if (rejected_ < 0)
        return true;
    qint64 total = 0;
    for (int d = 0; d < 256; ++d)
        total += d == NoData ? 0 : labelCounts_[size_t(d)];
    const qint64 rejected = labelCounts_[size_t(rejected_)];
    if (total == 0 || rejected * 10 < total * 9)
        return true;
    return failed(QStringLiteral("%1% of the pixels were rejected as '%2': the cube is not like what the model was trained on. "
                                 "Counts need the recording's references (--white, --dark); a cube of another camera or other "
                                 "wavelengths needs a model of its own. The outputs are written all the same.")
                      .arg(double(rejected) * 100 / double(total), 0, 'f', 0)
                      .arg(decisions_.name(rejected_)));
}

} // namespace cli
