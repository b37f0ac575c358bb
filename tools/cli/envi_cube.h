#pragma once
// An ENVI cube on disk, read one line at a time so that a long recording never has to
// fit in memory: the header is read with the library's lenient header reader and the
// raw file is the one beside it whose size the header predicts.

#include <QFile>
#include <QString>
#include <vector>

namespace cli {

class EnviCube {
public:
    // Reads the header and opens the raw file; false with `error` set.
    bool open(const QString& headerPath, QString* error);

    QString headerPath, dataPath;
    int samples = 0, lines = 0, bands = 0;
    int dataType = 0;   // ENVI code: 1 uint8, 2 int16, 4 float, 5 double, 12 uint16
    int interleave = 0; // 1 BIP, 2 BIL, 3 BSQ
    bool bigEndian = false;
    qint64 offset = 0;

    // Whether the samples are whole numbers that unsigned 16 bits carry (negative ones
    // read as 0).
    bool countsOnly() const { return dataType == 1 || dataType == 2 || dataType == 12; }
    // Line `line` as floats, band after band (bands x samples); false with `error` set.
    bool readLine(int line, float* out, QString* error);

private:
    int sampleBytes() const;
    float sample(const char* p) const;

    QFile file_;
    std::vector<char> buffer_;
};

} // namespace cli
