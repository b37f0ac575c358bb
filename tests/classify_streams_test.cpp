// Classifier, operating points, regressor and their elements read back from streams
// written by the model writer: every version and tag form, the failure codes, and
// truncated or absurd streams.

#include "classify/classifier.h"
#include "classify/element_reads.h"
#include "classify/regressor.h"
#include "modelwriter/regression_writer.h"
#include "stream_reading.h"

#include <array>
#include <functional>
#include <gtest/gtest.h>

using namespace modelwriter;

namespace {

// `spec` as the model writer writes it, followed by the string "next", so that a reader
// that stayed in step leaves exactly that string behind.
template <class Spec> QByteArray bytesOf(const Spec& spec)
{
    StreamBuilder b;
    b.add(spec).tag(QStringLiteral("next"));
    return b.bytes();
}

// The classifier of `spec`'s stream read as `version`: the read must succeed and, unless
// a damaged element puts it out of step, end where the classifier ends.
std::unique_ptr<ZelkClassifier> readClassifier(const ClassifierSpec& spec, int version, bool inStep = true)
{
    Reading r(bytesOf(spec));
    auto c = std::make_unique<ZelkClassifier>();
    EXPECT_EQ(c->load(r.in, version), 0);
    if (inStep)
        EXPECT_EQ(r.nextString(), "next");
    return c;
}

ClassifierSpec fullClassifier(int version)
{
    ClassifierSpec c;
    c.version = version;
    c.rejectEnabled = true;
    c.rejectThresholds = QVector<float>{0.5f, 0.25f};
    c.rejection = RejectionTables{3, QVector<qint32>{4, 5}, QVector<float>{1.5f}};
    c.extraM2 = LinearElement::m2();
    c.extraM3 = LinearElement::m3();
    c.colourTable = {0xFF0000, 0x00FF00};
    c.roc->names = QStringList{"p"};
    return c;
}

} // namespace

TEST(ElementStreams, EachElementReadsItsFieldsInFileOrder)
{
    LinearElement m1;
    m1.inputCount = 3;
    Reading r1(bytesOf(m1));
    ZelkAFPipelineM1 linear;
    ASSERT_EQ(loadElement(r1.in, linear), 0);
    EXPECT_EQ(linear.inputCount, 3);
    EXPECT_EQ(linear.outputCount, 1);
    EXPECT_EQ(linear.matrix.f32(), (QVector<float>{0.5f, -1}));
    EXPECT_EQ(linear.offset.dims(), (HostArray::Dims{1, 1, 1, 1}));
    EXPECT_EQ(r1.nextString(), "next");

    for (LinearElement e : {LinearElement::m2(), LinearElement::m3()}) {
        e.inputCount = 8, e.outputCount = 9;
        Reading r(bytesOf(e));
        ZelkAFPipelineM2 m2;
        ZelkAFPipelineM3 m3;
        const bool second = e.tag.contains("M2");
        ASSERT_EQ(second ? loadElement(r.in, m2) : loadElement(r.in, m3), 0);
        EXPECT_EQ(second ? m2.first + m2.second : m3.first + m3.second, 17);
        EXPECT_EQ((second ? m2.arrayB : m3.arrayB).f32(), QVector<float>{0.25f});
        EXPECT_EQ(r.nextString(), "next");
    }

    NetworkElement n;
    n.auxCount = 6;
    Reading r5(bytesOf(n));
    ZelkAFPipelineM5 network;
    ASSERT_EQ(loadElement(r5.in, network), 0);
    EXPECT_EQ(network.featureCount, 1);
    EXPECT_EQ(network.auxCount, 6);
    EXPECT_EQ(network.unitCount, 2);
    EXPECT_EQ(network.classCount, 2);
    EXPECT_EQ(network.classNames, (QStringList{"a", "b"}));
    EXPECT_EQ(network.centres.f32(), (QVector<float>{0, 3}));
    EXPECT_EQ(network.outputWeights.dims(), (HostArray::Dims{3, 2, 1, 1}));
    EXPECT_EQ(network.unitTags, (QVector<int>{0, 1}));
    EXPECT_EQ(r5.nextString(), "next");

    Reading r10(bytesOf(SelectionElement()));
    ZelkAFPipelineM10 selection;
    ASSERT_EQ(loadElement(r10.in, selection), 0);
    EXPECT_EQ(selection.sourceCount, 5);
    EXPECT_EQ(selection.selectedCount, 2);
    EXPECT_EQ(selection.indices.s32(), (QVector<qint32>{4, 0}));
    EXPECT_EQ(r10.nextString(), "next");
}

