// Reading the results of the last frame or cube, the vocabulary of decisions and
// variables, and exporting the decision image; and what each query call reports for a
// null handle. The results come from runs of the models of model_files.h.

#include "model_files.h"
#include "runtime/handle_probe.h"
#include "saved_decisions.h"
#include "test_handle.h"

#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>
#include <algorithm>
#include <functional>
#include <string>

using namespace modelfiles;

namespace {

constexpr int Width = 8, Bands = 4;

std::string message(ZelkHandle* h)
{
    return zelk_GetErrorMsg(h);
}

// A BIL float frame of `width` pixels: band 1 is 10 ("leaf") at the listed columns, 0
// ("bg") elsewhere; band 3 is `band3` everywhere.
std::vector<float> frame(std::initializer_list<int> leafColumns, int width = Width, float band3 = 0)
{
    std::vector<float> f(size_t(width) * Bands, 0.0f);
    for (int p = 0; p < width; ++p)
        f[size_t(3 * width + p)] = band3;
    for (int c : leafColumns)
        f[size_t(width + c)] = 10;
    return f;
}

// A handle with a model loaded; `load` replaces it.
struct Loaded {
    QTemporaryDir dir;
    TestHandle h;
    int models = 0;
    explicit Loaded(const Project& p) { load(p); }
    void load(const Project& p)
    {
        const QString name = QStringLiteral("model%1").arg(models++);
        EXPECT_EQ(zelk_LoadModel(h, writeModel(dir, p, FileKind::Zelk, name).toLatin1()), 0) << zelk_GetErrorMsg(h);
    }
    operator ZelkHandle*() const { return h; }
};

// Runs frames with segmentation on: `leaf(line)` lists the leaf columns of each line.
// The objects of the last frame stay readable.
void runFrames(ZelkHandle* h, int lines, const std::function<std::vector<int>(int)>& leaf, int width = Width)
{
    for (int line = 0; line < lines; ++line) {
        std::vector<float> f(size_t(width) * Bands, 0.0f);
        for (int c : leaf(line))
            f[size_t(width + c)] = 10;
        zelk_ProcessFrame(h, f.data());
    }
}

// Line-scan segmentation of "leaf" with its decisions apart (mask 1) or all
// foreground together (mask 2), started.
void startSegmented(Loaded& run)
{
    ASSERT_EQ(zelk_SetSegmentation(run, 1), 0);
    ASSERT_EQ(zelk_StartAcquisition(run), 0) << zelk_GetErrorMsg(run);
}

Project withMask(int objMask)
{
    Project p = lineScanProject(Width);
    p.segmenter = segmenterBytes(leafObjects(objMask));
    return p;
}

// The three classes "sand", "stone" and "glass", with rejection when asked, and the
// project colours 0x123456 for sand, none for stone (black) and 0xABCDEF for glass.
Project vocabularyProject(bool reject)
{
    ClassifierSpec c = twoCentreClassifier();
    c.classNames = QStringList{"sand", "stone", "glass"};
    c.classCodes = {0, 1, 2};
    c.classFlags = {false, true, true};
    c.network->unitCount = 3;
    c.network->classCount = 3;
    c.network->classNames = c.classNames;
    c.network->centres = TypedArray::floats({2, 3, 1, 1}, {0, 0, 10, 0, 20, 0});
    c.network->gammas = TypedArray::floats({3, 1, 1, 1}, {-1, -1, -1});
    c.network->outputWeights = TypedArray::floats({4, 3, 1, 1}, {0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1});
    c.network->unitTags = QVector<qint32>{0, 1, 2};
    c.roc->rowLength = 3;
    c.roc->weightTable = QVector<float>{1, 1, 1};
    c.rejectEnabled = reject;
    if (reject)
        c.rejectThresholds = QVector<float>{0.5f, 0.5f, 0.5f};
    Project p = lineScanProject(Width);
    p.classNames = QStringList{"Unknown", "sand", "stone", "glass"};
    p.classColors = {QColor(0, 0, 0, 0), QColor(0x12, 0x34, 0x56), QColor(0, 0, 0, 0), QColor(0xAB, 0xCD, 0xEF)};
    p.classForeground = QVector<bool>{false, false, true, true};
    p.classifier = classifierBytes(c);
    p.segmenter.reset();
    return p;
}

// Object index `index` is refused with -161 and `text`, and *out stays.
void expectIndexRefused(ZelkHandle* h, int index, const char* text)
{
    SCOPED_TRACE(text);
    int sentinel = 0;
    int* record = &sentinel;
    EXPECT_EQ(zelk_GetObjDataInt(h, index, &record), -161);
    EXPECT_EQ(record, &sentinel);
    EXPECT_EQ(zelk_GetErrorCode(h), -161);
    EXPECT_EQ(message(h), text);
}

} // namespace

