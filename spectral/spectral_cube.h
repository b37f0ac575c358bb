#pragma once
// A hyperspectral image in memory: a block of samples with a data type and a layout.
// The codes are shared by the whole library, the exported input settings included.

#include <QString>
#include <QtGlobal>
#include <memory>

class ZelkResampler;

enum CubeDataType : quint32 { DataUInt16 = 1, DataFloat = 2, DataUInt8 = 3, DataInt32 = 5 };
enum CubeLayout : quint32 { LayoutBIP = 1, LayoutBIL = 2, LayoutBSQ = 3 };

// Bytes of one sample of a data type; 0 for an unknown code.
int sampleBytes(quint32 dataType);

class ZelkSpectralCube {
public:
    ZelkSpectralCube() = default;
    ZelkSpectralCube(quint32 dataType, quint32 layout) : dataType(dataType), layout(layout) {}

    quint32 dataType = 0;
    quint32 layout = 0;
    int columns = 0; // samples per line
    int lines = 0;
    int bands = 0;
    quint64 tag = 0;
    QString loadMessage; // warnings and errors of the last load
    int errorCode = 0;
    QString errorText; // "code: message"

    char* data() { return data_.get(); }
    const char* data() const { return data_.get(); }
    qint64 dataBytes() const { return dataBytes_; }
    // Takes ownership of a buffer of `bytes` bytes allocated with new[].
    void setData(std::unique_ptr<char[]> buffer, qint64 bytes);
    void clearData() { setData(nullptr, 0); }
    template <class T> T* samples() { return reinterpret_cast<T*>(data_.get()); }
    template <class T> const T* samples() const { return reinterpret_cast<const T*>(data_.get()); }

    // Sample count that the sizes give, in 64 bits.
    qint64 sampleCount() const { return qint64(columns) * lines * bands; }
    // Index of a sample in the buffer by the layout.
    qint64 indexOf(int column, int line, int band) const;
    // Whether the buffer holds every sample that the sizes, layout and data type give.
    bool holdsSamples() const;
    // A sample of a uint16 or float cube as a float.
    float valueAt(int column, int line, int band) const;

    // Room for `units` samples of data type 1 or 2, not cleared.
    int allocate(qint64 units);
    // The window at (x, y), w columns by h lines: a new cube, or with `inPlace` this
    // cube's buffer replaced and null returned. The window must lie inside.
    std::unique_ptr<ZelkSpectralCube> crop(int x, int y, int w, int h, bool inPlace);
    // One line: the rounded mean over the lines of a BIL uint16 cube.
    int reduce();
    // A new uint16 BIL cube on the resampler's band grid, or null with `status` and the
    // error fields set.
    std::unique_ptr<ZelkSpectralCube> resampled(const ZelkResampler& resampler, int* status);

    // Reads base + headerExtension (ENVI header) and base + cubeExtension (raw
    // samples). With `search`, a raw file of the right size and another extension is
    // looked for. 0, or -1 with the reason in loadMessage.
    int load(const QString& base, const QString& headerExtension, const QString& cubeExtension, bool search);
    // The first "header offset" bytes of the raw file: a binary header that some
    // cameras put before the samples.
    int loadBinaryHeader(const QString& base, const QString& headerExtension, const QString& cubeExtension, QByteArray* header);

private:
    int fail(int code, const QString& message);

    std::unique_ptr<char[]> data_;
    qint64 dataBytes_ = 0;
};
