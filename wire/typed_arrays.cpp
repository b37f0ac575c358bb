#include "wire/typed_arrays.h"
#include "wire/stream_reads.h"

#include <QIODevice>
#include <limits>

namespace {

using compute::HostArray;

// The two tags of a host array: the present form "Name:1" and the absent "Name=NULL".
struct Tags {
    QLatin1String present;
    QLatin1String absent;
};

const Tags FloatTags{QLatin1String("FloatArray:1"), QLatin1String("FloatArray=NULL")};
const Tags IntTags{QLatin1String("IntArray:1"), QLatin1String("IntArray=NULL")};
const Tags CharTags{QLatin1String("CharArray:1"), QLatin1String("CharArray=NULL")};
const Tags UcharTags{QLatin1String("UcharArray:1"), QLatin1String("UcharArray=NULL")};

// Reads the tag and, behind the present one, the vector. See the header for results.
template <class T> int readTagged(QDataStream& in, const Tags& tags, QVector<T>* out, bool* present)
{
    const QString tag = streamreads::value<QString>(in);
    if (tag == tags.absent) {
        out->clear();
        if (present)
            *present = false;
        return 0;
    }
    if (tag != tags.present)
        return -1;
    streamreads::read(in, *out);
    if (present)
        *present = true;
    return 0;
}

// The raw-buffer form of readTagged: the wire type W is copied into buffers of B.
template <class B, class W> int readTaggedBuffer(QDataStream& in, const Tags& tags, B** out, int* count)
{
    QVector<W> values;
    bool present = false;
    if (readTagged(in, tags, &values, &present) != 0)
        return -1;
    if (!present) {
        *out = nullptr;
        *count = 0;
        return 0;
    }
    B* buffer = new B[size_t(values.size())];
    for (int i = 0; i < values.size(); ++i)
        buffer[i] = B(values[i]);
    *out = buffer;
    *count = values.size();
    return 0;
}

// The element count that `dims` describe, when `available` entries cover it.
bool coveredCount(const HostArray::Dims& dims, qint64 available, qint64* count)
{
    for (qint64 d : dims)
        if (d < 0)
            return false;
    for (qint64 d : dims)
        if (d == 0) {
            *count = 0;
            return true;
        }
    qint64 product = 1;
    for (qint64 d : dims) {
        if (d > available || product > available / d)
            return false;
        product *= d;
    }
    *count = product;
    return true;
}

template <class T> HostArray shaped(const HostArray::Dims& dims, QVector<T> values, bool* ok)
{
    qint64 count = 0;
    const bool covered = coveredCount(dims, values.size(), &count);
    if (ok)
        *ok = covered;
    if (!covered)
        return {};
    values.resize(int(count));
    return HostArray(dims, std::move(values));
}

} // namespace

int readFloatArray(QDataStream& in, QVector<float>* out, bool* present)
{
    return readTagged(in, FloatTags, out, present);
}

int readIntArray(QDataStream& in, QVector<qint32>* out, bool* present)
{
    return readTagged(in, IntTags, out, present);
}

int readCharArray(QDataStream& in, QVector<qint8>* out, bool* present)
{
    return readTagged(in, CharTags, out, present);
}

int readUcharArray(QDataStream& in, QVector<quint8>* out, bool* present)
{
    return readTagged(in, UcharTags, out, present);
}

int readFloatArray(QDataStream& in, float** out, int* count)
{
    return readTaggedBuffer<float, float>(in, FloatTags, out, count);
}

int readIntArray(QDataStream& in, int** out, int* count)
{
    return readTaggedBuffer<int, qint32>(in, IntTags, out, count);
}

int readCharArray(QDataStream& in, char** out, int* count)
{
    return readTaggedBuffer<char, qint8>(in, CharTags, out, count);
}

int readUcharArray(QDataStream& in, unsigned char** out, int* count)
{
    return readTaggedBuffer<unsigned char, quint8>(in, UcharTags, out, count);
}

HostArray readAFArray(QDataStream& in, bool* ok)
{
    const QString tag = streamreads::value<QString>(in);
    if (tag != QLatin1String("AFArray:1")) {
        if (ok)
            *ok = false;
        return {};
    }
    qint32 type = 0;
    qint32 d[4] = {0, 0, 0, 0};
    in >> type >> d[0] >> d[1] >> d[2] >> d[3];
    const HostArray::Dims dims{d[0], d[1], d[2], d[3]};
    switch (type) {
    case int(compute::ElementType::F32): {
        QVector<float> values;
        readFloatArray(in, &values);
        return shaped(dims, std::move(values), ok);
    }
    case int(compute::ElementType::S32): {
        QVector<qint32> values;
        readIntArray(in, &values);
        return shaped(dims, std::move(values), ok);
    }
    case int(compute::ElementType::U8): {
        QVector<quint8> values;
        readUcharArray(in, &values);
        return shaped(dims, std::move(values), ok);
    }
    default:
        if (ok)
            *ok = true;
        return {};
    }
}
