#include "modelwriter/stream_builder.h"

#include <QtEndian>
#include <cstring>

namespace modelwriter {

TypedArray TypedArray::floats(Dims dims, QVector<float> values)
{
    TypedArray a;
    a.type = 0, a.dims = dims, a.f32 = std::move(values);
    return a;
}

TypedArray TypedArray::ints(Dims dims, QVector<qint32> values)
{
    TypedArray a;
    a.type = 5, a.dims = dims, a.s32 = std::move(values);
    return a;
}

TypedArray TypedArray::bytes(Dims dims, QVector<quint8> values)
{
    TypedArray a;
    a.type = 7, a.dims = dims, a.u8 = std::move(values);
    return a;
}

StreamBuilder::StreamBuilder() : out_(&bytes_, QIODevice::WriteOnly) {}

template <class T> void StreamBuilder::put(T value)
{
    char b[sizeof(T)];
    qToBigEndian(value, b);
    out_.writeRawData(b, int(sizeof(T)));
}

StreamBuilder& StreamBuilder::string(const QString& text)
{
    if (text.isNull()) {
        put<quint32>(0xFFFFFFFFu);
        return *this;
    }
    put<quint32>(quint32(text.size()) * 2);
    for (QChar c : text)
        put<quint16>(c.unicode());
    return *this;
}

StreamBuilder& StreamBuilder::i32(qint32 value)
{
    put<qint32>(value);
    return *this;
}

StreamBuilder& StreamBuilder::u32(quint32 value)
{
    put<quint32>(value);
    return *this;
}

StreamBuilder& StreamBuilder::boolean(bool value)
{
    put<quint8>(value ? 1 : 0);
    return *this;
}

StreamBuilder& StreamBuilder::real(double value)
{
    quint64 bits;
    static_assert(sizeof bits == sizeof value);
    memcpy(&bits, &value, sizeof bits);
    put<quint64>(bits);
    return *this;
}

StreamBuilder& StreamBuilder::stringList(const QStringList& list)
{
    put<quint32>(quint32(list.size()));
    for (const QString& s : list)
        string(s);
    return *this;
}

StreamBuilder& StreamBuilder::bools(const QVector<bool>& values)
{
    put<quint32>(quint32(values.size()));
    for (bool b : values)
        boolean(b);
    return *this;
}

StreamBuilder& StreamBuilder::raw(const QByteArray& bytes)
{
    out_.writeRawData(bytes.constData(), bytes.size());
    return *this;
}

template <class T> StreamBuilder& StreamBuilder::hostArray(const QString& tag, const QVector<T>& values)
{
    string(tag);
    put<quint32>(quint32(values.size()));
    for (T v : values) {
        if constexpr (std::is_same_v<T, float>)
            real(v);
        else
            put<T>(v);
    }
    return *this;
}

StreamBuilder& StreamBuilder::floatArray(const QVector<float>& values)
{
    return hostArray(QStringLiteral("FloatArray:1"), values);
}

StreamBuilder& StreamBuilder::intArray(const QVector<qint32>& values)
{
    return hostArray(QStringLiteral("IntArray:1"), values);
}

StreamBuilder& StreamBuilder::charArray(const QVector<qint8>& values)
{
    return hostArray(QStringLiteral("CharArray:1"), values);
}

StreamBuilder& StreamBuilder::ucharArray(const QVector<quint8>& values)
{
    return hostArray(QStringLiteral("UcharArray:1"), values);
}

StreamBuilder& StreamBuilder::absent(const QString& name)
{
    return tag(name + QStringLiteral("=NULL"));
}

StreamBuilder& StreamBuilder::afArray(const TypedArray& array)
{
    tag(array.tag).i32(array.type);
    for (qint32 d : array.dims)
        i32(d);
    switch (array.type) {
    case 0: return floatArray(array.f32);
    case 5: return intArray(array.s32);
    case 7: return ucharArray(array.u8);
    default: return *this;
    }
}

void writeTo(StreamBuilder& out, const TypedArray& array)
{
    out.afArray(array);
}

} // namespace modelwriter
