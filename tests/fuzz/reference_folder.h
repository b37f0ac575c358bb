#pragma once
// The reference form of the scan-reader fuzz target: a folder of files for the
// correction loaders. After the byte that picks the loader come the files, each a byte
// that picks its name, two bytes of length (little-endian) and its contents. The seed
// writer builds folders of the same form.

#include "model_files.h"
#include "modelwriter/scan_writer.h"

#include <QByteArray>
#include <vector>

namespace referencefolder {

// The names that the three loaders look for: a reference pair, a capture folder with
// its references, a ".trf" scan with references named after it or in its folder.
inline const char* const Names[] = {
    "whiteReference.hdr", "whiteReference.bin", "darkReference.hdr", "darkReference.bin",
    "scan/capture/scan.hdr", "scan/capture/scan.raw", "scan/capture/WHITEREF_scan.hdr", "scan/capture/WHITEREF_scan.raw",
    "scan/capture/DARKREF_scan.hdr", "scan/capture/DARKREF_scan.raw",
    "scan.hdr", "scan.trf", "scan_whiteref.hdr", "scan_whiteref.trf", "scan_darkref.hdr", "scan_darkref.trf",
    "whiteref.hdr", "whiteref.bin", "darkref.hdr", "darkref.bin",
};
constexpr int NameCount = int(sizeof(Names) / sizeof(Names[0]));

constexpr int Width = 4, Height = 3;

// One model per loader: camera type 10 (the pair), 1 (the capture folder), 19 on
// line-scan frames and 19 on snapshot cubes; 4 bands, 4 pixels wide, cubes of 3 lines.
inline std::vector<modelwriter::Project> models()
{
    std::vector<modelwriter::Project> out;
    for (auto [type, acqType] : {std::pair{10, 0}, {1, 0}, {19, 3}, {19, 0}}) {
        modelwriter::Project p = modelfiles::lineScanProject(Width);
        p.type = type;
        p.acqType = acqType;
        p.images[0].imageType = type;
        p.images[0].height = Height;
        if (type == 1)
            p.images[0].tailText = QString();
        out.push_back(p);
    }
    return out;
}

// A file of the folder as the input holds it.
inline QByteArray file(int name, const QByteArray& contents)
{
    const int n = std::min(contents.size(), 0xffff);
    return QByteArray(1, char(name)) + char(n & 0xff) + char(n >> 8) + contents.left(n);
}

// The header at `name` and the samples in the file after it.
inline QByteArray scan(int name, const modelwriter::EnviScan& s)
{
    return file(name, modelwriter::enviHeaderText(s)) + file(name + 1, s.binaryHeader + s.data);
}

} // namespace referencefolder
