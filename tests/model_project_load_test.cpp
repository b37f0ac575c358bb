// Reading whole project streams of every revision: sections behind their version
// gates, the steps between sections and the result codes. Cut and damaged streams are
// the fuzz target's (tests/fuzz/model.cpp, seeded with the writer's projects).

#include "model/project.h"
#include "modelwriter/classifier_writer.h"
#include "modelwriter/project_writer.h"
#include "modelwriter/regression_writer.h"
#include "modelwriter/segmenter_writer.h"
#include "spectral/image_family.h"

#include <QBuffer>
#include <gtest/gtest.h>

using modelwriter::Project;

namespace {

struct Loaded {
    int result = 0;
    std::unique_ptr<ZelkProject> project = std::make_unique<ZelkProject>();
};

Loaded load(const QByteArray& bytes)
{
    QBuffer buffer;
    buffer.setData(bytes);
    buffer.open(QIODevice::ReadOnly);
    QDataStream in(&buffer);
    Loaded l;
    l.result = l.project->load(in);
    return l;
}

Loaded load(const Project& p)
{
    return load(modelwriter::projectBytes(p));
}

modelwriter::Image image(const QString& name, int bands)
{
    modelwriter::Image i;
    i.cubeName = name;
    i.width = 4, i.height = 3, i.bands = bands;
    for (int b = 0; b < bands; ++b)
        i.wavelengths.append(900 + 10 * b);
    return i;
}

modelwriter::DataSet dataSet(int samples)
{
    modelwriter::DataSet s;
    s.samples = samples;
    s.features = 2;
    s.data = QVector<double>(samples * 2, 1.0);
    s.classes = 1;
    s.classNames = QStringList{"leaf"};
    s.labels = QVector<qint8>(samples, 0);
    for (int i = 0; i < samples; ++i)
        s.objectNames << QStringLiteral("o%1").arg(i);
    s.objectLabels = QVector<int>(samples, 0);
    return s;
}

// A project that fills every section its revision has.
Project fullProject(int revision)
{
    Project p;
    p.revision = revision;
    p.classNames = QStringList{"Unknown", "leaf", "stem"};
    p.classColors = {QColor(0, 0, 0, 0), QColor(0, 200, 0), QColor(120, 60, 0)};
    p.images = {image("a", 8), image("b", 8)};
    p.dataSets = {{"a", dataSet(3)}, {"b", dataSet(2)}};
    p.bandSelection = {true, false, true, true, false, true, true, true};
    p.previewBands = std::array<int, 4>{1, 2, 3, 4};
    p.classForeground = QVector<bool>{false, true, true};
    p.pointAnnotationData = 5;
    p.imagesTest = QVector<bool>{true, false};
    p.maxValidValue = qMakePair(true, 4000.0);
    p.regData = dataSet(4);
    p.regTestData = dataSet(1);
    p.trainingAlg = 2;
    p.classIncluded = QVector<bool>{true, true, false};
    modelwriter::VisAlg vis;
    vis.label = "false colour";
    p.visualisations = {{"rgb", vis}};
    p.regVarList = QStringList{"moisture", "fat"};
    modelwriter::ReportItemV2 item;
    item.type = 1;
    p.objRepItems = {{"area", item}};
    p.regRadius = 3;
    p.acqSettings = {{"RegMin", 0.5}, {"RegMax", 7}};
    p.regCache = QList<Project::CacheEntry>{{"k1", "ZelkDataSet", dataSet(1)}, {"k2", "NULL", {}}};
    p.acqType = 1;
    return p;
}

} // namespace

TEST(ProjectLoad, MagicNamesOneOfSeventeenRevisions)
{
    for (const QString& magic : {QString(), QString("ZELK18"), QString("ZELK00"), QString("ZELK7"), QString("zelk07")}) {
        Project p;
        p.magic = magic;
        Loaded l = load(p);
        EXPECT_EQ(l.result, -1) << magic.toStdString();
        EXPECT_EQ(l.project->loadStatus, 2);
    }
    EXPECT_EQ(load(QByteArray()).result, -1);
}

