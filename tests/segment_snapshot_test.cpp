// Labelling of whole images: objects against a flood fill and against the line-scan
// tracker, the label image, numbering over several images, the two table limits and
// arguments that can't be labelled.

#include "segment_support.h"

#include <gtest/gtest.h>
#include <climits>
#include <random>

using namespace segtest;
using namespace objectfield;

namespace {

using Image = std::vector<std::vector<quint8>>;
using Record = std::array<qint32, ObjectRecordInts>;

constexpr qint32 untouched = -7; // what the label images hold before labelling

// A compiled segmenter prepared for whole images.
std::unique_ptr<ZelkSegmenter> forImages(const std::vector<quint8>& flags, int minSize = 1, int objMask = 1)
{
    auto s = definition(flags, objMask);
    s->setMinObjSize(minSize);
    if (s->compile() != 0 || s->prepareSegmenter(false, 0, 0) != 0)
        return nullptr;
    return s;
}

struct Labelled {
    int result = 0;
    std::vector<qint32> labels;
    std::vector<qint32> flags; // 'All foreground' mode only
    std::vector<Record> records;
};

// Labels an image with the kernel that the segmenter's mask selects and takes the records.
Labelled label(ZelkSegmenter& s, const Image& image)
{
    const int h = int(image.size()), w = h ? int(image[0].size()) : 0;
    std::vector<quint8> decisions;
    for (const std::vector<quint8>& r : image)
        decisions.insert(decisions.end(), r.begin(), r.end());
    Labelled out;
    out.labels.assign(size_t(w) * h, untouched);
    if (s.objMask == 2) {
        out.flags.assign(size_t(w) * h, untouched);
        out.result = s.labelCubeForeground(decisions.data(), out.labels.data(), out.flags.data(), w, h);
    } else {
        out.result = s.labelCube(decisions.data(), out.labels.data(), w, h);
    }
    for (int i = 0; i < s.objectCount(); ++i) {
        Record r;
        std::copy_n(s.object(i), ObjectRecordInts, r.begin());
        out.records.push_back(r);
    }
    return out;
}

Image drawn(const std::vector<std::string>& picture)
{
    Image image;
    for (const std::string& text : picture)
        image.push_back(row(text));
    return image;
}

// Overlapping rectangles of codes 1 to 3 and scattered pixels of codes 0 to 3: runs meet
// from every side, and objects of one code have holes of another.
Image randomImage(std::mt19937& rng, int width, int height, int rectangles, int dots)
{
    Image image(size_t(height), std::vector<quint8>(size_t(width), 0));
    for (int n = 0; n < rectangles; ++n) {
        const int y = int(rng() % height), x = int(rng() % width);
        const int h = 1 + int(rng() % 12), w = 1 + int(rng() % 16);
        const quint8 code = quint8(1 + rng() % 3);
        for (int i = y; i < std::min(height, y + h); ++i)
            for (int j = x; j < std::min(width, x + w); ++j)
                image[i][j] = code;
    }
    for (int n = 0; n < dots; ++n)
        image[rng() % height][rng() % width] = quint8(rng() % 4);
    return image;
}

// Checks records, label image and flag image against a flood fill of the image. The
// centroid line is bounded only in the first image after preparation: later ones can take
// a merge's offset from a record left by the image before.
void expectFloodFill(const ZelkSegmenter& s, const Image& image, const Labelled& got, int minSize,
                     bool boundCentroidLine)
{
    const bool byFlag = s.objMask == 2;
    const quint8* table = s.foregroundTable();
    std::vector<int> componentOf;
    const std::vector<Component> all = floodFill(image, table, byFlag, {}, 0, &componentOf);
    std::vector<Component> expected;
    std::vector<int> numberOf(all.size(), 0); // object number of each component, 0 if too small
    for (size_t i = 0; i < all.size(); ++i)
        if (all[i].pixels >= minSize) {
            expected.push_back(all[i]);
            numberOf[i] = int(expected.size());
        }
    ASSERT_EQ(got.result, 0);
    ASSERT_EQ(got.records.size(), expected.size());

    for (size_t i = 0; i < expected.size(); ++i) {
        const Component& c = expected[i];
        const Record& r = got.records[i];
        const int decision = byFlag ? c.majority() : c.decision;
        EXPECT_EQ(std::vector<qint32>(r.begin(), r.begin() + ClassSizes),
                  std::vector<qint32>({int(i) + 1, r[CentroidLine], c.centroidColumn(), c.firstLine, c.lastLine,
                                       c.firstColumn, c.lastColumn, c.pixels, decision}))
            << "object " << i;
        // Offsets of merged labels count from their own first lines, so the centroid line
        // lies between the first line and the true mean.
        if (boundCentroidLine) {
            EXPECT_GE(r[CentroidLine], c.firstLine);
            EXPECT_LE(r[CentroidLine], c.centroidLine());
        }
        if (byFlag)
            for (int code = 0; code < 4; ++code)
                EXPECT_EQ(r[ClassSizes + code], c.perCode[code]);
    }

    // Every label of an object's pixel leads to the object's number; background keeps
    // what the caller put there, and the flag image holds every pixel's flag.
    const qint32* numbers = s.objectNumberMap();
    const size_t w = image[0].size();
    for (size_t p = 0; p < got.labels.size(); ++p) {
        const quint8 d = image[p / w][p % w];
        if (!table[d])
            ASSERT_EQ(got.labels[p], untouched) << p;
        else if (const int number = numberOf[size_t(componentOf[p])])
            ASSERT_EQ(numbers[got.labels[p]], number) << p;
        if (byFlag)
            ASSERT_EQ(got.flags[p], table[d]) << p;
    }
}

} // namespace

