#pragma once
// Reading Qt containers from model streams without trusting their counts. Qt reads a
// count and reserves room for it before it reads a single element, so a damaged count
// could ask for gigabytes; here a count that the rest of the stream cannot hold ends
// the read as a truncated stream does: the container is empty, the stream is at its
// end and its status says so.

#include <QColor>
#include <QDataStream>
#include <QIODevice>
#include <QMap>
#include <QStringList>
#include <QVariant>
#include <QVector>
#include <type_traits>

namespace streamreads {

// The fewest bytes one element takes on the wire.
template <typename T>
constexpr qint64 wireSize()
{
    if constexpr (std::is_same_v<T, float> || std::is_same_v<T, double>)
        return 8; // floats travel as doubles
    else if constexpr (std::is_arithmetic_v<T>)
        return qint64(sizeof(T));
    else
        return 4; // strings, colours, variants and pairs begin with at least four bytes
}

inline qint64 remaining(QDataStream& in)
{
    return in.device() ? in.device()->bytesAvailable() : 0;
}

// Leaves the stream as a read past its end would.
inline void exhaust(QDataStream& in)
{
    if (in.device())
        in.device()->seek(in.device()->size());
    in.setStatus(QDataStream::ReadPastEnd);
}

// True when the count ahead of the stream's position fits into what is left of it;
// otherwise the stream is exhausted. The count is only peeked at.
template <typename Element>
bool countFits(QDataStream& in, qint64 minimumPerEntry = wireSize<Element>())
{
    // Qt reads a container even from a stream whose status has failed (it resets the
    // status for the read and restores it after), so the count is checked in any case.
    QIODevice* d = in.device();
    if (!d)
        return true;
    const QByteArray head = d->peek(4);
    if (head.size() < 4)
        return true; // Qt's read sees the truncation itself
    const quint32 n = (quint32(quint8(head[0])) << 24) | (quint32(quint8(head[1])) << 16) | (quint32(quint8(head[2])) << 8) |
                      quint32(quint8(head[3]));
    if (qint64(n) * minimumPerEntry <= remaining(in) - 4)
        return true;
    exhaust(in);
    return false;
}

// A vector or list of T whose count is checked first.
template <typename T, template <typename> class Sequence>
QDataStream& readSequence(QDataStream& in, Sequence<T>& v)
{
    if (countFits<T>(in))
        in >> v;
    else
        v.clear();
    return in;
}

template <typename T>
QDataStream& read(QDataStream& in, QVector<T>& v)
{
    return readSequence(in, v);
}

template <typename T>
QDataStream& read(QDataStream& in, QList<T>& v)
{
    return readSequence(in, v);
}

// Qt reads a string or byte array in blocks of a megabyte, each allocated before it is
// read, so that a damaged length costs megabytes before the read fails. True when the
// length ahead fits into what is left (or is the null marker, or an odd byte count of
// a string, which Qt refuses before allocating); otherwise the stream is exhausted, as
// Qt's own failed read leaves it.
template <typename T>
bool lengthFits(QDataStream& in)
{
    QIODevice* d = in.device();
    const QByteArray head = d ? d->peek(4) : QByteArray();
    if (head.size() < 4)
        return true;
    const quint32 n = (quint32(quint8(head[0])) << 24) | (quint32(quint8(head[1])) << 16) | (quint32(quint8(head[2])) << 8) |
                      quint32(quint8(head[3]));
    if (n == 0xFFFFFFFFu || (std::is_same_v<T, QString> && (n & 1)) || qint64(n) <= remaining(in) - 4)
        return true;
    exhaust(in);
    return false;
}

// A plain value or string.
template <typename T>
T value(QDataStream& in)
{
    T v{};
    if constexpr (std::is_same_v<T, QString> || std::is_same_v<T, QByteArray>)
        if (!lengthFits<T>(in))
            return v;
    in >> v;
    return v;
}

// As Qt reads a list: even from a stream that has failed already, whose status it
// restores afterwards; a list whose read fails is empty.
inline QDataStream& read(QDataStream& in, QStringList& v)
{
    v.clear();
    if (!countFits<QString>(in))
        return in;
    const QDataStream::Status before = in.status();
    in.resetStatus();
    quint32 n = 0;
    in >> n;
    for (quint32 i = 0; i < n && in.status() == QDataStream::Ok; ++i)
        v.append(value<QString>(in));
    if (in.status() != QDataStream::Ok)
        v.clear();
    if (before != QDataStream::Ok) {
        in.resetStatus();
        in.setStatus(before);
    }
    return in;
}

template <typename K, typename V>
QDataStream& read(QDataStream& in, QMap<K, V>& m)
{
    if (countFits<K>(in, wireSize<K>() + wireSize<V>()))
        in >> m;
    else
        m.clear();
    return in;
}

// Colours as QDataStream has them: a colour-model byte, then alpha, red, green, blue and a pad
// word. Qt takes the colour-model byte as it stands, so a damaged one would put an enum value
// outside its range into the colour; such an entry reads as an invalid colour.
inline QDataStream& read(QDataStream& in, QVector<QColor>& v)
{
    v.clear();
    if (!countFits<QColor>(in, 11))
        return in;
    quint32 n = 0;
    in >> n;
    for (quint32 i = 0; i < n && in.status() == QDataStream::Ok; ++i) {
        QColor c;
        const QByteArray spec = in.device() ? in.device()->peek(1) : QByteArray();
        if (spec.size() == 1 && quint8(spec[0]) <= quint8(QColor::ExtendedRgb)) {
            in >> c;
        } else {
            in.skipRawData(11);
            c = QColor();
        }
        v.append(c);
    }
    if (in.status() != QDataStream::Ok)
        v.clear();
    return in;
}

} // namespace streamreads
