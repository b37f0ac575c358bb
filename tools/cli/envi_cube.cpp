#include "envi_cube.h"

#include "spectral/envi_header.h"

#include <QFileInfo>
#include <QtEndian>
#include <cstring>

namespace cli {

int EnviCube::sampleBytes() const
{
    switch (dataType) {
    case 1: return 1;
    case 2: case 12: return 2;
    case 4: return 4;
    case 5: return 8;
    default: return 0;
    }
}

float EnviCube::sample(const char* p) const
{
    switch (dataType) {
    case 1:
        return float(quint8(*p));
    case 2:
        return float(bigEndian ? qFromBigEndian<qint16>(p) : qFromLittleEndian<qint16>(p));
    case 12:
        return float(bigEndian ? qFromBigEndian<quint16>(p) : qFromLittleEndian<quint16>(p));
    case 4:
        return bigEndian ? qFromBigEndian<float>(p) : qFromLittleEndian<float>(p);
    default: {
        quint64 bits = bigEndian ? qFromBigEndian<quint64>(p) : qFromLittleEndian<quint64>(p);
        double v;
        std::memcpy(&v, &bits, sizeof v);
        return float(v);
    }
    }
}

bool EnviCube::open(const QString& path, QString* error)
{
    headerPath = path;
    const EnviHeader header = EnviHeader::read(path);
    if (header.isNull()) {
        *error = QStringLiteral("cannot read the header %1").arg(path);
        return false;
    }
    samples = header.headerInt(QStringLiteral("samples"));
    lines = header.headerInt(QStringLiteral("lines"));
    bands = header.headerInt(QStringLiteral("bands"));
    dataType = header.headerInt(QStringLiteral("data type"));
    if (samples < 1 || lines < 1 || bands < 1) {
        *error = QStringLiteral("%1 does not give samples, lines and bands above 0").arg(path);
        return false;
    }
    if (sampleBytes() == 0) {
        *error = QStringLiteral("%1: data type %2 is not read here (1, 2, 4, 5 and 12 are)").arg(path).arg(dataType);
        return false;
    }
    const QString word = header.headerWord(QStringLiteral("interleave")).toLower();
    interleave = word == QLatin1String("bip") ? 1 : word == QLatin1String("bil") ? 2 : word.isEmpty() || word == QLatin1String("bsq") ? 3 : 0;
    if (interleave == 0) {
        *error = QStringLiteral("%1: interleave '%2' is none of bip, bil and bsq").arg(path, word);
        return false;
    }
    const int order = header.headerInt(QStringLiteral("byte order"));
    bigEndian = order == 1;
    offset = qMax(0, header.headerInt(QStringLiteral("header offset")));

    // Sizes from a header are checked before they are multiplied in 64 bits.
    if (double(samples) * double(bands) * sampleBytes() > double(1 << 30) || double(samples) * lines * bands > 1e15) {
        *error = QStringLiteral("%1: %2 x %3 x %4 samples are more than this reader takes").arg(path).arg(samples).arg(lines).arg(bands);
        return false;
    }
    const qint64 size = offset + qint64(samples) * lines * bands * sampleBytes();
    int matches = 0;
    dataPath = rawfile::findCubeFile(path, size, &matches);
    if (dataPath.isEmpty()) {
        *error = matches > 1 ? QStringLiteral("%1: %2 files of %3 bytes lie beside it; the raw file is ambiguous").arg(path).arg(matches).arg(size)
                             : QStringLiteral("%1: no raw file of %2 bytes (%3 x %4 x %5 samples of %6 bytes, offset %7) lies beside it")
                                   .arg(path).arg(size).arg(samples).arg(lines).arg(bands).arg(sampleBytes()).arg(offset);
        return false;
    }
    file_.setFileName(dataPath);
    if (!file_.open(QIODevice::ReadOnly)) {
        *error = QStringLiteral("cannot open %1: %2").arg(dataPath, file_.errorString());
        return false;
    }
    buffer_.resize(size_t(samples) * size_t(bands) * size_t(sampleBytes()));
    return true;
}

bool EnviCube::readLine(int line, float* out, QString* error)
{
    const int bytes = sampleBytes();
    const qint64 lineBytes = qint64(samples) * bands * bytes;
    auto readAt = [&](qint64 at, char* to, qint64 count) {
        if (file_.seek(at) && file_.read(to, count) == count)
            return true;
        *error = QStringLiteral("cannot read line %1 of %2: %3").arg(line).arg(dataPath, file_.errorString());
        return false;
    };
    if (line < 0 || line >= lines) {
        *error = QStringLiteral("line %1 lies outside the cube").arg(line);
        return false;
    }
    if (interleave == 3) {
        // Band after band: one row out of each band's plane.
        const qint64 rowBytes = qint64(samples) * bytes;
        for (int b = 0; b < bands; ++b)
            if (!readAt(offset + (qint64(b) * lines + line) * rowBytes, buffer_.data() + b * rowBytes, rowBytes))
                return false;
    } else if (!readAt(offset + qint64(line) * lineBytes, buffer_.data(), lineBytes)) {
        return false;
    }
    const char* p = buffer_.data();
    if (interleave == 1) {
        for (int x = 0; x < samples; ++x)
            for (int b = 0; b < bands; ++b, p += bytes)
                out[qint64(b) * samples + x] = sample(p);
    } else {
        for (qint64 i = 0; i < qint64(samples) * bands; ++i, p += bytes)
            out[i] = sample(p);
    }
    return true;
}

} // namespace cli
