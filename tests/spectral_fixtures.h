#pragma once
// Cubes in memory and scan folders on disk for the tests of the spectral classes.

#include "modelwriter/scan_writer.h"
#include "spectral/spectral_cube.h"

#include <QDir>
#include <QTemporaryDir>
#include <functional>
#include <memory>
#include <ostream>

// Readable strings in the messages of failed expectations.
inline void PrintTo(const QString& s, std::ostream* out)
{
    *out << '"' << s.toStdString() << '"';
}

namespace fixtures {

using SampleFn = std::function<double(int column, int line, int band)>;

inline std::unique_ptr<ZelkSpectralCube> cube(quint32 type, quint32 layout, int columns, int lines, int bands, const SampleFn& value)
{
    auto c = std::make_unique<ZelkSpectralCube>(type, layout);
    c->columns = columns;
    c->lines = lines;
    c->bands = bands;
    const qint64 n = c->sampleCount();
    std::unique_ptr<char[]> buffer(new char[size_t(std::max<qint64>(n * sampleBytes(type), 1))]);
    c->setData(std::move(buffer), n * sampleBytes(type));
    for (int l = 0; l < lines; ++l)
        for (int col = 0; col < columns; ++col)
            for (int b = 0; b < bands; ++b) {
                const qint64 i = c->indexOf(col, l, b);
                const double v = value(col, l, b);
                switch (type) {
                case DataUInt16: c->samples<quint16>()[i] = quint16(v); break;
                case DataFloat: c->samples<float>()[i] = float(v); break;
                case DataUInt8: c->samples<quint8>()[i] = quint8(v); break;
                default: c->samples<qint32>()[i] = qint32(v); break;
                }
            }
    return c;
}

inline double sample(const ZelkSpectralCube& c, int column, int line, int band)
{
    const qint64 i = c.indexOf(column, line, band);
    switch (c.dataType) {
    case DataUInt16: return c.samples<quint16>()[i];
    case DataFloat: return c.samples<float>()[i];
    case DataUInt8: return c.samples<quint8>()[i];
    default: return c.samples<qint32>()[i];
    }
}

// The samples of a cube function in the file order of an interleave.
inline QVector<quint16> uint16Samples(const QString& interleave, int columns, int lines, int bands, const SampleFn& value)
{
    auto c = cube(DataUInt16, interleave == QLatin1String("bip") ? LayoutBIP : interleave == QLatin1String("bsq") ? LayoutBSQ : LayoutBIL,
                  columns, lines, bands, value);
    return QVector<quint16>(c->samples<quint16>(), c->samples<quint16>() + c->sampleCount());
}

inline QVector<float> floatSamples(const QString& interleave, int columns, int lines, int bands, const SampleFn& value)
{
    auto c = cube(DataFloat, interleave == QLatin1String("bip") ? LayoutBIP : interleave == QLatin1String("bsq") ? LayoutBSQ : LayoutBIL,
                  columns, lines, bands, value);
    return QVector<float>(c->samples<float>(), c->samples<float>() + c->sampleCount());
}

// A uint16 ENVI scan at `base` with the given interleave.
inline bool writeUInt16Scan(const QString& base, const QString& extension, int columns, int lines, int bands, const SampleFn& value,
                            const QString& interleave = QStringLiteral("bil"), const QString& extra = QString())
{
    modelwriter::EnviScan s;
    s.samples = columns;
    s.lines = lines;
    s.bands = bands;
    s.dataType = 12;
    s.interleave = interleave;
    s.extraFields = extra;
    s.data = modelwriter::uint16Bytes(uint16Samples(interleave, columns, lines, bands, value));
    return modelwriter::writeEnviScan(base, extension, s);
}

inline bool writeFloatScan(const QString& base, const QString& extension, int columns, int lines, int bands, const SampleFn& value,
                           const QString& interleave = QStringLiteral("bil"))
{
    modelwriter::EnviScan s;
    s.samples = columns;
    s.lines = lines;
    s.bands = bands;
    s.dataType = 4;
    s.interleave = interleave;
    s.data = modelwriter::floatBytes(floatSamples(interleave, columns, lines, bands, value));
    return modelwriter::writeEnviScan(base, extension, s);
}

// r = v * (x - d) / (w - d), computed as the library documents it: G = v / (w - d) and
// (x - d) * G, in float.
inline float reflectance(float v, float x, float w, float d)
{
    const float g = v / (w - d);
    return (x - d) * g;
}

} // namespace fixtures
