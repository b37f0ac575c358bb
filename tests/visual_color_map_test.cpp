// Colour maps: named gradients rendered into 256-entry tables, and the stop preview.

#include "visual/color_map.h"

#include <QSignalSpy>
#include <gtest/gtest.h>

TEST(ColorMap, TablesStayZeroUntilTheFirstRendering)
{
    ZelkColorMap map;
    for (auto range : {std::pair{3, 254}, std::pair{1, 255}}) {
        const QVector<QRgb>* t = map.table(range.first, range.second);
        ASSERT_TRUE(t);
        EXPECT_EQ(*t, QVector<QRgb>(256, 0));
    }
    EXPECT_EQ(map.table(0, 255), nullptr);
}

TEST(ColorMap, GrayRisesFromBlackToWhiteInsideItsRange)
{
    ZelkColorMap map;
    map.setUpNamed(QStringLiteral("gray"));
    const QVector<QRgb>& t = *map.table(1, 255);
    EXPECT_EQ(t[0], 0u); // outside the range
    EXPECT_LE(qRed(t[1]), 1);
    EXPECT_GE(qRed(t[255]), 254);
    for (int i = 2; i <= 255; ++i) {
        EXPECT_GE(qRed(t[i]), qRed(t[i - 1])) << i;
        EXPECT_EQ(qRed(t[i]), qBlue(t[i]));
    }
    const QVector<QRgb>& narrow = *map.table(3, 254);
    EXPECT_EQ(narrow[2], 0u);
    EXPECT_EQ(narrow[255], 0u);
    EXPECT_GE(qRed(narrow[254]), 254);
}

TEST(ColorMap, PlasmaEndsAtItsOwnLastStop)
{
    ZelkColorMap map;
    map.setUpNamed(QStringLiteral("plasma"));
    const QRgb last = (*map.table(1, 255))[255];
    EXPECT_NEAR(qRed(last), 228, 2);
    EXPECT_NEAR(qGreen(last), 250, 2);
    EXPECT_NEAR(qBlue(last), 21, 2);
    EXPECT_EQ(map.stops().size(), 8);
    // An unknown name clears the stops, and a gradient without stops renders as Qt's
    // default, black to white.
    map.setUpNamed(QStringLiteral("unknown"));
    ZelkColorMap gray;
    gray.setUpNamed(QStringLiteral("gray"));
    EXPECT_EQ(*map.table(1, 255), *gray.table(1, 255));
}

TEST(ColorMap, NamedTablesEqualAFreshRenderingOfTheirStops)
{
    ZelkColorMap named, painted;
    named.setUpNamed(QStringLiteral("viridis"));
    painted.setStops(named.stops());
    for (auto range : {std::pair{3, 254}, std::pair{1, 255}})
        EXPECT_EQ(*named.table(range.first, range.second), *painted.table(range.first, range.second));
    // A map with a range of its own gets that range rendered as well.
    ZelkColorMap wider;
    wider.addRange(0, 255);
    wider.setUpNamed(QStringLiteral("viridis"));
    EXPECT_NEAR(qRed((*wider.table(0, 255))[0]), 72, 2);
    EXPECT_EQ(*wider.table(1, 255), *named.table(1, 255));
}

TEST(ColorMap, RangesAreAddedOnce)
{
    ZelkColorMap map;
    map.setUpNamed(QStringLiteral("gray"));
    const QVector<QRgb> before = *map.table(1, 255);
    map.addRange(1, 255);
    EXPECT_EQ(*map.table(1, 255), before);
}

TEST(ColorMap, OverridePreviewsAColourAndRestoresTheSavedStops)
{
    ZelkColorMap map;
    map.setUpNamed(QStringLiteral("gray"));
    QSignalSpy counts(&map, &ZelkColorMap::stopCountChanged);
    map.setOverrideIndex(-1, 0); // no preview active: nothing happens
    EXPECT_EQ(counts.count(), 0);

    map.setOverrideIndex(0, 1); // stop 0 takes white, stop 1 goes
    EXPECT_EQ(map.stops().size(), 2); // the saved stops while the preview runs
    EXPECT_GE(qRed((*map.table(1, 255))[1]), 254);
    map.setOverrideIndex(-1, 0);
    EXPECT_LE(qRed((*map.table(1, 255))[1]), 1);
    EXPECT_EQ(map.stops().size(), 2);

    map.setOverrideIndex(0, 1);
    map.applyOverride(); // the preview becomes the state
    EXPECT_EQ(map.stops().size(), 1);
    map.removeStop(0);
    EXPECT_EQ(counts.takeLast().at(0).toInt(), 0);
}
