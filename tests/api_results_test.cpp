// Reading the results of the last frame or cube, the vocabulary of decisions and
// variables, and exporting the decision image; and what each query call reports for a
// null handle.

#include "runtime/handle.h"
#include "segment_support.h"
#include "test_handle.h"

#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>
#include <cstring>
#include <functional>
#include <string>

namespace {

std::string message(ZelkHandle* h)
{
    return zelk_GetErrorMsg(h);
}

// A handle after a run: a project with a classifier of three classes, and objects
// whose records have distinct entries.
struct RunHandle : TestHandle {
    RunHandle()
    {
        h->project = std::make_unique<ZelkProject>();
        auto& c = h->project->classifier = std::make_unique<ZelkClassifier>();
        c->classNames = QStringList{"sand", "stone", "glass"};
        c->colourTable.fill(0, 256);
        c->colourTable[0] = int(0xFF123456u);
        c->colourTable[2] = 0x00ABCDEF;
        c->colourTable[3] = 0x00010203; // read for the rejected decision only if it were a class
    }

    // `count` records; entry k of record i holds 1000 * i + k.
    void setObjects(int count)
    {
        h->segmentation.count = count;
        for (int i = 0; i < std::min(count, h->segmentation.maxObjects); ++i)
            for (int k = 0; k < ObjectRecordInts; ++k)
                h->segmentation.records[size_t(i) * ObjectRecordInts + k] = 1000 * i + k;
    }

    // The project's segmenter, compiled, borrowed by the handle as during a run.
    ZelkSegmenter& runSegmenter(std::unique_ptr<ZelkSegmenter> s)
    {
        EXPECT_EQ(s->compile(), 0);
        h->project->segmenter = std::move(s);
        h->segmentation.segmenter = h->project->segmenter.get();
        return *h->segmentation.segmenter;
    }

    // A line-scan decision ring of `width` pixels with a palette of distinct colours.
    void makeRing(int width)
    {
        h->input.lineScan = true;
        h->input.width = width;
        h->ring.labels = std::make_unique<QImage>(width, h->ring.rows, QImage::Format_Indexed8);
        h->ring.labels->fill(0);
        QVector<QRgb> palette(256);
        for (int i = 0; i < 256; ++i)
            palette[i] = qRgb(i, 255 - i, i / 2);
        palette[255] = 0xFFFFFFFFu;
        h->ring.labels->setColorTable(palette);
    }

    void setRow(int row, const std::vector<quint8>& decisions)
    {
        std::memcpy(h->ring.labels->scanLine(row), decisions.data(), decisions.size());
    }
};

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
    RunHandle h;
    h.setObjects(3);
    EXPECT_EQ(zelk_GetObjCount(h), 3);
    for (int i = 0; i < 3; ++i) {
        int* record = nullptr;
        ASSERT_EQ(zelk_GetObjDataInt(h, i, &record), 0);
        ASSERT_NE(record, nullptr);
        EXPECT_EQ(record[0], 1000 * i);
        EXPECT_EQ(record[29], 1000 * i + 29);
    }
    struct Case {
        int count, index;
        const char* text;
    } cases[] = {
        {3, -1, "zelk_GetObjDataInt: Object index out of bounds (0..2 got -1)"},
        {3, 3, "zelk_GetObjDataInt: Object index out of bounds (0..2 got 3)"},
        {0, 0, "zelk_GetObjDataInt: Object index out of bounds (0..-1 got 0)"},
        // A frame that finished more objects than the handle holds keeps the full count,
        // but only the stored records can be read.
        {301, 300, "zelk_GetObjDataInt: Object index out of bounds (0..299 got 300)"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text);
        h.setObjects(c.count);
        EXPECT_EQ(zelk_GetObjCount(h), c.count);
        int sentinel = 0;
        int* record = &sentinel;
        EXPECT_EQ(zelk_GetObjDataInt(h, c.index, &record), -161);
        EXPECT_EQ(record, &sentinel);
        EXPECT_EQ(zelk_GetErrorCode(h), -161);
        EXPECT_EQ(message(h), c.text);
    }
    int* record = nullptr;
    EXPECT_EQ(zelk_GetObjDataInt(h, 299, &record), 0);
    EXPECT_EQ(record[0], 299000);
    EXPECT_EQ(zelk_GetObjDataInt(h, 0, nullptr), -101);
}

