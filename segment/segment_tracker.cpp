// The line-scan tracker: labels each row's foreground pixels against the row before,
// merges labels where runs meet, keeps per-label sums in the table of open objects, and
// every finishPeriod lines closes the objects that have ended into object records.

#include "segment/segment_tracker.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <new>

namespace {

// The sums live in 32-bit integers and wrap around like them: an object as long as the
// belt can carry line offsets beyond 2^31.
inline qint32 wrapped(qint64 value)
{
    return qint32(quint32(quint64(value)));
}

inline void add(qint32& field, qint64 value)
{
    field = wrapped(qint64(field) + value);
}

// roundf's result as an integer. Out of range (only an object without pixels gets
// there) it is the lowest integer, as the processor's own conversion gives.
inline qint32 roundedInt(float value)
{
    const float r = std::roundf(value);
    if (!(r >= -2147483648.0f && r < 2147483648.0f))
        return std::numeric_limits<qint32>::min();
    return qint32(r);
}

} // namespace

int ZelkSegmentTracker::prepare(bool streaming, int width, int valuesPerPixel)
{
    if (!definition_.isCompiled())
        return -3600;
    prepared_ = false;
    streaming_ = streaming;
    width = std::max(width, 0);
    valuesPerPixel = std::max(valuesPerPixel, 0);
    const size_t labels = size_t(labelCapacity);
    const size_t listed = size_t(objectListCapacity);
    try {
        if (streaming) {
            auto ensure = [&](std::vector<qint32>* rows) {
                if (rows[0].size() != size_t(width) || rows[1].size() != size_t(width)) {
                    rows[0].assign(size_t(width), 0);
                    rows[1].assign(size_t(width), 0);
                }
            };
            ensure(labelRows_);
            if (definition_.mask() == ObjectMask::AllForeground)
                ensure(flagRows_);
            for (std::vector<qint32>& row : labelRows_)
                std::fill(row.begin(), row.end(), 0);
            for (std::vector<qint32>& row : flagRows_)
                std::fill(row.begin(), row.end(), 0);
            labelRow_ = labelRows_[0].data();
            previousLabelRow_ = labelRows_[1].data();
            const bool flagsPresent = flagRows_[0].size() == size_t(width) && flagRows_[1].size() == size_t(width);
            flagRow_ = flagsPresent ? flagRows_[0].data() : nullptr;
            previousFlagRow_ = flagsPresent ? flagRows_[1].data() : nullptr;
        } else {
            // Rows come with each image.
            acceptedPixels_ = 0;
            labelRow_ = previousLabelRow_ = flagRow_ = previousFlagRow_ = nullptr;
        }
        width_ = width;
        valuesPerPixel_ = valuesPerPixel;

        // Fresh tables, so that nothing of an earlier acquisition survives.
        openObjects_ = ZeroedTable<OpenObject>(labels);
        labelMap_ = ZeroedTable<qint32>(labels);
        valueSums_ = ZeroedTable<float>(labels * size_t(valuesPerPixel));
        objectNumberMap_ = ZeroedTable<qint32>(labels);
        objectList_ = ZeroedTable<qint32>(listed * ObjectRecordInts);
        objectMeans_ = ZeroedTable<float>(listed * size_t(valuesPerPixel));
        // Whole images keep the members of every root, so that a merge relabels only
        // those (see scanRow).
        memberNext_ = ZeroedTable<qint32>(streaming ? 0 : labels);
        memberTail_ = ZeroedTable<qint32>(streaming ? 0 : labels);
    } catch (const std::bad_alloc&) {
        // Tables that large for this many values per pixel can't be had; the tracker
        // stays unprepared and its kernels refuse to run.
        openObjects_ = {};
        valueSums_ = {};
        objectMeans_ = {};
        memberNext_ = {};
        memberTail_ = {};
        return -1;
    }

    nextLabel_ = 1;
    lastIssuedLabel_ = -1;
    highestLabel_ = 1;
    nextObjectNumber_ = 1;
    acceptedPixels_ = 0;
    objectCount_ = 0;
    currentLine_ = 0;
    decisionRow_ = nullptr;
    previousDecisionRow_ = nullptr;
    freeSearchStart_ = 1;
    prepared_ = true;
    return 0;
}

