#include "spectral/scan_correction.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>
#include <new>

namespace scancorrection {
namespace {

template <class T> void reduceLines(const ZelkSpectralCube& ref, Reduction how, QVector<float>* out)
{
    const int columns = ref.columns, bands = ref.bands, lines = ref.lines;
    const T* in = ref.samples<T>();
    for (int b = 0; b < bands; ++b)
        for (int c = 0; c < columns; ++c) {
            float value = float(in[ref.indexOf(c, 0, b)]);
            double sum = value;
            for (int l = 1; l < lines; ++l) {
                const float x = float(in[ref.indexOf(c, l, b)]);
                if (how == Reduction::Max)
                    value = std::max(value, x);
                else if (how == Reduction::Min)
                    value = std::min(value, x);
                sum += x;
            }
            (*out)[b * columns + c] = how == Reduction::Mean ? float(sum / lines) : value;
        }
}

template <class T>
void correctLines(const ZelkSpectralCube& scan, int first, int count, const float* dark, const float* gain, bool absolute, float* out)
{
    const int columns = scan.columns, bands = scan.bands;
    const T* in = scan.samples<T>();
    for (int l = first; l < first + count; ++l) {
        float* row = out + qint64(l) * columns * bands;
        for (int b = 0; b < bands; ++b) {
            const float* d = dark + qint64(b) * columns;
            const float* g = gain + qint64(b) * columns;
            for (int c = 0; c < columns; ++c) {
                const float diff = float(in[scan.indexOf(c, l, b)]) - d[c];
                row[qint64(c) * bands + b] = (absolute ? std::fabs(diff) : diff) * g[c];
            }
        }
    }
}

} // namespace

bool level(const ZelkSpectralCube& reference, Reduction how, QVector<float>* out)
{
    if (!reference.holdsSamples() || reference.lines < 1)
        return false;
    out->resize(int(qint64(reference.columns) * reference.bands));
    if (reference.dataType == DataUInt16) {
        reduceLines<quint16>(reference, how, out);
        return true;
    }
    if (reference.dataType == DataFloat) {
        if (how != Reduction::Mean && reference.lines != 1)
            return false;
        reduceLines<float>(reference, how, out);
        return true;
    }
    return false;
}

bool apply(ZelkSpectralCube& scan, const QVector<float>& dark, const QVector<float>& gain, bool absolute, const Progress& progress)
{
    const qint64 perLine = qint64(scan.columns) * scan.bands;
    if (!scan.holdsSamples() || (scan.dataType != DataUInt16 && scan.dataType != DataFloat) || dark.size() != perLine ||
        gain.size() != perLine)
        return false;
    const qint64 count = scan.sampleCount();
    std::unique_ptr<char[]> buffer(new (std::nothrow) char[size_t(std::max<qint64>(count * 4, 1))]);
    if (!buffer)
        return false;
    auto* out = reinterpret_cast<float*>(buffer.get());

    progress(QStringLiteral("Importing cube..."), 0);
    for (int first = 0; first < scan.lines; first += BlockLines) {
        const int n = std::min(BlockLines, scan.lines - first);
        if (scan.dataType == DataUInt16)
            correctLines<quint16>(scan, first, n, dark.constData(), gain.constData(), absolute, out);
        else
            correctLines<float>(scan, first, n, dark.constData(), gain.constData(), absolute, out);
        progress(QStringLiteral("Importing cube..."), int(qint64(first + n) * 100 / scan.lines));
    }
    progress(QStringLiteral("Done."), 100);
    scan.setData(std::move(buffer), count * 4);
    scan.dataType = DataFloat;
    scan.layout = LayoutBIP;
    return true;
}

} // namespace scancorrection