TEST(Results, ClassSizesNeedAllForegroundModeAndAClassIndexUpTo20)
{
    RunHandle h;
    h.setObjects(2);
    h.h->segmentation.records[ObjectRecordInts + 7] = 40; // pixels of object 1; its entry 9 + c is 1009 + c
    struct Case {
        int objMask; // 0: no segmenter (acquisition stopped)
        int index;
        unsigned classIndex;
        int code;
        const char* text;
    } cases[] = {
        {2, 1, 0, 1009, nullptr},
        {2, 1, 20, 1029, nullptr},
        {2, 1, 21, -162, "%1: Class index out of bounds (0..20, got 1)"},
        {2, 0, unsigned(-1), -162, "%1: Class index out of bounds (0..20, got 0)"},
        {2, 2, 0, -161, "%1: Object index out of bounds (0..1 got 2)"},
        {1, 1, 0, -163, "%1: Segmentation not set to required 'All foreground' mode."},
        {1, -1, 0, -161, "%1: Object index out of bounds (0..1 got -1)"},
        {0, 1, 0, -163, "%1: Segmentation not set to required 'All foreground' mode."},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << c.objMask << " " << c.index << " " << c.classIndex);
        if (c.objMask)
            h.runSegmenter(segtest::definition({0, 1, 1}, c.objMask));
        else
            h.h->segmentation.segmenter = nullptr;
        h.h->error.code = 0;
        EXPECT_EQ(zelk_GetObjDataClassSize(h, c.index, c.classIndex), c.code);
        if (c.code >= 0) {
            EXPECT_FLOAT_EQ(zelk_GetObjDataClassFrac(h, c.index, c.classIndex), float(c.code) / 40.0f);
            EXPECT_EQ(zelk_GetErrorCode(h), 0);
            continue;
        }
        EXPECT_EQ(message(h), QString(c.text).arg("zelk_GetObjDataClassSize").toStdString());
        EXPECT_EQ(zelk_GetObjDataClassFrac(h, c.index, c.classIndex), float(c.code));
        EXPECT_EQ(zelk_GetErrorCode(h), c.code);
        EXPECT_EQ(message(h), QString(c.text).arg("zelk_GetObjDataClassFrac").toStdString());
    }
    h.runSegmenter(segtest::definition({0, 1}, 2));
    h.h->segmentation.records[7] = 0; // an object without pixels has fraction 0
    EXPECT_EQ(zelk_GetObjDataClassFrac(h, 0, 3), 0.0f);
}

