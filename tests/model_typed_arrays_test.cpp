// Tagged arrays of the model streams: the host arrays with their absent forms, and the
// four-dimensional typed array; damaged and absurd streams.

#include "wire/typed_arrays.h"
#include "modelwriter/stream_builder.h"
#include "stream_reading.h"

#include <gtest/gtest.h>
#include <limits>
#include <memory>

using compute::ElementType;
using compute::HostArray;
using modelwriter::StreamBuilder;
using modelwriter::TypedArray;

namespace {

constexpr qint32 Marker = 0x4D41524B;

// A host array reader through its raw form: its result, whether the buffer came back
// null, and the count. A buffer it hands out is released as its owner must.
struct Raw {
    int result;
    bool null;
    int count;
    bool operator==(const Raw& o) const { return result == o.result && null == o.null && count == o.count; }
};

template <class T> Raw readRaw(int (*reader)(QDataStream&, T**, int*), QDataStream& in)
{
    T* data = nullptr;
    int count = -1;
    const int result = reader(in, &data, &count);
    const Raw r{result, data == nullptr, count};
    delete[] data;
    return r;
}

const char* const Names[] = {"FloatArray", "IntArray", "CharArray", "UcharArray"};
Raw readNamed(int which, QDataStream& in)
{
    switch (which) {
    case 0: return readRaw<float>(readFloatArray, in);
    case 1: return readRaw<int>(readIntArray, in);
    case 2: return readRaw<char>(readCharArray, in);
    default: return readRaw<unsigned char>(readUcharArray, in);
    }
}

qint64 storedCount(const HostArray& a)
{
    return a.type() == ElementType::F32 ? a.f32().size() : a.type() == ElementType::S32 ? a.s32().size() : a.u8().size();
}

} // namespace

TEST(TypedArrays, TheBuilderWritesTheWireFormOfAFloatArray)
{
    // The tag as a QString (byte length 24, UTF-16 big-endian), a count of 1, and 0.5 as
    // a big-endian double.
    QByteArray expected("\x00\x00\x00\x18", 4);
    for (char c : QByteArray("FloatArray:1"))
        expected.append('\0').append(c);
    expected.append(QByteArray("\x00\x00\x00\x01\x3F\xE0\x00\x00\x00\x00\x00\x00", 12));
    EXPECT_EQ(StreamBuilder().floatArray({0.5f}).bytes(), expected);
}

TEST(TypedArrays, PresentArraysFillCallerOwnedBuffersAndKeepTheStreamInStep)
{
    StreamBuilder b;
    b.floatArray({1.5f, -2.25f, 0.1f}).intArray({7, std::numeric_limits<qint32>::min()});
    b.charArray({-128, 127}).ucharArray({0, 200, 255}).i32(Marker);
    Reading r(b.bytes());
    float* f = nullptr;
    int* i = nullptr;
    char* c = nullptr;
    unsigned char* u = nullptr;
    int nf = -1, ni = -1, nc = -1, nu = -1;
    ASSERT_EQ(readFloatArray(r.in, &f, &nf) + readIntArray(r.in, &i, &ni) + readCharArray(r.in, &c, &nc) + readUcharArray(r.in, &u, &nu), 0);
    std::unique_ptr<float[]> fOwned(f);
    std::unique_ptr<int[]> iOwned(i);
    std::unique_ptr<char[]> cOwned(c);
    std::unique_ptr<unsigned char[]> uOwned(u);
    ASSERT_EQ(nf, 3);
    EXPECT_EQ(f[1], -2.25f);
    EXPECT_EQ(f[2], 0.1f); // the double 0.1 narrowed
    ASSERT_EQ(ni, 2);
    EXPECT_EQ(i[1], std::numeric_limits<qint32>::min());
    ASSERT_EQ(nc, 2);
    EXPECT_EQ(c[0], char(-128));
    ASSERT_EQ(nu, 3);
    EXPECT_EQ(u[1], 200);
    EXPECT_EQ(r.nextInt(), Marker);
}

