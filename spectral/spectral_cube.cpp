#include "spectral/spectral_cube.h"
#include "spectral/envi_header.h"

#include <QFile>
#include <QFileInfo>
#include <cmath>
#include <cstring>
#include <vector>

int sampleBytes(quint32 dataType)
{
    switch (dataType) {
    case DataUInt16: return 2;
    case DataFloat: return 4;
    case DataUInt8: return 1;
    case DataInt32: return 4;
    default: return 0;
    }
}

namespace {

// What an ENVI data type code is read as: the cube's data type and the reader type.
struct EnviType {
    quint32 cubeType;
    int readerType;
};

bool enviType(int code, EnviType* t)
{
    switch (code) {
    case 1: *t = {DataUInt8, 3}; return true;
    case 2: case 12: *t = {DataUInt16, 1}; return true;
    case 3: case 13: *t = {DataInt32, 5}; return true;
    case 4: *t = {DataFloat, 2}; return true;
    case 5: *t = {DataFloat, 4}; return true;
    default: return false;
    }
}

} // namespace

void ZelkSpectralCube::setData(std::unique_ptr<char[]> buffer, qint64 bytes)
{
    data_ = std::move(buffer);
    dataBytes_ = data_ ? bytes : 0;
}

qint64 ZelkSpectralCube::indexOf(int column, int line, int band) const
{
    switch (layout) {
    case LayoutBIP: return (qint64(line) * columns + column) * bands + band;
    case LayoutBIL: return (qint64(line) * bands + band) * columns + column;
    case LayoutBSQ: return (qint64(band) * lines + line) * columns + column;
    default: return -1;
    }
}

bool ZelkSpectralCube::holdsSamples() const
{
    const int size = sampleBytes(dataType);
    return size > 0 && columns >= 0 && lines >= 0 && bands >= 0 && indexOf(0, 0, 0) >= 0 && dataBytes_ >= sampleCount() * size;
}

float ZelkSpectralCube::valueAt(int column, int line, int band) const
{
    const qint64 i = indexOf(column, line, band);
    return dataType == DataUInt16 ? float(samples<quint16>()[i]) : samples<float>()[i];
}

int ZelkSpectralCube::fail(int code, const QString& message)
{
    errorCode = code;
    errorText = QStringLiteral("%1: %2").arg(code).arg(message);
    return code;
}

int ZelkSpectralCube::allocate(qint64 units)
{
    if (units == 0)
        return fail(-32022, QStringLiteral("Zero units requested"));
    if (dataType != DataUInt16 && dataType != DataFloat)
        return fail(-32024, QStringLiteral("Type unsupported by allocate"));
    std::unique_ptr<char[]> buffer;
    if (units > 0 && units <= (qint64(1) << 40))
        buffer.reset(new (std::nothrow) char[size_t(units * sampleBytes(dataType))]);
    if (!buffer)
        return fail(-32023, QStringLiteral("Cannot allocate memory"));
    const qint64 bytes = units * sampleBytes(dataType);
    setData(std::move(buffer), bytes);
    return 0;
}

std::unique_ptr<ZelkSpectralCube> ZelkSpectralCube::crop(int x, int y, int w, int h, bool inPlace)
{
    const int size = sampleBytes(dataType);
    const bool supported = dataType == DataUInt16 || dataType == DataFloat || dataType == DataUInt8 ||
                           (dataType == DataInt32 && layout == LayoutBSQ);
    if (!size || (layout != LayoutBIP && layout != LayoutBIL && layout != LayoutBSQ))
        return nullptr;
    // The window must lie inside and the buffer must hold the cube; a caller's mistake
    // gets no cube rather than a read out of bounds.
    if (x < 0 || y < 0 || w < 0 || h < 0 || qint64(x) + w > columns || qint64(y) + h > lines ||
        dataBytes_ < sampleCount() * size)
        return nullptr;

    auto target = std::make_unique<ZelkSpectralCube>(dataType, layout);
    target->bands = bands;
    target->tag = tag;
    target->columns = w;
    target->lines = h;
    if (!supported) {
        // 32-bit integers are cropped in BSQ only; elsewhere the result has no data.
        if (inPlace)
            return nullptr;
        return target;
    }
    const qint64 bytes = qint64(w) * h * bands * size;
    std::unique_ptr<char[]> buffer(new char[size_t(std::max<qint64>(bytes, 1))]);
    char* out = buffer.get();
    // Copy whole runs: a line of w pixels is contiguous in BIP, a band of a line in BIL
    // and BSQ.
    if (layout == LayoutBIP) {
        for (int l = 0; l < h; ++l) {
            std::memcpy(out, data_.get() + indexOf(x, y + l, 0) * size, size_t(w) * bands * size);
            out += qint64(w) * bands * size;
        }
    } else if (layout == LayoutBIL) {
        for (int l = 0; l < h; ++l)
            for (int b = 0; b < bands; ++b) {
                std::memcpy(out, data_.get() + indexOf(x, y + l, b) * size, size_t(w) * size);
                out += qint64(w) * size;
            }
    } else {
        for (int b = 0; b < bands; ++b)
            for (int l = 0; l < h; ++l) {
                std::memcpy(out, data_.get() + indexOf(x, y + l, b) * size, size_t(w) * size);
                out += qint64(w) * size;
            }
    }
    if (!inPlace) {
        target->setData(std::move(buffer), bytes);
        return target;
    }
    columns = w;
    lines = h;
    setData(std::move(buffer), bytes);
    return nullptr;
}