TEST(Results, ObjectRegressionMeansAreRowsOfTheSegmentersTable)
{
    RunHandle h;
    // Two objects with constant values per object, closed by the pass on line 20.
    const int width = 6, k = 2;
    auto s = segtest::prepared({0, 1}, width, 1, 2, k);
    ASSERT_NE(s, nullptr);
    segtest::Feeder feeder(*s, segtest::Kernel::Values);
    const std::vector<float> values{1, 10, 1, 10, 0, 0, 0, 0, 3, 30, 3, 30};
    ASSERT_EQ(feeder.feed(segtest::row("11..11"), values), 0);
    while (s->currentLine() <= 20)
        ASSERT_EQ(feeder.feed(segtest::row("......"), std::vector<float>(width * k, 0)), 0);
    ASSERT_EQ(s->objectCount(), 2);
    h.h->project->segmenter = std::move(s);
    ZelkSegmenter& seg = *h.h->project->segmenter;
    h.h->segmentation.segmenter = &seg;
    h.setObjects(2);
    h.h->regression.variableCount = k;

    const float expected[2][k] = {{1, 10}, {3, 30}};
    for (bool running : {true, false}) {
        // After a stop the handle no longer borrows the segmenter; the means stay readable.
        h.h->segmentation.segmenter = running ? &seg : nullptr;
        for (int i = 0; i < 2; ++i) {
            float* means = nullptr;
            ASSERT_EQ(zelk_GetObjDataRegOutput(h, i, &means), 0);
            EXPECT_EQ(means, seg.objectMeans() + i * k);
            EXPECT_EQ(means[0], expected[i][0]);
            EXPECT_EQ(means[1], expected[i][1]);
        }
    }
    float* means = nullptr;
    EXPECT_EQ(zelk_GetObjDataRegOutput(h, 2, &means), -161);
    EXPECT_EQ(message(h), "zelk_GetObjDataRegOut: Object index out of bounds (0..1 got 2)");
    EXPECT_EQ(zelk_GetObjDataRegOutput(h, 1, nullptr), -101);
    // A run without regression outputs, or a project loaded since, has no table to point at.
    h.h->regression.variableCount = 0;
    EXPECT_EQ(zelk_GetObjDataRegOutput(h, 0, &means), -303);
    h.h->regression.variableCount = k;
    h.h->project->segmenter.reset();
    EXPECT_EQ(zelk_GetObjDataRegOutput(h, 0, &means), -303);
    EXPECT_EQ(means, nullptr);
}

TEST(Results, DecisionBuffersBelongToTheirProjectKind)
{
    RunHandle h;
    h.h->input.lineScan = true;
    h.h->input.width = 4;
    EXPECT_EQ(zelk_GetFrameDecisions(h), nullptr); // no start has made the ring yet
    EXPECT_EQ(zelk_GetErrorCode(h), -120);
    EXPECT_EQ(message(h), "zelk_GetFrameDecisions: Label image does not exist.");
    h.makeRing(4);
    EXPECT_EQ(zelk_GetFrameDecisions(h), h.h->ring.labels->scanLine(0));
    h.h->ring.lastRow = 499;
    h.h->ring.nextRow = 0;
    EXPECT_EQ(zelk_GetFrameDecisions(h), h.h->ring.labels->scanLine(499));
    h.h->input.width = 5; // a wider model loaded after the run
    EXPECT_EQ(zelk_GetFrameDecisions(h), nullptr);
    h.h->input.width = 4;

    EXPECT_EQ(zelk_GetCubeDecisions(h), nullptr);
    EXPECT_EQ(zelk_GetErrorCode(h), -212);
    EXPECT_EQ(message(h), "zelk_GetCubeDecisions: Snapshot project type expected, got linescan");

    h.h->input.lineScan = false;
    h.h->input.height = 3;
    h.h->error.code = 0;
    EXPECT_EQ(zelk_GetCubeDecisions(h), nullptr); // before the first start
    EXPECT_EQ(zelk_GetErrorCode(h), 0);
    h.h->cube.decisions.assign(12, 7);
    EXPECT_EQ(zelk_GetCubeDecisions(h), h.h->cube.decisions.data());
    h.h->input.height = 4;
    EXPECT_EQ(zelk_GetCubeDecisions(h), nullptr);
    EXPECT_EQ(zelk_GetFrameDecisions(h), nullptr);
    EXPECT_EQ(zelk_GetErrorCode(h), -211);
    EXPECT_EQ(message(h), "zelk_GetFrameDecisions: Line-scan project type expected, got snapshot.");
}

