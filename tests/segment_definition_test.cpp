// The segmenter's definition: the class list and foreground flags, the compile checks
// with their codes and messages, and what preparation requires.

#include "segment_support.h"

#include <gtest/gtest.h>

using segtest::definition;

namespace {

QStringList names(std::initializer_list<const char*> list)
{
    QStringList out;
    for (const char* n : list)
        out << QString::fromLatin1(n);
    return out;
}

// Compiles and checks code, stored code and stored message together.
void expectCompile(ZelkSegmenter& s, int code, const char* message)
{
    EXPECT_EQ(s.compile(), code);
    EXPECT_EQ(s.lastErrorCode(), code);
    EXPECT_EQ(s.lastErrorText().toStdString(), message);
    EXPECT_FALSE(s.isCompiled());
    EXPECT_EQ(s.foregroundTable(), nullptr);
}

// Classes bg, a, b, c with a and b flagged, rules by decision type 2.
std::unique_ptr<ZelkSegmenter> ruled()
{
    auto s = definition({0, 1, 1, 0});
    s->objDecType = 2;
    s->ruleDefDecName = QStringLiteral("c1");
    s->rule1.decName = QStringLiteral("c2");
    return s;
}

} // namespace

TEST(SegmenterDefinition, SetClassesMakesOneClearedFlagPerDecision)
{
    ZelkSegmenter s;
    s.setClasses(names({"bg", "a", "b"}), true);
    EXPECT_EQ(s.classNameCount(), 3);
    ASSERT_TRUE(s.foregroundVec());
    EXPECT_EQ(*s.foregroundVec(), QVector<quint8>(4, 0));
    EXPECT_EQ(s.firstForeground(), -1);

    s.setForegroundFlag(2, 1);
    s.backgroundDecName = QStringLiteral("bg");
    ASSERT_EQ(s.compile(), 0);
    EXPECT_TRUE(s.isCompiled());
    EXPECT_EQ(s.lastErrorText(), QStringLiteral("OK"));
    EXPECT_EQ(s.firstForeground(), 2);
    // A changed flag or a new class list undoes the compile.
    s.setForegroundFlag(1, 1);
    EXPECT_FALSE(s.isCompiled());
    ASSERT_EQ(s.compile(), 0);
    s.setClasses(names({"bg", "a"}), false);
    EXPECT_FALSE(s.isCompiled());
    EXPECT_EQ(s.foregroundTable(), nullptr);
    EXPECT_EQ(*s.foregroundVec(), QVector<quint8>(2, 0));
}

TEST(SegmenterDefinition, SetForegroundAddsFlaggedClassesAndStoresUnknownLast)
{
    ZelkSegmenter s;
    s.backgroundDecName = QStringLiteral("bg");
    // "x" is flagged but not returned by the classifier: it gets a code of its own.
    // "y" is neither, and "Unknown" is the decision after the last class.
    const int r = s.setForeground(names({"bg", "a", "b"}), true, names({"b", "x", "y", "Unknown", "a"}),
                                  {1, 1, 0, 1, 0});
    EXPECT_EQ(r, 0);
    EXPECT_EQ(s.classNames(), names({"bg", "a", "b", "x"}));
    EXPECT_EQ(*s.foregroundVec(), QVector<quint8>({0, 0, 1, 1, 1}));
    const quint8* table = s.foregroundTable();
    ASSERT_TRUE(table);
    EXPECT_EQ(table[4], 1);   // unknown
    EXPECT_EQ(table[5], 0);   // beyond the vector
    EXPECT_EQ(table[255], 0);

    // Without the unknown decision, "Unknown" is just a name that isn't there.
    ZelkSegmenter t;
    t.backgroundDecName = QStringLiteral("bg");
    EXPECT_EQ(t.setForeground(names({"bg", "a"}), false, names({"Unknown", "a"}), {1, 1}), 0);
    EXPECT_EQ(*t.foregroundVec(), QVector<quint8>({0, 1}));
}

TEST(SegmenterDefinition, CompileChecksTheListLengths)
{
    ZelkSegmenter empty;
    expectCompile(empty, -3500, "Empty decision list or foregound specification.");
    ZelkSegmenter noVector;
    noVector.setClassNames(names({"bg", "a"}));
    expectCompile(noVector, -3500, "Empty decision list or foregound specification.");

    ZelkSegmenter s;
    s.setClassNames(names({"bg", "a"}));
    s.setForegroundVec(std::make_unique<QVector<quint8>>(QVector<quint8>{0, 1}));
    s.setUseUnknown(true);
    expectCompile(s, -3501, "Incorrect foreground definition due to missing unknown class");
    s.setUseUnknown(false);
    s.setForegroundVec(std::make_unique<QVector<quint8>>(QVector<quint8>{0, 1, 0}));
    expectCompile(s, -3502, "Incorrect length of decision list or foreground specification");
}

