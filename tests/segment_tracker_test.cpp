// The line-scan tracker on rows of decision bytes: connectivity, merges, record fields,
// when objects are reported, label reuse over long streams and the two table limits.

#include "segment_support.h"

#include <gtest/gtest.h>
#include <map>
#include <random>
#include <set>
#include <tuple>

using namespace segtest;
using namespace objectfield;

namespace {

using Fields = std::vector<qint32>;

// Entries 0 to 8 of a record.
Fields head(const Report& r)
{
    return Fields(r.record.begin(), r.record.begin() + ClassSizes);
}

std::vector<Report> runPicture(ZelkSegmenter& s, Kernel kernel, const std::vector<std::string>& picture,
                               int through = 20)
{
    Feeder f(s, kernel);
    EXPECT_EQ(f.run(picture, through), 0);
    return f.reports;
}

// Values of a picture for the value kernels: `k` per pixel, small integers, so that
// sums in any order are exact.
std::vector<float> valuesFor(const std::vector<quint8>& row, int line, int k)
{
    std::vector<float> v;
    for (size_t c = 0; c < row.size(); ++c)
        for (int j = 0; j < k; ++j)
            v.push_back(float((line * 7 + int(c) * 3 + j * 5) % 11));
    return v;
}

// Runs a picture through any kernel: objMask 2 for the foreground kernel, values for
// the value kernels.
std::vector<Report> runAny(Kernel kernel, const std::vector<quint8>& flags, const std::vector<std::string>& picture)
{
    const int k = kernel == Kernel::Value ? 1 : kernel == Kernel::Values ? 3 : 0;
    auto s = prepared(flags, int(picture[0].size()), 1, kernel == Kernel::Foreground ? 2 : 1, k);
    Feeder f(*s, kernel);
    for (const std::string& text : picture)
        EXPECT_EQ(f.feed(row(text), valuesFor(row(text), s->currentLine(), k)), 0);
    const std::vector<quint8> empty(picture[0].size(), 0);
    while (s->currentLine() <= 20)
        EXPECT_EQ(f.feed(empty, valuesFor(empty, s->currentLine(), k)), 0);
    return f.reports;
}

// A row of `pixels` single foreground pixels with a gap after each.
std::vector<quint8> isolatedPixels(int pixels)
{
    std::vector<quint8> line(size_t(2 * pixels), 0);
    for (size_t c = 0; c < line.size(); c += 2)
        line[c] = 1;
    return line;
}

const Kernel allKernels[] = {Kernel::Decisions, Kernel::Foreground, Kernel::Value, Kernel::Values};

} // namespace

TEST(Tracker, RectangleLeavesItsBoundsCountCodeAndRoundedCentroid)
{
    auto s = prepared({0, 1, 1}, 10);
    Feeder f(*s, Kernel::Decisions);
    // Lines 0 to 5, columns 3 to 6: it starts on the very first line.
    for (int line = 0; line < 6; ++line)
        ASSERT_EQ(f.feed(row("...2222...")), 0);
    for (int line = 6; line < 20; ++line) {
        ASSERT_EQ(f.feed(row("..........")), 0);
        EXPECT_EQ(s->objectCount(), 0) << line;
    }
    ASSERT_EQ(f.feed(row("..........")), 0);
    ASSERT_EQ(f.reports.size(), 1u);
    EXPECT_EQ(f.reports[0].line, 20);
    // Mean offset 2.5 and mean column 4.5 round away from zero.
    EXPECT_EQ(head(f.reports[0]), Fields({1, 3, 5, 0, 5, 3, 6, 24, 2}));
    EXPECT_EQ(s->objectCount(), 1);
    EXPECT_EQ(s->object(1), nullptr);
    EXPECT_EQ(s->object(-1), nullptr);
    // The records last one line.
    ASSERT_EQ(f.feed(row("..........")), 0);
    EXPECT_EQ(s->objectCount(), 0);
    EXPECT_EQ(s->object(0), nullptr);
}

TEST(Tracker, CentroidMultipliesByTheReciprocalAndRoundsHalvesUp)
{
    // 82 pixels from column 11: 4223 / 82 is 51.5, but 4223 times the single-precision
    // reciprocal of 82 is just below it. Columns 2 and 3 give exactly 2.5.
    std::string line(100, '.');
    line.replace(11, 82, std::string(82, '1'));
    line.replace(2, 2, "11");
    auto s = prepared({0, 1}, 100);
    const std::vector<Report> r = runPicture(*s, Kernel::Decisions, {line});
    ASSERT_EQ(r.size(), 2u);
    EXPECT_EQ(head(r[0]), Fields({1, 0, 3, 0, 0, 2, 3, 2, 1}));
    EXPECT_EQ(head(r[1]), Fields({2, 0, 51, 0, 0, 11, 92, 82, 1}));
}

