// Image and data set elements of a project stream: every version step of the image
// head, the annotation and object label forms, the tails of some formats, the data set
// forms, and streams whose counts lie.

#include "wire/data_set.h"
#include "modelwriter/image_writer.h"
#include "spectral/camera_kinds.h"
#include "spectral/image_family.h"

#include <QBuffer>
#include <cmath>
#include <gtest/gtest.h>

namespace {

// Bytes written by `write`, followed by a sentinel that shows where reading stopped.
template <typename Write>
QByteArray streamOf(Write write)
{
    QByteArray bytes;
    QDataStream out(&bytes, QIODevice::WriteOnly);
    write(out);
    out << qint32(0x5E7714E1);
    return bytes;
}

struct Reader {
    explicit Reader(const QByteArray& bytes)
        : buffer(&data)
    {
        data = bytes;
        buffer.open(QIODevice::ReadOnly);
        in.setDevice(&buffer);
    }
    bool atSentinel()
    {
        qint32 v = 0;
        in >> v;
        return v == 0x5E7714E1;
    }
    QByteArray data;
    QBuffer buffer;
    QDataStream in;
};

modelwriter::Image plainImage(quint32 version)
{
    modelwriter::Image im;
    im.versionWord = version;
    im.width = 4, im.height = 3, im.bands = 2;
    im.displayWidth = 4, im.displayHeight = 3;
    im.wavelengths = {450, 500};
    im.blob = "mask";
    return im;
}

// Reads `im` as the writer stores it into `image`: the result, and whether the read
// stopped exactly at the end of the image.
template <typename Image>
std::pair<int, bool> load(Image& image, const modelwriter::Image& im)
{
    Reader r(streamOf([&](QDataStream& out) { modelwriter::writeImage(out, im); }));
    const int result = image.load(r.in);
    return {result, r.atSentinel()};
}

const std::pair<int, bool> Read{0, true};

} // namespace

TEST(ImageElement, EachVersionReadsItsOwnRowsAndStopsThere)
{
    for (quint32 word : {0xAABBCC00u, 0xAABBCC09u}) {
        ZelkImageENVI image;
        EXPECT_EQ(load(image, plainImage(word)).first, -1) << std::hex << word;
    }
    for (quint32 version = 1; version <= 8; ++version) {
        auto im = plainImage(0xAABBCC00u + version);
        im.cropped = true;
        im.crop[0] = 40, im.crop[2] = 7;
        im.int3 = 9;
        ZelkImageENVI image;
        ASSERT_EQ(load(image, im), Read) << version;
        EXPECT_EQ(image.width, 4);
        EXPECT_EQ(image.bandCount, 2);
        EXPECT_EQ(image.wavelengths, (QVector<double>{450, 500}));
        EXPECT_EQ(image.imageBlob, "mask");
        EXPECT_EQ(image.cropped, version >= 2);
        EXPECT_EQ(image.cropWidth, version >= 2 ? 40 : 0);
        EXPECT_EQ(image.cropA, version >= 2 ? 7 : 0);
        EXPECT_EQ(image.imageInt3, version >= 3 ? 9 : 0);
    }
    ZelkImageENVI image; // not cropped: no crop integers follow
    EXPECT_EQ(load(image, plainImage(0xAABBCC02u)), Read);
}