TEST(Results, FrameRegressionVariableIsPickedAndMaskedByTheForeground)
{
    RunHandle h;
    const int width = 4, k = 2;
    h.makeRing(width);
    h.h->project->regressor = std::make_unique<ZelkRegressor>();
    h.h->project->regressor->regVarNames = QStringList{"fat", "water"};
    h.h->regression.variableCount = k;
    h.h->regression.outputs = {0.5f, 10, 1.5f, 11, 2.5f, 12, 3.5f, 13};
    h.h->regression.variableLine.assign(width, -7);
    // The last frame is the one before the wrap of the ring.
    h.h->ring.lastRow = 499;
    h.h->ring.nextRow = 0;
    h.setRow(499, {0, 1, 2, 255});
    h.setRow(0, {1, 1, 1, 1});

    struct Case {
        int varIndex, mask;
        bool segmentation, segmenter;
        std::vector<float> line; // empty: refused with `code`
        int code;
    } cases[] = {
        {0, 0, false, false, {0.5f, 1.5f, 2.5f, 3.5f}, 0},
        {1, 0, true, true, {10, 11, 12, 13}, 0},
        {1, 1, true, true, {-1, 11, -1, -1}, 0},
        {0, 2, false, true, {-1, 1.5f, -1, -1}, 0}, // masks without segmentation on
        {0, 1, false, true, {}, -303},
        {0, 2, false, false, {}, -303},
        {1, 1, true, false, {}, -303}, // a stopped run lent no segmenter
        {-1, 0, true, true, {}, -301},
        {2, 0, true, true, {}, -301},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << c.varIndex << " " << c.mask << " " << c.segmentation << " " << c.segmenter);
        h.h->segmentation.enabled = c.segmentation;
        if (c.segmenter)
            h.runSegmenter(segtest::definition({0, 1, 0}, 1));
        else
            h.h->segmentation.segmenter = nullptr;
        float* line = zelk_GetFrameRegOutputVar(h, c.varIndex, c.mask, -1);
        if (c.line.empty()) {
            EXPECT_EQ(line, nullptr);
            EXPECT_EQ(zelk_GetErrorCode(h), c.code);
            continue;
        }
        ASSERT_EQ(line, h.h->regression.variableLine.data());
        EXPECT_EQ(std::vector<float>(line, line + width), c.line);
    }
    EXPECT_EQ(message(h), "zelk_GetFrameRegOutputVar: Variable index out of bounds");
    h.h->segmentation.enabled = false;
    EXPECT_EQ(zelk_GetFrameRegOutputVar(h, 0, 1, 0), nullptr);
    EXPECT_EQ(message(h), "zelk_GetFrameRegOutputVar: Masking cannot be used as segmentation is not enabled");

    // The regressor of a model loaded since the start has a variable the run did not
    // compute; without any regressor there is none at all.
    h.h->project->regressor->regVarNames << "salt";
    EXPECT_EQ(zelk_GetFrameRegOutputVar(h, 2, 0, 0), nullptr);
    EXPECT_EQ(zelk_GetErrorCode(h), -305);
    h.h->project->regressor.reset();
    EXPECT_EQ(zelk_GetFrameRegOutputVar(h, 0, 0, 0), nullptr);
    EXPECT_EQ(zelk_GetErrorCode(h), -301);
    h.h->input.lineScan = false;
    EXPECT_EQ(zelk_GetFrameRegOutputVar(h, 0, 0, 0), nullptr);
    EXPECT_EQ(message(h), "zelk_GetFrameRegOutputVar: Line-scan project type expected, got snapshot.");
}