int ZelkSpectralCube::reduce()
{
    if (layout != LayoutBIL)
        return fail(-32029, QStringLiteral("Reduction supported only for BIL layout"));
    if (dataType != DataUInt16)
        return fail(-32030, QStringLiteral("Unsupported data type (%1)").arg(dataType));
    const qint64 perLine = qint64(columns) * bands;
    if (lines <= 0 || dataBytes_ < perLine * lines * 2)
        return fail(-32030, QStringLiteral("Unsupported data type (%1)").arg(dataType));
    std::vector<double> sums(size_t(perLine), 0.0);
    const quint16* in = samples<quint16>();
    for (int l = 0; l < lines; ++l)
        for (qint64 i = 0; i < perLine; ++i)
            sums[size_t(i)] += in[l * perLine + i];
    std::unique_ptr<char[]> buffer(new char[size_t(std::max<qint64>(perLine * 2, 1))]);
    auto* out = reinterpret_cast<quint16*>(buffer.get());
    for (qint64 i = 0; i < perLine; ++i)
        out[i] = quint16(std::round(float(sums[size_t(i)] / lines)));
    lines = 1;
    setData(std::move(buffer), perLine * 2);
    return 0;
}

int ZelkSpectralCube::load(const QString& base, const QString& headerExtension, const QString& cubeExtension, bool search)
{
    loadMessage.clear();
    const QString headerPath = base + headerExtension;
    auto failLoad = [this](const QString& text) {
        loadMessage += text;
        return -1;
    };
    const EnviHeader header = EnviHeader::read(headerPath);
    if (header.isNull())
        return failLoad(QStringLiteral("Cannot load meta-data file '%1'").arg(headerPath));
    clearData();

    const EnviFields& fields = header.fields();
    const qint64 offset = fields.dataOffset();
    layout = fields.layout();
    if (layout == 0)
        return failLoad(QStringLiteral("Unknown ENVI file format '%1'").arg(fields.interleave));

    columns = fields.samples;
    if (columns < 0)
        return failLoad(QStringLiteral("Cannot find 'samples' field in .hdr file"));
    lines = fields.lines;
    if (lines < 0)
        return failLoad(QStringLiteral("Cannot find 'lines' field in .hdr file"));
    bands = fields.bands;
    if (bands < 0)
        return failLoad(QStringLiteral("Cannot find 'lines' field in .hdr file"));
    const int enviCode = fields.dataType;
    if (enviCode < 0)
        return failLoad(QStringLiteral("Cannot find 'data type' field in .hdr file"));

    EnviType type{};
    const bool knownType = enviType(enviCode, &type);
    const qint64 rawBytes = sampleCount() * fields.sampleBytes();
    QString cubePath = base + cubeExtension;
    if (!QFileInfo::exists(cubePath)) {
        if (!search)
            return failLoad(QStringLiteral("Did not find cube file with '%1' extension.").arg(cubeExtension));
        loadMessage += QStringLiteral("Did not find cube file with '%1' extension. Searching...").arg(cubeExtension);
        if (!knownType)
            return failLoad(QStringLiteral("Error loading spectral cube: Unknown data type"));
        int matches = 0;
        cubePath = rawfile::findCubeFile(headerPath, rawBytes + offset, &matches);
        if (matches == 1)
            loadMessage += QStringLiteral("Found matching cube file '%1'").arg(cubePath);
        else if (matches > 0)
            return failLoad(QStringLiteral("Multiple spectral cubes files with different extensions found for the header file '%1'").arg(headerPath));
        else
            return failLoad(QStringLiteral("Cannot find spectral cube file matching the header file '%1'").arg(headerPath));
    }
    if (!knownType)
        return failLoad(QStringLiteral("Error loading spectral cube: Unknown data type"));
    dataType = type.cubeType;

    // Readers of the cube index it by its sizes: a file that cannot back them is refused
    // before anything is allocated.
    const qint64 fileBytes = QFileInfo(cubePath).size() - offset;
    if (fileBytes < rawBytes)
        return failLoad(QStringLiteral("Error loading spectral cube: the file holds %1 bytes of samples, the header asks for %2")
                            .arg(std::max<qint64>(fileBytes, 0))
                            .arg(rawBytes));

    int status = 0;
    qint64 bytes = 0;
    std::unique_ptr<char[]> buffer = rawfile::readRaw(cubePath, type.readerType, offset, enviCode != 1 && fields.bigEndian(), &status, &bytes);
    if (!buffer)
        return failLoad(QStringLiteral("Error loading spectral cube: ") + rawfile::statusText(status));
    setData(std::move(buffer), bytes);
    return 0;
}

int ZelkSpectralCube::loadBinaryHeader(const QString& base, const QString& headerExtension, const QString& cubeExtension, QByteArray* out)
{
    const QString headerPath = base + headerExtension;
    const EnviHeader header = EnviHeader::read(headerPath);
    if (header.isNull()) {
        loadMessage = QStringLiteral("Cannot load meta-data file '%1'").arg(headerPath);
        return fail(-32025, loadMessage);
    }
    const int size = header.fields().headerOffset;
    if (size <= 0) {
        loadMessage += QStringLiteral("no binary header.");
        return fail(-32026, QStringLiteral("No binary header"));
    }
    const QString cubePath = base + cubeExtension;
    QFile file(cubePath);
    if (!file.open(QIODevice::ReadOnly))
        return fail(-32027, QStringLiteral("Cannot open file '%1'").arg(cubePath));
    if (file.size() < size)
        return fail(-32028, QStringLiteral("Cannot read data from file '%1'").arg(cubePath));
    *out = file.read(size);
    if (out->size() != size)
        return fail(-32028, QStringLiteral("Cannot read data from file '%1'").arg(cubePath));
    return 0;
}
