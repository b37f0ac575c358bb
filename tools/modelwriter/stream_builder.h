#pragma once
// Builds the bytes of a project stream as QDataStream reads them with its defaults:
// big-endian numbers, floating point as 8-byte doubles, strings as a 32-bit byte length
// (0xFFFFFFFF for a null string) and UTF-16 big-endian units. Tags and magics are such
// strings. The plain fields are written byte by byte from that form; qt() gives the
// underlying QDataStream for Qt's own types (QColor, QVariant, QMap).
//
// Elements of the stream plug in as a struct and a free function
// `void writeTo(StreamBuilder&, const Element&)` next to it, so that a test says
// `StreamBuilder().add(element).bytes()`.

#include <QByteArray>
#include <QDataStream>
#include <QStringList>
#include <QVector>
#include <array>

namespace modelwriter {

// The "AFArray:1" element: an element type (0 float, 5 int, 7 unsigned char), four
// dimensions and the values as a tagged host array of that type. Any other type
// writes no values.
struct TypedArray {
    using Dims = std::array<qint32, 4>;
    qint32 type = 0;
    Dims dims{0, 0, 0, 0};
    QVector<float> f32;
    QVector<qint32> s32;
    QVector<quint8> u8;
    QString tag = QStringLiteral("AFArray:1"); // another text makes a wrong tag

    static TypedArray floats(Dims dims, QVector<float> values);
    static TypedArray ints(Dims dims, QVector<qint32> values);
    static TypedArray bytes(Dims dims, QVector<quint8> values);
};

class StreamBuilder {
public:
    StreamBuilder();
    StreamBuilder(const StreamBuilder&) = delete;
    StreamBuilder& operator=(const StreamBuilder&) = delete;

    // Plain fields.
    StreamBuilder& string(const QString& text); // a null QString writes the null form
    StreamBuilder& tag(const QString& text) { return string(text); }
    StreamBuilder& i32(qint32 value);
    StreamBuilder& u32(quint32 value);
    StreamBuilder& boolean(bool value);
    StreamBuilder& real(double value); // a field of type float or double
    StreamBuilder& stringList(const QStringList& list);
    StreamBuilder& bools(const QVector<bool>& values);
    StreamBuilder& raw(const QByteArray& bytes);

    // Tagged host arrays, "Name:1" and the vector.
    StreamBuilder& floatArray(const QVector<float>& values);
    StreamBuilder& intArray(const QVector<qint32>& values);
    StreamBuilder& charArray(const QVector<qint8>& values);
    StreamBuilder& ucharArray(const QVector<quint8>& values);
    // "Name=NULL": an absent element of any name.
    StreamBuilder& absent(const QString& name);
    StreamBuilder& afArray(const TypedArray& array);

    template <class Element> StreamBuilder& add(const Element& element)
    {
        writeTo(*this, element);
        return *this;
    }

    QDataStream& qt() { return out_; }
    const QByteArray& bytes() const { return bytes_; }

private:
    template <class T> void put(T value);
    // A tag, the 32-bit count and the entries, floats as doubles.
    template <class T> StreamBuilder& hostArray(const QString& tag, const QVector<T>& values);

    QByteArray bytes_;
    QDataStream out_;
};

void writeTo(StreamBuilder& out, const TypedArray& array);

} // namespace modelwriter