TEST(SnapshotLabels, MatchesAFloodFillOfRandomImagesOneAfterAnother)
{
    const std::vector<quint8> flags = {0, 1, 1, 2}; // code 3 forms its own objects in either mode
    for (int objMask : {1, 2}) {
        for (int minSize : {1, 4}) {
            auto s = forImages(flags, minSize, objMask);
            ASSERT_TRUE(s);
            std::mt19937 rng(unsigned(11 * objMask + minSize));
            qint64 accepted = 0;
            // Images of several sizes through one segmenter, reset after each.
            for (int n = 0; n < 8; ++n) {
                SCOPED_TRACE(testing::Message() << "mask " << objMask << " min " << minSize << " image " << n);
                const int w = 1 + int(rng() % 90), h = 1 + int(rng() % 70);
                const Image image = randomImage(rng, w, h, w * h / 60 + 1, w * h / 12);
                const Labelled got = label(*s, image);
                expectFloodFill(*s, image, got, minSize, n == 0);
                for (const Record& r : got.records)
                    accepted += r[PixelCount];
                EXPECT_EQ(s->acceptedPixels(), accepted);
                s->resetAfterCube();
            }
        }
    }
}

// An image of up to 19 rows streamed through the tracker closes all its objects in the
// pass of line 20, with the same labels as in the image: the records must agree to the
// last entry, the centroid line included.
TEST(SnapshotLabels, AgreesWithTheLineScanTrackerOnShortImages)
{
    const std::vector<quint8> flags = {0, 1, 1, 1};
    std::mt19937 rng(5);
    for (int objMask : {1, 2}) {
        for (int n = 0; n < 8; ++n) {
            SCOPED_TRACE(testing::Message() << "mask " << objMask << " image " << n);
            const int w = 2 + int(rng() % 60), h = 1 + int(rng() % 19);
            const Image image = randomImage(rng, w, h, w * h / 40 + 1, w * h / 10);
            auto s = forImages(flags, 2, objMask);
            const Labelled got = label(*s, image);
            ASSERT_EQ(got.result, 0);

            auto stream = prepared(flags, w, 2, objMask);
            Feeder f(*stream, objMask == 2 ? Kernel::Foreground : Kernel::Decisions);
            for (const std::vector<quint8>& r : image)
                ASSERT_EQ(f.feed(r), 0);
            while (stream->currentLine() <= 20)
                ASSERT_EQ(f.feed(std::vector<quint8>(size_t(w), 0)), 0);
            ASSERT_EQ(got.records.size(), f.reports.size());
            for (size_t i = 0; i < got.records.size(); ++i)
                EXPECT_EQ(got.records[i], f.reports[i].record) << i;
        }
    }
}

// Drawn shapes and their merges give the records of the line-scan tracker (the test
// above); these are cases that random images rarely hold.
TEST(SnapshotLabels, EmptyForegroundAndMajorityTies)
{
    // Nothing in the foreground (255 lies beyond the vector): no objects, labels untouched.
    auto s = forImages({0, 1, 1});
    const std::vector<quint8> none = {0, 255, 0, 0, 0, 0};
    std::vector<qint32> labels(6, untouched);
    EXPECT_EQ(s->labelCube(none.data(), labels.data(), 3, 2), 0);
    EXPECT_EQ(s->objectCount(), 0);
    EXPECT_EQ(labels, std::vector<qint32>(6, untouched));

    // 'All foreground': two pixels of each class in one object, the tie goes to code 1.
    auto all = forImages({0, 1, 1}, 1, 2);
    const Labelled got = label(*all, drawn({".12.", ".21."}));
    ASSERT_EQ(got.records.size(), 1u);
    EXPECT_EQ(got.records[0][Decision], 1);
    EXPECT_EQ(got.records[0][ClassSizes + 1], 2);
    EXPECT_EQ(got.records[0][ClassSizes + 2], 2);
}

