#pragma once
// An ENVI cube on disk, read one line at a time so that a long recording never has to
// fit in memory: the header is the library's header model, the fields the library does
// not use (wavelengths with their units, the reflectance scale factor, the data ignore
// value) are read by their exact names, and the data file is found by the naming
// conventions (envi_files.h).

#include "spectral/envi_header.h"
#include "spectral/spectral_cube.h"

#include <QFile>
#include <QString>
#include <QVector>
#include <optional>
#include <vector>

namespace cli {

class EnviCube {
public:
    // Reads the header and opens the data file; `path` names either. False with
    // `error` set.
    bool open(const QString& path, QString* error);

    QString headerPath, dataPath;
    bool dataBySize = false; // the data file was found by its size, not its name
    int samples = 0, lines = 0, bands = 0;
    int dataType = 0;   // ENVI code: 1 uint8, 2 int16, 4 float, 5 double, 12 uint16
    int interleave = 0; // LayoutBIP, LayoutBIL or LayoutBSQ
    bool bigEndian = false;
    qint64 offset = 0;
    QVector<double> wavelengths; // as written, in `wavelengthUnits`; empty when not stated
    QString wavelengthUnits;     // as written; empty when not stated
    double reflectanceScale = 0; // the stored value of reflectance 1; 0 when not stated
    std::optional<double> ignoreValue;

    // Whether the samples are whole numbers that unsigned 16 bits carry (negative ones
    // read as 0).
    bool countsOnly() const { return dataType == 1 || dataType == 2 || dataType == 12; }
    // Line `line` as floats, band after band (bands x samples), as stored (no scale
    // factor applied); false with `error` set.
    bool readLine(int line, float* out, QString* error);

private:
    int sampleBytes() const;
    float sample(const char* p) const;
    bool readFields(const EnviHeader& header, QString* error);

    QFile file_;
    std::vector<char> buffer_;
};

} // namespace cli