TEST(Tracker, ReportsAtTheFirstMultipleOfTwentyAtLeastTwoLinesAfterTheEnd)
{
    auto s = prepared({0, 1}, 6);
    Feeder f(*s, Kernel::Decisions);
    for (int line = 0; line <= 70; ++line) {
        std::string text = "......";
        if (line <= 18)
            text[0] = '1'; // last line 18: line 20
        if (line <= 19)
            text[4] = '1'; // last line 19: line 40
        if (line >= 30 && line <= 38)
            text[0] = text[1] = '1'; // last line 38: line 40
        if (line >= 30 && line <= 39)
            text[4] = text[5] = '1'; // last line 39: line 60
        ASSERT_EQ(f.feed(row(text)), 0);
    }
    std::vector<std::tuple<int, int, int, int>> got; // reported on, number, first and last line
    for (const Report& r : f.reports)
        got.emplace_back(r.line, r.record[Number], r.record[FirstLine], r.record[LastLine]);
    const std::vector<std::tuple<int, int, int, int>> expected = {
        {20, 1, 0, 18}, {40, 2, 0, 19}, {40, 3, 30, 38}, {60, 4, 30, 39}};
    EXPECT_EQ(got, expected);
}

TEST(Tracker, DifferentDecisionsSideBySideJoinOnlyInAllForegroundMode)
{
    const std::vector<std::string> picture = {".12.", ".12."};
    const std::vector<Report> separate = runAny(Kernel::Decisions, {0, 1, 1}, picture);
    ASSERT_EQ(separate.size(), 2u);
    EXPECT_EQ(head(separate[0]), Fields({1, 1, 1, 0, 1, 1, 1, 2, 1}));
    EXPECT_EQ(head(separate[1]), Fields({2, 1, 2, 0, 1, 2, 2, 2, 2}));

    // One object, two pixels of each class: the tie goes to the lower code.
    const std::vector<Report> joined = runAny(Kernel::Foreground, {0, 1, 1}, picture);
    ASSERT_EQ(joined.size(), 1u);
    EXPECT_EQ(head(joined[0]), Fields({1, 1, 2, 0, 1, 1, 2, 4, 1}));
    EXPECT_EQ(joined[0].record[ClassSizes + 0], 0);
    EXPECT_EQ(joined[0].record[ClassSizes + 1], 2);
    EXPECT_EQ(joined[0].record[ClassSizes + 2], 2);

    // The value kernels connect by decision code whatever the mask, and count no classes.
    for (Kernel kernel : {Kernel::Value, Kernel::Values}) {
        auto s = prepared({0, 1, 1}, 4, 1, 2, kernel == Kernel::Value ? 1 : 2);
        Feeder f(*s, kernel);
        const std::vector<float> values(4 * size_t(s->valuesPerPixel()), 1.0f);
        for (int line = 0; line <= 20; ++line)
            ASSERT_EQ(f.feed(row(line < 2 ? picture[line] : "...."), values), 0);
        ASSERT_EQ(f.reports.size(), 2u);
        EXPECT_EQ(head(f.reports[1]), Fields({2, 1, 2, 0, 1, 2, 2, 2, 2}));
        EXPECT_EQ(f.reports[1].record[ClassSizes + 2], 0);
    }
}

TEST(Tracker, FlagValuesOtherThanOneFormTheirOwnObjectsInAllForegroundMode)
{
    // Code 3 is flagged 2: it touches codes 1 and 2 but joins neither.
    const std::vector<Report> r = runAny(Kernel::Foreground, {0, 1, 1, 2}, {"1233", "12.."});
    ASSERT_EQ(r.size(), 2u);
    EXPECT_EQ(r[0].record[PixelCount], 4);
    EXPECT_EQ(r[1].record[PixelCount], 2);
    EXPECT_EQ(r[1].record[Decision], 3);
    EXPECT_EQ(r[1].record[ClassSizes + 3], 2);
}

TEST(Tracker, CodesBeyondTheForegroundVectorAreBackground)
{
    auto s = prepared({0, 1}, 5);
    Feeder f(*s, Kernel::Decisions);
    ASSERT_EQ(f.feed({1, 255, 1, 2, 1}), 0);
    while (s->currentLine() <= 20)
        ASSERT_EQ(f.feed({0, 0, 0, 0, 0}), 0);
    EXPECT_EQ(f.reports.size(), 3u);
}

