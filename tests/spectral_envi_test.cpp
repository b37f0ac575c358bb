// ENVI headers and raw cubes: field look-up, data types, byte order, file search.

#include "spectral/envi_header.h"
#include "spectral/spectral_cube.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QtEndian>
#include <gtest/gtest.h>

namespace {

class Files {
public:
    QString path(const QString& name) const { return dir.filePath(name); }
    void write(const QString& name, const QByteArray& bytes) const
    {
        QFile f(path(name));
        ASSERT_TRUE(f.open(QIODevice::WriteOnly));
        f.write(bytes);
    }
    QTemporaryDir dir;
};

QByteArray header(int samples, int lines, int bands, int type, const char* interleave, const QString& extra = {})
{
    return QStringLiteral("ENVI\nsamples = %1\nlines   = %2\nbands = %3\nheader offset = 0\nfile type = ENVI Standard\n"
                          "data type = %4\ninterleave = %5\n%6")
        .arg(samples).arg(lines).arg(bands).arg(type).arg(QLatin1String(interleave), extra)
        .toLatin1();
}

template <class T> QByteArray raw(std::initializer_list<T> values, bool bigEndian = false)
{
    QByteArray out;
    for (T v : values) {
        T stored = bigEndian ? qToBigEndian(v) : qToLittleEndian(v);
        out.append(reinterpret_cast<const char*>(&stored), sizeof stored);
    }
    return out;
}

} // namespace

TEST(EnviHeader, FindsFieldsInAnyCaseAndDialect)
{
    const EnviHeader h(QStringLiteral("ENVI\nSAMPLES=640\nLines = 12\n bands   =  3\nInterleave = BIL\n"
                                      "wavelength = {\n 400.5, 500,\n600.25 }\nfwhm = { -1, 2 }\n"));
    EXPECT_EQ(h.headerInt(QStringLiteral("samples")), 640);
    EXPECT_EQ(h.headerInt(QStringLiteral("lines")), 12);
    EXPECT_EQ(h.headerInt(QStringLiteral("bands")), 3);
    EXPECT_EQ(h.headerInt(QStringLiteral("byte order")), -1);
    EXPECT_EQ(h.headerWord(QStringLiteral("interleave")), QStringLiteral("BIL"));
    EXPECT_EQ(*h.headerDoubles(QStringLiteral("Wavelength"), 3), (QVector<double>{400.5, 500, 600.25}));
    EXPECT_EQ(*h.headerDoubles(QStringLiteral("Wavelength"), 2), (QVector<double>{400.5, 500}));
    EXPECT_FALSE(h.headerDoubles(QStringLiteral("Wavelength"), 4)); // shorter than asked
    EXPECT_FALSE(h.headerDoubleList(QStringLiteral("fwhm")));      // a minus sign does not match
    // The name is not anchored: "lines" is found inside a longer word too.
    EXPECT_EQ(EnviHeader(QStringLiteral("headlines = 7")).headerInt(QStringLiteral("lines")), 7);
}