TEST(ElementStreams, AWrongTagFailsAndReadsNothingBehindIt)
{
    // Each element behind a tag that is not its own; the element's first field follows.
    auto reader = [](auto element) {
        return std::function<int(QDataStream&)>([element](QDataStream& in) mutable { return loadElement(in, element); });
    };
    struct Case {
        QByteArray bytes;
        std::function<int(QDataStream&)> load;
        qint32 firstField;
    };
    const Case cases[] = {
        {bytesOf(LinearElement::named("ZelkAFPipelineM1:2")), reader(ZelkAFPipelineM1()), 2},
        {bytesOf(LinearElement::named("ZelkAFPipelineM1:1")), reader(ZelkAFPipelineM2()), 2},
        {bytesOf(LinearElement::named("ZelkAFPipelineM2:1")), reader(ZelkAFPipelineM3()), 2},
        {bytesOf(NetworkElement{"ZelkAFPipelineM5:2"}), reader(ZelkAFPipelineM5()), 1},
        {bytesOf(FilterElement{"ZelkAFPipelineM7:2"}), reader(ZelkAFPipelineM7()), 9},
        {bytesOf(ScalingElement{"ZelkAFPipelineM9:2"}), reader(ZelkAFPipelineM9()), 2},
        {bytesOf(SelectionElement{"ZelkAFPipelineM10:2"}), reader(ZelkAFPipelineM10()), 5},
    };
    for (const Case& k : cases) {
        Reading r(k.bytes);
        EXPECT_EQ(k.load(r.in), -1);
        EXPECT_EQ(r.nextInt(), k.firstField);
    }
}

TEST(ElementStreams, ScalingChecksItsArraysSelectionDoesNot)
{
    for (TypedArray ScalingElement::*array : {&ScalingElement::mean, &ScalingElement::scale}) {
        ScalingElement s;
        (s.*array).tag = "AFArray:2";
        Reading r(bytesOf(s));
        ZelkAFPipelineM9 e;
        EXPECT_EQ(loadElement(r.in, e), -1);
    }
    SelectionElement sel;
    sel.indices.tag = "AFArray:2";
    Reading r(bytesOf(sel));
    ZelkAFPipelineM10 e;
    EXPECT_EQ(loadElement(r.in, e), 0);
    EXPECT_TRUE(e.indices.isEmpty());
}

TEST(ElementStreams, FilterMatrixIsBuiltFromTheStoredParameters)
{
    Reading r(bytesOf(FilterElement{"ZelkAFPipelineM7:1", 9, 77, 1, 5}));
    ZelkAFPipelineM7 filter;
    ASSERT_EQ(loadElement(r.in, filter), 0);
    EXPECT_EQ(filter.outputBands, 5); // computed, not the stored 77
    EXPECT_EQ(filter.matrix.dims(), (HostArray::Dims{9, 5, 1, 1}));
    EXPECT_EQ(filter.offset.f32(), QVector<float>(5, 0.0f));
    EXPECT_EQ(filter.derivative, 1);

    // A window without coefficients reads as well and leaves no matrix.
    Reading odd(bytesOf(FilterElement{"ZelkAFPipelineM7:1", 9, 6, 0, 4}));
    ZelkAFPipelineM7 none;
    ASSERT_EQ(loadElement(odd.in, none), 0);
    EXPECT_TRUE(none.matrix.isEmpty());
    EXPECT_EQ(none.inputBands, 9);
    EXPECT_EQ(odd.nextString(), "next");
}

