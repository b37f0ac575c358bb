// How a finished object's class is decided: by majority in 'All foreground' mode, by
// up to two rules over class counts or over the mean value, with strict comparisons.

#include "segment_support.h"

#include <gtest/gtest.h>

using namespace segtest;

namespace {

// Classes c0 (background) to c3, all others foreground; decision by rules with c1 as
// the default.
std::unique_ptr<ZelkSegmenter> byRules(int objMask = 2)
{
    auto s = definition({0, 1, 1, 1}, objMask);
    s->objDecType = 2;
    s->ruleDefDecName = QStringLiteral("c1");
    return s;
}

ZelkSegmentRule rule(const char* name, int kind, int count, float threshold)
{
    ZelkSegmentRule r;
    r.decName = QString::fromLatin1(name);
    r.kind = kind;
    r.thresholdInt = count;
    r.thresholdFloat = threshold;
    return r;
}

// Each object is one run drawn on its own line (0, 2, 4, ...); with the value kernels
// all its pixels carry `means[i]` (and twice that as the second value). Returns the
// decision of every reported object, in order.
std::vector<int> decisions(ZelkSegmenter& s, Kernel kernel, const std::vector<std::string>& objects,
                           const std::vector<float>& means = {}, std::vector<Report>* reports = nullptr)
{
    const int k = kernel == Kernel::Value ? 1 : kernel == Kernel::Values ? 2 : 0;
    s.setMinObjSize(1);
    EXPECT_EQ(s.compile(), 0) << s.lastErrorText().toStdString();
    EXPECT_EQ(s.prepareSegmenter(true, 8, k), 0);
    Feeder f(s, kernel);
    for (int line = 0; line <= 20; ++line) {
        const size_t i = size_t(line / 2);
        std::string text(8, '.');
        if (line % 2 == 0 && i < objects.size())
            text.replace(0, objects[i].size(), objects[i]);
        std::vector<float> values;
        for (int c = 0; c < 8; ++c)
            for (int j = 0; j < k; ++j)
                values.push_back(i < means.size() ? means[i] * float(j + 1) : 0.0f);
        EXPECT_EQ(f.feed(row(text), values), 0);
    }
    std::vector<int> out;
    for (const Report& r : f.reports)
        out.push_back(r.record[objectfield::Decision]);
    if (reports)
        *reports = f.reports;
    return out;
}

} // namespace

TEST(ObjectDecision, MajorityTieGoesToTheLowerCode)
{
    auto s = definition({0, 1, 1, 1}, 2);
    EXPECT_EQ(decisions(*s, Kernel::Foreground, {"2211", "2221", "3312", "3"}), std::vector<int>({1, 2, 3, 3}));
}

TEST(ObjectDecision, CountRuleFiresOnlyAboveItsThreshold)
{
    auto s = byRules();
    s->rule1 = rule("c2", ZelkSegmentRule::Count, 2, 0.0f);
    EXPECT_EQ(decisions(*s, Kernel::Foreground, {"1122", "1222", "3333"}), std::vector<int>({1, 2, 1}));
}

TEST(ObjectDecision, FractionRuleFiresOnlyAboveItsThreshold)
{
    // Exactly half the pixels do not make more than half.
    auto s = byRules();
    s->rule1 = rule("c2", ZelkSegmentRule::Fraction, 0, 0.5f);
    EXPECT_EQ(decisions(*s, Kernel::Foreground, {"1122", "1222", "2222", "1112"}),
              std::vector<int>({1, 2, 2, 1}));
}

TEST(ObjectDecision, SecondRuleWinsWhenBothFire)
{
    auto s = byRules();
    s->rule1 = rule("c2", ZelkSegmentRule::Count, 0, 0.0f);
    s->rule2 = rule("c3", ZelkSegmentRule::Count, 0, 0.0f);
    s->rule2Enabled = true;
    EXPECT_EQ(decisions(*s, Kernel::Foreground, {"1223", "122", "11", "13"}), std::vector<int>({3, 2, 1, 3}));
    s->rule2Enabled = false;
    EXPECT_EQ(decisions(*s, Kernel::Foreground, {"1223", "13"}), std::vector<int>({2, 1}));
}

TEST(ObjectDecision, CountsKnowNoMeanAndUnknownKindsNeverFire)
{
    auto s = byRules();
    s->rule1 = rule("c2", ZelkSegmentRule::MeanValue, 0, -100.0f);
    s->rule2 = rule("c3", 7, -1, -1.0f);
    s->rule2Enabled = true;
    EXPECT_EQ(decisions(*s, Kernel::Foreground, {"22", "33"}), std::vector<int>({1, 1}));
}

TEST(ObjectDecision, MeanRuleComparesTheObjectsMeanStrictly)
{
    // The default is c3, so that any value other than 3 shows a rule at work.
    auto s = byRules(1);
    s->ruleDefDecName = QStringLiteral("c3");
    s->rule1 = rule("c2", ZelkSegmentRule::MeanValue, 0, 0.5f);
    std::vector<Report> reports;
    EXPECT_EQ(decisions(*s, Kernel::Value, {"11", "1111", "2"}, {0.5f, 0.75f, 0.25f}, &reports),
              std::vector<int>({3, 2, 3}));
    ASSERT_EQ(reports.size(), 3u);
    EXPECT_EQ(reports[1].means, std::vector<float>({0.75f}));
}

TEST(ObjectDecision, ValueKernelsCountNoClassesForTheRules)
{
    // Every pixel is c1, yet the counters the rules read stay zero: a count above 0 or a
    // fraction above 0 never fires, thresholds below zero always do.
    auto s = byRules(1);
    s->ruleDefDecName = QStringLiteral("c3");
    s->rule1 = rule("c1", ZelkSegmentRule::Count, 0, 0.0f);
    s->rule2 = rule("c1", ZelkSegmentRule::Fraction, 0, 0.0f);
    s->rule2Enabled = true;
    EXPECT_EQ(decisions(*s, Kernel::Value, {"111"}, {1.0f}), std::vector<int>({3}));
    s->rule1.thresholdInt = -1;
    EXPECT_EQ(decisions(*s, Kernel::Value, {"111"}, {1.0f}), std::vector<int>({1}));
    s->rule1.thresholdInt = 0;
    s->rule2.thresholdFloat = -0.5f;
    EXPECT_EQ(decisions(*s, Kernel::Value, {"111"}, {1.0f}), std::vector<int>({1}));

    // By majority the value kernel keeps the code that created the object.
    s->objDecType = 1;
    EXPECT_EQ(decisions(*s, Kernel::Value, {"11", "22"}, {1.0f, 1.0f}), std::vector<int>({1, 2}));
}

TEST(ObjectDecision, SeveralValuesKeepTheCreatingCodeAndAverageEachValue)
{
    auto s = byRules(1);
    s->ruleDefDecName = QStringLiteral("c3");
    s->rule1 = rule("c2", ZelkSegmentRule::MeanValue, 0, -100.0f); // would fire for any mean
    std::vector<Report> reports;
    EXPECT_EQ(decisions(*s, Kernel::Values, {"22", "111"}, {0.5f, 2.0f}, &reports), std::vector<int>({2, 1}));
    ASSERT_EQ(reports.size(), 2u);
    EXPECT_EQ(reports[0].means, std::vector<float>({0.5f, 1.0f}));
    EXPECT_EQ(reports[1].means, std::vector<float>({2.0f, 4.0f}));
}