TEST(Results, NullHandleReportsInTheGlobalPairUnderTheCallsName)
{
    int* ints = nullptr;
    float* floats = nullptr;
    unsigned char r, g, b;
    struct Case {
        const char* text;
        std::function<double()> call;
    } cases[] = {
        {"zelk_GetDeviceCount: Passing NULL pointer.", [] { return zelk_GetDeviceCount(nullptr); }},
        {"zelk_SetDevice: Passing NULL pointer.", [] { return zelk_SetDevice(nullptr, 0); }},
        {"zelk_RefreshDeviceList: Passing NULL pointer.", [] { return zelk_RefreshDeviceList(nullptr, 0, 0); }},
        {"zelk_GetObjCount: Passing NULL pointer.", [] { return zelk_GetObjCount(nullptr); }},
        {"zelk_GetObjCount: Passing NULL pointer.", [&] { return zelk_GetObjDataInt(nullptr, 0, &ints); }},
        {"zelk_GetObjDataClassSize: Passing NULL pointer.", [] { return zelk_GetObjDataClassSize(nullptr, 0, 0); }},
        {"zelk_GetObjDataClassSize: Passing NULL pointer.", [] { return zelk_GetObjDataClassFrac(nullptr, 0, 0); }},
        {"zelk_GetObjDataRegOut: Passing NULL pointer.", [&] { return zelk_GetObjDataRegOutput(nullptr, 0, &floats); }},
        {"zelk_GetDecCount: Passing NULL pointer.", [] { return zelk_GetDecCount(nullptr); }},
        {"zelk_GetDecColor: Passing NULL pointer.", [&] { return zelk_GetDecColor(nullptr, 0, &r, &g, &b); }},
        {"zelk_GetRegVarCount: Passing NULL pointer.", [] { return zelk_GetRegVarCount(nullptr); }},
        {"zelk_SaveImage: Passing NULL pointer.", [] { return zelk_SaveImage(nullptr, "x.png"); }},
        // The pointer calls give null; -101 stands for it here.
        {"zelk_GetFrameDecisions: Passing NULL pointer.", [] { return zelk_GetFrameDecisions(nullptr) ? 0 : -101; }},
        {"zelk_GetCubeDecisions: Passing NULL pointer.", [] { return zelk_GetCubeDecisions(nullptr) ? 0 : -101; }},
        {"zelk_GetFrameRegOutputVar: Passing NULL pointer.", [] { return zelk_GetFrameRegOutputVar(nullptr, 0, 0, 0) ? 0 : -101; }},
        {"zelk_GetDeviceName: Passing NULL pointer.", [] { return zelk_GetDeviceName(nullptr, 0) ? 0 : -101; }},
        {"zelk_GetDecName: Passing NULL pointer.", [] { return zelk_GetDecName(nullptr, 0) ? 0 : -101; }},
        {"zelk_GetRegVarName: Passing NULL pointer.", [] { return zelk_GetRegVarName(nullptr, 0) ? 0 : -101; }},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text);
        TestHandle other; // clears the global text
        EXPECT_EQ(c.call(), -101.0);
        EXPECT_EQ(zelk_GetErrorCode(nullptr), -101);
        EXPECT_EQ(message(nullptr), c.text);
    }
}