TEST(Tracker, WidthOneStreamsUseOnlyTheFirstColumn)
{
    for (Kernel kernel : {Kernel::Decisions, Kernel::Foreground}) {
        const std::vector<Report> r = runAny(kernel, {0, 1}, {"1", "1", "1", ".", ".", "1", "1"});
        ASSERT_EQ(r.size(), 2u);
        EXPECT_EQ(head(r[0]), Fields({1, 1, 0, 0, 2, 0, 0, 3, 1}));
        // Offsets 0 and 1 average 0.5, rounded up.
        EXPECT_EQ(head(r[1]), Fields({2, 6, 0, 5, 6, 0, 0, 2, 1}));
    }
}

TEST(Tracker, UShapeMergesWithOffsetsAddedAsTheyStand)
{
    // The left arm is older. Its label takes the right arm in; the right arm's offsets
    // count from its own first line 4, so the line sum is 34, not 42.
    const std::vector<std::string> olderLeft = {"1..", "1..", "1..", "1..", "1.1", "1.1", "111"};
    // The right arm is older; the join comes from the newest label, which takes the
    // offset of the joining pixel from its own first line 3: 15 + 3 + 9 = 27 over 12.
    const std::vector<std::string> olderRight = {"..1", "..1", "..1", "1.1", "1.1", "1.1", "111"};
    for (Kernel kernel : allKernels) {
        SCOPED_TRACE(int(kernel));
        const std::vector<Report> a = runAny(kernel, {0, 1}, olderLeft);
        ASSERT_EQ(a.size(), 1u);
        EXPECT_EQ(head(a[0]), Fields({1, 3, 1, 0, 6, 0, 2, 11, 1}));
        const std::vector<Report> b = runAny(kernel, {0, 1}, olderRight);
        ASSERT_EQ(b.size(), 1u);
        EXPECT_EQ(head(b[0]), Fields({1, 2, 1, 0, 6, 0, 2, 12, 1}));
    }
}

TEST(Tracker, MergeTakesTheLineOfTheLastRelabelledAlias)
{
    // Labels 1 (column 0), 2 (column 2) and 3 (column 4, from line 2). On line 4 label 2
    // takes 3 in; on line 5 label 1 takes 2 in, and relabelling 3, an alias of 2, makes
    // record 3 the touched one: the joining pixel's offset is 5 - 2. Offsets: 20 from
    // label 1, 19 from label 2, 3 for the join: 42 over 17 pixels, which rounds to 2
    // (with label 1's own first line it would be 44, rounding to 3).
    const std::vector<std::string> picture = {"1.1..", "1.1..", "1.1.1", "1.1.1", "1.111", "111.."};
    const std::vector<Report> r = runAny(Kernel::Decisions, {0, 1}, picture);
    ASSERT_EQ(r.size(), 1u);
    EXPECT_EQ(head(r[0]), Fields({1, 2, 2, 0, 5, 0, 4, 17, 1}));
}

TEST(Tracker, ReusedSmallerLabelLeavesTheOlderObjectsLaterPixelsApart)
{
    // Label 1 (a dot on line 0) is closed on line 20. Q takes label 2 on line 10 and
    // grows two legs. A dot on line 22 takes the prepared label 3, so the run that
    // starts on line 27 gets label 1 back and meets Q's left leg through the quick
    // relabel: it takes Q's pixels, but label 2 still resolves to itself, and Q's right
    // leg goes on as an object of its own.
    auto s = prepared({0, 1}, 10);
    Feeder f(*s, Kernel::Decisions);
    for (int line = 0; line <= 40; ++line) {
        std::string text = "..........";
        if (line == 0 || line == 22)
            text[0] = '1';
        if (line >= 10 && line <= 24)
            text.replace(4, 6, "111111");
        if (line >= 25 && line <= 30)
            text[4] = text[9] = '1';
        if (line == 27)
            text[2] = text[3] = '1';
        ASSERT_EQ(f.feed(row(text)), 0);
    }
    ASSERT_EQ(f.reports.size(), 4u);
    EXPECT_EQ(f.reports[0].line, 20);
    // Q's 94 pixels up to line 26, the run's 2, the join and the left leg's 3 more.
    EXPECT_EQ(head(f.reports[1]), Fields({2, f.reports[1].record[CentroidLine], f.reports[1].record[CentroidColumn],
                                          10, 30, 2, 9, 100, 1}));
    // The right leg from line 27 keeps Q's first line and columns: offsets 17 to 20 from
    // line 10 average 18.5.
    EXPECT_EQ(head(f.reports[2]), Fields({3, 29, 9, 10, 30, 4, 9, 4, 1}));
    EXPECT_EQ(f.reports[3].record[FirstLine], 22);
    for (int i = 1; i < 4; ++i)
        EXPECT_EQ(f.reports[i].line, 40);
}

