#pragma once
// An ENVI text header. Fields are found by a case-insensitive regular expression over
// the whole text rather than by tokenising it, which accepts the many dialects that
// cameras write; a field name also matches at the end of a longer word.

#include <QString>
#include <QVector>
#include <memory>
#include <optional>

class EnviHeader {
public:
    // Reads the whole file; isNull() tells that it could not be read.
    static EnviHeader read(const QString& path);
    explicit EnviHeader(QString text = {}) : text_(std::move(text)) {}

    bool isNull() const { return text_.isNull(); }
    const QString& text() const { return text_; }

    // A non-negative decimal integer, or -1.
    int headerInt(const QString& field) const;
    // A word, or a null string.
    QString headerWord(const QString& field) const;
    // The first `count` numbers of a braced list; none when the list is missing,
    // shorter or has an entry that is not a number.
    std::optional<QVector<double>> headerDoubles(const QString& field, int count) const;
    // All numbers of a braced list; none when it is missing, empty or not numeric.
    std::optional<QVector<double>> headerDoubleList(const QString& field) const;

private:
    QString capture(const QString& field, const QString& suffix) const;
    QString text_;
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