TEST(Results, ObjectIndexIsCheckedAgainstTheCountAndTheStoredRecords)
{
    // Three single-pixel leaves of line 0, at columns 0, 3 and 6, finished together by
    // the pass of line 20.
    Loaded run(lineScanProject(Width));
    startSegmented(run);
    runFrames(run, 21, [](int line) { return line == 0 ? std::vector<int>{0, 3, 6} : std::vector<int>{}; });
    ASSERT_EQ(zelk_GetObjCount(run), 3);
    std::vector<int> columns;
    for (int i = 0; i < 3; ++i) {
        int* record = nullptr;
        ASSERT_EQ(zelk_GetObjDataInt(run, i, &record), 0);
        ASSERT_NE(record, nullptr);
        EXPECT_EQ(record[ZELK_OBJ_NUMBER], i + 1);
        EXPECT_EQ(record[ZELK_OBJ_PIXEL_COUNT], 1);
        EXPECT_EQ(record[ZELK_OBJ_FIRST_COLUMN], record[ZELK_OBJ_LAST_COLUMN]);
        EXPECT_EQ(record[ZELK_OBJ_RECORD_INTS - 1], 0); // no class counters in this mode
        columns.push_back(record[ZELK_OBJ_FIRST_COLUMN]);
    }
    std::sort(columns.begin(), columns.end());
    EXPECT_EQ(columns, (std::vector<int>{0, 3, 6}));
    expectIndexRefused(run, -1, "zelk_GetObjDataInt: Object index out of bounds (0..2 got -1)");
    expectIndexRefused(run, 3, "zelk_GetObjDataInt: Object index out of bounds (0..2 got 3)");
    EXPECT_EQ(zelk_GetObjDataInt(run, 0, nullptr), -101);
    runFrames(run, 1, [](int) { return std::vector<int>{}; }); // finishes none
    EXPECT_EQ(zelk_GetObjCount(run), 0);
    expectIndexRefused(run, 0, "zelk_GetObjDataInt: Object index out of bounds (0..-1 got 0)");

    // A frame that finished more objects than the handle holds keeps the full count, but
    // only the stored records can be read: a leaf at every other one of 601 pixels.
    constexpr int Wide = 601;
    Loaded wide(lineScanProject(Wide));
    startSegmented(wide);
    runFrames(
        wide, 21,
        [](int line) {
            std::vector<int> leaf;
            for (int x = 0; line == 0 && x < Wide; x += 2)
                leaf.push_back(x);
            return leaf;
        },
        Wide);
    EXPECT_EQ(zelk_GetObjCount(wide), 301);
    expectIndexRefused(wide, 300, "zelk_GetObjDataInt: Object index out of bounds (0..299 got 300)");
    int* record = nullptr;
    EXPECT_EQ(zelk_GetObjDataInt(wide, 299, &record), 0);
    EXPECT_EQ(record[ZELK_OBJ_NUMBER], 300);
}

TEST(Results, ClassSizesNeedAllForegroundModeAndAClassIndexUpTo20)
{
    // Two leaf objects: one pixel at column 1 of line 0, four at columns 5 and 6 of lines
    // 0 and 1. In 'All foreground' mode a record counts its pixels per decision: all of
    // them "leaf" (code 1).
    const auto twoObjects = [](int line) {
        return line == 0 ? std::vector<int>{1, 5, 6} : line == 1 ? std::vector<int>{5, 6} : std::vector<int>{};
    };
    Loaded all(withMask(2)), apart(withMask(1));
    for (Loaded* run : {&all, &apart}) {
        startSegmented(*run);
        runFrames(*run, 21, twoObjects);
        ASSERT_EQ(zelk_GetObjCount(*run), 2);
    }
    std::vector<int> sizes;
    for (int i = 0; i < 2; ++i) {
        int* record = nullptr;
        ASSERT_EQ(zelk_GetObjDataInt(all, i, &record), 0);
        sizes.push_back(record[ZELK_OBJ_PIXEL_COUNT]);
        EXPECT_EQ(zelk_GetObjDataClassSize(all, i, 1), record[ZELK_OBJ_PIXEL_COUNT]);
        EXPECT_EQ(zelk_GetObjDataClassSize(all, i, 0), 0);
        EXPECT_EQ(zelk_GetObjDataClassSize(all, i, 20), 0);
        EXPECT_FLOAT_EQ(zelk_GetObjDataClassFrac(all, i, 1), 1.0f);
        EXPECT_EQ(zelk_GetObjDataClassFrac(all, i, 20), 0.0f);
    }
    std::sort(sizes.begin(), sizes.end());
    EXPECT_EQ(sizes, (std::vector<int>{1, 4}));
    EXPECT_EQ(zelk_GetErrorCode(all), 0);

    struct Case {
        Loaded* run;
        bool stopped; // the acquisition stopped first: no segmenter is lent
        int index;
        unsigned classIndex;
        int code;
        const char* text;
    } cases[] = {
        {&all, false, 1, 21, -162, "%1: Class index out of bounds (0..20, got 1)"},
        {&all, false, 0, unsigned(-1), -162, "%1: Class index out of bounds (0..20, got 0)"},
        {&all, false, 2, 0, -161, "%1: Object index out of bounds (0..1 got 2)"},
        {&apart, false, 1, 0, -163, "%1: Segmentation not set to required 'All foreground' mode."},
        {&apart, false, -1, 0, -161, "%1: Object index out of bounds (0..1 got -1)"},
        {&all, true, 1, 0, -163, "%1: Segmentation not set to required 'All foreground' mode."},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << c.stopped << " " << c.index << " " << c.classIndex);
        ZelkHandle* h = *c.run;
        if (c.stopped)
            ASSERT_EQ(zelk_StopAcquisition(h), 0);
        EXPECT_EQ(zelk_GetObjDataClassSize(h, c.index, c.classIndex), c.code);
        EXPECT_EQ(message(h), QString(c.text).arg("zelk_GetObjDataClassSize").toStdString());
        EXPECT_EQ(zelk_GetObjDataClassFrac(h, c.index, c.classIndex), float(c.code));
        EXPECT_EQ(zelk_GetErrorCode(h), c.code);
        EXPECT_EQ(message(h), QString(c.text).arg("zelk_GetObjDataClassFrac").toStdString());
    }
}

