#include "spectral/bin_header.h"

#include <cstring>

int ZelkBinHeader::fail(int code, const QString& message)
{
    errorCode = code;
    errorText = QStringLiteral("%1: %2").arg(code).arg(message);
    return code;
}

int ZelkBinHeader::init(const QByteArray& buffer)
{
    dataStart_ = -1;
    if (buffer.isNull())
        return fail(-2701, QStringLiteral("Passing NULL"));
    buffer_ = buffer;
    const int end = buffer.indexOf("::");
    // The token must leave room behind it: the last two bytes of a buffer cannot start it.
    if (end < 0 || end >= buffer.size() - 2)
        return fail(-2702, QStringLiteral("Tessaron Zelk meta-data end token (::) not found"));
    dataStart_ = end + 2;
    return 0;
}

std::unique_ptr<ZelkSpectralCube> ZelkBinHeader::spectrum(const char* token, qint64 unit, int bands) const
{
    if (dataStart_ < 0 || bands <= 0)
        return nullptr;
    const char* b = buffer_.constData();
    const qint64 last = dataStart_ - 1; // tokens stand between offset 5 and the data section
    for (qint64 i = 5; i + 2 < last; ++i) {
        if (b[i] != token[0] || b[i + 1] != token[1])
            continue;
        qint64 j = i + 2, value = 0;
        while (j < last && b[j] >= '0' && b[j] <= '9' && value < (qint64(1) << 40))
            value = value * 10 + (b[j++] - '0');
        if (j == i + 2 || j >= last || b[j] != ':')
            continue;
        const qint64 start = dataStart_ + value * unit;
        if (start + qint64(bands) * 4 > buffer_.size())
            return nullptr;
        auto cube = std::make_unique<ZelkSpectralCube>(DataFloat, LayoutBIP);
        cube->columns = cube->lines = 1;
        cube->bands = bands;
        cube->allocate(bands);
        std::memcpy(cube->data(), b + start, size_t(bands) * 4);
        return cube;
    }
    return nullptr;
}