TEST(SegmenterDefinition, CompileCountsOnlyFlagsEqualToOne)
{
    auto none = definition({0, 2, 2});
    expectCompile(*none, -3520, "No decision flagged as foreground.");
    // All flagged fails even though a background is named.
    auto all = definition({1, 1, 1});
    expectCompile(*all, -3521, "All decisions flagged as foreground.");

    std::vector<quint8> flags(23, 1);
    flags[0] = 0;
    flags[22] = 2; // foreground to the tracker, but not counted: 21 ones
    auto many = definition(flags);
    expectCompile(*many, -3522, "Max 20 foreground classes allowed.");
    flags[21] = 2; // 20 ones
    auto twenty = definition(flags);
    EXPECT_EQ(twenty->compile(), 0);
    EXPECT_EQ(twenty->foregroundTable()[22], 2);
    EXPECT_EQ(twenty->firstForeground(), 1);
}

TEST(SegmenterDefinition, BackgroundMustBeANamedClassNotFlagged)
{
    auto s = definition({0, 1});
    s->backgroundDecName = QStringLiteral("nothing");
    expectCompile(*s, -3505, "Background decision not present in classifier decision list.");
    EXPECT_TRUE(s->backgroundDecName.isEmpty());
    EXPECT_EQ(s->backgroundIndex(), -1);

    s->backgroundDecName = QStringLiteral("c1");
    expectCompile(*s, -3506, "Background decision is flagged as foreground.");
    EXPECT_TRUE(s->backgroundDecName.isEmpty());
    // The cleared name then fails as a missing one.
    expectCompile(*s, -3505, "Background decision not present in classifier decision list.");

    // A background flagged 2 is not "flagged as foreground" to this check.
    auto two = definition({2, 1, 0});
    two->backgroundDecName = QStringLiteral("c0");
    EXPECT_EQ(two->compile(), 0);
    EXPECT_EQ(two->backgroundIndex(), 0);
}

TEST(SegmenterDefinition, RulesAreCheckedOnlyForDecisionByRules)
{
    auto s = ruled();
    s->objDecType = 1;
    s->ruleDefDecName = QStringLiteral("nothing");
    EXPECT_EQ(s->compile(), 0);

    s->objDecType = 2;
    expectCompile(*s, -3507, "Rule: Default decision not present in classifier decision list");
    EXPECT_EQ(s->defaultIndex(), -1);
    EXPECT_TRUE(s->ruleDefDecName.isEmpty());
    s->ruleDefDecName = QStringLiteral("c3");
    expectCompile(*s, -3508, "Rule: Default decision not flagged as foreground");

    s->ruleDefDecName = QStringLiteral("c1");
    s->rule2.decName = QStringLiteral("c3");
    s->rule2.decIndex = 7;
    ASSERT_EQ(s->compile(), 0); // rule 2 is not enabled
    EXPECT_EQ(s->defaultIndex(), 1);
    EXPECT_EQ(s->rule1.decIndex, 2);
    EXPECT_EQ(s->rule2.decIndex, -1);
}

TEST(SegmenterDefinition, EachRuleFailureHasItsOwnCode)
{
    struct Case {
        int rule;
        const char* name;
        bool unknown;
        int code;
        const char* message;
    };
    const Case cases[] = {
        {1, "Unknown", false, -3512, "Rule 1: Classifier does not return 'unknown' decision"},
        {1, "Unknown", true, -3511, "Rule 1: 'Unknown' decision not flagged as foreground."},
        {1, "nothing", false, -3513, "Rule 1 decision not present in the classifier decision list"},
        {1, "c3", false, -3514, "Rule 1 decision not flagged as foreground"},
        {2, "Unknown", false, -3516, "Rule 2: Classifier does not return 'unknown' decision"},
        {2, "Unknown", true, -3515, "Rule 2: 'Unknown' decision not flagged as foreground."},
        {2, "nothing", false, -3517, "Rule 2 decision not present in the classifier decision list"},
        {2, "c3", false, -3518, "Rule 2 decision not flagged as foreground"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.code);
        auto s = ruled();
        if (c.unknown) {
            s->setUseUnknown(true);
            s->setForegroundVec(std::make_unique<QVector<quint8>>(QVector<quint8>{0, 1, 1, 0, 0}));
        }
        s->rule2Enabled = c.rule == 2;
        ZelkSegmentRule& rule = c.rule == 1 ? s->rule1 : s->rule2;
        rule.decName = QString::fromLatin1(c.name);
        expectCompile(*s, c.code, c.message);
        EXPECT_TRUE(rule.decName.isEmpty());
        EXPECT_EQ(rule.decIndex, -1);
    }

    // A flagged unknown decision is a valid rule target, with the code after the classes.
    auto s = ruled();
    s->setUseUnknown(true);
    s->setForegroundVec(std::make_unique<QVector<quint8>>(QVector<quint8>{0, 1, 1, 0, 1}));
    s->rule2Enabled = true;
    s->rule2.decName = QStringLiteral("Unknown");
    s->ruleDefDecName = QStringLiteral("Unknown");
    ASSERT_EQ(s->compile(), 0);
    EXPECT_EQ(s->rule2.decIndex, 4);
    EXPECT_EQ(s->defaultIndex(), 4);

    // A rule that failed on a flag fails on its cleared name the next time.
    auto again = ruled();
    again->rule1.decName = QStringLiteral("c3");
    EXPECT_EQ(again->compile(), -3514);
    EXPECT_EQ(again->compile(), -3513);
}