TEST(ProjectLoad, EveryRevisionReadsItsOwnSectionsAndNoOthers)
{
    for (int v = 1; v <= 17; ++v) {
        SCOPED_TRACE(v);
        const Loaded l = load(fullProject(v));
        ASSERT_EQ(l.result, 0);
        const ZelkProject& p = *l.project;
        EXPECT_EQ(p.classNames, (QStringList{"Unknown", "leaf", "stem"}));
        EXPECT_EQ(p.images.size(), 2u);
        EXPECT_EQ(p.bandCount, 8);
        EXPECT_EQ(p.totalSampleCount, 5);
        EXPECT_EQ(p.selectedBandCount, v >= 2 ? 6 : 8);
        EXPECT_EQ(p.previewRed, v >= 3 ? 1 : 2); // else floor(8 * 0.25)
        EXPECT_EQ(p.previewBlue, v >= 3 ? 3 : 6);
        EXPECT_EQ(p.classForeground, v >= 4 ? (QVector<bool>{false, true, true}) : QVector<bool>(3, false));
        EXPECT_EQ(p.imagesTest, v >= 5 ? (QVector<bool>{true, false}) : QVector<bool>(2, false));
        EXPECT_EQ(p.maxValidValue, v >= 5 ? 4000.0f : 0.0f);
        EXPECT_EQ(p.regData != nullptr, v >= 6);
        EXPECT_EQ(p.regTestData != nullptr, v >= 8);
        EXPECT_EQ(p.segmenter, nullptr); // no classifier, so no segmenter either
        EXPECT_EQ(p.trainingAlg, v >= 10 ? 2 : 0);
        EXPECT_EQ(p.classIncluded, v >= 10 ? (QVector<bool>{true, true, false}) : QVector<bool>(3, true));
        EXPECT_EQ(p.visAlgs.size(), v >= 11 ? 1u : 0u);
        EXPECT_EQ(p.regVarList, v >= 12 ? (QStringList{"moisture", "fat"}) : QStringList{"var1"});
        EXPECT_EQ(p.objRepList.size(), v >= 13 ? 1u : 0u);
        EXPECT_EQ(p.regRadius, v >= 14 ? 3 : 0);
        EXPECT_EQ(p.regMax, v >= 15 ? 7.0 : 0.0);
        EXPECT_EQ(p.regCache.size(), v >= 16 ? 2 : 0);
        EXPECT_EQ(p.acqType, v >= 16 ? 1 : -1);
    }
}

TEST(ProjectLoad, ImagesFixTheBandCountAndTheirClass)
{
    Project p = fullProject(1);
    p.type = 13; // read through the ENVI class all the same
    Loaded l = load(p);
    ASSERT_EQ(l.result, 0);
    EXPECT_NE(dynamic_cast<ZelkImageENVI*>(l.project->images[0].get()), nullptr);
    EXPECT_EQ(l.project->bandSelection, QVector<bool>(8, true));

    p.images.clear();
    p.revision = 2;
    l = load(p);
    ASSERT_EQ(l.result, 0);
    EXPECT_EQ(l.project->bandCount, -1);
    EXPECT_EQ(l.project->bandSelection->size(), 8); // from the stream

    for (int type : {0, 23}) {
        p = fullProject(17);
        p.type = type;
        EXPECT_EQ(load(p).result, -1);
    }
    p = fullProject(17);
    p.images[1].versionWord = 0; // the image reader's own code comes through
    l = load(p);
    EXPECT_EQ(l.result, -1);
    EXPECT_EQ(l.project->images.size(), 1u);
}

TEST(ProjectLoad, EarlyRevisionsFileRotatedDataSetsUnderTheirSource)
{
    Project p = fullProject(4);
    p.dataSets = {{"a_rot90", dataSet(1)},
                  {"b_rot3_cropped_c1_r2_w3_h4", dataSet(1)},
                  {"c_rot90", dataSet(1)},
                  {"a_rot90", dataSet(2)}};
    Loaded l = load(p);
    ASSERT_EQ(l.result, 0);
    QStringList keys;
    for (const auto& entry : l.project->dataSets)
        keys << entry.first;
    EXPECT_EQ(keys, (QStringList{"a", "b_cropped_c1_r2_w3_h4", "c_rot90"}));
    EXPECT_EQ(l.project->dataSets.at("a")->sampleCount, 2); // the later one replaced it
    EXPECT_EQ(l.project->totalSampleCount, 5);

    p.revision = 5;
    l = load(p);
    EXPECT_EQ(l.project->dataSets.count("a_rot90"), 1u);
}

TEST(ProjectLoad, EachFailureHasItsCode)
{
    const struct {
        int revision;
        const char* tag;
        const char* replacement;
        int result;
    } cases[] = {
        {11, "Visualization:1", "Visualization:2", -1}, {13, "objRep", "x", -1},
        {13, "objRepLocation", "x", -1},               {13, "objRepWhat", "x", -1},
        {13, "objRepTemplateImageInd", "x", -1},       {13, "objRepNames", "x", -1},
        {13, "objRepList", "x", -1},                   {14, "RegRadius", "x", -1},
        {15, "AcqSettings", "x", -1},                  {16, "RegCache:1", "RegCache:2", -1},
        {16, "objects", "x", -1},                      {17, "AcqType", "x", -1},
        // Rows of two forms take a third text as no object.
        {8, "ZelkRegTestData", "ZelkRegTestData:1", 0}, {9, "ZelkSegmenter=NULL", "x", 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.tag);
        Project p = fullProject(c.revision);
        p.replacedTags[c.tag] = c.replacement;
        const Loaded l = load(p);
        EXPECT_EQ(l.result, c.result);
        if (c.revision == 8)
            EXPECT_EQ(l.project->regTestData, nullptr);
    }

    Project p = fullProject(17);
    p.classIncluded = QVector<bool>{true, true};
    EXPECT_EQ(load(p).result, -1005);
    p = fullProject(17);
    p.regData->form = 3;
    EXPECT_EQ(load(p).result, -1001);
    p = fullProject(17);
    p.regTestData->form = 3;
    EXPECT_EQ(load(p).result, -1003);
    p = fullProject(17);
    (*p.regCache)[0].set.form = 3;
    EXPECT_EQ(load(p).result, -1);
    p = fullProject(17);
    p.visualisations[0].second.tag = "ZelkVisAlg:2";
    EXPECT_EQ(load(p).result, -1);
}

