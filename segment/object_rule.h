#pragma once
// How a finished object's class is decided: by the majority of its pixels, or by up to
// two threshold rules over its class counts or its mean value.

#include <QString>
#include <QtGlobal>

struct ZelkSegmentRule {
    enum Kind : qint32 { Count = 1, Fraction = 2, MeanValue = 3 };

    QString decName;        // decision the rule assigns; "Unknown" names the unknown decision
    qint32 decIndex = -1;   // its code, set by a successful compile
    qint32 kind = 0;        // one of Kind; any other value never fires
    qint32 thresholdInt = 0;
    float thresholdFloat = 0;
};

namespace objectclass {

// Index of the largest of the first `n` counters, scanning upward and replacing only on
// a strictly greater count: the lowest code wins a tie, and 0 comes out of all zeros.
int majority(const qint32* counts, int n);

// Whether `rule` fires for an object with `pixelCount` pixels and the per-code counters
// `counts` (ObjectClassSlots entries). `mean` is the object's mean value, or null where
// no mean exists; a mean-value rule never fires then. All comparisons are strict.
bool fires(const ZelkSegmentRule& rule, const qint32* counts, qint32 pixelCount, const float* mean);

// The default decision, replaced by rule 1 and then by rule 2 (when enabled) wherever
// they fire, so that rule 2 wins when both do.
int byRules(int defaultIndex, const ZelkSegmentRule& rule1, bool rule2Enabled, const ZelkSegmentRule& rule2,
            const qint32* counts, qint32 pixelCount, const float* mean);

} // namespace objectclass