TEST(ClassifierStream, EveryVersionReadsItsRows)
{
    for (int version = 1; version <= 4; ++version) {
        SCOPED_TRACE(version);
        const auto read = readClassifier(fullClassifier(version), version);
        const ZelkClassifier& c = *read;
        EXPECT_EQ(c.modelKind, 1);
        EXPECT_EQ(c.inputBands, 2);
        EXPECT_EQ(c.totalBands, 4);
        EXPECT_EQ(c.selectedBands.has_value(), version >= 2);
        if (version >= 2)
            EXPECT_EQ(*c.selectedBands, (QVector<int>{1, 3}));
        EXPECT_EQ(c.selectedBandCount, version >= 2 ? 2 : 0);
        EXPECT_EQ(c.classNames, (QStringList{"a", "b"}));
        EXPECT_EQ(c.classCodes, (QVector<int>{1, 2}));
        EXPECT_EQ(c.randomSeed, 7);
        ASSERT_TRUE(c.roc);
        EXPECT_EQ(c.roc->rocNames, QStringList{"p"});
        EXPECT_TRUE(c.rejectEnabled);
        EXPECT_EQ(c.rejectThresholds, (QVector<float>{0.5f, 0.25f}));
        EXPECT_EQ(c.rejectLevelCount, version >= 3 ? 3 : 0);
        EXPECT_EQ(c.rejectGrid, version >= 3 ? (QVector<float>{0, 0.5f, 1}) : QVector<float>());
        EXPECT_EQ(c.rejectTableIds, version >= 3 ? (QVector<int>{4, 5}) : QVector<int>());
        EXPECT_EQ(c.rejectTableCount, version >= 3 ? 2 : 0);
        EXPECT_EQ(c.rejectTable, version >= 3 ? QVector<float>{1.5f} : QVector<float>());
        ASSERT_TRUE(c.projection && c.extraElementM2 && c.extraElementM3 && c.network);
        EXPECT_EQ(c.projection->matrix.f32(), (QVector<float>{0.5f, -1}));
        EXPECT_EQ(c.extraElementM3->arrayA.dims(), (HostArray::Dims{2, 1, 1, 1}));
        EXPECT_EQ(c.network->unitCount, 2);
        EXPECT_EQ(c.colourTable, (QVector<int>{0xFF0000, 0x00FF00}));
        EXPECT_EQ(c.classFlags, (QVector<bool>{false, true}));
        EXPECT_TRUE(c.finalFlag);
        EXPECT_EQ(c.trainingRound, version == 4 ? 3 : -1);
        EXPECT_FALSE(c.prepFilter);
    }
}

TEST(ClassifierStream, BandSelectionForms)
{
    struct Case {
        std::optional<QVector<qint32>> stored;
        qint32 totalBands;
        QString overrideTag;
        std::optional<QVector<int>> expected;
    };
    const Case cases[] = {
        {std::nullopt, 4, {}, QVector<int>{0, 1, 2, 3}}, // "BandSelection=ALL"
        {std::nullopt, 0, {}, QVector<int>{}},
        {QVector<qint32>{2}, 4, {}, QVector<int>{2}},
        {std::nullopt, 4, "BandSelection:2", std::nullopt}, // another text changes nothing
    };
    for (const Case& k : cases) {
        ClassifierSpec spec;
        spec.version = 2;
        spec.selectedBands = k.stored;
        spec.totalBands = k.totalBands;
        if (!k.overrideTag.isEmpty())
            spec.tagOverrides[4] = k.overrideTag;
        const auto c = readClassifier(spec, 2);
        EXPECT_EQ(c->selectedBands, k.expected) << k.totalBands;
        EXPECT_EQ(c->selectedBandCount, k.expected ? k.expected->size() : 0);
    }
}

TEST(ClassifierStream, RejectionLevelsFromTheirStoredCount)
{
    ClassifierSpec spec = fullClassifier(3);
    spec.rejection->levelCount = 0;
    const auto c = readClassifier(spec, 3);
    EXPECT_EQ(c->rejectLevelCount, 100);
    ASSERT_EQ(c->rejectGrid.size(), 100);
    EXPECT_EQ(c->rejectGrid.front(), 0.0f);
    EXPECT_FLOAT_EQ(c->rejectGrid.back(), 1.0f);

    // A count that no grid should have is kept; the grid stops at its limit.
    spec.rejection->levelCount = 0x7FFFFFFF;
    const auto big = readClassifier(spec, 3);
    EXPECT_EQ(big->rejectLevelCount, 0x7FFFFFFF);
    EXPECT_EQ(big->rejectGrid.size(), ZelkClassifier::MaxRejectLevels);

    // Another text in place of "RejectionThresholds:1" reads no arrays, and the next
    // string is taken as the projection's tag.
    spec.rejection.reset();
    spec.tagOverrides[11] = "RejectionThresholds:2";
    const auto plain = readClassifier(spec, 3);
    EXPECT_EQ(plain->rejectLevelCount, 0);
    EXPECT_TRUE(plain->rejectGrid.isEmpty());
    EXPECT_TRUE(plain->projection);
}