TEST(SnapshotLabels, NumbersRestartInEachImageAndSmallObjectsTakeNone)
{
    auto s = forImages({0, 1}, 3);
    const Image image = drawn({"11..111", "......1", "1.11..."});
    for (int n = 0; n < 3; ++n) {
        const Labelled got = label(*s, image);
        ASSERT_EQ(got.result, 0);
        ASSERT_EQ(got.records.size(), 1u);
        EXPECT_EQ(got.records[0][Number], 1);
        EXPECT_EQ(got.records[0][FirstColumn], 4);
        EXPECT_EQ(s->acceptedPixels(), 4 * (n + 1));
        s->resetAfterCube();
    }
    // Without a reset the next image goes on from the last: its lines and numbers follow.
    label(*s, image);
    const Labelled next = label(*s, image);
    ASSERT_EQ(next.records.size(), 2u);
    EXPECT_EQ(next.records[1][Number], 2);
    EXPECT_EQ(next.records[1][FirstLine], 3);
}

// Merges relabel through the members of the absorbed label; a scan of the whole table
// must come to the same state, over a series of images that reuse the tables.
TEST(SnapshotLabels, RelabellingByMembersMatchesATableScan)
{
    for (int objMask : {1, 2}) {
        std::unique_ptr<ZelkSegmenter> s[2] = {forImages({0, 1, 1, 1}, 2, objMask),
                                               forImages({0, 1, 1, 1}, 2, objMask)};
        s[1]->setPlainRelabel(true);
        std::mt19937 rng{unsigned(objMask)};
        for (int n = 0; n < 6; ++n) {
            // Foreground of about the density at which clusters span the image: labels
            // merge into labels that have absorbed others, again and again.
            Image image(120, std::vector<quint8>(150, 0));
            for (std::vector<quint8>& r : image)
                for (quint8& p : r)
                    p = rng() % 100 < 60 ? quint8(1 + rng() % 100 / 97) : 0;
            const Labelled a = label(*s[0], image), b = label(*s[1], image);
            ASSERT_EQ(a.result, 0);
            ASSERT_GT(a.records.size(), 50u);
            ASSERT_EQ(a.records.size(), b.records.size());
            for (size_t i = 0; i < a.records.size(); ++i)
                ASSERT_EQ(a.records[i], b.records[i]) << "mask " << objMask << " image " << n << " object " << i;
            EXPECT_TRUE(a.labels == b.labels);
            const int labels = *std::max_element(a.labels.begin(), a.labels.end());
            EXPECT_TRUE(std::equal(s[0]->objectNumberMap(), s[0]->objectNumberMap() + labels + 1,
                                   s[1]->objectNumberMap()));
            s[0]->resetAfterCube();
            s[1]->resetAfterCube();
        }
    }
}

TEST(SnapshotLabels, MergeScanReachesTheEntryOfTheNextLabelLeftFromTheImageBefore)
{
    // The first image leaves label 3 mapped to label 2. In the second, labels 1 and 2 are
    // issued on line 10 and merge on line 12 while label 3 is next: its old entry names
    // the absorbed label, and its record (first line 0) becomes the one the joining
    // pixel's offset counts from. Offsets 5 + 1 + 12 over 7 pixels round to 3; from
    // label 1's first line 10 they would be 5 + 1 + 2 and round to 1.
    const Image first = drawn({"1.1.1", "1.1.1", "1.111"});
    Image second(10, row("....."));
    for (const char* text : {"1.1..", "1.1..", "111.."})
        second.push_back(row(text));
    for (bool plain : {false, true}) {
        auto s = forImages({0, 1});
        s->setPlainRelabel(plain);
        ASSERT_EQ(label(*s, first).records.size(), 2u);
        s->resetAfterCube();
        const Labelled got = label(*s, second);
        ASSERT_EQ(got.records.size(), 1u);
        EXPECT_EQ(got.records[0][CentroidLine], 13) << plain;
        EXPECT_EQ(got.records[0][PixelCount], 7);
    }
    auto fresh = forImages({0, 1});
    EXPECT_EQ(label(*fresh, second).records[0][CentroidLine], 11);
}