TEST(TypedArrays, AbsentArraysAreNullEmptyOnesAreBuffersAndOtherTagsAreWrong)
{
    for (int which = 0; which < 4; ++which) {
        const QString name = QString::fromLatin1(Names[which]);
        const QString other = QString::fromLatin1(Names[(which + 1) % 4]);
        StreamBuilder b;
        b.absent(name).i32(Marker); // only the tag is read
        b.tag(name + ":1").u32(0).i32(Marker); // present with no entries
        b.tag(name + ":2").i32(Marker); // a higher version
        b.tag(other + ":1").i32(Marker); // another type: no conversion
        b.absent(other).i32(Marker);
        Reading r(b.bytes());
        EXPECT_EQ(readNamed(which, r.in), (Raw{0, true, 0})) << Names[which];
        EXPECT_EQ(r.nextInt(), Marker);
        EXPECT_EQ(readNamed(which, r.in), (Raw{0, false, 0})) << Names[which];
        EXPECT_EQ(r.nextInt(), Marker);
        for (int wrong = 0; wrong < 3; ++wrong) {
            EXPECT_EQ(readNamed(which, r.in), (Raw{-1, true, -1})) << Names[which] << wrong;
            EXPECT_EQ(r.nextInt(), Marker); // the tag is consumed, nothing behind it
        }
    }
    // The vector form tells an absent array from an empty one, and leaves the vector
    // alone on a wrong tag.
    Reading r(StreamBuilder().floatArray({}).absent(QStringLiteral("FloatArray")).bytes());
    QVector<float> v{9.0f};
    bool present = false;
    ASSERT_EQ(readFloatArray(r.in, &v, &present), 0);
    EXPECT_TRUE(present && v.isEmpty());
    v = {9.0f};
    ASSERT_EQ(readFloatArray(r.in, &v, &present), 0);
    EXPECT_TRUE(!present && v.isEmpty());
    v = {9.0f};
    EXPECT_EQ(readFloatArray(r.in, &v, &present), -1); // past the end the tag reads empty
    EXPECT_EQ(v, QVector<float>{9.0f});
}

TEST(TypedArrays, ShortStreamsAndAbsurdCountsGiveEmptyArraysAtTheEnd)
{
    // Five entries announced, two present; then counts no stream of this size holds,
    // which must be refused before anything is reserved for them.
    StreamBuilder shortOne;
    shortOne.tag(QStringLiteral("FloatArray:1")).u32(5).real(1).real(2);
    Reading r(shortOne.bytes());
    float* f = nullptr;
    int count = -1;
    ASSERT_EQ(readFloatArray(r.in, &f, &count), 0);
    std::unique_ptr<float[]> owned(f);
    EXPECT_EQ(count, 0);
    EXPECT_EQ(r.in.status(), QDataStream::ReadPastEnd);

    for (quint32 n : {0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu, 1000u})
        for (const char* tag : {"FloatArray:1", "IntArray:1", "UcharArray:1"}) {
            StreamBuilder b;
            b.tag(QString::fromLatin1(tag)).u32(n).raw(QByteArray(64, '\x01'));
            Reading huge(b.bytes());
            QVector<float> fv{1};
            QVector<qint32> iv{1};
            QVector<quint8> uv{1};
            const int result = tag[0] == 'F' ? readFloatArray(huge.in, &fv) : tag[0] == 'I' ? readIntArray(huge.in, &iv) : readUcharArray(huge.in, &uv);
            EXPECT_EQ(result, 0);
            EXPECT_EQ(fv.size() + iv.size() + uv.size(), 2) << tag << n; // the one read is empty
            EXPECT_EQ(huge.in.status(), QDataStream::ReadPastEnd);
            EXPECT_TRUE(huge.in.atEnd());
        }
}

TEST(TypedArrays, AStreamThatHadFailedBeforeKeepsItsStatus)
{
    Reading r(StreamBuilder().intArray({1, 2}).bytes());
    r.in.setStatus(QDataStream::ReadCorruptData);
    QVector<qint32> v;
    ASSERT_EQ(readIntArray(r.in, &v), 0);
    EXPECT_EQ(v, (QVector<qint32>{1, 2}));
    EXPECT_EQ(r.in.status(), QDataStream::ReadCorruptData);
}

TEST(TypedArrays, DeviceArraysKeepTheirTypeAndDimensions)
{
    StreamBuilder b;
    b.afArray(TypedArray::floats({2, 3, 1, 1}, {1, 2, 3, 4, 5, 6}));
    b.afArray(TypedArray::ints({1, 1, 1, 4}, {-1, 0, 1, 2}));
    b.afArray(TypedArray::bytes({2, 1, 2, 1}, {0, 1, 254, 255})).i32(Marker);
    Reading r(b.bytes());
    bool ok[3] = {false, false, false};
    const HostArray f = readAFArray(r.in, &ok[0]);
    const HostArray i = readAFArray(r.in, &ok[1]);
    const HostArray u = readAFArray(r.in, &ok[2]);
    EXPECT_TRUE(ok[0] && ok[1] && ok[2]);
    EXPECT_EQ(f.type(), ElementType::F32);
    EXPECT_EQ(f.dims(), (HostArray::Dims{2, 3, 1, 1}));
    EXPECT_EQ(f.f32(), (QVector<float>{1, 2, 3, 4, 5, 6}));
    EXPECT_EQ(i.type(), ElementType::S32);
    EXPECT_EQ(i.dims(), (HostArray::Dims{1, 1, 1, 4}));
    EXPECT_EQ(i.s32(), (QVector<qint32>{-1, 0, 1, 2}));
    EXPECT_EQ(u.type(), ElementType::U8);
    EXPECT_EQ(u.dims(), (HostArray::Dims{2, 1, 2, 1}));
    EXPECT_EQ(u.u8(), (QVector<quint8>{0, 1, 254, 255}));
    EXPECT_EQ(r.nextInt(), Marker);
}