TEST(ClassifierStream, OptionalTagsOfAbsentPartsAreConsumedAlone)
{
    for (int row : {8, 11, 12, 13, 14, 15, 19}) {
        ClassifierSpec spec = fullClassifier(4);
        switch (row) {
        case 8: spec.roc.reset(); break;
        case 11: spec.rejection.reset(); break;
        case 12: spec.projection.reset(); break;
        case 13: spec.extraM2.reset(); break;
        case 14: spec.extraM3.reset(); break;
        case 15: spec.network.reset(); break;
        case 19: spec.trainingRound.reset(); break;
        }
        // Once the "=NULL" form, once an unrelated text.
        for (const QString& text : {QString(), QStringLiteral("something else")}) {
            if (!text.isNull())
                spec.tagOverrides[row] = text;
            SCOPED_TRACE(row);
            const auto c = readClassifier(spec, 4);
            EXPECT_EQ(!c->roc, row == 8);
            EXPECT_EQ(c->rejectLevelCount == 0, row == 11);
            EXPECT_EQ(!c->projection, row == 12);
            EXPECT_EQ(!c->extraElementM2, row == 13);
            EXPECT_EQ(!c->extraElementM3, row == 14);
            EXPECT_EQ(!c->network, row == 15);
            EXPECT_EQ(c->trainingRound == -1, row == 19);
            EXPECT_EQ(c->classFlags, (QVector<bool>{false, true}));
        }
    }
}

TEST(ClassifierStream, ElementsExistWithDefaultsBehindAWrongInnerTag)
{
    // The rest of the stream then reads out of step; the classifier still returns 0.
    ClassifierSpec badRoc;
    badRoc.roc->tag = "ZelkROC:2";
    const auto c = readClassifier(badRoc, 4, false);
    ASSERT_TRUE(c->roc);
    EXPECT_EQ(c->roc->currentPoint, -1);
    EXPECT_TRUE(c->roc->weightTable.isEmpty());

    ClassifierSpec badProjection;
    badProjection.projection->tag = "ZelkAFPipelineM1";
    const auto p = readClassifier(badProjection, 4, false);
    ASSERT_TRUE(p->projection);
    EXPECT_EQ(p->projection->inputCount, 0);
    EXPECT_TRUE(p->projection->matrix.isEmpty());
}

TEST(ClassifierStream, ClassFlagsTakeTheStoredSize)
{
    ClassifierSpec spec;
    spec.classFlags = {true, false, true};
    EXPECT_EQ(readClassifier(spec, 4)->classFlags, (QVector<bool>{true, false, true}));
}