TEST(Results, DecisionsAreTheClassesAndTheRejectedOne)
{
    for (bool reject : {false, true}) {
        SCOPED_TRACE(reject);
        RunHandle h;
        h.h->project->classifier->rejectEnabled = reject;
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

    h.h->project = std::make_unique<ZelkProject>();
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

    h.h->project->regressor = std::make_unique<ZelkRegressor>();
    h.h->project->regressor->regVarNames = QStringList{"fat", "water"};
    EXPECT_EQ(zelk_GetRegVarCount(h), 2);
    EXPECT_STREQ(zelk_GetRegVarName(h, 1), "water");
    for (int index : {-1, 2}) {
        EXPECT_EQ(zelk_GetRegVarName(h, index), nullptr);
        EXPECT_EQ(zelk_GetErrorCode(h), -102);
        EXPECT_EQ(message(h), QString("zelk_GetRegVarName: Variable index out of bounds (%1)").arg(index).toStdString());
    }
    EXPECT_STREQ(zelk_GetRegVarName(h, 0), "fat");
}

TEST(SaveImage, RefusesWithoutFileNameOrImage)
{
    RunHandle h;
    QTemporaryDir dir;
    const QByteArray path = dir.filePath("out.png").toLatin1();
    EXPECT_EQ(zelk_SaveImage(h, nullptr), -101);
    EXPECT_EQ(message(h), "zelk_SaveImage: Passing NULL pointer to a filename.");
    EXPECT_EQ(zelk_SaveImage(h, path.constData()), -120);
    EXPECT_EQ(message(h), "zelk_SaveImage: Label image does not exist.");

    // A snapshot run that left no decisions, or decisions of another cube size.
    h.makeRing(3);
    h.h->input.lineScan = false;
    h.h->input.height = 2;
    EXPECT_EQ(zelk_SaveImage(h, path.constData()), -220);
    EXPECT_EQ(message(h), "zelk_SaveImage: Internal error");
    h.h->cube.decisions.assign(6, 1);
    h.h->input.height = 3;
    EXPECT_EQ(zelk_SaveImage(h, path.constData()), -220);
    EXPECT_FALSE(QFile::exists(dir.filePath("out.png")));

    // A file that cannot be written is not reported.
    h.h->input.height = 2;
    EXPECT_EQ(zelk_SaveImage(h, dir.filePath("missing/out.png").toLatin1().constData()), 0);
    EXPECT_FALSE(QFile::exists(dir.filePath("missing/out.png")));
}

TEST(SaveImage, WritesTheIndexedImageWithItsPalette)
{
    for (bool lineScan : {true, false}) {
        SCOPED_TRACE(lineScan);
        RunHandle h;
        const int width = 5;
        h.makeRing(width);
        h.setRow(0, {1, 2, 3, 4, 5});
        h.setRow(3, {255, 0, 9, 0, 255});
        h.setRow(499, {7, 7, 7, 7, 7});
        const QVector<QRgb> palette = h.h->ring.labels->colorTable();
        std::vector<quint8> cube;
        if (!lineScan) {
            // The cube's decisions replace the image rows that it covers.
            h.h->input.lineScan = false;
            h.h->input.height = 3;
            for (int i = 0; i < width * 3; ++i)
                cube.push_back(quint8(20 + i));
            h.h->cube.decisions = cube;
        }
        QTemporaryDir dir;
        // The name is Latin-1: its byte 0xE9 is no UTF-8.
        const QString path = dir.filePath(QString::fromLatin1("decisions \xe9.png"));
        ASSERT_EQ(zelk_SaveImage(h, path.toLatin1().constData()), 0);

        QImage saved(path);
        ASSERT_FALSE(saved.isNull());
        EXPECT_EQ(saved.format(), QImage::Format_Indexed8);
        EXPECT_EQ(saved.size(), QSize(width, 500));
        EXPECT_EQ(saved.colorTable(), palette);
        for (int y : {0, 1, 2, 3, 499})
            for (int x = 0; x < width; ++x) {
                const int expected = !lineScan && y < 3 ? cube[size_t(y) * width + x] : h.h->ring.labels->pixelIndex(x, y);
                EXPECT_EQ(saved.pixelIndex(x, y), expected) << x << "," << y;
                EXPECT_EQ(h.h->ring.labels->pixelIndex(x, y), expected);
            }
        EXPECT_EQ(saved.pixelIndex(4, 3), 255);
    }
}