TEST(Results, ObjectRegressionMeansAreRowsOfTheSegmentersTable)
{
    // Two objects of line 0, at columns 0 and 1 and at 6 and 7, whose band 3 is 1.5 and
    // 2.5: "fat" (x3 - 1) * 2 is 1 and 3, "water" fat - (x1 - 2) / 2 + 100 is 97 and 99.
    Loaded run(regressionProject(Width));
    startSegmented(run);
    std::vector<float> first = frame({0, 1, 6, 7});
    for (int p = 0; p < Width; ++p)
        first[size_t(3 * Width + p)] = p < 4 ? 1.5f : 2.5f;
    ASSERT_EQ(zelk_ProcessFrame(run, first.data()), 0);
    runFrames(run, 20, [](int) { return std::vector<int>{}; });
    ASSERT_EQ(zelk_GetObjCount(run), 2);
    const auto expectMeans = [&] {
        float* table = nullptr;
        for (int i = 0; i < 2; ++i) {
            int* record = nullptr;
            ASSERT_EQ(zelk_GetObjDataInt(run, i, &record), 0);
            float* means = nullptr;
            ASSERT_EQ(zelk_GetObjDataRegOutput(run, i, &means), 0);
            if (i == 0)
                table = means;
            EXPECT_EQ(means, table + 2 * i); // rows of one table, a value per variable
            const bool left = record[ZELK_OBJ_FIRST_COLUMN] == 0;
            EXPECT_FLOAT_EQ(means[0], left ? 1 : 3);
            EXPECT_FLOAT_EQ(means[1], left ? 97 : 99);
        }
    };
    expectMeans();
    // After a stop the handle no longer borrows the segmenter; the means stay readable.
    ASSERT_EQ(zelk_StopAcquisition(run), 0);
    expectMeans();
    float* means = nullptr;
    EXPECT_EQ(zelk_GetObjDataRegOutput(run, 2, &means), -161);
    EXPECT_EQ(message(run), "zelk_GetObjDataRegOut: Object index out of bounds (0..1 got 2)");
    EXPECT_EQ(zelk_GetObjDataRegOutput(run, 1, nullptr), -101);
    // A project loaded since, or a run without regression outputs, has no table to
    // point at.
    run.load(regressionProject(Width));
    EXPECT_EQ(zelk_GetObjDataRegOutput(run, 0, &means), -303);
    Loaded plain(lineScanProject(Width));
    startSegmented(plain);
    runFrames(plain, 21, [](int line) { return line == 0 ? std::vector<int>{2} : std::vector<int>{}; });
    ASSERT_EQ(zelk_GetObjCount(plain), 1);
    EXPECT_EQ(zelk_GetObjDataRegOutput(plain, 0, &means), -303);
    EXPECT_EQ(means, nullptr);
}

