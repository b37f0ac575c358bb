#include "spectral/envi_header.h"
#include "spectral/spectral_cube.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QMutex>
#include <QRegularExpression>
#include <QTextStream>
#include <QtEndian>
#include <algorithm>

EnviHeader EnviHeader::read(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text))
        return EnviHeader();
    // A header is a few kilobytes; a multi-megabyte "header" is not one.
    constexpr qint64 MaxHeaderBytes = 16 << 20;
    if (file.size() > MaxHeaderBytes)
        return EnviHeader();
    QTextStream in(&file);
    QString text = in.readAll();
    if (text.isNull())
        text = QLatin1String("");
    return EnviHeader(text);
}

namespace {

// The pattern of a field, compiled once per process: a scan's header is read field by
// field, and compiling costs more than matching. The fields are the readers' own few
// names, so the table stays small.
QRegularExpression fieldPattern(const QString& source)
{
    static QMutex lock;
    static QHash<QString, QRegularExpression> compiled;
    const QMutexLocker locked(&lock);
    auto it = compiled.constFind(source);
    if (it == compiled.constEnd()) {
        QRegularExpression re(source, QRegularExpression::CaseInsensitiveOption);
        re.optimize();
        it = compiled.insert(source, re);
    }
    return *it;
}

} // namespace

namespace {

std::optional<QVector<double>> firstOf(std::optional<QVector<double>> values, int count)
{
    if (!values || count < 0 || values->size() < count)
        return std::nullopt;
    values->resize(count);
    return values;
}

} // namespace

EnviHeader::EnviHeader(QString text)
    : text_(std::move(text))
{
    fields_.samples = headerInt(QStringLiteral("samples"));
    fields_.lines = headerInt(QStringLiteral("lines"));
    fields_.bands = headerInt(QStringLiteral("bands"));
    fields_.dataType = headerInt(QStringLiteral("data type"));
    fields_.byteOrder = headerInt(QStringLiteral("byte order"));
    fields_.headerOffset = headerInt(QStringLiteral("header offset"));
    fields_.interleave = headerWord(QStringLiteral("interleave")).toLower();
    fields_.wavelengths = headerDoubleList(QStringLiteral("Wavelength"));
}

quint32 EnviFields::layout() const
{
    if (interleave == QLatin1String("bil"))
        return LayoutBIL;
    if (interleave == QLatin1String("bip"))
        return LayoutBIP;
    if (interleave == QLatin1String("bsq"))
        return LayoutBSQ;
    return 0;
}

int EnviFields::sampleBytes() const
{
    switch (dataType) {
    case 1: return 1;
    case 2: case 12: return 2;
    case 3: case 4: case 13: return 4;
    case 5: return 8;
    default: return 0;
    }
}

std::optional<QVector<double>> EnviFields::wavelengthsFor(int count) const
{
    return firstOf(wavelengths, count);
}

QString EnviHeader::capture(const QString& field, const QString& suffix) const
{
    const QRegularExpressionMatch m = fieldPattern(field + suffix).match(text_);
    return m.hasMatch() ? m.captured(1) : QString();
}

int EnviHeader::headerInt(const QString& field) const
{
    bool ok = false;
    const int value = capture(field, QStringLiteral("[ ]*=[ ]*(\\d+)")).toInt(&ok);
    return ok && value >= 0 ? value : -1;
}

QString EnviHeader::headerWord(const QString& field) const
{
    const QString word = capture(field, QStringLiteral("[ ]*=[ ]*(\\w+)"));
    return word.isEmpty() ? QString() : word;
}

std::optional<QVector<double>> EnviHeader::headerDoubleList(const QString& field) const
{
    const QString list = capture(field, QStringLiteral("[ ]*=[ ]*{([ \\d,.\\n\\r\\t]+)}"));
    const QStringList parts = list.split(QLatin1Char(','), Qt::SkipEmptyParts);
    if (parts.isEmpty())
        return std::nullopt;
    QVector<double> values;
    values.reserve(parts.size());
    for (const QString& part : parts) {
        bool ok = false;
        values.append(part.trimmed().toDouble(&ok));
        if (!ok)
            return std::nullopt;
    }
    return values;
}