TEST(TypedArrays, ADeviceArrayTagOrTypeOutOfTheListYieldsAnEmptyArray)
{
    StreamBuilder b;
    b.tag(QStringLiteral("AFArray:2")).i32(Marker);
    b.floatArray({1}); // a host array is no device array
    // Element type 2: nothing is read behind the dimensions, the stream is out of step.
    b.tag(QStringLiteral("AFArray:1")).i32(2).i32(2).i32(2).i32(1).i32(1).floatArray({1, 2, 3, 4});
    Reading r(b.bytes());
    bool ok = true;
    EXPECT_TRUE(readAFArray(r.in, &ok).isEmpty());
    EXPECT_FALSE(ok);
    EXPECT_EQ(r.nextInt(), Marker);
    ok = true;
    EXPECT_TRUE(readAFArray(r.in, &ok).isEmpty());
    EXPECT_FALSE(ok);
    r.in.skipRawData(12); // the host array's count and entry
    EXPECT_TRUE(readAFArray(r.in, &ok).isEmpty());
    EXPECT_TRUE(ok);
    QString next;
    r.in >> next;
    EXPECT_EQ(next, QStringLiteral("FloatArray:1"));
}

TEST(TypedArrays, DeviceArrayValuesMustCoverTheDimensions)
{
    const struct {
        TypedArray array;
        bool ok;
        int kept;
    } cases[] = {
        {TypedArray::floats({2, 3, 1, 1}, {1, 2, 3, 4, 5}), false, 0},
        {TypedArray::floats({2, 3, 1, 1}, {1, 2, 3, 4, 5, 6, 7}), true, 6}, // the surplus is dropped
        {TypedArray::ints({0, 3, 1, 1}, {1, 2}), true, 0},
        {TypedArray::ints({2000000000, 2000000000, 2000000000, 0}, {}), true, 0}, // empty, whatever the rest
        {TypedArray::bytes({-1, -1, 1, 1}, {1}), false, 0},
        {TypedArray::bytes({65536, 65536, 65536, 65536}, {1, 2, 3}), false, 0},
        {TypedArray::ints({1, 1, 1, 1}, {}), false, 0},
    };
    for (const auto& c : cases) {
        Reading r(StreamBuilder().afArray(c.array).bytes());
        bool ok = !c.ok;
        const HostArray a = readAFArray(r.in, &ok);
        EXPECT_EQ(ok, c.ok) << c.array.dims[0] << "x" << c.array.dims[1];
        EXPECT_EQ(a.elements(), c.kept);
        EXPECT_EQ(storedCount(a), a.elements());
        if (ok)
            EXPECT_EQ(a.dims(), (HostArray::Dims{c.array.dims[0], c.array.dims[1], c.array.dims[2], c.array.dims[3]}));
    }
    // The inner array follows the host array rules: the int form where floats are due
    // delivers nothing, the absent form no entries.
    StreamBuilder b;
    b.tag(QStringLiteral("AFArray:1")).i32(0).i32(2).i32(1).i32(1).i32(1).intArray({1, 2});
    b.tag(QStringLiteral("AFArray:1")).i32(0).i32(0).i32(1).i32(1).i32(1).absent(QStringLiteral("FloatArray"));
    Reading r(b.bytes());
    bool ok = true;
    EXPECT_TRUE(readAFArray(r.in, &ok).isEmpty());
    EXPECT_FALSE(ok);
    r.in.skipRawData(12);
    EXPECT_TRUE(readAFArray(r.in, &ok).isEmpty());
    EXPECT_TRUE(ok);
    EXPECT_TRUE(r.in.atEnd());
}

TEST(TypedArrays, ATruncatedDeviceArrayNeverComesBackHalfFilled)
{
    const QByteArray full = StreamBuilder().afArray(TypedArray::ints({2, 2, 1, 1}, {1, 2, 3, 4})).bytes();
    for (int n = 0; n <= full.size(); ++n) {
        Reading r(full.left(n));
        bool ok = false;
        const HostArray a = readAFArray(r.in, &ok);
        EXPECT_EQ(a.elements(), n == full.size() ? 4 : 0) << n;
        EXPECT_EQ(storedCount(a), a.elements());
    }
}