TEST(ProjectLoad, CacheKeysKeepDataSetsNullsAndDropUnknownTags)
{
    Project p = fullProject(17);
    p.regCache = QList<Project::CacheEntry>{
        {"one", "ZelkDataSet", dataSet(1)}, {"odd", "ZelkDataSet:1", {}}, {"none", "NULL", {}}, {"two", "ZelkDataSet", dataSet(2)}};
    const Loaded l = load(p);
    ASSERT_EQ(l.result, 0);
    const QCache<QString, ZelkDataSet>& cache = l.project->regCache;
    EXPECT_EQ(cache.size(), 3);
    EXPECT_FALSE(cache.contains("odd"));
    EXPECT_TRUE(cache.contains("none"));
    EXPECT_EQ(cache.object("none"), nullptr);
    ASSERT_NE(cache.object("two"), nullptr);
    EXPECT_EQ(cache.object("two")->sampleCount, 2);
}

TEST(ProjectLoad, ModelsAreReadAndPreparedWithTheirProject)
{
    using namespace modelwriter;
    auto classifierBytes = [](const ClassifierSpec& c) {
        StreamBuilder out;
        out.tag(QStringLiteral("ZelkClassifier:%1").arg(c.version)).add(c);
        return out.bytes();
    };
    Project p = fullProject(17);
    ClassifierSpec c;
    c.inputBands = 2;
    c.selectedBands = QVector<qint32>{1, 3};
    p.classifier = classifierBytes(c);
    p.preprocessing = std::make_tuple(true, 1, 5);
    RegressorSpec r;
    r.model->outputCount = 1;
    StreamBuilder regressor;
    regressor.add(r);
    p.regressor = regressor.bytes();
    Loaded l = load(p);
    ASSERT_EQ(l.result, 0);
    ASSERT_NE(l.project->classifier, nullptr);
    EXPECT_EQ(l.project->classifier->selectedBands, (QVector<int>{1, 3}));
    EXPECT_EQ(l.project->classifier->colourTable.size(), 256);
    EXPECT_EQ(l.project->classifier->prepFilter, nullptr); // 2 bands cannot hold a window of 5
    ASSERT_NE(l.project->segmenter, nullptr);              // a default one, as none was stored
    EXPECT_EQ(l.project->segmenter->objMask, 1);
    ASSERT_NE(l.project->regressor, nullptr);
    EXPECT_EQ(l.project->regressor->regData, l.project->regData.get());
    EXPECT_EQ(l.project->regressor->sampleCaches[0].size(), 4);
    EXPECT_EQ(l.project->regressor->testSampleCaches[0].size(), 1);

    // Version 1 classifiers take the project's bands, which must match their input.
    c.version = 1;
    c.inputBands = 6;
    p.classifier = classifierBytes(c);
    l = load(p);
    ASSERT_EQ(l.result, 0);
    EXPECT_EQ(l.project->classifier->selectedBands, (QVector<int>{0, 2, 3, 5, 6, 7}));
    c.inputBands = 5;
    p.classifier = classifierBytes(c);
    EXPECT_EQ(load(p).result, -7);

    // A classifier of an unknown version is no classifier, and a failure.
    p.classifier = QByteArray(classifierBytes(c)).replace(QByteArray("\0:\0001", 4), QByteArray("\0:\0009", 4));
    l = load(p);
    EXPECT_EQ(l.result, -1);
    EXPECT_EQ(l.project->classifier, nullptr);

    // The regressor's own code comes through; a segmenter that fails gives -1004.
    p = fullProject(17);
    r.tagOverrides[1] = "ZelkRegModel4";
    StreamBuilder wrong;
    wrong.add(r);
    p.regressor = wrong.bytes();
    EXPECT_EQ(load(p).result, -1101);
    p = fullProject(17);
    SegmenterSpec s;
    s.tagOverrides[6] = "objMasks";
    StreamBuilder segmenter;
    segmenter.add(s);
    p.segmenter = segmenter.bytes();
    EXPECT_EQ(load(p).result, -1004);
}

TEST(ProjectLoad, SampleCountsBeyondTheRangeOfTheirSumWrap)
{
    Project p = fullProject(17);
    modelwriter::DataSet big;
    big.samples = 2000000000;
    big.dataFlag = false;
    p.dataSets = {{"x", big}, {"y", big}};
    const Loaded l = load(p);
    EXPECT_EQ(l.project->totalSampleCount, int(quint32(4000000000u)));
}