bool ZelkSegmentTracker::rowsReady() const
{
    return prepared_ && streaming_ && definition_.foregroundTable() && labelRow_ && previousLabelRow_;
}

const qint32* ZelkSegmentTracker::object(int i) const
{
    if (i < 0 || i >= objectCount_)
        return nullptr;
    return objectList_.data() + size_t(i) * ObjectRecordInts;
}

int ZelkSegmentTracker::trackDecisions(const quint8* decisions)
{
    return trackRow<Kernel::Decisions>(decisions, nullptr);
}

int ZelkSegmentTracker::trackForeground(const quint8* decisions)
{
    return trackRow<Kernel::Foreground>(decisions, nullptr);
}

int ZelkSegmentTracker::trackValue(const quint8* decisions, const float* values)
{
    return trackRow<Kernel::Value>(decisions, values);
}

int ZelkSegmentTracker::trackValues(const quint8* decisions, const float* values)
{
    return trackRow<Kernel::Values>(decisions, values);
}

int ZelkSegmentTracker::finishDecisions()
{
    return finishPass<Kernel::Decisions>();
}

void ZelkSegmentTracker::noteFreed(int label)
{
    freeSearchStart_ = std::min(freeSearchStart_, label);
}

// Prepares the label that the next new object gets: the lowest label whose object is
// closed or was never used, or a merged-away label whose root has since been issued to
// an object that began after this label's last line. Only the latter is cleared here.
//
// The search starts at freeSearchStart_ rather than at label 1, with the same result:
// no label below it can be taken. Labels come free only when the pass closes their
// object, and closing lowers the start. A merged-away label becomes takeable when its
// root is issued anew; its root is always a smaller label (the smaller of two merged
// labels survives), which had to close before, so the start already lies at or below
// the root when the search comes by.
int ZelkSegmentTracker::issueLabel()
{
    if (labelCapacity < 2)
        return -1;
    OpenObject* table = openObjects_.data();
    int k = plainLabelSearch_ ? 1 : std::max(1, freeSearchStart_);
    for (; k < labelCapacity; ++k) {
        OpenObject& o = table[k];
        if (o.state < 1)
            break;
        if (o.root > 0 && o.root < labelCapacity && table[o.root].firstLine > o.lastLine) {
            o = OpenObject{};
            break;
        }
    }
    if (k >= labelCapacity) {
        freeSearchStart_ = labelCapacity;
        return -1;
    }
    freeSearchStart_ = k;
    lastIssuedLabel_ = nextLabel_;
    nextLabel_ = k;
    highestLabel_ = std::max(highestLabel_, k);
    return 0;
}

// Image mode: labels are issued in order and never reused.
int ZelkSegmentTracker::issueImageLabel()
{
    lastIssuedLabel_ = nextLabel_;
    nextLabel_ = wrapped(qint64(nextLabel_) + 1);
    if (nextLabel_ >= labelCapacity)
        return -1;
    highestLabel_ = std::max(highestLabel_, nextLabel_);
    return 0;
}

// Image mode: the members of `absorbed`, a root until now, join those of `root`.
void ZelkSegmentTracker::appendMembers(qint32 root, qint32 absorbed)
{
    memberNext_[size_t(memberTail_[size_t(root)])] = absorbed;
    memberTail_[size_t(root)] = memberTail_[size_t(absorbed)];
}

// The three ways in which a merge points the labels of object hi at lo.