TEST(EnviHeader, ParsesTheCubeFieldsOnce)
{
    const EnviFields f = EnviHeader(QStringLiteral("ENVI\nsamples = 4\nlines = 2\nbands = 3\ndata type = 12\nInterleave = BSQ\n"
                                                   "byte order = 1\nheader offset = 16\nwavelength = {400, 500, 600, 700}\n"))
                             .fields();
    EXPECT_EQ(f.samples, 4);
    EXPECT_EQ(f.lines, 2);
    EXPECT_EQ(f.bands, 3);
    EXPECT_EQ(f.interleave, QStringLiteral("bsq"));
    EXPECT_EQ(f.layout(), quint32(LayoutBSQ));
    EXPECT_EQ(f.sampleBytes(), 2);
    EXPECT_TRUE(f.bigEndian());
    EXPECT_EQ(f.dataOffset(), 16);
    EXPECT_EQ(*f.wavelengthsFor(3), (QVector<double>{400, 500, 600}));
    EXPECT_FALSE(f.wavelengthsFor(5)); // shorter than asked

    // Missing fields are -1 or empty, and a missing offset is no offset.
    const EnviFields none = EnviHeader(QStringLiteral("ENVI\n")).fields();
    EXPECT_EQ(none.samples, -1);
    EXPECT_EQ(none.dataType, -1);
    EXPECT_TRUE(none.interleave.isEmpty());
    EXPECT_EQ(none.layout(), 0u);
    EXPECT_EQ(none.sampleBytes(), 0);
    EXPECT_FALSE(none.bigEndian());
    EXPECT_EQ(none.dataOffset(), 0);
    EXPECT_FALSE(none.wavelengths);

    // Every data type the readers take has its size; an interleave they don't know has no layout.
    const int sizes[][2] = {{1, 1}, {2, 2}, {3, 4}, {4, 4}, {5, 8}, {12, 2}, {13, 4}, {6, 0}, {9, 0}};
    for (const auto& size : sizes)
        EXPECT_EQ(EnviHeader(QStringLiteral("data type = %1\ninterleave = bip\n").arg(size[0])).fields().sampleBytes(), size[1]) << size[0];
    EXPECT_EQ(EnviHeader(QStringLiteral("interleave = bil\n")).fields().layout(), quint32(LayoutBIL));
    EXPECT_EQ(EnviHeader(QStringLiteral("interleave = bip\n")).fields().layout(), quint32(LayoutBIP));
    EXPECT_EQ(EnviHeader(QStringLiteral("interleave = tiled\n")).fields().layout(), 0u);
}

TEST(EnviHeader, ExactFieldsAreWholeNamesAtTheStartOfALine)
{
    const EnviHeader h(QStringLiteral("ENVI\nwavelength units = Nanometers\nwavelength = { 1e3, -2 }\n"
                                      "description = {a\n b}\nmy data ignore value = 5\n"));
    EXPECT_EQ(h.exactField(QStringLiteral("Wavelength")), QStringLiteral("1e3, -2"));
    EXPECT_EQ(h.exactField(QStringLiteral("wavelength units")), QStringLiteral("Nanometers"));
    EXPECT_EQ(h.exactField(QStringLiteral("description")), QStringLiteral("a\n b"));
    EXPECT_TRUE(h.exactField(QStringLiteral("data ignore value")).isNull());
}

TEST(RawCube, ReadsUint16BilAndSwapsWhenByteOrderIsOne)
{
    Files f;
    f.write(QStringLiteral("a.hdr"), header(2, 1, 2, 12, "BIL", QStringLiteral("byte order = 1\n")));
    f.write(QStringLiteral("a.raw"), raw<quint16>({1, 2, 0x0102, 65535}, true));
    ZelkSpectralCube cube;
    ASSERT_EQ(cube.load(f.path(QStringLiteral("a")), QStringLiteral(".hdr"), QStringLiteral(".raw"), false), 0) << cube.loadMessage.toStdString();
    EXPECT_EQ(cube.dataType, quint32(DataUInt16));
    EXPECT_EQ(cube.layout, quint32(LayoutBIL));
    ASSERT_EQ(cube.dataBytes(), 8);
    EXPECT_EQ(cube.samples<quint16>()[cube.indexOf(0, 0, 1)], 0x0102);
    EXPECT_EQ(cube.samples<quint16>()[cube.indexOf(1, 0, 1)], 65535);
    EXPECT_EQ(cube.samples<quint16>()[cube.indexOf(1, 0, 0)], 2);
}