TEST(Tracker, ObjectsBelowTheMinimumSizeLeaveNoRecordAndNoNumber)
{
    auto s = prepared({0, 1}, 8, 4);
    Feeder f(*s, Kernel::Decisions);
    // Three pixels on lines 0 to 2; exactly four on lines 30 to 31; then three again and
    // a four in the same pass.
    for (int line = 0; line <= 80; ++line) {
        std::string text = "........";
        if (line == 0)
            text = "111.....";
        if (line == 30 || line == 31)
            text = "11......";
        if (line == 50)
            text = "111..111";
        if (line == 51)
            text = ".......1";
        ASSERT_EQ(f.feed(row(text)), 0);
    }
    ASSERT_EQ(f.reports.size(), 2u);
    EXPECT_EQ(f.reports[0].line, 40);
    EXPECT_EQ(head(f.reports[0]), Fields({1, 31, 1, 30, 31, 0, 1, 4, 1}));
    EXPECT_EQ(f.reports[1].line, 60);
    EXPECT_EQ(f.reports[1].record[Number], 2);
    EXPECT_EQ(f.reports[1].record[FirstColumn], 5);
}

// Random pictures on lines 0 to 18 of a new stream, all reported on line 20, against a
// flood fill of the same picture, which joins only pixels that share an edge. Labels
// only grow before the first objects close, so the objects come in the order of their
// first pixels, whichever ends first.
TEST(Tracker, MatchesAFloodFillOfRandomPictures)
{
    const std::vector<quint8> flags = {0, 1, 1, 2};
    const int width = 40, height = 19, minSize = 3;
    for (Kernel kernel : allKernels) {
        for (unsigned seed = 1; seed <= 12; ++seed) {
            SCOPED_TRACE(testing::Message() << "kernel " << int(kernel) << " seed " << seed);
            std::mt19937 rng(seed);
            std::vector<std::vector<quint8>> image(height, std::vector<quint8>(width, 0));
            for (int n = 0; n < 30; ++n) {
                const int y = int(rng() % height), x = int(rng() % width);
                const int h = 1 + int(rng() % 6), w = 1 + int(rng() % 10);
                const quint8 code = quint8(1 + rng() % 3);
                for (int i = y; i < std::min(height, y + h); ++i)
                    for (int j = x; j < std::min(width, x + w); ++j)
                        image[i][j] = code;
            }
            for (int n = 0; n < 40; ++n)
                image[rng() % height][rng() % width] = quint8(rng() % 4);

            const bool byFlag = kernel == Kernel::Foreground;
            const int k = kernel == Kernel::Value ? 1 : kernel == Kernel::Values ? 3 : 0;
            std::vector<float> values;
            for (int y = 0; y < height; ++y) {
                const std::vector<float> v = valuesFor(image[y], y, k);
                values.insert(values.end(), v.begin(), v.end());
            }
            auto s = prepared(flags, width, minSize, byFlag ? 2 : 1, k);
            Feeder f(*s, kernel);
            for (int y = 0; y < height; ++y)
                ASSERT_EQ(f.feed(image[y], valuesFor(image[y], y, k)), 0);
            const std::vector<quint8> empty(width, 0);
            while (s->currentLine() <= 20)
                ASSERT_EQ(f.feed(empty, valuesFor(empty, s->currentLine(), k)), 0);

            std::vector<Component> expected;
            for (const Component& c : floodFill(image, s->foregroundTable(), byFlag, values, k))
                if (c.pixels >= minSize)
                    expected.push_back(c);
            ASSERT_EQ(f.reports.size(), expected.size());
            for (size_t i = 0; i < expected.size(); ++i) {
                const Component& c = expected[i];
                const Report& r = f.reports[i];
                const int decision = byFlag ? c.majority() : c.decision;
                EXPECT_EQ(r.line, 20);
                EXPECT_EQ(head(r), Fields({int(i) + 1, r.record[CentroidLine], c.centroidColumn(), c.firstLine,
                                           c.lastLine, c.firstColumn, c.lastColumn, c.pixels, decision}))
                    << "object " << i;
                for (int code = 0; code < ObjectClassSlots; ++code)
                    EXPECT_EQ(r.record[ClassSizes + code], byFlag && code < 4 ? c.perCode[code] : 0);
                for (int j = 0; j < k; ++j)
                    EXPECT_EQ(r.means[j], float(c.valueSums[j]) / float(c.pixels));
                EXPECT_GE(r.record[CentroidLine], c.firstLine);
                EXPECT_LE(r.record[CentroidLine], c.lastLine);
            }
        }
    }
}