TEST(Results, DecisionBuffersBelongToTheirProjectKind)
{
    Loaded line(lineScanProject(4));
    EXPECT_EQ(zelk_GetFrameDecisions(line), nullptr); // no start has made the ring yet
    EXPECT_EQ(zelk_GetErrorCode(line), -120);
    EXPECT_EQ(message(line), "zelk_GetFrameDecisions: Label image does not exist.");
    // Each frame's row, a leaf at column f % 4, is handed out; after 500 frames the
    // ring has wrapped and the last row is its row 499.
    ASSERT_EQ(zelk_StartAcquisition(line), 0);
    for (int f = 0; f < 500; ++f) {
        const auto leaf = frame({f % 4}, 4);
        ASSERT_EQ(zelk_ProcessFrame(line, leaf.data()), 0);
        const unsigned char* d = zelk_GetFrameDecisions(line);
        ASSERT_NE(d, nullptr);
        QByteArray expected(4, '\0');
        expected[f % 4] = 1;
        ASSERT_EQ(QByteArray(reinterpret_cast<const char*>(d), 4), expected) << f;
    }
    EXPECT_EQ(handleprobe::run(line).last, 499);
    EXPECT_EQ(handleprobe::run(line).next, 0);
    ASSERT_EQ(zelk_StopAcquisition(line), 0);
    ASSERT_EQ(zelk_SetInputWidth(line, 5), 0); // wider frames than the ring's rows
    EXPECT_EQ(zelk_GetFrameDecisions(line), nullptr);
    ASSERT_EQ(zelk_SetInputWidth(line, 4), 0);
    EXPECT_NE(zelk_GetFrameDecisions(line), nullptr);

    EXPECT_EQ(zelk_GetCubeDecisions(line), nullptr);
    EXPECT_EQ(zelk_GetErrorCode(line), -212);
    EXPECT_EQ(message(line), "zelk_GetCubeDecisions: Snapshot project type expected, got linescan");

    // A 4 by 3 cube with a leaf at pixel 5.
    Loaded cube(snapshotProject(3, 0, 1, 4, 3));
    EXPECT_EQ(zelk_GetCubeDecisions(cube), nullptr); // before the first start
    EXPECT_EQ(zelk_GetErrorCode(cube), 0);
    ASSERT_EQ(zelk_StartAcquisition(cube), 0) << zelk_GetErrorMsg(cube);
    std::vector<float> pixels(4 * 3 * Bands, 0.0f);
    pixels[5 * Bands + 1] = 10;
    ASSERT_EQ(zelk_ProcessCube(cube, pixels.data()), 0) << zelk_GetErrorMsg(cube);
    const unsigned char* d = zelk_GetCubeDecisions(cube);
    ASSERT_NE(d, nullptr);
    QByteArray expected(12, '\0');
    expected[5] = 1;
    EXPECT_EQ(QByteArray(reinterpret_cast<const char*>(d), 12), expected);
    ASSERT_EQ(zelk_StopAcquisition(cube), 0);
    cube.load(snapshotProject(3, 0, 1, 4, 4)); // a taller cube than the decisions held
    EXPECT_EQ(zelk_GetCubeDecisions(cube), nullptr);
    EXPECT_EQ(zelk_GetFrameDecisions(cube), nullptr);
    EXPECT_EQ(zelk_GetErrorCode(cube), -211);
    EXPECT_EQ(message(cube), "zelk_GetFrameDecisions: Line-scan project type expected, got snapshot.");
}