TEST(RawCube, FloatsAreNeverSwappedButDoublesAre)
{
    Files f;
    f.write(QStringLiteral("f.hdr"), header(1, 1, 2, 4, "bip", QStringLiteral("byte order = 1\n")));
    f.write(QStringLiteral("f.raw"), raw<float>({1.5f, -2.0f}));
    ZelkSpectralCube floats;
    ASSERT_EQ(floats.load(f.path(QStringLiteral("f")), QStringLiteral(".hdr"), QStringLiteral(".raw"), false), 0);
    EXPECT_EQ(floats.samples<float>()[1], -2.0f);

    f.write(QStringLiteral("d.hdr"), header(1, 1, 2, 5, "bsq", QStringLiteral("byte order = 1\n")));
    f.write(QStringLiteral("d.raw"), raw<double>({0.25, 1e3}, true));
    ZelkSpectralCube doubles;
    ASSERT_EQ(doubles.load(f.path(QStringLiteral("d")), QStringLiteral(".hdr"), QStringLiteral(".raw"), false), 0);
    EXPECT_EQ(doubles.dataType, quint32(DataFloat));
    EXPECT_EQ(doubles.dataBytes(), 8);
    EXPECT_EQ(doubles.samples<float>()[0], 0.25f);
    EXPECT_EQ(doubles.samples<float>()[1], 1000.0f);
}

TEST(RawCube, MissingFieldsAndShortFilesFailWithTheirTexts)
{
    Files f;
    auto load = [&](const QByteArray& hdr, const QByteArray& data) {
        f.write(QStringLiteral("m.hdr"), hdr);
        f.write(QStringLiteral("m.raw"), data);
        ZelkSpectralCube cube;
        EXPECT_EQ(cube.load(f.path(QStringLiteral("m")), QStringLiteral(".hdr"), QStringLiteral(".raw"), false), -1);
        return cube.loadMessage;
    };
    EXPECT_EQ(load("samples = 2\nlines = 1\nbands = 1\ndata type = 2\n", "1234"), QStringLiteral("Unknown ENVI file format ''"));
    EXPECT_EQ(load("interleave = bxl\n", ""), QStringLiteral("Unknown ENVI file format 'bxl'"));
    EXPECT_EQ(load("interleave = bil\nlines = 1\nbands = 1\n", ""), QStringLiteral("Cannot find 'samples' field in .hdr file"));
    // A missing band count reports the line count's text.
    EXPECT_EQ(load("interleave = bil\nsamples = 1\nlines = 1\n", ""), QStringLiteral("Cannot find 'lines' field in .hdr file"));
    EXPECT_EQ(load("interleave = bil\nsamples = 1\nlines = 1\nbands = 1\n", ""), QStringLiteral("Cannot find 'data type' field in .hdr file"));
    EXPECT_EQ(load(header(2, 1, 1, 9, "bil"), "1234"), QStringLiteral("Error loading spectral cube: Unknown data type"));
    EXPECT_EQ(load(header(4, 100000, 200, 2, "bil"), "123"),
              QStringLiteral("Error loading spectral cube: the file holds 3 bytes of samples, the header asks for 160000000"));

    ZelkSpectralCube cube;
    EXPECT_EQ(cube.load(f.path(QStringLiteral("none")), QStringLiteral(".hdr"), QStringLiteral(".raw"), false), -1);
    EXPECT_EQ(cube.loadMessage, QStringLiteral("Cannot load meta-data file '%1'").arg(f.path(QStringLiteral("none.hdr"))));
}

TEST(RawCube, SearchFindsTheOneFileOfTheRightSize)
{
    Files f;
    f.write(QStringLiteral("s.hdr"), header(2, 1, 1, 2, "bil"));
    f.write(QStringLiteral("s.img"), raw<quint16>({7, 8}));
    f.write(QStringLiteral("s.log"), "not the cube, wrong size");
    f.write(QStringLiteral("sx.dat"), raw<quint16>({9, 9})); // another base name
    const QString base = f.path(QStringLiteral("s"));
    ZelkSpectralCube cube;
    EXPECT_EQ(cube.load(base, QStringLiteral(".hdr"), QStringLiteral(".raw"), false), -1);
    EXPECT_EQ(cube.loadMessage, QStringLiteral("Did not find cube file with '.raw' extension."));
    ASSERT_EQ(cube.load(base, QStringLiteral(".hdr"), QStringLiteral(".raw"), true), 0);
    EXPECT_TRUE(cube.loadMessage.endsWith(QStringLiteral("Found matching cube file '%1'").arg(f.path(QStringLiteral("s.img")))));
    EXPECT_EQ(cube.samples<quint16>()[1], 8);

    f.write(QStringLiteral("s.bin"), raw<quint16>({1, 2}));
    EXPECT_EQ(cube.load(base, QStringLiteral(".hdr"), QStringLiteral(".raw"), true), -1);
    EXPECT_TRUE(cube.loadMessage.endsWith(QStringLiteral("Multiple spectral cubes files with different extensions found for the header file '%1'")
                                              .arg(base + QStringLiteral(".hdr"))));
}