namespace {

// Twenty-line blocks, each with two U shapes and a rectangle, shifted down by 0 to 6
// lines from block to block.
std::vector<std::string> block(int shift)
{
    std::vector<std::string> rows(20, std::string(24, '.'));
    auto put = [&](int line, int column, char code) { rows[line + shift][column] = code; };
    for (int i = 0; i <= 6; ++i)
        put(i, 0, '1');
    for (int i = 2; i <= 5; ++i)
        put(i, 3, '1');
    for (int j = 1; j <= 3; ++j)
        put(6, j, '1');
    for (int i = 3; i <= 12; ++i)
        for (int j = 8; j <= 12; ++j)
            put(i, j, '2');
    for (int i = 1; i <= 7; ++i)
        put(i, 16, '1');
    for (int i = 4; i <= 6; ++i)
        put(i, 19, '1');
    for (int j = 17; j <= 19; ++j)
        put(7, j, '1');
    return rows;
}

using Summary = std::tuple<int, int, int, int, int, int, int, int>; // line, first/last line and column, count, centroid column, decision

} // namespace

// Far more objects than labels pass through the stream: labels must be reused, among
// them those merged away in the U shapes, which only come free once their root label
// has been given to a later object.
TEST(Tracker, ReusesLabelsOverALongStream)
{
    const int blocks = 56000; // 168000 objects, 112000 of them merged from two labels
    auto s = prepared({0, 1, 1}, 24);
    ASSERT_TRUE(s);
    std::vector<std::vector<Component>> shapes;
    std::vector<std::vector<std::vector<quint8>>> pictures;
    for (int shift = 0; shift < 7; ++shift) {
        std::vector<std::vector<quint8>> image;
        for (const std::string& text : block(shift))
            image.push_back(row(text));
        shapes.push_back(floodFill(image, s->foregroundTable(), false));
        pictures.push_back(image);
    }
    ASSERT_EQ(shapes[0].size(), 3u);

    std::map<int, std::multiset<Summary>> expected;
    auto summary = [](int line, int first, int last, int left, int right, int count, int column, int decision) {
        return Summary(line, first, last, left, right, count, column, decision);
    };
    for (int b = 0; b < blocks; ++b)
        for (const Component& c : shapes[b % 7]) {
            const int last = 20 * b + c.lastLine;
            const int reported = (last + 2 + 19) / 20 * 20;
            expected[reported].insert(summary(reported, 20 * b + c.firstLine, last, c.firstColumn, c.lastColumn,
                                              c.pixels, c.centroidColumn(), c.decision));
        }

    std::map<int, std::multiset<Summary>> got;
    int reported = 0;
    bool numbersInOrder = true;
    const std::vector<quint8> empty(24, 0);
    for (int b = 0; b <= blocks; ++b) {
        for (int i = 0; i < 20; ++i) {
            const quint8* line = b < blocks ? pictures[b % 7][i].data() : empty.data();
            ASSERT_EQ(s->trackDecisions(line), 0) << "line " << s->currentLine();
            for (int n = 0; n < s->objectCount(); ++n) {
                const qint32* r = s->object(n);
                numbersInOrder &= r[Number] == ++reported;
                got[s->currentLine() - 1].insert(summary(s->currentLine() - 1, r[FirstLine], r[LastLine],
                                                         r[FirstColumn], r[LastColumn], r[PixelCount],
                                                         r[CentroidColumn], r[Decision]));
            }
        }
    }
    EXPECT_TRUE(numbersInOrder);
    EXPECT_EQ(reported, 3 * blocks);
    EXPECT_TRUE(got == expected);
}