TEST(Results, FrameRegressionVariableIsPickedAndMaskedByTheForeground)
{
    // Lines 17 and 18 hold a leaf at columns 0 and 1, which the pass of line 20 finishes
    // and marks with 255 down through its centroid, into the last row too; line 20 has a
    // leaf of its own at column 4. Band 3 is 1 + p / 2 at pixel p, so "fat" (x3 - 1) * 2
    // is p and "water" fat - (x1 - 2) / 2 + 100 is p + 101, or p + 96 on a leaf.
    Loaded run(regressionProject(Width));
    startSegmented(run);
    for (int line = 0; line <= 20; ++line) {
        std::vector<float> f = frame({}, Width);
        for (int p = 0; p < Width; ++p)
            f[size_t(3 * Width + p)] = 1 + p / 2.0f;
        if (line == 17 || line == 18)
            f[Width + 0] = f[Width + 1] = 10;
        if (line == 20)
            f[Width + 4] = 10;
        ASSERT_EQ(zelk_ProcessFrame(run, f.data()), 0);
    }
    ASSERT_EQ(zelk_GetObjCount(run), 1);
    const QByteArray row(reinterpret_cast<const char*>(zelk_GetFrameDecisions(run)), Width);
    ASSERT_NE(row.indexOf(char(255)), -1);
    ASSERT_EQ(row.at(4), 1);
    std::vector<float> fat(Width), water(Width), maskedFat(Width), maskedWater(Width);
    for (int p = 0; p < Width; ++p) {
        fat[size_t(p)] = float(p);
        water[size_t(p)] = float(p + (p == 4 ? 96 : 101));
        maskedFat[size_t(p)] = p == 4 ? fat[size_t(p)] : -1;
        maskedWater[size_t(p)] = p == 4 ? water[size_t(p)] : -1;
    }

    struct Case {
        const char* state;
        std::function<void()> enter;
        int varIndex, mask;
        std::vector<float> line; // empty: refused with `code`
        int code;
    } cases[] = {
        {"segmentation on", [] {}, 1, 0, water, 0},
        {"segmentation on", [] {}, 1, 1, maskedWater, 0},
        {"segmentation on", [] {}, -1, 0, {}, -301},
        {"segmentation on", [] {}, 2, 0, {}, -301},
        // Mask 2 masks with the lent segmenter even with segmentation off.
        {"segmentation off", [&] { ASSERT_EQ(zelk_SetSegmentation(run, 0), 0); }, 0, 2, maskedFat, 0},
        {"segmentation off", [] {}, 0, 1, {}, -303},
        // A stopped run lent no segmenter.
        {"stopped", [&] {
             ASSERT_EQ(zelk_SetSegmentation(run, 1), 0);
             ASSERT_EQ(zelk_StopAcquisition(run), 0);
         }, 0, 0, fat, 0},
        {"stopped", [] {}, 1, 1, {}, -303},
        {"stopped", [] {}, 0, 2, {}, -303},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << c.state << " " << c.varIndex << " " << c.mask);
        c.enter();
        float* line = zelk_GetFrameRegOutputVar(run, c.varIndex, c.mask, -1);
        if (c.line.empty()) {
            EXPECT_EQ(line, nullptr);
            EXPECT_EQ(zelk_GetErrorCode(run), c.code);
            if (c.code == -301)
                EXPECT_EQ(message(run), "zelk_GetFrameRegOutputVar: Variable index out of bounds");
            continue;
        }
        ASSERT_NE(line, nullptr);
        EXPECT_EQ(std::vector<float>(line, line + Width), c.line);
    }
    ASSERT_EQ(zelk_SetSegmentation(run, 0), 0);
    EXPECT_EQ(zelk_GetFrameRegOutputVar(run, 0, 1, 0), nullptr);
    EXPECT_EQ(message(run), "zelk_GetFrameRegOutputVar: Masking cannot be used as segmentation is not enabled");

    // The regressor of a model loaded since the run has a variable the run did not
    // compute; without any regressor there is none at all.
    Loaded one(regressionProject(Width, 1));
    ASSERT_EQ(zelk_StartAcquisition(one), 0);
    const auto empty = frame({});
    ASSERT_EQ(zelk_ProcessFrame(one, empty.data()), 0);
    ASSERT_EQ(zelk_StopAcquisition(one), 0);
    one.load(regressionProject(Width, 2));
    EXPECT_EQ(zelk_GetFrameRegOutputVar(one, 1, 0, 0), nullptr);
    EXPECT_EQ(zelk_GetErrorCode(one), -305);
    one.load(lineScanProject(Width));
    EXPECT_EQ(zelk_GetFrameRegOutputVar(one, 0, 0, 0), nullptr);
    EXPECT_EQ(zelk_GetErrorCode(one), -301);
    one.load(snapshotProject(3));
    EXPECT_EQ(zelk_GetFrameRegOutputVar(one, 0, 0, 0), nullptr);
    EXPECT_EQ(message(one), "zelk_GetFrameRegOutputVar: Line-scan project type expected, got snapshot.");
}

TEST(Results, DecisionsAreTheClassesAndTheRejectedOne)
{
    for (bool reject : {false, true}) {
        SCOPED_TRACE(reject);
        Loaded h(vocabularyProject(reject));
        const int count = reject ? 4 : 3;
        EXPECT_EQ(zelk_GetDecCount(h), count);
        const char* names[] = {"sand", "stone", "glass", "Unseen in training"};
        for (int i = 0; i < count; ++i)
            EXPECT_STREQ(zelk_GetDecName(h, i), names[i]);
        const int colours[][3] = {{0x12, 0x34, 0x56}, {0, 0, 0}, {0xAB, 0xCD, 0xEF}, {255, 170, 0}};
        for (int i = 0; i < count; ++i) {
            unsigned char r = 1, g = 1, b = 1;
            EXPECT_EQ(zelk_GetDecColor(h, i, &r, &g, &b), 0);
            EXPECT_EQ((std::vector<int>{r, g, b}), (std::vector<int>(colours[i], colours[i] + 3))) << i;
        }
        for (int index : {-1, count}) {
            unsigned char r, g, b;
            EXPECT_EQ(zelk_GetDecName(h, index), nullptr);
            EXPECT_EQ(message(h), "zelk_GetDecName: Decision index out of bounds");
            EXPECT_EQ(zelk_GetDecColor(h, index, &r, &g, &b), -180);
            EXPECT_EQ(message(h), "zelk_GetDecColor: Decision index out of bounds");
        }
        // A name replaces the error text; the code stays.
        EXPECT_STREQ(zelk_GetDecName(h, 1), "stone");
        EXPECT_EQ(zelk_GetErrorCode(h), -180);
        EXPECT_EQ(zelk_GetDecColor(h, 0, nullptr, nullptr, nullptr), -101);
    }
}

