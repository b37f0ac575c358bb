// The segmenter definition read back from streams written by the model writer: both
// versions, optional and required items, the foreground vector's forms, and truncated
// or absurd streams.

#include "modelwriter/segmenter_writer.h"
#include "segment/segmenter.h"

#include <gtest/gtest.h>

using modelwriter::SegmenterSpec;
using modelwriter::StreamBuilder;

namespace {

struct Loaded {
    int result;
    QString next; // the string behind the element: "next" when the reader stayed in step
};

// Loads into a segmenter whose objSep is 9 beforehand, so that leaving it alone shows.
Loaded load(const QByteArray& bytes, ZelkSegmenter& s)
{
    QDataStream in(bytes);
    s.objSep = 9;
    const int result = s.load(in);
    QString next;
    in >> next;
    return {result, next};
}

QByteArray bytesOf(const SegmenterSpec& spec)
{
    StreamBuilder b;
    b.add(spec).tag(QStringLiteral("next"));
    return b.bytes();
}

} // namespace

TEST(SegmenterStream, BothVersionsReadEveryItem)
{
    for (int version : {1, 2}) {
        SegmenterSpec spec;
        spec.version = version;
        ZelkSegmenter s;
        const Loaded l = load(bytesOf(spec), s);
        ASSERT_EQ(l.result, 0) << version;
        EXPECT_EQ(l.next, "next");
        EXPECT_EQ(s.objSep, version == 1 ? 1 : 4);
        EXPECT_EQ(s.classNames(), (QStringList{"bg", "nut"}));
        EXPECT_EQ(s.classNameCount(), 2);
        EXPECT_FALSE(s.useUnknown());
        ASSERT_TRUE(s.foregroundVec());
        EXPECT_EQ(*s.foregroundVec(), (QVector<quint8>{0, 1}));
        EXPECT_EQ(s.minObjSize, 30);
        EXPECT_EQ(s.objMask, 2);
        EXPECT_EQ(s.objDecOutput, 3);
        EXPECT_EQ(s.objDecType, 2);
        EXPECT_EQ(s.ruleDefDecName, "nut");
        EXPECT_EQ(s.rule1.decName, "nut");
        EXPECT_EQ(s.rule1.kind, 1);
        EXPECT_EQ(s.rule1.thresholdInt, 10);
        EXPECT_TRUE(s.rule2Enabled);
        EXPECT_EQ(s.rule2.kind, 2);
        EXPECT_EQ(s.rule2.thresholdFloat, 0.25f);
        EXPECT_EQ(s.backgroundDecName, "bg");
        // Names wait for a compile.
        EXPECT_FALSE(s.isCompiled());
        EXPECT_EQ(s.backgroundIndex(), -1);
        EXPECT_EQ(s.defaultIndex(), -1);
        EXPECT_EQ(s.rule1.decIndex, -1);
        EXPECT_EQ(s.rule2.decIndex, -1);
        // What was read is a definition that compiles against its own names.
        ASSERT_EQ(s.compile(), 0);
        EXPECT_EQ(s.backgroundIndex(), 0);
        EXPECT_EQ(s.rule2.decIndex, 1);
    }

    // An unknown version text reads the shared items and leaves objSep alone: the
    // "objSep" item behind them stays unread.
    SegmenterSpec other;
    other.tagOverrides[1] = "ZelkSegmenter:3";
    ZelkSegmenter s;
    const Loaded l = load(bytesOf(other), s);
    EXPECT_EQ(l.result, 0);
    EXPECT_EQ(l.next, "objSep");
    EXPECT_EQ(s.objSep, 9);
    EXPECT_EQ(s.objMask, 2);
}