// A run that has just begun (label x) meets an older object: its label has no aliases
// yet, so pointing it at the older root is enough. A reused label can be the smaller one
// here; then nothing changes and hi keeps its own entry. In an image labels only grow,
// so x is hi.
void ZelkSegmentTracker::relabelNewRun(qint32 x, qint32 lo)
{
    labelMap_.data()[x] = lo;
    if (!streaming_)
        appendMembers(lo, x);
}

// Every label up to the highest issued that resolves to hi is looked at; `touched`
// becomes the record of the last alias found.
void ZelkSegmentTracker::relabelByScan(qint32 lo, qint32 hi, OpenObject*& touched)
{
    qint32* map = labelMap_.data();
    const int last = highestLabel_;
    for (int k = 0; k <= last; ++k) {
        if (map[k] == hi) {
            map[k] = lo;
            if (k != hi) {
                openObjects_.data()[k].root = lo;
                touched = &openObjects_.data()[k];
            }
        }
    }
    if (!streaming_)
        appendMembers(lo, hi);
}

// Image mode: the same relabelling as the scan, through the member list of hi. The scan
// ends with the highest of them, so that is the touched record.
void ZelkSegmentTracker::relabelByMembers(qint32 lo, qint32 hi, OpenObject*& touched)
{
    qint32* map = labelMap_.data();
    qint32 alias = 0;
    for (qint32 k = hi; k != 0; k = memberNext_[size_t(k)]) {
        map[k] = lo;
        if (k != hi) {
            openObjects_.data()[k].root = lo;
            alias = std::max(alias, k);
        }
    }
    // The scan also reaches highestLabel, the label to be issued next. Its entry is left
    // from an earlier image and can name hi as well.
    const qint32 next = highestLabel_;
    if (next >= nextLabel_ && next < labelCapacity && map[next] == hi) {
        map[next] = lo;
        openObjects_.data()[next].root = lo;
        alias = next;
    }
    if (alias != 0)
        touched = &openObjects_.data()[alias];
    appendMembers(lo, hi);
}

template <ZelkSegmentTracker::Kernel K>
int ZelkSegmentTracker::trackRow(const quint8* decisions, const float* values)
{
    constexpr bool byFlag = K == Kernel::Foreground;
    constexpr bool withValues = K == Kernel::Value || K == Kernel::Values;
    const int nv = K == Kernel::Value ? 1 : valuesPerPixel_;
    if (!rowsReady() || !decisions)
        return -1;
    if (byFlag && (!flagRow_ || !previousFlagRow_))
        return -1;
    if (K == Kernel::Value && valuesPerPixel_ != 1)
        return -1;
    if (withValues && nv > 0 && !values)
        return -1;
    return scanRow<K>(decisions, values);
}

// The steps of a row are inlined into its loop, as one function would be: they run once
// per pixel, and calls there halve the tracker's speed.
#define RowStep __attribute__((always_inline)) inline

// What the steps of one row share: its decisions and values, the rows above, the tables,
// and the record most recently written in the row (a merge takes the first line of the
// pixel's offset from it, whichever record that is).
struct ZelkSegmentTracker::Row {
    const quint8* decisions;
    const quint8* above; // null on the first line
    const float* values;
    int valueCount;      // values per pixel
    qint32 line;
    const quint8* foreground;
    qint32* labels;
    const qint32* labelsAbove;
    qint32* flags;
    const qint32* flagsAbove;
    qint32* map;
    OpenObject* table;
    float* sums;
    int slots;
    OpenObject* touched;

    bool firstLine() const { return above == nullptr; }
};

// One row through a kernel. In streaming mode the tracker owns the two label rows and
// swaps them; in image mode (labelImage) they are rows of the caller's label image, and
// labelImage moves them on.
template <ZelkSegmentTracker::Kernel K>
int ZelkSegmentTracker::scanRow(const quint8* decisions, const float* values)
{
    Row row = beginRow<K>(decisions, values);
    if (width_ > 0 && !scanFirstPixel<K>(row))
        return -1;
    for (int c = 1; c < width_; ++c)
        if (!scanPixel<K>(row, c))
            return -1;
    return endRow<K>();
}

