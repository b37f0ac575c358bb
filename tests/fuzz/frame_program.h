#pragma once
// The input of the frame-path fuzz target is a small program: the first byte picks one
// of the models below, then each byte picks an operation, which takes its arguments
// from the bytes that follow it. The seed writer builds programs of the same form.

#include "model_files.h"

#include <QByteArray>
#include <vector>

namespace frameprogram {

enum Op : quint8 {
    Start,
    Stop,
    Frame,        // mode, then one byte per sample (mode bit 0: the bytes of the samples)
    Cube,         // as Frame, for a whole cube
    Results,      // variable, mask, mask value: every result call on what is there
    Segmentation, // mode
    InputWidth,   // signed byte
    Layout,       // layout
    Roi,          // four signed bytes and the fill
    MinObjSize,   // signed byte
    FrameWidth,   // signed byte: the camera's frame width
    Resampling,   // which of the camera descriptions, then resampling on
    LoadModel,    // model
    Renew,        // model: a new handle with that model
    SaveImage,
    OpCount
};

// The models, each small: line-scan with either mask and with regression, snapshot
// cameras of float and unsigned 16-bit cubes.
inline std::vector<modelwriter::Project> models()
{
    using namespace modelfiles;
    modelwriter::Project foreground = lineScanProject(8);
    foreground.segmenter = segmenterBytes(leafObjects(2));
    return {lineScanProject(8), foreground, regressionProject(8, 2), regressionProject(8, 1),
            snapshotProject(3), snapshotProject(11), snapshotProject(19, 1, 2), snapshotProject(19, 0)};
}

// Byte by byte, zeros once the input is used up.
struct Reader {
    const quint8* data;
    size_t size;
    size_t at = 0;
    bool done() const { return at >= size; }
    quint8 byte() { return at < size ? data[at++] : 0; }
    int small() { return qint8(byte()); }
    // Up to n bytes; fewer when the input ends.
    QByteArray take(size_t n)
    {
        n = std::min(n, size - at);
        const QByteArray b(reinterpret_cast<const char*>(data + at), int(n));
        at += n;
        return b;
    }
};

} // namespace frameprogram