TEST(SegmenterDefinition, PreparationNeedsACompiledDefinition)
{
    auto s = definition({0, 1});
    EXPECT_EQ(s->prepareSegmenter(true, 8, 0), -3600);
    EXPECT_EQ(s->lastErrorText().toStdString(), "initSession: Decisions not compiled.");
    // Nothing runs on an unprepared segmenter.
    const quint8 rowOfOnes[8] = {1, 1, 1, 1, 1, 1, 1, 1};
    EXPECT_EQ(s->trackDecisions(rowOfOnes), -1);
    EXPECT_EQ(s->finishDecisions(), -1);
    ASSERT_EQ(s->compile(), 0);
    ASSERT_EQ(s->prepareSegmenter(true, 8, 0), 0);
    EXPECT_EQ(s->trackDecisions(nullptr), -1);
    EXPECT_EQ(s->trackValue(rowOfOnes, nullptr), -1); // no values per pixel prepared
    EXPECT_EQ(s->trackForeground(rowOfOnes), -1);   // no flag rows for objMask 1
    EXPECT_EQ(s->trackDecisions(rowOfOnes), 0);
    // Whole images are labelled by other means; the row kernels refuse them.
    ASSERT_EQ(s->prepareSegmenter(false, 8, 0), 0);
    EXPECT_EQ(s->trackDecisions(rowOfOnes), -1);
}

TEST(SegmenterDefinition, ATrackerFollowsItsDefinition)
{
    // A tracker reads its definition as it stands at each call: a definition recompiled
    // with other flags changes what the next preparation and rows see.
    ZelkSegmentDefinition definition;
    definition.setClasses({QStringLiteral("belt"), QStringLiteral("a"), QStringLiteral("b")}, false);
    definition.backgroundDecName = QStringLiteral("belt");
    definition.minObjSize = 1;
    ZelkSegmentTracker tracker(definition);
    EXPECT_EQ(tracker.prepare(true, 4, 0), -3600);
    EXPECT_EQ(definition.lastErrorCode(), 0); // the tracker does not write the definition

    ASSERT_TRUE(definition.setForegroundFlag(1, 1));
    ASSERT_EQ(definition.compile(), 0);
    ASSERT_EQ(tracker.prepare(true, 4, 0), 0);
    const quint8 row[4] = {1, 1, 2, 2};
    const quint8 empty[4] = {0, 0, 0, 0};
    auto objectsOf = [&](const quint8* first) {
        EXPECT_EQ(tracker.prepare(true, 4, 0), 0);
        int objects = 0;
        const quint8* rows[] = {first, empty, empty, empty};
        for (int line = 0; line < 21; ++line) {
            EXPECT_EQ(tracker.trackDecisions(rows[std::min(line, 3)]), 0);
            objects += tracker.objectCount();
        }
        return objects;
    };
    EXPECT_EQ(objectsOf(row), 1); // only "a" is foreground
    ASSERT_TRUE(definition.setForegroundFlag(2, 1));
    ASSERT_EQ(definition.compile(), 0);
    EXPECT_EQ(objectsOf(row), 2);
}

TEST(SegmenterDefinition, MinimumSizeTakesOnlyPositiveValues)
{
    ZelkSegmenter s;
    EXPECT_EQ(s.minObjSize, 50);
    s.setMinObjSize(0);
    s.setMinObjSize(-4);
    EXPECT_EQ(s.minObjSize, 50);
    s.setMinObjSize(7);
    EXPECT_EQ(s.minObjSize, 7);
}