TEST(Results, VocabularyNeedsAProjectAndItsModels)
{
    TestHandle h;
    unsigned char r, g, b;
    EXPECT_EQ(zelk_GetDecCount(h), -103);
    EXPECT_EQ(message(h), "zelk_GetDecCount: Project not loaded.");
    EXPECT_EQ(zelk_GetDecName(h, 0), nullptr);
    EXPECT_EQ(message(h), "zelk_GetDecName: Project not loaded.");
    EXPECT_EQ(zelk_GetDecColor(h, 0, &r, &g, &b), -103);
    EXPECT_EQ(zelk_GetRegVarCount(h), -103);
    EXPECT_EQ(zelk_GetRegVarName(h, 0), nullptr);
    EXPECT_EQ(zelk_GetErrorCode(h), -103);

    QTemporaryDir dir;
    Project p = lineScanProject(Width);
    p.classifier.reset();
    ASSERT_EQ(zelk_LoadModel(h, writeModel(dir, p).toLatin1()), 0);
    EXPECT_EQ(zelk_GetDecCount(h), -104);
    EXPECT_EQ(message(h), "zelk_GetDecCount: Classifier model not loaded.");
    EXPECT_EQ(zelk_GetDecName(h, 0), nullptr);
    EXPECT_EQ(message(h), "zelk_GetDecName: Classifier model not loaded.");
    EXPECT_EQ(zelk_GetDecColor(h, 0, &r, &g, &b), -104);
    EXPECT_EQ(message(h), "zelk_GetDecColor: Classifier model not loaded.");

    // Without a regressor there are no variables, and a name is refused in the global
    // pair while the handle keeps its error.
    EXPECT_EQ(zelk_GetRegVarCount(h), 0);
    EXPECT_EQ(zelk_GetRegVarName(h, 0), nullptr);
    EXPECT_EQ(zelk_GetErrorCode(nullptr), -302);
    EXPECT_EQ(message(nullptr), "zelk_GetRegVarName: Passing NULL pointer.");
    EXPECT_EQ(zelk_GetErrorCode(h), -104);
    EXPECT_EQ(message(h), "zelk_GetDecColor: Classifier model not loaded.");

    p = regressionProject(Width);
    p.classifier.reset();
    ASSERT_EQ(zelk_LoadModel(h, writeModel(dir, p).toLatin1()), 0);
    EXPECT_EQ(zelk_GetRegVarCount(h), 2);
    EXPECT_STREQ(zelk_GetRegVarName(h, 1), "water");
    for (int index : {-1, 2}) {
        EXPECT_EQ(zelk_GetRegVarName(h, index), nullptr);
        EXPECT_EQ(zelk_GetErrorCode(h), -102);
        EXPECT_EQ(message(h), QString("zelk_GetRegVarName: Variable index out of bounds (%1)").arg(index).toStdString());
    }
    EXPECT_STREQ(zelk_GetRegVarName(h, 0), "fat");
}

namespace {

// Starts, hands in `cube` (BIP; a handle keeps the layout of its last start or call)
// and stops.
void runCube(ZelkHandle* h, const std::vector<float>& cube)
{
    ASSERT_EQ(zelk_SetInputDataLayout(h, 1), 0);
    ASSERT_EQ(zelk_StartAcquisition(h), 0) << zelk_GetErrorMsg(h);
    ASSERT_EQ(zelk_ProcessCube(h, cube.data()), 0) << zelk_GetErrorMsg(h);
    ASSERT_EQ(zelk_StopAcquisition(h), 0);
}

} // namespace

