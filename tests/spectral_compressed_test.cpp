// Compressed cubes, the binary header tokens and the mask stream.

#include "modelwriter/compressed_cube_writer.h"
#include "spectral/bin_header.h"
#include "spectral/decompressor.h"
#include "spectral/mask_stream.h"

#include <QDataStream>
#include <cstring>
#include <gtest/gtest.h>

using modelwriter::CompressedCube;

namespace {

// 3 x 2 pixels, 2 bands; the mask picks (1,0), (2,0) and (0,1).
CompressedCube smallCube()
{
    CompressedCube c;
    c.width = 3, c.height = 2, c.bands = 2;
    c.mask = {0, 1, 7, 2, 0, 0};
    for (int y = 0; y < 2; ++y)
        for (int b = 0; b < 2; ++b)
            for (int x = 0; x < 3; ++x)
                c.samples.append(quint16(1000 + 100 * y + 10 * b + x));
    return c;
}

int decompress(ZelkDecompressor& d, const QByteArray& bytes)
{
    return d.decompress(bytes.constData(), bytes.size());
}

} // namespace

TEST(CompressedCube, RestoresTheMaskedSpectraAndZerosElsewhere)
{
    const CompressedCube c = smallCube();
    ZelkDecompressor d;
    ASSERT_EQ(decompress(d, modelwriter::writeCompressedCube(c)), 0) << d.errorText.toStdString();
    ASSERT_TRUE(d.cube && d.mask);
    EXPECT_EQ(d.cube->layout, quint32(LayoutBIL));
    EXPECT_EQ(d.cube->bands, 2);
    for (int y = 0; y < 2; ++y)
        for (int x = 0; x < 3; ++x) {
            const quint8 m = c.mask[y * 3 + x];
            EXPECT_EQ(d.mask->pixelIndex(x, y), m);
            for (int b = 0; b < 2; ++b)
                EXPECT_EQ(d.cube->samples<quint16>()[d.cube->indexOf(x, y, b)], m ? 1000 + 100 * y + 10 * b + x : 0);
        }
}

TEST(CompressedCube, AllZeroMaskReadsNoSample)
{
    CompressedCube c = smallCube();
    c.mask.fill(0);
    ZelkDecompressor d;
    ASSERT_EQ(decompress(d, modelwriter::writeCompressedCube(c)), 0);
    for (qint64 i = 0; i < d.cube->sampleCount(); ++i)
        EXPECT_EQ(d.cube->samples<quint16>()[i], 0);
}

TEST(CompressedCube, CorruptBuffersFailWithTheirCodes)
{
    const QByteArray good = modelwriter::writeCompressedCube(smallCube());
    auto code = [](QByteArray bytes) {
        ZelkDecompressor d;
        const int result = decompress(d, bytes);
        return std::pair{result, d.errorCode};
    };
    EXPECT_EQ(code(good.left(23)).first, -3401);
    EXPECT_NE(code(good.left(24)).first, -3401); // 24 bytes pass the size test
    QByteArray b = good;
    b[0] = 'X';
    EXPECT_EQ(code(b).first, -3402);
    b = good, b[3] = '2';
    EXPECT_EQ(code(b).first, -3403);
    b = good, b[4] = 1;
    EXPECT_EQ(code(b).first, -3404);
    b = good, b[5] = 2;
    EXPECT_EQ(code(b).first, -3404);
    b = good, b[28] = 'm'; // "msk1": the mask fails, decompress says -1
    EXPECT_EQ(code(b), (std::pair{-1, -3401}));
    b = good, b[12] = char(0xff); // mask block beyond the buffer
    EXPECT_EQ(code(b).first, -3406);
    b = good, b[28 + 8 + 1 + 3] = char(0x80); // first run length negative
    EXPECT_EQ(code(b), (std::pair{-1, -3405}));
    EXPECT_EQ(code(good.left(good.size() - 1)).first, -3407); // pixel block one byte short
}

