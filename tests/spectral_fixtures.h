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

// A ".trf" scan of 4 bands of `width` by `lines`, whose binary header carries one white
// and one dark spectrum.
inline bool writePointScan(const QString& base, int width, int lines)
{
    modelwriter::EnviScan scan;
    scan.samples = width;
    scan.lines = lines;
    scan.bands = 4;
    scan.data = modelwriter::uint16Bytes(QVector<quint16>(width * lines * 4, 7));
    scan.binaryHeader = modelwriter::referenceHeader({900, 901, 902, 903}, {10, 20, 30, 40});
    return modelwriter::writeEnviScan(base, ".trf", scan);
}

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
template <typename T>
QVector<T> samplesOf(const QString& interleave, int columns, int lines, int bands, const SampleFn& value)
{
    const quint32 layout = interleave == QLatin1String("bip") ? LayoutBIP : interleave == QLatin1String("bsq") ? LayoutBSQ : LayoutBIL;
    auto c = cube(sizeof(T) == 2 ? DataUInt16 : DataFloat, layout, columns, lines, bands, value);
    return QVector<T>(c->samples<T>(), c->samples<T>() + c->sampleCount());
}

// A uint16 (or float) ENVI scan at `base` with the given interleave.
inline bool writeUInt16Scan(const QString& base, const QString& extension, int columns, int lines, int bands, const SampleFn& value,
                            const QString& interleave = QStringLiteral("bil"), const QString& extra = QString())
{
    const QByteArray data = modelwriter::uint16Bytes(samplesOf<quint16>(interleave, columns, lines, bands, value));
    return modelwriter::writeEnviScan(base, extension, {columns, lines, bands, 12, interleave, data, {}, extra});
}

inline bool writeFloatScan(const QString& base, const QString& extension, int columns, int lines, int bands, const SampleFn& value,
                           const QString& interleave = QStringLiteral("bil"))
{
    const QByteArray data = modelwriter::floatBytes(samplesOf<float>(interleave, columns, lines, bands, value));
    return modelwriter::writeEnviScan(base, extension, {columns, lines, bands, 4, interleave, data, {}, {}});
}

// r = v * (x - d) / (w - d), computed as the library documents it: G = v / (w - d) and
// (x - d) * G, in float.
inline float reflectance(float v, float x, float w, float d)
{
    const float g = v / (w - d);
    return (x - d) * g;
}

} // namespace fixtures