TEST(RocStream, FieldsConstraintsAndTables)
{
    Roc roc;
    roc.rocInt1 = 1, roc.rowLength = 2, roc.rocInt2 = 3, roc.currentPoint = 4;
    roc.names = QStringList{"x", "y"};
    roc.constraints = {{"k", "ZelkROCConstrain:1", 5, "n", "t", 0.5, false},
                       {"other", "ZelkROCConstrain:2"},
                       {"k", "ZelkROCConstrain:1", 6, "n2", "t2", 1.5, true}};
    roc.tableA = QVector<float>{1};
    roc.weightTable = QVector<float>{2, 3};
    roc.tableC = QVector<float>{4};
    roc.mask = QVector<qint8>{1, -1};
    Reading r(bytesOf(roc));
    ZelkROC read;
    read.constraints.insert("stale", new ZelkROCConstrain(&read));
    ASSERT_EQ(read.load(r.in), 0);
    EXPECT_EQ(r.nextString(), "next");
    EXPECT_EQ((std::array<int, 4>{read.rocInt1, read.rowLength, read.rocInt2, read.currentPoint}),
              (std::array<int, 4>{1, 2, 3, 4}));
    EXPECT_EQ(read.rocNames, (QStringList{"x", "y"}));
    ASSERT_EQ(read.constraints.keys(), (QList<QString>{"k", "other"}));
    EXPECT_EQ(read.children().size(), 2); // the stale and the replaced objects are gone
    const ZelkROCConstrain* k = read.constraints["k"];
    EXPECT_EQ(k->constrainCode, 6);
    EXPECT_EQ(k->constrainText, "t2");
    EXPECT_EQ(k->constrainValue, 1.5f);
    EXPECT_TRUE(k->constrainActive);
    EXPECT_EQ(read.constraints["other"]->constrainCode, 0);
    EXPECT_EQ(read.rocTableA, QVector<float>{1});
    EXPECT_EQ(read.weightTable, (QVector<float>{2, 3}));
    EXPECT_TRUE(read.rocTableB.isEmpty());
    EXPECT_EQ(read.rocTableC, QVector<float>{4});
    EXPECT_EQ(read.rocMask, QByteArray("\x01\xFF", 2));

    StreamBuilder b; // a constraint count that the stream cannot hold
    b.tag("ZelkROC:1").i32(0).i32(0).i32(0).i32(0).stringList({}).i32(0x7FFFFFFF).raw(QByteArray(40, '\0'));
    Reading huge(b.bytes());
    ZelkROC absurd;
    EXPECT_EQ(absurd.load(huge.in), 0);
    EXPECT_TRUE(absurd.constraints.isEmpty());
    EXPECT_TRUE(huge.in.atEnd());
}

TEST(RegressorStream, EachVersionEndsBehindItsLastRow)
{
    RegressorSpec v1;
    v1.version = 1;
    v1.scaling.reset();
    v1.model.reset();
    Reading r1(bytesOf(v1));
    ZelkRegressor one;
    ASSERT_EQ(one.load(r1.in), 0);
    EXPECT_EQ(r1.nextString(), "next");
    EXPECT_EQ(one.regVarNames, QStringList{"var1"});
    EXPECT_FALSE(one.regPrep || one.regSelection || one.regScaling || one.regModel);

    for (int version : {2, 3}) {
        RegressorSpec spec;
        spec.version = version;
        spec.prep = FilterElement();
        spec.selection = SelectionElement();
        Reading r(bytesOf(spec));
        ZelkRegressor reg;
        ASSERT_EQ(reg.load(r.in), 0) << version;
        EXPECT_EQ(r.nextString(), "next");
        ASSERT_TRUE(reg.regPrep && reg.regSelection && reg.regScaling && reg.regModel);
        EXPECT_EQ(reg.regPrep->outputBands, 5);
        EXPECT_EQ(reg.regSelection->indices.s32(), (QVector<qint32>{4, 0}));
        EXPECT_EQ(reg.regModel->outputCount, 1);
        EXPECT_EQ(reg.regVarNames, QStringList{"moisture"});
        EXPECT_EQ(reg.regBands, (QVector<int>{0, 1}));
        EXPECT_EQ(reg.regBandCount, 2);
        EXPECT_EQ(reg.modelSettings[0], version == 3 ? 2 : -1);
        EXPECT_EQ(reg.modelSettings[1], version == 3 ? 5 : -1);
    }

    RegressorSpec nullModel; // without a model any number of names is taken
    nullModel.version = 2;
    nullModel.model.reset();
    nullModel.varNames = QStringList{"a", "b", "c"};
    nullModel.bands.reset();
    Reading rn(bytesOf(nullModel));
    ZelkRegressor reg;
    ASSERT_EQ(reg.load(rn.in), 0);
    EXPECT_EQ(reg.regVarNames.size(), 3);
    EXPECT_TRUE(reg.regBands.isEmpty());
}