TEST(SpectralCube, CropCopiesTheWindowInEveryLayout)
{
    for (quint32 layout : {LayoutBIP, LayoutBIL, LayoutBSQ}) {
        ZelkSpectralCube cube(DataUInt16, layout);
        cube.columns = 4, cube.lines = 3, cube.bands = 2;
        ASSERT_EQ(cube.allocate(cube.sampleCount()), 0);
        for (int l = 0; l < 3; ++l)
            for (int c = 0; c < 4; ++c)
                for (int b = 0; b < 2; ++b)
                    cube.samples<quint16>()[cube.indexOf(c, l, b)] = quint16(100 * l + 10 * c + b);
        const auto window = cube.crop(1, 1, 2, 2, false);
        ASSERT_TRUE(window);
        EXPECT_EQ(window->columns, 2);
        EXPECT_EQ(window->lines, 2);
        for (int l = 0; l < 2; ++l)
            for (int c = 0; c < 2; ++c)
                for (int b = 0; b < 2; ++b)
                    EXPECT_EQ(window->samples<quint16>()[window->indexOf(c, l, b)], 100 * (l + 1) + 10 * (c + 1) + b) << layout;
        EXPECT_EQ(cube.crop(0, 0, 0, 3, true), nullptr);
        EXPECT_EQ(cube.columns, 0);
        EXPECT_EQ(cube.dataBytes(), 0);
        EXPECT_EQ(cube.crop(3, 0, 2, 1, false), nullptr); // a window outside is refused
    }
    ZelkSpectralCube ints(DataInt32, LayoutBIP);
    ints.columns = ints.lines = ints.bands = 1;
    ints.setData(std::unique_ptr<char[]>(new char[4]()), 4);
    const auto window = ints.crop(0, 0, 1, 1, false);
    ASSERT_TRUE(window);
    EXPECT_EQ(window->data(), nullptr); // integers are cropped in BSQ only
}

TEST(SpectralCube, ReduceAveragesTheLinesAndRounds)
{
    ZelkSpectralCube cube(DataUInt16, LayoutBIL);
    cube.columns = 2, cube.lines = 2, cube.bands = 1;
    ASSERT_EQ(cube.allocate(4), 0);
    quint16* s = cube.samples<quint16>();
    s[0] = 1, s[1] = 10, s[2] = 2, s[3] = 13; // means 1.5 and 11.5
    ASSERT_EQ(cube.reduce(), 0);
    EXPECT_EQ(cube.lines, 1);
    EXPECT_EQ(cube.samples<quint16>()[0], 2);
    EXPECT_EQ(cube.samples<quint16>()[1], 12);
    EXPECT_EQ(cube.reduce(), 0); // one line stays as it is
    EXPECT_EQ(cube.samples<quint16>()[1], 12);

    cube.layout = LayoutBIP;
    EXPECT_EQ(cube.reduce(), -32029);
    EXPECT_EQ(cube.errorText, QStringLiteral("-32029: Reduction supported only for BIL layout"));
    ZelkSpectralCube floats(DataFloat, LayoutBIL);
    EXPECT_EQ(floats.reduce(), -32030);
    EXPECT_EQ(floats.allocate(0), -32022);
    ZelkSpectralCube bytes(DataUInt8, LayoutBIL);
    EXPECT_EQ(bytes.allocate(4), -32024);
}