template <ZelkSegmentTracker::Kernel K>
RowStep ZelkSegmentTracker::Row ZelkSegmentTracker::beginRow(const quint8* decisions, const float* values)
{
    decisionRow_ = decisions;
    Row row{};
    row.decisions = decisions;
    row.above = previousDecisionRow_;
    row.values = values;
    row.valueCount = K == Kernel::Value ? 1 : valuesPerPixel_;
    row.line = currentLine_;
    row.foreground = definition_.foregroundTable();
    row.labels = labelRow_;
    row.labelsAbove = previousLabelRow_;
    row.flags = flagRow_;
    row.flagsAbove = previousFlagRow_;
    row.map = labelMap_.data();
    row.table = openObjects_.data();
    row.sums = valueSums_.data();
    row.slots = definition_.classSlots();
    row.touched = nullptr;
    return row;
}

// The first pixel has no left neighbour: it joins the object above or starts one.
template <ZelkSegmentTracker::Kernel K>
RowStep bool ZelkSegmentTracker::scanFirstPixel(Row& row)
{
    constexpr bool byFlag = K == Kernel::Foreground;
    const int d = row.decisions[0];
    const int flag = row.foreground[d];
    if constexpr (byFlag)
        row.flags[0] = flag;
    if (!flag)
        return true;
    const int key = byFlag ? flag : d;
    const bool upMatches = !row.firstLine() && (byFlag ? row.flagsAbove[0] : row.above[0]) == key;
    if (!upMatches)
        return startObject<K>(row, 0, d);
    joinObject<K>(row, row.map[row.labelsAbove[0]], 0, d).lastLine = row.line;
    return true;
}

// A pixel right of the first: it joins its left or upper neighbour's object, merges the
// two when both match and differ, or starts an object. False when no label is left.
template <ZelkSegmentTracker::Kernel K>
RowStep bool ZelkSegmentTracker::scanPixel(Row& row, int c)
{
    constexpr bool byFlag = K == Kernel::Foreground;
    const int d = row.decisions[c];
    const int flag = row.foreground[d];
    if constexpr (byFlag)
        row.flags[c] = flag;
    if (!flag)
        return true;
    const int key = byFlag ? flag : d;
    const bool leftMatches = (byFlag ? row.flags[c - 1] : row.decisions[c - 1]) == key;
    const bool upMatches = !row.firstLine() && (byFlag ? row.flagsAbove[c] : row.above[c]) == key;

    if (leftMatches && upMatches) {
        const qint32 a = row.map[row.labels[c - 1]];
        const qint32 b = row.map[row.labelsAbove[c]];
        if (a != b)
            mergeObjects<K>(row, c, d, a, b);
        else
            joinObject<K>(row, a, c, d); // inside the object: its bounds and last line stand
    } else if (upMatches) {
        joinObject<K>(row, row.map[row.labelsAbove[c]], c, d).lastLine = row.line;
    } else if (leftMatches) {
        OpenObject& o = joinObject<K>(row, row.map[row.labels[c - 1]], c, d);
        if (row.firstLine()) {
            // On the first line a run only grows to the right, one column at a time.
            add(o.maxColumn, 1);
        } else {
            o.maxColumn = std::max(o.maxColumn, qint32(c));
            o.lastLine = row.line;
        }
    } else {
        return startObject<K>(row, c, d);
    }
    return true;
}

