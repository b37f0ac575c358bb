#include "envi_cube.h"

#include "envi_files.h"
#include "spectral/envi_header.h"

#include <QFileInfo>
#include <QRegularExpression>
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

QString enviField(const QString& text, const QString& key)
{
    const QRegularExpression re(QStringLiteral("^[ \\t]*%1[ \\t]*=[ \\t]*(\\{[^}]*\\}|[^\\r\\n]*)")
                                    .arg(QRegularExpression::escape(key).replace(QLatin1String("\\ "), QLatin1String("[ \\t]+"))),
                                QRegularExpression::CaseInsensitiveOption | QRegularExpression::MultilineOption);
    const QRegularExpressionMatch m = re.match(text);
    if (!m.hasMatch())
        return QString();
    QString value = m.captured(1).trimmed();
    if (value.startsWith(QLatin1Char('{')))
        value = value.mid(1, value.size() - 2).trimmed();
    return value;
}

bool EnviCube::readFields(const QString& text, QString* error)
{
    auto number = [&](const QString& key, double* out) {
        const QString value = enviField(text, key);
        if (value.isNull())
            return true;
        bool ok = false;
        *out = value.toDouble(&ok);
        if (!ok)
            *error = QStringLiteral("%1: '%2 = %3' is not a number").arg(headerPath, key, value);
        return ok;
    };
    const QString list = enviField(text, QStringLiteral("wavelength"));
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
    wavelengthUnits = enviField(text, QStringLiteral("wavelength units"));
    double ignore = 0;
    if (!number(QStringLiteral("reflectance scale factor"), &reflectanceScale) || !number(QStringLiteral("data ignore value"), &ignore))
        return false;
    if (!enviField(text, QStringLiteral("data ignore value")).isNull())
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
    samples = header.headerInt(QStringLiteral("samples"));
    lines = header.headerInt(QStringLiteral("lines"));
    bands = header.headerInt(QStringLiteral("bands"));
    dataType = header.headerInt(QStringLiteral("data type"));
    if (samples < 1 || lines < 1 || bands < 1) {
        *error = QStringLiteral("%1 does not give samples, lines and bands above 0").arg(headerPath);
        return false;
    }
    if (sampleBytes() == 0) {
        *error = QStringLiteral("%1: data type %2 is not read here (1, 2, 4, 5 and 12 are)").arg(headerPath).arg(dataType);
        return false;
    }
    const QString word = header.headerWord(QStringLiteral("interleave")).toLower();
    interleave = word == QLatin1String("bip") ? 1 : word == QLatin1String("bil") ? 2 : word.isEmpty() || word == QLatin1String("bsq") ? 3 : 0;
    if (interleave == 0) {
        *error = QStringLiteral("%1: interleave '%2' is none of bip, bil and bsq").arg(headerPath, word);
        return false;
    }
    const int order = header.headerInt(QStringLiteral("byte order"));
    bigEndian = order == 1;
    offset = qMax(0, header.headerInt(QStringLiteral("header offset")));
    if (!readFields(header.text(), error))
        return false;

    // Sizes from a header are checked before they are multiplied in 64 bits.
    if (double(samples) * double(bands) * sampleBytes() > double(1 << 30) || double(samples) * lines * bands > 1e15) {
        *error = QStringLiteral("%1: %2 x %3 x %4 samples are more than this reader takes").arg(headerPath).arg(samples).arg(lines).arg(bands);
        return false;
    }
    const qint64 size = offset + qint64(samples) * lines * bands * sampleBytes();
    const QString interleaveName = interleave == 1 ? QStringLiteral("bip") : interleave == 2 ? QStringLiteral("bil") : QStringLiteral("bsq");
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