TEST(ImageElement, PointAnnotationsInBothFormsAndTheRepeatedRecord)
{
    auto im = plainImage(0xAABBCC04u);
    im.annotationTag = "ZelkPointAnnotation";
    im.annotations = {{"ZelkPointAnnotation:1", "leaf", 3, 4, {0.25}}, {"something else", {}, 0, 0, {}}};
    ZelkImageENVI image;
    ASSERT_EQ(load(image, im), Read);
    ASSERT_TRUE(image.pointAnnotations.has_value());
    ASSERT_EQ(image.pointAnnotations->size(), 2);
    for (const ZelkPointAnnotation& a : *image.pointAnnotations) {
        EXPECT_EQ(a.name, "leaf");
        EXPECT_EQ(a.y, 4);
        ASSERT_EQ(a.values.size(), 10);
        EXPECT_EQ(a.values[0], 0.25f);
        for (int i = 1; i < 10; ++i)
            EXPECT_TRUE(std::isnan(a.values[i]));
    }

    im.annotationTag = "ZelkPointAnnotation:Multi";
    im.annotations = {{"ZelkPointAnnMulti:1", "stem", 1, 2, {1, 2, 3}}};
    ASSERT_EQ(load(image, im), Read);
    ASSERT_EQ(image.pointAnnotations->size(), 1);
    EXPECT_EQ(image.pointAnnotations->at(0).values, (QVector<float>{1, 2, 3}));

    im.annotationTag = "ZelkPointAnnotation=NULL";
    ASSERT_EQ(load(image, im), Read);
    EXPECT_FALSE(image.pointAnnotations.has_value());
}

TEST(ImageElement, ObjectLabelsNamesNotesAndTails)
{
    auto im = plainImage(0xAABBCC05u);
    im.objectCount = 3;
    im.objectTable = QVector<int>(18, 1);
    im.notes = QStringList{"a", "b", "c"};
    ZelkImageENVI image;
    ASSERT_EQ(load(image, im), Read);
    EXPECT_EQ(image.objectLabelCount, 3);
    EXPECT_EQ(image.objectLabelNotes, (QStringList{"a", "b", "c"}));
    EXPECT_EQ(image.objectLabelNames, (QStringList{"obj0", "obj1", "obj2"}));

    im.versionWord = 0xAABBCC07u; // names of their own replace the generated ones
    im.objectNames = QStringList{"x", "y", "z"};
    ASSERT_EQ(load(image, im), Read);
    EXPECT_EQ(image.objectLabelNames, (QStringList{"x", "y", "z"}));
    im.objectNames.reset();
    ASSERT_EQ(load(image, im), Read);
    EXPECT_FALSE(image.objectLabelNames.has_value());

    auto senop = plainImage(0xAABBCC08u);
    senop.tailVectors = {{2, 1}, {1, 0}, {0.5, 2}};
    ZelkImageSENOP senopImage;
    ASSERT_EQ(load(senopImage, senop), Read);
    EXPECT_EQ(senopImage.sequenceOrder, (QVector<double>{1, 0}));
    EXPECT_EQ(senopImage.gains, (QVector<double>{0.5, 2}));

    auto specim = plainImage(0xAABBCC08u);
    specim.tailText = QStringLiteral("capture");
    ZelkImageSpecim specimImage;
    ASSERT_EQ(load(specimImage, specim), Read);
    EXPECT_EQ(specimImage.extraText, "capture");
}

TEST(ImageElement, LyingCountsEndTheReadWithoutHugeAllocations)
{
    QByteArray bytes;
    {
        QDataStream out(&bytes, QIODevice::WriteOnly);
        out << quint32(0xAABBCC04u) << qint32(14) << QStringLiteral("scan");
        for (int i = 0; i < 5; ++i)
            out << qint32(1);
        out << quint32(0x7FFFFFFF); // a wavelength count the stream cannot hold
    }
    Reader r(bytes);
    ZelkImageENVI image;
    EXPECT_EQ(image.load(r.in), 0);
    EXPECT_TRUE(image.wavelengths->isEmpty());
    EXPECT_NE(r.in.status(), QDataStream::Ok);

    auto im = plainImage(0xAABBCC04u);
    im.annotationTag = "ZelkPointAnnotation";
    QByteArray annotated = streamOf([&](QDataStream& out) { modelwriter::writeImage(out, im); });
    annotated.chop(8); // drop the sentinel and the zero count
    annotated.append("\x40\x00\x00\x00", 4); // a billion records
    Reader a(annotated);
    EXPECT_EQ(image.load(a.in), 0);
    EXPECT_TRUE(image.pointAnnotations->isEmpty());
}