// Pixel c of decision d starts an object under the label prepared for it, and the next
// label is prepared. False when none is left.
template <ZelkSegmentTracker::Kernel K>
RowStep bool ZelkSegmentTracker::startObject(Row& row, int c, int d)
{
    constexpr bool byFlag = K == Kernel::Foreground;
    constexpr bool withValues = K == Kernel::Value || K == Kernel::Values;
    const qint32 n = nextLabel_;
    if (n < 1 || n >= labelCapacity)
        return false; // an image that ran out of labels left no label to take
    OpenObject& o = row.table[n];
    o.state = 1;
    o.root = 0;
    if constexpr (!byFlag)
        o.decision = d;
    o.pixelCount = 1;
    o.firstLine = o.lastLine = row.line;
    o.minColumn = o.maxColumn = c;
    o.lineOffsetSum = 0;
    o.columnSum = c;
    if constexpr (byFlag) {
        std::fill_n(o.classCounts, row.slots, 0);
        if (d < ObjectClassSlots)
            o.classCounts[d] = 1;
    }
    if constexpr (withValues) {
        const int nv = K == Kernel::Value ? 1 : row.valueCount;
        std::copy_n(row.values + size_t(c) * nv, nv, row.sums + size_t(n) * nv);
    }
    row.labels[c] = n;
    row.map[n] = n;
    row.touched = &o;
    if (streaming_)
        return issueLabel() == 0;
    memberNext_[size_t(n)] = 0;
    memberTail_[size_t(n)] = n;
    return issueImageLabel() == 0;
}

// Pixel c of decision d joins the object of root label r: counts and sums, its class
// counter or its values, and its label.
template <ZelkSegmentTracker::Kernel K>
RowStep OpenObject& ZelkSegmentTracker::joinObject(Row& row, qint32 r, int c, int d)
{
    OpenObject& o = row.table[r];
    add(o.pixelCount, 1);
    add(o.lineOffsetSum, qint64(row.line) - o.firstLine);
    add(o.columnSum, c);
    row.labels[c] = r;
    if constexpr (K == Kernel::Foreground) {
        if (d < ObjectClassSlots)
            add(o.classCounts[d], 1);
    }
    if constexpr (K == Kernel::Value || K == Kernel::Values) {
        const int nv = K == Kernel::Value ? 1 : row.valueCount;
        float* sum = row.sums + size_t(r) * nv;
        const float* v = row.values + size_t(c) * nv;
        for (int j = 0; j < nv; ++j)
            sum[j] += v[j];
    }
    row.touched = &o;
    (void)d;
    return o;
}

// Pixel c of decision d joins two objects, roots a and b: the higher label's object goes
// into the lower's, and the labels that resolved to it are pointed at the lower.
template <ZelkSegmentTracker::Kernel K>
RowStep void ZelkSegmentTracker::mergeObjects(Row& row, int c, int d, qint32 a, qint32 b)
{
    constexpr bool byFlag = K == Kernel::Foreground;
    const qint32 lo = std::min(a, b);
    const qint32 hi = std::max(a, b);
    const qint32 x = row.labels[c - 1];
    // The row is handed on by its parts only, so that it can stay in registers.
    OpenObject* touched = row.touched;
    if (x == lastIssuedLabel_)
        relabelNewRun(x, lo);
    else if (streaming_ || plainRelabel_)
        relabelByScan(lo, hi, touched);
    else
        relabelByMembers(lo, hi, touched);
    row.touched = touched;
    OpenObject& into = row.table[lo];
    OpenObject& from = row.table[hi];
    const qint32 touchedFirstLine = row.touched ? row.touched->firstLine : into.firstLine;
    // hi's offsets are relative to its own first line and are added as they stand.
    add(into.pixelCount, qint64(from.pixelCount) + 1);
    add(into.lineOffsetSum, qint64(row.line) - touchedFirstLine + from.lineOffsetSum);
    add(into.columnSum, qint64(from.columnSum) + c);
    if constexpr (byFlag) {
        for (int i = 0; i < row.slots; ++i)
            add(into.classCounts[i], from.classCounts[i]);
        if (d < ObjectClassSlots)
            add(into.classCounts[d], 1);
    }
    if constexpr (K == Kernel::Value || K == Kernel::Values) {
        const int nv = K == Kernel::Value ? 1 : row.valueCount;
        float* sumInto = row.sums + size_t(lo) * nv;
        float* sumFrom = row.sums + size_t(hi) * nv;
        const float* v = row.values + size_t(c) * nv;
        for (int j = 0; j < nv; ++j) {
            sumInto[j] += sumFrom[j] + v[j];
            sumFrom[j] = 0.0f;
        }
    }
    from.root = lo;
    from.pixelCount = 0;
    from.lineOffsetSum = 0;
    from.columnSum = 0;
    if constexpr (byFlag)
        std::fill_n(from.classCounts, ObjectClassSlots, 0);
    into.lastLine = row.line;
    into.minColumn = std::min(into.minColumn, from.minColumn);
    into.maxColumn = std::max(into.maxColumn, from.maxColumn);
    into.firstLine = std::min(into.firstLine, from.firstLine);
    into.lastLine = std::max(row.line, from.lastLine);
    row.labels[c] = lo;
    row.touched = &into;
    (void)d;
}