TEST(RegressorStream, EachFailureHasItsCode)
{
    using Change = std::function<void(RegressorSpec&)>;
    auto tagAt = [](int row, const char* text) -> Change { return [=](RegressorSpec& s) { s.tagOverrides[row] = text; }; };
    const std::vector<std::pair<Change, int>> cases = {
        {tagAt(1, "ZelkRegModel4"), -1101},
        {[](RegressorSpec& s) { s.prep = FilterElement{"ZelkAFPipelineM7:2"}; }, -1102},
        {tagAt(2, "ZelkRegModel2:prep"), -1103}, // the digit of the outer tag does not carry over
        {tagAt(3, "ZelkRegModel1:fsel:1"), -1104},
        {[](RegressorSpec& s) { s.selection = SelectionElement{"ZelkAFPipelineM10:2"}; }, -1104},
        {[](RegressorSpec& s) { s.scaling->tag = "ZelkAFPipelineM9"; }, -1105},
        {[](RegressorSpec& s) { s.scaling->scale.tag = "FloatArray:1"; }, -1105},
        {tagAt(4, "ZelkRegModel1:scale"), -1106},
        {[](RegressorSpec& s) { s.model->tag = "ZelkAFPipelineM2:1"; }, -1107},
        {tagAt(5, "ZelkRegModel1:model=null"), -1108},
        {tagAt(6, "RegVarList:1"), -1109},
        {[](RegressorSpec& s) { s.varNames = QStringList{"a", "b"}; }, -1110},
        {tagAt(7, "bandSelection"), -1111},
        {[](RegressorSpec& s) { s.bandArrayTag = "IntArray:2"; }, -1112},
        {tagAt(8, "ModelSettings:1"), -1},
    };
    for (size_t i = 0; i < cases.size(); ++i) {
        RegressorSpec spec;
        for (int version = 2; version <= 3; ++version) {
            spec.version = version;
            cases[i].first(spec);
            Reading r(bytesOf(spec));
            ZelkRegressor reg;
            const int expected = cases[i].second == -1 && version == 2 ? 0 : cases[i].second;
            EXPECT_EQ(reg.load(r.in), expected) << i << " version " << version;
        }
    }

    // What was read before the failure stays.
    RegressorSpec mismatch;
    mismatch.varNames = QStringList{"a", "b"};
    Reading r(bytesOf(mismatch));
    ZelkRegressor reg;
    ASSERT_EQ(reg.load(r.in), -1110);
    EXPECT_EQ(reg.regVarNames, (QStringList{"a", "b"}));
    EXPECT_TRUE(reg.regScaling && reg.regModel);
    EXPECT_TRUE(reg.regBands.isEmpty());
}

TEST(ModelStreams, TruncatedStreamsEndWithoutCrashing)
{
    const QByteArray classifier = bytesOf(fullClassifier(4));
    RegressorSpec regressor;
    regressor.prep = FilterElement();
    regressor.selection = SelectionElement();
    const QByteArray regression = bytesOf(regressor);
    const int nextSize = 4 + 8; // the trailing "next"
    for (int cut = 0; cut < classifier.size(); ++cut) {
        Reading r(classifier.left(cut));
        ZelkClassifier c;
        ASSERT_EQ(c.load(r.in, 4), 0);
    }
    // Up to the two settings behind the last tag, every cut fails somewhere.
    const int settingsStart = regression.size() - nextSize - 8;
    for (int cut = 0; cut < regression.size(); ++cut) {
        Reading r(regression.left(cut));
        ZelkRegressor reg;
        const int result = reg.load(r.in);
        EXPECT_EQ(result == 0, cut >= settingsStart) << cut;
    }
}

TEST(ModelStreams, AbsurdCountsReadAsTruncatedStreams)
{
    StreamBuilder b; // version 1: three ints, then a class name count of 2^31 - 1
    b.i32(1).i32(2).i32(3).u32(0x7FFFFFFF).raw(QByteArray(64, '\x01'));
    Reading r(b.bytes());
    ZelkClassifier c;
    ASSERT_EQ(c.load(r.in, 1), 0);
    EXPECT_TRUE(c.classNames.isEmpty());
    EXPECT_TRUE(c.classFlags.isEmpty());

    StreamBuilder names; // a variable list of 2^32 - 1 names
    names.tag("ZelkRegModel2").absent("ZelkRegModel1:prep").absent("ZelkRegModel1:fsel");
    names.absent("ZelkRegModel1:scaling").absent("ZelkRegModel1:model").tag("regVarList").u32(0xFFFFFFFF);
    Reading rn(names.bytes());
    ZelkRegressor reg;
    EXPECT_EQ(reg.load(rn.in), -1111);
    EXPECT_TRUE(reg.regVarNames.isEmpty());
}
