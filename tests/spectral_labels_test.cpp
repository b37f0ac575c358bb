// The label mask of an image, and crop and uncrop with labels and annotations.

#include "spectral/image_family.h"
#include "spectral/mask_stream.h"
#include "spectral_fixtures.h"

#include <gtest/gtest.h>

namespace {

// A 10 by 8 image with a mask that numbers some pixels, two object labels and two points.
void label(ZelkImage& image)
{
    image.width = image.imageInt1 = 10;
    image.height = image.imageInt2 = 8;
    QImage mask = image.labelImage();
    mask.setPixel(3, 2, 5);
    mask.setPixel(6, 5, 7);
    mask.setPixel(0, 0, 9); // outside the region used below
    image.setLabelImage(mask);
    image.objectLabelCount = 2;
    image.objectLabelTable = {3, 2, 2, 2, 1, 11,   // inside (2,1)-(8,7)
                              1, 1, 4, 4, 2, 12};  // reaches past the left edge
    image.objectLabelNotes = QStringList{"kept", "dropped"};
    image.objectLabelNames = QStringList{"obj0", "obj1"};
    image.pointAnnotations = QList<ZelkPointAnnotation>{{"in", 7, 6, {1}}, {"out", 9, 7, {2}}};
}

} // namespace

TEST(Labels, AnImageWithoutMaskHandsOutAnEmptyOne)
{
    ZelkImageENVI image("scan");
    image.width = 4;
    image.height = 3;
    const QImage mask = image.labelImage();
    EXPECT_TRUE(image.labelsTaken);
    ASSERT_EQ(mask.size(), QSize(4, 3));
    EXPECT_EQ(mask.format(), QImage::Format_Indexed8);
    EXPECT_EQ(mask.pixelIndex(3, 2), 0);
    image.setLabelImage(mask);
    EXPECT_FALSE(image.labelsTaken);
    EXPECT_EQ(maskstream::decode(image.imageBlob).size(), QSize(4, 3));
    // A damaged stream is not trusted.
    image.imageBlob = "garbage";
    EXPECT_EQ(image.labelImage().size(), QSize(4, 3));
}

TEST(Labels, CropKeepsWhatLiesInsideTheRegion)
{
    ZelkImageENVI image("scan");
    label(image);
    ASSERT_EQ(image.crop(2, 1, 6, 6), 0);
    EXPECT_TRUE(image.cropped);
    EXPECT_EQ(image.cropWidth, 10);
    EXPECT_EQ(image.cropHeight, 8);
    EXPECT_EQ(image.width, 6);
    EXPECT_EQ(image.imageInt2, 6);
    const QImage mask = image.labelImage();
    ASSERT_EQ(mask.size(), QSize(6, 6));
    EXPECT_EQ(mask.pixelIndex(1, 1), 5);
    EXPECT_EQ(mask.pixelIndex(4, 4), 7);
    EXPECT_EQ(image.objectLabelCount, 1);
    EXPECT_EQ(image.objectLabelTable, (QVector<int>{1, 1, 2, 2, 1, 11}));
    EXPECT_EQ(*image.objectLabelNotes, QStringList{"kept"});
    EXPECT_EQ(*image.objectLabelNames, QStringList{"obj0"});
    ASSERT_EQ(image.pointAnnotations->size(), 1);
    EXPECT_EQ(image.pointAnnotations->at(0).name, "in");
    EXPECT_EQ(image.pointAnnotations->at(0).x, 5);
    EXPECT_EQ(image.pointAnnotations->at(0).y, 5);
    EXPECT_EQ(image.crop(1, 1, 6, 6), -1); // past the region's edge
}

TEST(Labels, UncropPutsTheRegionBackIntoTheWholeScan)
{
    ZelkImageENVI image("scan");
    label(image);
    ASSERT_EQ(image.crop(2, 1, 6, 6), 0);
    // A region of the region is kept against the whole scan.
    ASSERT_EQ(image.crop(1, 0, 4, 5), 0);
    EXPECT_EQ(image.cropA, 3);
    EXPECT_EQ(image.cropB, 1);
    EXPECT_EQ(image.objectLabelTable, (QVector<int>{0, 1, 2, 2, 1, 11}));
    image.uncrop();
    EXPECT_FALSE(image.cropped);
    EXPECT_EQ(image.width, 10);
    EXPECT_EQ(image.height, 8);
    const QImage mask = image.labelImage();
    ASSERT_EQ(mask.size(), QSize(10, 8));
    EXPECT_EQ(mask.pixelIndex(3, 2), 5);
    EXPECT_EQ(mask.pixelIndex(6, 5), 7);
    EXPECT_EQ(mask.pixelIndex(0, 0), 0); // lost with the first crop
    EXPECT_EQ(image.objectLabelTable, (QVector<int>{3, 2, 2, 2, 1, 11}));
    EXPECT_EQ(image.pointAnnotations->size(), 0); // (7,6) lay outside the second region
    image.uncrop(); // nothing to undo
    EXPECT_EQ(image.width, 10);
}

TEST(Labels, DisplayedSizeFollowsTheImageFactor)
{
    ZelkImageCubert image("c");
    image.readMetaData(QString());
    ASSERT_EQ(image.crop(10, 10, 25, 7), 0);
    EXPECT_EQ(image.imageInt1, 500);
    EXPECT_EQ(image.imageInt2, 140);
    EXPECT_TRUE(image.imageBlob.isEmpty()); // no mask is made by a crop
}
