#pragma once
// An ENVI text header. Fields are found by a case-insensitive regular expression over
// the whole text rather than by tokenising it, which accepts the many dialects that
// cameras write; a field name also matches at the end of a longer word.

#include <QString>
#include <QVector>
#include <algorithm>
#include <memory>
#include <optional>

// The fields that shape and locate a cube, parsed once when the header is made. A
// number that is missing or not a non-negative integer is -1.
struct EnviFields {
    int samples = -1, lines = -1, bands = -1;
    int dataType = -1;     // ENVI code
    int byteOrder = -1;    // 1: big-endian samples
    int headerOffset = -1; // bytes in front of the samples
    QString interleave;    // the word as written, in lower case; empty when missing
    std::optional<QVector<double>> wavelengths; // the whole list; none when missing, empty or not numeric

    bool bigEndian() const { return byteOrder == 1; }
    qint64 dataOffset() const { return std::max(0, headerOffset); }
    // The layout that the interleave names (LayoutBIP, LayoutBIL, LayoutBSQ); 0 for any
    // other word or none.
    quint32 layout() const;
    // Bytes of one stored sample: 1 for code 1, 2 for 2 and 12, 4 for 3, 4 and 13, 8 for
    // 5; 0 for any other code.
    int sampleBytes() const;
    // The first `count` wavelengths; none when the list is missing or shorter.
    std::optional<QVector<double>> wavelengthsFor(int count) const;
};

class EnviHeader {
public:
    // Reads the whole file; isNull() tells that it could not be read.
    static EnviHeader read(const QString& path);
    explicit EnviHeader(QString text = {});

    bool isNull() const { return text_.isNull(); }
    const QString& text() const { return text_; }
    const EnviFields& fields() const { return fields_; }

    // The fields of one camera family, by the same lenient match as fields():
    // A non-negative decimal integer, or -1.
    int headerInt(const QString& field) const;
    // A word, or a null string.
    QString headerWord(const QString& field) const;
    // The first `count` numbers of a braced list; none when the list is missing,
    // shorter or has an entry that is not a number.
    std::optional<QVector<double>> headerDoubles(const QString& field, int count) const;
    // All numbers of a braced list; none when it is missing, empty or not numeric.
    std::optional<QVector<double>> headerDoubleList(const QString& field) const;

    // The value of the field named exactly `key` (any case, at the start of a line): the
    // text inside its braces, or the rest of its line. A null string when it is missing.
    QString exactField(const QString& key) const;

private:
    QString capture(const QString& field, const QString& suffix) const;
    QString text_;
    EnviFields fields_;
};

// Files of a cube's raw samples.
namespace rawfile {

// Reader types: 1 uint16, 2 float, 3 uint8, 4 double (read as float), 5 int32.
// Returns the samples after `offset` bytes, or null with `status` set to -100 ... -105.
// `swap` swaps the bytes of types 1 and 4 only.
std::unique_ptr<char[]> readRaw(const QString& path, int readerType, qint64 offset, bool swap, int* status, qint64* bytes);
QString statusText(int status);

// The one file beside the header whose name is the header's base name plus any
// extension and whose size is `expectedSize`; `matches` counts the candidates.
QString findCubeFile(const QString& headerPath, qint64 expectedSize, int* matches);

} // namespace rawfile
