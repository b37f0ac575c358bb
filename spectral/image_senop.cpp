// A camera that writes its bands in its own sequence order, with a gain per band.

#include "spectral/envi_header.h"
#include "spectral/image_family.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <numeric>
#include <vector>

ZelkImageSENOP::ZelkImageSENOP(const QString& name, QObject* parent)
    : ZelkImageEnviScan(name, parent, 8, EnviRule::Plain, ".dat", false, false)
{
}

int ZelkImageSENOP::readMoreFields(const EnviHeader& header, const QString& path, bool wavelengthsRead)
{
    gains = header.headerDoubles(QStringLiteral("data gain values"), bandCount);
    if (!gains)
        Q_EMIT displayMessage(
            QStringLiteral("<font color=\"yellow\"><b>Cannot load 'data gain values' from the .hdr file: %1</b></font>").arg(path));
    const std::optional<QVector<double>> order = header.headerDoubles(QStringLiteral("senop sequence order"), bandCount);
    if (!order) {
        report(-1, QStringLiteral("Cannot load 'senop sequence order' field from .hdr file: %1").arg(path));
        return -1;
    }
    sequenceOrder = *order;
    if (wavelengthsRead && wavelengths) {
        // Wavelengths ascending, the gains in the same order; the file's list is kept,
        // since the cube's bands stay in file order until they are reordered.
        fileWavelengths = *wavelengths;
        std::vector<int> index(size_t(fileWavelengths.size()));
        std::iota(index.begin(), index.end(), 0);
        std::stable_sort(index.begin(), index.end(), [&](int a, int b) { return fileWavelengths[a] < fileWavelengths[b]; });
        QVector<double> sorted, sortedGains;
        for (int i : index) {
            sorted.append(fileWavelengths[i]);
            if (gains && i < gains->size())
                sortedGains.append(gains->at(i));
        }
        wavelengths = sorted;
        if (gains)
            gains = sortedGains;
    }
    return 0;
}

bool ZelkImageSENOP::reorderBands(quint16* planes, qint64 planeSize, int bands, quint16* spare) const
{
    if (sequenceOrder.size() != bands || bands <= 0)
        return false;
    // Position p receives the plane j with order[j] == p; the order must be a permutation.
    std::vector<int> source(size_t(bands), -1);
    for (int j = 0; j < bands; ++j) {
        const int p = int(sequenceOrder[j]);
        if (p < 0 || p >= bands || source[size_t(p)] != -1)
            return false;
        source[size_t(p)] = j;
    }
    const size_t bytes = size_t(planeSize) * sizeof(quint16);
    auto plane = [&](int i) { return planes + qint64(i) * planeSize; };
    std::vector<char> placed(size_t(bands), 0);
    // Each cycle of the permutation is walked once: its first plane waits in the spare
    // while the others move up one step.
    for (int start = 0; start < bands; ++start) {
        if (placed[size_t(start)] || source[size_t(start)] == start)
            continue;
        std::memcpy(spare, plane(start), bytes);
        int p = start;
        while (source[size_t(p)] != start) {
            std::memcpy(plane(p), plane(source[size_t(p)]), bytes);
            placed[size_t(p)] = 1;
            p = source[size_t(p)];
        }
        std::memcpy(plane(p), spare, bytes);
        placed[size_t(p)] = 1;
    }
    return true;
}

bool ZelkImageSENOP::applyGains(const quint16* planes, qint64 planeSize, int bands, float* out) const
{
    if (!gains || gains->size() != bands)
        return false;
    for (int b = 0; b < bands; ++b) {
        const float g = float(gains->at(b));
        const quint16* in = planes + qint64(b) * planeSize;
        float* o = out + qint64(b) * planeSize;
        if (g == 0.0f) {
            std::fill_n(o, planeSize, 0.0f);
            continue;
        }
        for (qint64 i = 0; i < planeSize; ++i)
            o[i] = in[i] * g;
    }
    return true;
}

bool ZelkImageSENOP::afterLoad(ZelkSpectralCube& cube, const QString&)
{
    if (cube.layout != LayoutBSQ || cube.dataType != DataUInt16)
        return true;
    const qint64 planeSize = qint64(cube.columns) * cube.lines;
    if (!sequenceOrder.isEmpty()) {
        std::vector<quint16> spare(size_t(std::max<qint64>(planeSize, 1)));
        if (!reorderBands(cube.samples<quint16>(), planeSize, cube.bands, spare.data()))
            Q_EMIT displayMessage(QStringLiteral("The 'senop sequence order' is not an order of the %1 bands; the bands stay in file order")
                                      .arg(cube.bands));
    }
    if (gains && gains->size() == cube.bands) {
        const qint64 bytes = cube.sampleCount() * 4;
        std::unique_ptr<char[]> buffer(new (std::nothrow) char[size_t(std::max<qint64>(bytes, 1))]);
        if (buffer) {
            applyGains(cube.samples<quint16>(), planeSize, cube.bands, reinterpret_cast<float*>(buffer.get()));
            cube.setData(std::move(buffer), bytes);
            cube.dataType = DataFloat;
        }
    }
    return true;
}