TEST(Tracker, QuickAndPlainLabelSearchIssueTheSameLabels)
{
    // Rectangles of three codes appear at random and overlap, so that labels merge,
    // close and come back in every order.
    std::vector<std::vector<quint8>> rows(3000, std::vector<quint8>(48, 0));
    std::mt19937 rng(7);
    for (int n = 0; n < 600; ++n) {
        const int y = int(rng() % 2990), x = int(rng() % 48);
        const int h = 1 + int(rng() % 20), w = 1 + int(rng() % 8);
        const quint8 code = quint8(1 + rng() % 3);
        for (int i = y; i < std::min(3000, y + h); ++i)
            for (int j = x; j < std::min(48, x + w); ++j)
                rows[i][j] = code;
    }
    std::vector<Report> runs[2];
    for (int plain = 0; plain < 2; ++plain) {
        auto s = prepared({0, 1, 1, 1}, 48, 2, 2);
        s->setPlainLabelSearch(plain == 1);
        Feeder f(*s, Kernel::Foreground);
        for (const std::vector<quint8>& r : rows)
            ASSERT_EQ(f.feed(r), 0);
        runs[plain] = f.reports;
    }
    ASSERT_GT(runs[0].size(), 100u);
    ASSERT_EQ(runs[0].size(), runs[1].size());
    for (size_t i = 0; i < runs[0].size(); ++i) {
        EXPECT_EQ(runs[0][i].line, runs[1][i].line);
        EXPECT_EQ(runs[0][i].record, runs[1][i].record) << i;
    }
}

TEST(Tracker, FailsWhenEveryLabelIsOpen)
{
    // Isolated pixels on one line: 99998 leave label 99999 ready, the 99999th needs a
    // label beyond the table.
    for (int pixels : {99998, 99999}) {
        auto s = prepared({0, 1}, 2 * pixels);
        const std::vector<quint8> line = isolatedPixels(pixels);
        EXPECT_EQ(s->trackDecisions(line.data()), pixels == 99998 ? 0 : -1);
        EXPECT_EQ(s->currentLine(), pixels == 99998 ? 1 : 0);
    }
}

TEST(Tracker, PassFailsOnItsFiftyThousandthObject)
{
    for (int pixels : {49999, 50000}) {
        const int width = 2 * pixels;
        auto s = prepared({0, 1}, width);
        const std::vector<quint8> line = isolatedPixels(pixels);
        ASSERT_EQ(s->trackDecisions(line.data()), 0);
        const std::vector<quint8> empty(size_t(width), 0);
        std::vector<std::vector<quint8>> keep(20, empty);
        for (int l = 1; l < 20; ++l)
            ASSERT_EQ(s->trackDecisions(keep[l].data()), 0);
        const int result = s->trackDecisions(keep[0].data());
        if (pixels == 49999) {
            EXPECT_EQ(result, 0);
            EXPECT_EQ(s->objectCount(), 49999);
            EXPECT_EQ(s->currentLine(), 21);
        } else {
            // The last object is written, and the line does not advance.
            EXPECT_EQ(result, -1);
            EXPECT_EQ(s->objectCount(), 50000);
            ASSERT_TRUE(s->object(49999));
            EXPECT_EQ(s->object(49999)[Number], 50000);
            EXPECT_EQ(s->object(49999)[FirstColumn], width - 2);
            EXPECT_EQ(s->currentLine(), 20);
        }
    }
}

TEST(Tracker, LongObjectsWrapTheirLineSumsAt32Bits)
{
    // 64 columns over 40000 lines: the offsets add up to 64 * 799980000, beyond 2^32.
    // The sum wraps as the 32-bit integer it is kept in; everything else stays exact.
    const int lines = 40000;
    auto s = prepared({0, 1}, 64);
    // Alternate buffers, so that the row before stays intact.
    const std::vector<quint8> full[2] = {std::vector<quint8>(64, 1), std::vector<quint8>(64, 1)};
    const std::vector<quint8> empty[2] = {std::vector<quint8>(64, 0), std::vector<quint8>(64, 0)};
    for (int line = 0; line <= lines + 20 && s->objectCount() == 0; ++line)
        ASSERT_EQ(s->trackDecisions((line < lines ? full : empty)[line % 2].data()), 0);
    ASSERT_EQ(s->objectCount(), 1);
    const qint32* r = s->object(0);
    const qint32 wrappedSum = qint32(quint32(quint64(64) * 799980000u));
    EXPECT_EQ(r[CentroidLine], qint32(std::roundf(float(wrappedSum) * (1.0f / float(64 * lines)))));
    EXPECT_EQ(r[CentroidColumn], 32); // 31.5 rounds up
    EXPECT_EQ(r[PixelCount], 64 * lines);
    EXPECT_EQ(r[LastLine], lines - 1);
}