TEST(SaveImage, RefusesWithoutFileNameOrImage)
{
    QTemporaryDir dir;
    const QByteArray path = dir.filePath("out.png").toLatin1();
    Loaded run(lineScanProject(3));
    EXPECT_EQ(zelk_SaveImage(run, nullptr), -101);
    EXPECT_EQ(message(run), "zelk_SaveImage: Passing NULL pointer to a filename.");
    EXPECT_EQ(zelk_SaveImage(run, path.constData()), -120);
    EXPECT_EQ(message(run), "zelk_SaveImage: Label image does not exist.");

    // A snapshot project after a line-scan run has the ring but no decisions of a cube.
    ASSERT_EQ(zelk_StartAcquisition(run), 0);
    ASSERT_EQ(zelk_StopAcquisition(run), 0);
    run.load(snapshotProject(3, 0, 1, 3, 2));
    EXPECT_EQ(zelk_SaveImage(run, path.constData()), -220);
    EXPECT_EQ(message(run), "zelk_SaveImage: Internal error");

    // Decisions of a 3 by 2 cube, the ring of a line-scan run again, then a project of
    // 3 by 3 cubes: the decisions do not cover it.
    runCube(run, std::vector<float>(3 * 2 * Bands, 0.0f));
    run.load(lineScanProject(3));
    ASSERT_EQ(zelk_StartAcquisition(run), 0);
    ASSERT_EQ(zelk_StopAcquisition(run), 0);
    run.load(snapshotProject(3, 0, 1, 3, 3));
    EXPECT_EQ(zelk_SaveImage(run, path.constData()), -220);
    EXPECT_FALSE(QFile::exists(dir.filePath("out.png")));

    // A file that cannot be written is not reported.
    run.load(snapshotProject(3, 0, 1, 3, 2));
    EXPECT_EQ(zelk_SaveImage(run, dir.filePath("missing/out.png").toLatin1().constData()), 0);
    EXPECT_FALSE(QFile::exists(dir.filePath("missing/out.png")));
}

TEST(SaveImage, WritesTheIndexedImageWithItsPalette)
{
    // A cube of 5 by 3 first, leaf at pixels 20 - i for the cube's pixel i divisible by
    // 4; then a line-scan run of 500 lines: a leaf at column 2 of line 0, finished and
    // crossed out along row 0 by the pass of line 20, and, with segmentation off from
    // line 21 on, a leaf at column f % 5 of line f.
    const int width = 5;
    QByteArray cubeRows(width * 3, '\0');
    std::vector<float> cube(size_t(width) * 3 * Bands, 0.0f);
    for (int i = 0; i < width * 3; i += 4) {
        cube[size_t(i) * Bands + 1] = 10;
        cubeRows[i] = 1;
    }
    Loaded run(snapshotProject(3, 0, 1, width, 3));
    runCube(run, cube);
    run.load(lineScanProject(width));
    ASSERT_EQ(zelk_SetInputDataLayout(run, 2), 0);
    ASSERT_EQ(zelk_SetSegmentation(run, 1), 0);
    ASSERT_EQ(zelk_StartAcquisition(run), 0);
    std::vector<QByteArray> ring(500, QByteArray(width, '\0'));
    ring[0] = QByteArray(width, char(255));
    for (int f = 0; f < 500; ++f) {
        if (f == 21)
            ASSERT_EQ(zelk_SetSegmentation(run, 0), 0);
        const int leaf = f == 0 ? 2 : f > 20 ? f % width : -1;
        const auto line = leaf < 0 ? frame({}, width) : frame({leaf}, width);
        ASSERT_EQ(zelk_ProcessFrame(run, line.data()), 0);
        if (f > 20)
            ring[size_t(f)][leaf] = 1;
    }
    ASSERT_EQ(zelk_StopAcquisition(run), 0);

    for (bool lineScan : {true, false}) {
        SCOPED_TRACE(lineScan);
        if (!lineScan) // the cube's decisions replace the image rows that it covers
            run.load(snapshotProject(3, 0, 1, width, 3));
        QTemporaryDir dir;
        // The name is Latin-1: its byte 0xE9 is no UTF-8.
        const QString path = dir.filePath(QString::fromLatin1("decisions \xe9.png"));
        ASSERT_EQ(zelk_SaveImage(run, path.toLatin1().constData()), 0);

        QImage saved(path);
        ASSERT_FALSE(saved.isNull());
        EXPECT_EQ(saved.format(), QImage::Format_Indexed8);
        EXPECT_EQ(saved.size(), QSize(width, 500));
        // The decisions' colours, and white for the marks of objects.
        const QVector<QRgb> palette = saved.colorTable();
        ASSERT_EQ(palette.size(), 256);
        for (int d = 0; d < 2; ++d) {
            unsigned char r, g, b;
            ASSERT_EQ(zelk_GetDecColor(run, d, &r, &g, &b), 0);
            EXPECT_EQ(palette[d] & 0xFFFFFFu, qRgb(r, g, b) & 0xFFFFFFu) << d;
        }
        EXPECT_EQ(palette[255], 0xFFFFFFFFu);
        for (int y = 0; y < 500; ++y) {
            const QByteArray expected = !lineScan && y < 3 ? cubeRows.mid(y * width, width) : ring[size_t(y)];
            ASSERT_EQ(savedRow(saved, y), expected) << y;
        }
    }
}