// Moves on to the next line. A stream runs a finishing pass on every finishPeriod-th
// line and swaps its rows; an image's rows stay where they are.
template <ZelkSegmentTracker::Kernel K>
RowStep int ZelkSegmentTracker::endRow()
{
    constexpr bool byFlag = K == Kernel::Foreground;
    if (!streaming_) {
        previousLabelRow_ = labelRow_;
        if (byFlag)
            previousFlagRow_ = flagRow_;
        currentLine_ = wrapped(qint64(currentLine_) + 1);
        previousDecisionRow_ = decisionRow_;
        return 0;
    }
    objectCount_ = 0;
    if (currentLine_ % finishPeriod == 0 && finishPass<K>() != 0)
        return -1;
    std::swap(labelRow_, previousLabelRow_);
    std::fill_n(labelRow_, width_, 0);
    if (byFlag && definition_.mask() == ObjectMask::AllForeground) {
        std::swap(flagRow_, previousFlagRow_);
        std::fill_n(flagRow_, width_, 0);
    }
    currentLine_ = wrapped(qint64(currentLine_) + 1);
    previousDecisionRow_ = decisionRow_;
    return 0;
}

namespace {

// How a finished object's class is decided where the definition decides it: by the
// majority of its pixels, or by up to two threshold rules over its class counts or its
// mean value.

// Index of the largest of the first `n` counters, scanning upward and replacing only on
// a strictly greater count: the lowest code wins a tie, and 0 comes out of all zeros.
int majority(const qint32* counts, int n)
{
    int best = 0;
    for (int i = 1; i < n; ++i)
        if (counts[i] > counts[best])
            best = i;
    return best;
}

// Whether `rule` fires for an object with `pixelCount` pixels and the per-code counters
// `counts` (ObjectClassSlots entries). `mean` is the object's mean value, or null where
// no mean exists; a mean-value rule never fires then. All comparisons are strict.
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

// The definition's default decision, replaced by rule 1 and then by rule 2 (when
// enabled) wherever they fire, so that rule 2 wins when both do.
int byRules(const ZelkSegmentDefinition& d, const qint32* counts, qint32 pixelCount, const float* mean)
{
    int decision = d.defaultIndex();
    if (fires(d.rule1, counts, pixelCount, mean))
        decision = d.rule1.decIndex;
    if (d.rule2Enabled && fires(d.rule2, counts, pixelCount, mean))
        decision = d.rule2.decIndex;
    return decision;
}

} // namespace

