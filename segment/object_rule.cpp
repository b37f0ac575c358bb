#include "segment/object_rule.h"

#include "segment/object_record.h"

namespace objectclass {

int majority(const qint32* counts, int n)
{
    int best = 0;
    for (int i = 1; i < n; ++i)
        if (counts[i] > counts[best])
            best = i;
    return best;
}

bool fires(const ZelkSegmentRule& rule, const qint32* counts, qint32 pixelCount, const float* mean)
{
    // A code beyond the counters has no pixels counted.
    const bool counted = rule.decIndex >= 0 && rule.decIndex < ObjectClassSlots;
    const qint32 count = counted ? counts[rule.decIndex] : 0;
    switch (rule.kind) {
    case ZelkSegmentRule::Count:
        return count > rule.thresholdInt;
    case ZelkSegmentRule::Fraction:
        return rule.thresholdFloat < float(count) / float(pixelCount);
    case ZelkSegmentRule::MeanValue:
        return mean && rule.thresholdFloat < *mean;
    default:
        return false;
    }
}

int byRules(int defaultIndex, const ZelkSegmentRule& rule1, bool rule2Enabled, const ZelkSegmentRule& rule2,
            const qint32* counts, qint32 pixelCount, const float* mean)
{
    int decision = defaultIndex;
    if (fires(rule1, counts, pixelCount, mean))
        decision = rule1.decIndex;
    if (rule2Enabled && fires(rule2, counts, pixelCount, mean))
        decision = rule2.decIndex;
    return decision;
}

} // namespace objectclass