TEST(ImageFamily, ProjectTypesPickTheirClassesAndFiles)
{
    EXPECT_EQ(makeImage(0), nullptr);
    EXPECT_EQ(makeImage(23), nullptr);
    for (int type = 1; type <= 22; ++type) {
        auto image = makeImage(type);
        ASSERT_NE(image, nullptr) << type;
        EXPECT_EQ(image->imageType, type == 13 ? 14 : type);
    }
    EXPECT_NE(dynamic_cast<ZelkImageENVI*>(makeImage(13).get()), nullptr);
    EXPECT_NE(dynamic_cast<ZelkImageTessaron*>(makeImage(19).get()), nullptr);

    ZelkImage base(QStringLiteral("scan"));
    EXPECT_TRUE(base.cubeFileName("/data").isEmpty());
    EXPECT_EQ(base.loadCube("/data"), nullptr);
    EXPECT_EQ(base.readMetaData("/data"), -1);
    EXPECT_EQ(ZelkImageHyspex("scan").cubeFileName("/data"), "/data/scan.hdr");
}

TEST(DataSetElement, UntaggedAndTaggedForms)
{
    Reader empty(streamOf([](QDataStream& out) { modelwriter::writeDataSet(out, modelwriter::DataSet{0}); }));
    ZelkDataSet set;
    ASSERT_EQ(set.load(empty.in), 0);
    EXPECT_EQ(set.sampleCount, 0);
    EXPECT_TRUE(empty.atSentinel());

    modelwriter::DataSet s;
    s.samples = 2, s.features = 2, s.classes = 2;
    s.data = QVector<double>{1, 2, 3}; // one short of its count: kept as it is
    s.samplesPerClass = QVector<int>{1, 1};
    s.classNames = QStringList{"a", "b"};
    s.labels = QVector<qint8>{0, 1};
    s.targets = QVector<double>{0.5, 1.5, 2.5, 3.5};
    s.targetCount = 2;
    s.targetNames = QStringList{"t1", "t2"};
    s.objectNames = QStringList{"o1", "o2"};
    s.objectLabels = QVector<int>{7, 8, 9}; // one more than samples: trimmed
    Reader full(streamOf([&](QDataStream& out) { modelwriter::writeDataSet(out, s); }));
    ASSERT_EQ(set.load(full.in), 0);
    EXPECT_TRUE(full.atSentinel());
    EXPECT_EQ(set.data, (QVector<float>{1, 2, 3}));
    EXPECT_EQ(set.labels, (QVector<qint8>{0, 1}));
    EXPECT_EQ(set.targetCount, 2);
    EXPECT_EQ(set.targets.size(), 4);
    EXPECT_EQ(set.targetNames, (QStringList{"t1", "t2"}));
    EXPECT_EQ(set.objectLabels, (QVector<int>{7, 8}));

    s.form = 1; // the first version has one target and no names on the wire
    s.targets = QVector<double>{4, 5};
    Reader first(streamOf([&](QDataStream& out) { modelwriter::writeDataSet(out, s); }));
    ZelkDataSet one;
    ASSERT_EQ(one.load(first.in), 0);
    EXPECT_TRUE(first.atSentinel());
    EXPECT_EQ(one.targetCount, 1);
    EXPECT_EQ(one.targets, (QVector<float>{4, 5}));

    s.form = 2;
    s.targets.reset();
    Reader none(streamOf([&](QDataStream& out) { modelwriter::writeDataSet(out, s); }));
    ASSERT_EQ(set.load(none.in), 0);
    EXPECT_TRUE(none.atSentinel());
    EXPECT_EQ(set.targetCount, 0);
    EXPECT_TRUE(set.targetNames.isEmpty());

    s.form = 3;
    Reader unknown(streamOf([&](QDataStream& out) { modelwriter::writeDataSet(out, s); }));
    EXPECT_EQ(set.load(unknown.in), -1);
}