TEST(BinHeader, TokensPointIntoTheDataSectionInBytesAndFloats)
{
    // "WR123:" counts bytes, "DR123:" floats: 123 and 492 bytes behind "::".
    QByteArray header("HEAD WR123:DR123:::");
    const int data = header.size() - 1; // the last ':' of ":::" starts the data section
    header.append(QByteArray(600, '\0'));
    const float white[2] = {0.5f, 0.75f}, dark[2] = {10.0f, 20.0f};
    std::memcpy(header.data() + data + 123, white, sizeof white);
    std::memcpy(header.data() + data + 492, dark, sizeof dark);
    ZelkBinHeader h;
    ASSERT_EQ(h.init(header), 0);
    const auto w = h.whiteReference(2), d = h.darkReference(2);
    ASSERT_TRUE(w && d);
    EXPECT_EQ(w->samples<float>()[1], 0.75f);
    EXPECT_EQ(d->samples<float>()[0], 10.0f);
    EXPECT_EQ(h.darkReference(100), nullptr); // past the end of the buffer

    EXPECT_EQ(h.init(QByteArray()), -2701);
    EXPECT_EQ(h.init(QByteArray("WR1:no end token")), -2702);
    EXPECT_EQ(h.errorText, QStringLiteral("-2702: Tessaron Zelk meta-data end token (::) not found"));
    EXPECT_EQ(h.init(QByteArray("::")), -2702);
}

TEST(MaskStream, RunsSpanRowsAndRoundTrip)
{
    QImage image = maskruns::blank(4, 3);
    // Row 0: 0 0 5 5 / row 1: 5 5 5 0 / row 2: 0 0 0 0 -> runs (0,2) (5,5) (0,5).
    for (int x : {2, 3})
        image.setPixel(x, 0, 5);
    for (int x : {0, 1, 2})
        image.setPixel(x, 1, 5);
    qint64 nonZero = 0;
    const QByteArray stream = maskstream::encode(image, &nonZero);
    EXPECT_EQ(nonZero, 5);
    QDataStream s(stream);
    QString tag;
    qint32 w, h;
    s >> tag >> w >> h;
    EXPECT_EQ(tag, QStringLiteral("ZBA01"));
    std::vector<std::pair<int, int>> runs;
    while (!s.atEnd()) {
        quint8 v;
        qint32 n;
        s >> v >> n;
        runs.emplace_back(v, n);
    }
    EXPECT_EQ(runs, (std::vector<std::pair<int, int>>{{0, 2}, {5, 5}, {0, 5}}));

    qint64 decodedNonZero = 0;
    const QImage back = maskstream::decode(stream, &decodedNonZero);
    EXPECT_EQ(decodedNonZero, 5);
    for (int y = 0; y < 3; ++y)
        for (int x = 0; x < 4; ++x)
            EXPECT_EQ(back.pixelIndex(x, y), image.pixelIndex(x, y));
    EXPECT_TRUE(maskstream::encode(QImage(2, 2, QImage::Format_RGB32)).isEmpty());
}

TEST(MaskStream, CropKeepsTheWindowAndEmptyMeansZero)
{
    QImage image = maskruns::blank(4, 3);
    image.setPixel(2, 1, 9);
    const QImage window = maskstream::decode(maskstream::crop(maskstream::encode(image), 1, 1, 2, 2));
    ASSERT_EQ(window.size(), QSize(2, 2));
    EXPECT_EQ(window.pixelIndex(1, 0), 9);
    EXPECT_EQ(window.pixelIndex(0, 0), 0);
    EXPECT_TRUE(maskstream::crop(maskstream::encode(image), 3, 0, 2, 1).isEmpty()); // outside

    qint64 nonZero = 1;
    const QImage empty = maskstream::decode(maskstream::crop(QByteArray(), 0, 0, 3, 2), &nonZero);
    EXPECT_EQ(empty.size(), QSize(3, 2));
    EXPECT_EQ(nonZero, 0);
    EXPECT_TRUE(maskstream::decode(QByteArray("garbage")).isNull());
}