TEST(SegmenterStream, OptionalItemsWithAnotherTagKeepTheirDefaults)
{
    for (int row = 2; row <= 5; ++row) {
        for (const QString& text : {QString(), QStringLiteral("other")}) {
            SegmenterSpec spec;
            spec.useUnknown = true;
            switch (row) {
            case 2: spec.classNames.reset(); break;
            case 3: spec.useUnknown.reset(); break;
            case 4: spec.foregroundVec.reset(); break;
            case 5: spec.minObjSize.reset(); break;
            }
            if (!text.isNull())
                spec.tagOverrides[row] = text;
            ZelkSegmenter s;
            const Loaded l = load(bytesOf(spec), s);
            ASSERT_EQ(l.result, 0) << row;
            EXPECT_EQ(l.next, "next");
            EXPECT_EQ(s.classNames().isEmpty(), row == 2);
            EXPECT_EQ(s.useUnknown(), row != 3);
            EXPECT_EQ(s.foregroundVec() == nullptr, row == 4);
            EXPECT_EQ(s.minObjSize, row == 5 ? 50 : 30);
            EXPECT_EQ(s.objSep, 4);
        }
    }
}

TEST(SegmenterStream, ForegroundVectorTakesTheStoredSize)
{
    SegmenterSpec spec;
    spec.useUnknown = true;
    spec.foregroundVec = QVector<bool>{false, true, true};
    spec.foregroundCount = 1000; // the announced size is overruled by the vector's own
    ZelkSegmenter s;
    ASSERT_EQ(load(bytesOf(spec), s).result, 0);
    EXPECT_TRUE(s.useUnknown());
    ASSERT_TRUE(s.foregroundVec());
    EXPECT_EQ(*s.foregroundVec(), (QVector<quint8>{0, 1, 1}));

    // The old vector is dropped before the tag is compared.
    spec.foregroundVec.reset();
    spec.tagOverrides[4] = "ForegroundVec";
    ASSERT_EQ(load(bytesOf(spec), s).result, 0);
    EXPECT_EQ(s.foregroundVec(), nullptr);
}

TEST(SegmenterStream, RequiredItemsFailOnAnotherTag)
{
    for (int row = 6; row <= 13; ++row) {
        SegmenterSpec spec;
        spec.tagOverrides[row] = "objSep:1";
        ZelkSegmenter s;
        EXPECT_EQ(load(bytesOf(spec), s).result, -1) << row;
    }
    // Version 1 neither writes nor reads "objSep".
    SegmenterSpec v1;
    v1.version = 1;
    v1.tagOverrides[13] = "wrong";
    ZelkSegmenter s;
    EXPECT_EQ(load(bytesOf(v1), s).result, 0);
}

TEST(SegmenterStream, TruncatedAndAbsurdStreamsFailWithoutCrashing)
{
    SegmenterSpec spec;
    const QByteArray full = bytesOf(spec);
    const int objSepValue = full.size() - (4 + 8) - 4; // the last int ahead of "next"
    for (int cut = 0; cut < full.size(); ++cut) {
        ZelkSegmenter s;
        EXPECT_EQ(load(full.left(cut), s).result == 0, cut >= objSepValue) << cut;
    }

    StreamBuilder b; // 2^31 - 1 class names, 2^32 - 1 flags
    b.tag("ZelkSegmenter:2").tag("classNames").u32(0x7FFFFFFF).raw(QByteArray(32, '\0'));
    ZelkSegmenter s;
    EXPECT_EQ(load(b.bytes(), s).result, -1);
    EXPECT_TRUE(s.classNames().isEmpty());

    StreamBuilder f;
    f.tag("ZelkSegmenter:2").tag("classNames=NULL").tag("useUnknown=NULL").tag("foregroundVec");
    f.i32(0x7FFFFFFF).u32(0xFFFFFFFF).raw(QByteArray(32, '\0'));
    ZelkSegmenter g;
    EXPECT_EQ(load(f.bytes(), g).result, -1);
    ASSERT_TRUE(g.foregroundVec());
    EXPECT_TRUE(g.foregroundVec()->isEmpty());
}
