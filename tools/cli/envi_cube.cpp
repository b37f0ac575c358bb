#include "envi_cube.h"

#include "envi_files.h"

#include <QFileInfo>
#include <cmath>
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

bool EnviCube::readFields(const EnviHeader& header, QString* error)
{
    auto number = [&](const QString& key, double* out) {
        const QString value = header.exactField(key);
        if (value.isNull())
            return true;
        bool ok = false;
        *out = value.toDouble(&ok);
        if (!ok)
            *error = QStringLiteral("%1: '%2 = %3' is not a number").arg(headerPath, key, value);
        return ok;
    };
    const QString list = header.exactField(QStringLiteral("wavelength"));
    if (!list.isEmpty()) {
        for (const QString& part : list.split(QLatin1Char(','), Qt::SkipEmptyParts)) {
            bool ok = false;
            wavelengths << part.trimmed().toDouble(&ok);
            if (!ok) {
                *error = QStringLiteral("%1: the wavelength '%2' is not a number").arg(headerPath, part.trimmed());
                return false;
            }
        }
        if (wavelengths.size() != bands) {
            *error = QStringLiteral("%1 lists %2 wavelengths for %3 bands").arg(headerPath).arg(wavelengths.size()).arg(bands);
            return false;
        }
    }
    wavelengthUnits = header.exactField(QStringLiteral("wavelength units"));
    double ignore = 0;
    if (!number(QStringLiteral("reflectance scale factor"), &reflectanceScale) || !number(QStringLiteral("data ignore value"), &ignore))
        return false;
    if (!header.exactField(QStringLiteral("data ignore value")).isNull())
        ignoreValue = ignore;
    if (reflectanceScale < 0 || !std::isfinite(reflectanceScale)) {
        *error = QStringLiteral("%1: the reflectance scale factor %2 is not a positive number").arg(headerPath).arg(reflectanceScale);
        return false;
    }
    return true;
}

bool EnviCube::open(const QString& path, QString* error)
{
    headerPath = headerOf(path);
    if (headerPath.isEmpty()) {
        *error = QStringLiteral("%1 has no header: neither it ends in .hdr nor %1.hdr or a .hdr of its base name exists").arg(path);
        return false;
    }
    const EnviHeader header = EnviHeader::read(headerPath);
    if (header.isNull()) {
        *error = QStringLiteral("cannot read the header %1").arg(headerPath);
        return false;
    }
    // This reader takes cubes that other programs wrote, where the library reads its
    // cameras' own files, and so departs from the library's reading in three places: data
    // type 2 is signed 16 bits (the library reads it as unsigned), a missing interleave is
    // BSQ, the format's default (the library refuses it), and the wavelengths are read by
    // their exact name, every entry a number and one per band (readFields).
    const EnviFields& fields = header.fields();
    samples = fields.samples;
    lines = fields.lines;
    bands = fields.bands;
    dataType = fields.dataType;
    if (samples < 1 || lines < 1 || bands < 1) {
        *error = QStringLiteral("%1 does not give samples, lines and bands above 0").arg(headerPath);
        return false;
    }
    if (sampleBytes() == 0) {
        *error = QStringLiteral("%1: data type %2 is not read here (1, 2, 4, 5 and 12 are)").arg(headerPath).arg(dataType);
        return false;
    }
    interleave = fields.interleave.isEmpty() ? LayoutBSQ : int(fields.layout());
    if (interleave == 0) {
        *error = QStringLiteral("%1: interleave '%2' is none of bip, bil and bsq").arg(headerPath, fields.interleave);
        return false;
    }
    bigEndian = fields.bigEndian();
    offset = fields.dataOffset();
    if (!readFields(header, error))
        return false;

    // Sizes from a header are checked before they are multiplied in 64 bits.
    if (double(samples) * double(bands) * sampleBytes() > double(1 << 30) || double(samples) * lines * bands > 1e15) {
        *error = QStringLiteral("%1: %2 x %3 x %4 samples are more than this reader takes").arg(headerPath).arg(samples).arg(lines).arg(bands);
        return false;
    }
    const qint64 size = offset + qint64(samples) * lines * bands * sampleBytes();
    const QString interleaveName = interleave == LayoutBIP ? QStringLiteral("bip") : interleave == LayoutBIL ? QStringLiteral("bil") : QStringLiteral("bsq");
    // A data file named on the command line is the one used.
    if (headerPath != path) {
        dataPath = path;
        const qint64 bytes = QFileInfo(path).size();
        if (bytes < size) {
            *error = QStringLiteral("the data file %1 is too short: it holds %2 bytes, the header %3 describes %4")
                         .arg(path).arg(bytes).arg(headerPath).arg(size);
            return false;
        }
    } else {
        dataPath = dataFileOf(headerPath, size, interleaveName, &dataBySize, error);
        if (dataPath.isEmpty())
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
    if (interleave == LayoutBSQ) {
        // Band after band: one row out of each band's plane.
        const qint64 rowBytes = qint64(samples) * bytes;
        for (int b = 0; b < bands; ++b)
            if (!readAt(offset + (qint64(b) * lines + line) * rowBytes, buffer_.data() + b * rowBytes, rowBytes))
                return false;
    } else if (!readAt(offset + qint64(line) * lineBytes, buffer_.data(), lineBytes)) {
        return false;
    }
    const char* p = buffer_.data();
    if (interleave == LayoutBIP) {
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