// Writes the record of open object `o` (label `label`) at index objectCount_, numbered
// nextObjectNumber_, with its mean values in the value kernels.
template <ZelkSegmentTracker::Kernel K>
void ZelkSegmentTracker::writeRecord(const OpenObject& o, qint32 label)
{
    using namespace objectfield;
    const ZelkSegmentDefinition& d = definition_;
    const int nv = valuesPerPixel_;
    qint32* record = objectList_.data() + size_t(objectCount_) * ObjectRecordInts;
    record[Number] = nextObjectNumber_;
    const float w = 1.0f / float(o.pixelCount);
    record[CentroidLine] = wrapped(qint64(roundedInt(float(o.lineOffsetSum) * w)) + o.firstLine);
    record[CentroidColumn] = roundedInt(float(o.columnSum) * w);
    record[FirstLine] = o.firstLine;
    record[LastLine] = o.lastLine;
    record[FirstColumn] = o.minColumn;
    record[LastColumn] = o.maxColumn;
    record[PixelCount] = o.pixelCount;

    float* mean = objectMeans_.data() + size_t(objectCount_) * nv;
    if constexpr (K == Kernel::Decisions) {
        record[Decision] = o.decision;
    } else if constexpr (K == Kernel::Foreground) {
        if (definition_.objDecType == 1)
            record[Decision] = majority(o.classCounts, definition_.classSlots());
        else if (definition_.objDecType == 2)
            record[Decision] = byRules(d, o.classCounts, o.pixelCount, nullptr);
        std::copy_n(o.classCounts, definition_.classSlots(), record + ClassSizes);
    } else if constexpr (K == Kernel::Value) {
        mean[0] = valueSums_[size_t(label)] / float(o.pixelCount);
        record[Decision] = o.decision;
        if (definition_.objDecType == 2)
            record[Decision] = byRules(d, o.classCounts, o.pixelCount, mean);
    } else {
        const float* sum = valueSums_.data() + size_t(label) * nv;
        for (int j = 0; j < nv; ++j)
            mean[j] = sum[j] / float(o.pixelCount);
        record[Decision] = o.decision;
    }
    (void)mean, (void)label;
}

template <ZelkSegmentTracker::Kernel K>
int ZelkSegmentTracker::finishPass()
{
    if (!prepared_)
        return -1;
    if (!streaming_) {
        if constexpr (K == Kernel::Decisions || K == Kernel::Foreground)
            return finishImage<K>();
        return -1; // images are labelled without values
    }
    if (K == Kernel::Value && valuesPerPixel_ != 1)
        return -1;
    const qint64 line = currentLine_;
    // The scan includes highestLabel: labels are reused lowest first, so the highest
    // label ever prepared can be in use while the next one is a lower label, and a scan
    // that stopped below it would leave that object open for good.
    const int last = std::min(highestLabel_, labelCapacity - 1);
    for (int k = 1; k <= last; ++k) {
        const qint32 r = labelMap_[k];
        if (r == 0)
            continue;
        OpenObject& o = openObjects_[r];
        // Open as long as it touched this line or the one before.
        if (o.state <= 0 || !(qint64(o.lastLine) + 1 < line))
            continue;
        if (o.pixelCount < definition_.minObjSize) {
            o.state = -2;
            labelMap_[k] = 0;
            noteFreed(r);
            continue;
        }
        writeRecord<K>(o, r);
        ++objectCount_;
        nextObjectNumber_ = wrapped(qint64(nextObjectNumber_) + 1);
        if (objectCount_ >= objectListCapacity)
            return -1; // written, but left open
        o.state = -1;
        noteFreed(r);
        labelMap_[k] = 0;
    }
    return 0;
}

// The row kernels, passes and record writer that labelImage and finishImage use.
template int ZelkSegmentTracker::finishPass<ZelkSegmentTracker::Kernel::Decisions>();
template int ZelkSegmentTracker::finishPass<ZelkSegmentTracker::Kernel::Foreground>();
template int ZelkSegmentTracker::scanRow<ZelkSegmentTracker::Kernel::Decisions>(const quint8*, const float*);
template int ZelkSegmentTracker::scanRow<ZelkSegmentTracker::Kernel::Foreground>(const quint8*, const float*);
template void ZelkSegmentTracker::writeRecord<ZelkSegmentTracker::Kernel::Decisions>(const OpenObject&, qint32);
template void ZelkSegmentTracker::writeRecord<ZelkSegmentTracker::Kernel::Foreground>(const OpenObject&, qint32);