namespace {

// One row of `pixels` isolated foreground pixels.
Image isolatedPixels(int pixels)
{
    Image image(1, std::vector<quint8>(size_t(2 * pixels), 0));
    for (size_t c = 0; c < image[0].size(); c += 2)
        image[0][c] = 1;
    return image;
}

} // namespace

TEST(SnapshotLabels, FailsWhenLabelsRunOut)
{
    // 99998 label starts leave label 99999 as the next; one more start would need 100000.
    // The single pixels are too small to be reported.
    for (int pixels : {99998, 99999}) {
        auto s = forImages({0, 1}, 2);
        const Labelled got = label(*s, isolatedPixels(pixels));
        if (pixels == 99998) {
            EXPECT_EQ(got.result, 0);
            continue;
        }
        EXPECT_EQ(got.result, ZelkSegmenter::labellingError);
        // The next image finds no label to take, until a reset.
        EXPECT_EQ(label(*s, drawn({"11"})).result, ZelkSegmenter::labellingError);
        s->resetAfterCube();
        const Labelled after = label(*s, drawn({".11"}));
        ASSERT_EQ(after.records.size(), 1u);
        EXPECT_EQ(after.records[0][Number], 1);
    }
}

TEST(SnapshotLabels, FailsOnTheFiftyThousandthObject)
{
    for (int pixels : {49999, 50000}) {
        auto s = forImages({0, 1});
        const Labelled got = label(*s, isolatedPixels(pixels));
        EXPECT_EQ(got.result, pixels == 49999 ? 0 : ZelkSegmenter::labellingError);
        ASSERT_EQ(s->objectCount(), pixels);
        EXPECT_EQ(got.records.back()[Number], pixels);
        EXPECT_EQ(got.records.back()[FirstColumn], 2 * pixels - 2);
    }
    // A full list stays full: the next image fails before it writes a record.
    auto s = forImages({0, 1});
    label(*s, isolatedPixels(50000));
    EXPECT_EQ(label(*s, drawn({"1"})).result, ZelkSegmenter::labellingError);
    EXPECT_EQ(s->objectCount(), 50000);
    s->resetAfterCube();
    EXPECT_EQ(label(*s, drawn({"1"})).records.size(), 1u);
}

TEST(SnapshotLabels, RefusesWhatItCannotLabel)
{
    std::vector<quint8> decisions(12, 1);
    std::vector<qint32> labels(12, 0), flags(12, 0);
    const int error = ZelkSegmenter::labellingError;

    auto unprepared = definition({0, 1});
    ASSERT_EQ(unprepared->compile(), 0);
    EXPECT_EQ(unprepared->labelCube(decisions.data(), labels.data(), 4, 3), error);
    unprepared->resetAfterCube();

    // A streaming segmenter labels no images, and a reset does not disturb its stream.
    auto stream = prepared({0, 1}, 4);
    EXPECT_EQ(stream->labelCube(decisions.data(), labels.data(), 4, 3), error);
    stream->resetAfterCube();
    Feeder f(*stream, Kernel::Decisions);
    EXPECT_EQ(f.run({"11..", "11.."}, 20), 0);
    EXPECT_EQ(f.reports.size(), 1u);

    auto s = forImages({0, 1}, 1, 2);
    EXPECT_EQ(s->labelCube(nullptr, labels.data(), 4, 3), error);
    EXPECT_EQ(s->labelCube(decisions.data(), nullptr, 4, 3), error);
    EXPECT_EQ(s->labelCubeForeground(decisions.data(), labels.data(), nullptr, 4, 3), error);
    EXPECT_EQ(s->labelCube(decisions.data(), labels.data(), -4, 3), error);
    EXPECT_EQ(s->labelCube(decisions.data(), labels.data(), INT_MAX, INT_MAX), error);
    EXPECT_EQ(s->trackDecisions(decisions.data()), -1); // the row kernels are for streams
    EXPECT_EQ(s->objectCount(), 0);
    EXPECT_EQ(labels, std::vector<qint32>(12, 0));

    // No rows, or rows without pixels, need no buffers; the lines are still counted.
    EXPECT_EQ(s->labelCubeForeground(nullptr, nullptr, nullptr, 4, 0), 0);
    EXPECT_EQ(s->labelCubeForeground(nullptr, nullptr, nullptr, 0, 5), 0);
    EXPECT_EQ(s->currentLine(), 5);
    EXPECT_EQ(s->objectCount(), 0);
    s->resetAfterCube();
    EXPECT_EQ(s->labelCubeForeground(decisions.data(), labels.data(), flags.data(), 4, 3), 0);
    ASSERT_EQ(s->objectCount(), 1);
    EXPECT_EQ(s->object(0)[PixelCount], 12);
}
