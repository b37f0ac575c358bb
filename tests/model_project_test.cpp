// The project record around a load: defaults, regression variables, decision colour
// tables and the random seed.

#include "model/project.h"

#include <QSignalSpy>
#include <gtest/gtest.h>

TEST(Project, StartsWithTheUnknownClassAndOneVariable)
{
    ZelkProject p;
    EXPECT_EQ(p.classNames, QStringList{"Unknown"});
    EXPECT_EQ(p.classColors.value(0).alpha(), 0);
    EXPECT_EQ(p.regVarList, QStringList{"var1"});
    ASSERT_NE(p.segmenter, nullptr);

    for (int i = 2; i <= 10; ++i)
        EXPECT_EQ(p.addRegVar(QStringLiteral("v%1").arg(i)), 0);
    EXPECT_EQ(p.addRegVar("v11"), -1); // an eleventh name
    ZelkProject q;
    EXPECT_EQ(q.addRegVar("var1"), -1); // already there
}

TEST(Project, DecisionColourTablesShiftOverUnknownNamesAndEndFixed)
{
    ZelkProject p;
    p.classNames = QStringList{"Unknown", "leaf", "stem"};
    p.classColors = {QColor(0, 0, 0, 0), QColor(10, 20, 30), QColor(40, 50, 60)};
    p.classifier = std::make_unique<ZelkClassifier>();
    p.classifier->classNames = QStringList{"stem", "missing", "leaf"};
    p.buildClassifierColours();
    const QVector<int>& t = p.classifier->colourTable;
    ASSERT_EQ(t.size(), 256);
    EXPECT_EQ(QRgb(t[0]), qRgb(40, 50, 60));
    EXPECT_EQ(QRgb(t[1]), qRgb(10, 20, 30)); // the missing name left no entry
    EXPECT_EQ(QRgb(t[2]), QColor(128, 128, 128, 180).rgba());
    EXPECT_EQ(qAlpha(QRgb(t[100])), 255);
    EXPECT_EQ(QRgb(t[255]), 0xFFC8C8FFu);

    QStringList many;
    for (int i = 0; i < 300; ++i)
        many.append(QStringLiteral("c%1").arg(i));
    p.classNames = many;
    p.classColors = QVector<QColor>(300, Qt::red);
    p.classifier->classNames = many;
    p.buildClassifierColours();
    EXPECT_EQ(p.classifier->colourTable.size(), 302);

    p.segmenter->setClasses(QStringList{"leaf"}, false);
    p.buildSegmenterColours();
    EXPECT_EQ(p.segmenter->colourTable.size(), 256);
}

TEST(Project, RandomSeedReachesTheClassifierOnlyWhenItChanges)
{
    ZelkProject p;
    p.classifier = std::make_unique<ZelkClassifier>();
    QSignalSpy spy(&p, &ZelkProject::displayMessage);
    p.setRandomSeed(42);
    EXPECT_EQ(spy.count(), 0);
    p.setRandomSeed(7);
    ASSERT_EQ(spy.count(), 1);
    EXPECT_EQ(spy.at(0).at(0).toString(), "Random seed: 7");
    EXPECT_EQ(p.classifier->randomSeed, 7);
}