std::optional<QVector<double>> EnviHeader::headerDoubles(const QString& field, int count) const
{
    return firstOf(headerDoubleList(field), count);
}

QString EnviHeader::exactField(const QString& key) const
{
    const QRegularExpression re(QStringLiteral("^[ \\t]*%1[ \\t]*=[ \\t]*(\\{[^}]*\\}|[^\\r\\n]*)")
                                    .arg(QRegularExpression::escape(key).replace(QLatin1String("\\ "), QLatin1String("[ \\t]+"))),
                                QRegularExpression::CaseInsensitiveOption | QRegularExpression::MultilineOption);
    const QRegularExpressionMatch m = re.match(text_);
    if (!m.hasMatch())
        return QString();
    QString value = m.captured(1).trimmed();
    if (value.startsWith(QLatin1Char('{')))
        value = value.mid(1, value.size() - 2).trimmed();
    return value;
}

namespace rawfile {

std::unique_ptr<char[]> readRaw(const QString& path, int readerType, qint64 offset, bool swap, int* status, qint64* bytes)
{
    *bytes = 0;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        *status = -100;
        return nullptr;
    }
    qint64 size = file.size();
    if (size < 0) {
        *status = -101;
        return nullptr;
    }
    if (offset > 0) {
        if (!file.seek(offset)) {
            *status = -105;
            return nullptr;
        }
        size = std::max<qint64>(0, size - offset);
    }
    int sample;
    switch (readerType) {
    case 1: sample = 2; break;
    case 2: case 5: sample = 4; break;
    case 3: sample = 1; break;
    case 4: sample = 8; break;
    default:
        *status = -102;
        return nullptr;
    }
    size -= size % sample;
    std::unique_ptr<char[]> buffer(new (std::nothrow) char[size_t(std::max<qint64>(size, 1))]);
    if (!buffer) {
        *status = -103;
        return nullptr;
    }
    if (file.read(buffer.get(), size) != size) {
        *status = -104;
        return nullptr;
    }
    const qint64 count = size / sample;
    if (swap && readerType == 1) {
        auto* s = reinterpret_cast<quint16*>(buffer.get());
        for (qint64 i = 0; i < count; ++i)
            s[i] = qbswap(s[i]);
    }
    if (readerType == 4) {
        auto* d = reinterpret_cast<double*>(buffer.get());
        if (swap)
            for (qint64 i = 0; i < count; ++i)
                d[i] = qbswap(d[i]);
        std::unique_ptr<char[]> floats(new (std::nothrow) char[size_t(std::max<qint64>(count * 4, 1))]);
        if (!floats) {
            *status = -103;
            return nullptr;
        }
        auto* f = reinterpret_cast<float*>(floats.get());
        for (qint64 i = 0; i < count; ++i)
            f[i] = float(d[i]);
        *bytes = count * 4;
        *status = 0;
        return floats;
    }
    *bytes = size;
    *status = 0;
    return buffer;
}

QString statusText(int status)
{
    switch (status) {
    case -100: return QStringLiteral("Cannot open spectral cube file.");
    case -101: return QStringLiteral("Wrong file size.");
    case -102: return QStringLiteral("Unknown data type size.");
    case -103: return QStringLiteral("Cannot allocate memory.");
    case -104: return QStringLiteral("Error reading data from file.");
    case -105: return QStringLiteral("Error from fseek.");
    default: return QString();
    }
}

QString findCubeFile(const QString& headerPath, qint64 expectedSize, int* matches)
{
    const QFileInfo header(headerPath);
    const QString base = header.fileName().section(QLatin1Char('.'), 0, 0);
    const QDir dir = header.absoluteDir();
    const QRegularExpression name(QStringLiteral("^%1(\\..*)?$").arg(QRegularExpression::escape(base)));
    QString found;
    *matches = 0;
    for (const QFileInfo& entry : dir.entryInfoList({base + QLatin1Char('*')}, QDir::Files)) {
        if (entry.size() == expectedSize && name.match(entry.fileName()).hasMatch()) {
            ++*matches;
            found = entry.absoluteFilePath();
        }
    }
    return *matches == 1 ? found : QString();
}

} // namespace rawfile
