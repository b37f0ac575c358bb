// The line-scan tracker: labels each row's foreground pixels against the row before,
// merges labels where runs meet, keeps per-label sums in the table of open objects, and
// every finishPeriod lines closes the objects that have ended into object records.

#include "segment/segmenter.h"

#include <algorithm>
#include <cmath>
#include <limits>

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

bool ZelkSegmenter::rowsReady() const
{
    return prepared_ && streaming_ && tableReady_ && labelRow_ && previousLabelRow_;
}

const qint32* ZelkSegmenter::object(int i) const
{
    if (i < 0 || i >= objectCount_)
        return nullptr;
    return objectList_.data() + size_t(i) * ObjectRecordInts;
}

int ZelkSegmenter::trackDecisions(const quint8* decisions)
{
    return trackRow<Kernel::Decisions>(decisions, nullptr);
}

int ZelkSegmenter::trackForeground(const quint8* decisions)
{
    return trackRow<Kernel::Foreground>(decisions, nullptr);
}

int ZelkSegmenter::trackValue(const quint8* decisions, const float* values)
{
    return trackRow<Kernel::Value>(decisions, values);
}

int ZelkSegmenter::trackValues(const quint8* decisions, const float* values)
{
    return trackRow<Kernel::Values>(decisions, values);
}

int ZelkSegmenter::finishDecisions()
{
    return finishPass<Kernel::Decisions>();
}

void ZelkSegmenter::noteFreed(int label)
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
int ZelkSegmenter::issueLabel()
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
int ZelkSegmenter::issueImageLabel()
{
    lastIssuedLabel_ = nextLabel_;
    nextLabel_ = wrapped(qint64(nextLabel_) + 1);
    if (nextLabel_ >= labelCapacity)
        return -1;
    highestLabel_ = std::max(highestLabel_, nextLabel_);
    return 0;
}

// Image mode: the members of `absorbed`, a root until now, join those of `root`.
void ZelkSegmenter::appendMembers(qint32 root, qint32 absorbed)
{
    memberNext_[size_t(memberTail_[size_t(root)])] = absorbed;
    memberTail_[size_t(root)] = memberTail_[size_t(absorbed)];
}

// The three ways in which a merge points the labels of object hi at lo.

// A run that has just begun (label x) meets an older object: its label has no aliases
// yet, so pointing it at the older root is enough. A reused label can be the smaller one
// here; then nothing changes and hi keeps its own entry. In an image labels only grow,
// so x is hi.
void ZelkSegmenter::relabelNewRun(qint32 x, qint32 lo)
{
    labelMap_.data()[x] = lo;
    if (!streaming_)
        appendMembers(lo, x);
}

// Every label up to the highest issued that resolves to hi is looked at; `touched`
// becomes the record of the last alias found.
void ZelkSegmenter::relabelByScan(qint32 lo, qint32 hi, OpenObject*& touched)
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
void ZelkSegmenter::relabelByMembers(qint32 lo, qint32 hi, OpenObject*& touched)
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

template <ZelkSegmenter::Kernel K>
int ZelkSegmenter::trackRow(const quint8* decisions, const float* values)
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

// One row through a kernel. In streaming mode the segmenter owns the two label rows and
// swaps them; in image mode (labelImage) they are rows of the caller's label image, and
// labelImage moves them on.
template <ZelkSegmenter::Kernel K>
int ZelkSegmenter::scanRow(const quint8* decisions, const float* values)
{
    constexpr bool byFlag = K == Kernel::Foreground;
    constexpr bool withValues = K == Kernel::Value || K == Kernel::Values;
    const int nv = K == Kernel::Value ? 1 : valuesPerPixel_;
    const bool stream = streaming_;

    decisionRow_ = decisions;
    const quint8* above = previousDecisionRow_; // null on the first line
    const bool firstLine = above == nullptr;
    const qint32 line = currentLine_;
    const quint8* foreground = foregroundLut_.data();
    qint32* labels = labelRow_;
    const qint32* labelsAbove = previousLabelRow_;
    qint32* flags = flagRow_;
    const qint32* flagsAbove = previousFlagRow_;
    qint32* map = labelMap_.data();
    OpenObject* table = openObjects_.data();
    float* sums = valueSums_.data();
    const int slots = classSlots_;

    // The record most recently written in this row. A merge takes the first line of the
    // pixel's offset from it, whichever record that is.
    OpenObject* touched = nullptr;

    // What each joining pixel adds beside counts and sums: its class counter or its values.
    auto addExtras = [&](OpenObject& o, qint32 label, int c, int d) {
        if constexpr (byFlag) {
            if (d < ObjectClassSlots)
                add(o.classCounts[d], 1);
        }
        if constexpr (withValues) {
            float* sum = sums + size_t(label) * nv;
            const float* v = values + size_t(c) * nv;
            for (int j = 0; j < nv; ++j)
                sum[j] += v[j];
        }
        (void)o, (void)label, (void)c, (void)d;
    };

    auto create = [&](int c, int d) {
        const qint32 n = nextLabel_;
        if (n < 1 || n >= labelCapacity)
            return false; // an image that ran out of labels left no label to take
        OpenObject& o = table[n];
        o.state = 1;
        o.root = 0;
        if constexpr (!byFlag)
            o.decision = d;
        o.pixelCount = 1;
        o.firstLine = o.lastLine = line;
        o.minColumn = o.maxColumn = c;
        o.lineOffsetSum = 0;
        o.columnSum = c;
        if constexpr (byFlag) {
            std::fill_n(o.classCounts, slots, 0);
            if (d < ObjectClassSlots)
                o.classCounts[d] = 1;
        }
        if constexpr (withValues)
            std::copy_n(values + size_t(c) * nv, nv, sums + size_t(n) * nv);
        labels[c] = n;
        map[n] = n;
        touched = &o;
        if (stream)
            return issueLabel() == 0;
        memberNext_[size_t(n)] = 0;
        memberTail_[size_t(n)] = n;
        return issueImageLabel() == 0;
    };

    auto merge = [&](int c, int d, qint32 a, qint32 b) {
        const qint32 lo = std::min(a, b);
        const qint32 hi = std::max(a, b);
        const qint32 x = labels[c - 1];
        if (x == lastIssuedLabel_)
            relabelNewRun(x, lo);
        else if (stream || plainRelabel_)
            relabelByScan(lo, hi, touched);
        else
            relabelByMembers(lo, hi, touched);
        OpenObject& into = table[lo];
        OpenObject& from = table[hi];
        const qint32 touchedFirstLine = touched ? touched->firstLine : into.firstLine;
        // hi's offsets are relative to its own first line and are added as they stand.
        add(into.pixelCount, qint64(from.pixelCount) + 1);
        add(into.lineOffsetSum, qint64(line) - touchedFirstLine + from.lineOffsetSum);
        add(into.columnSum, qint64(from.columnSum) + c);
        if constexpr (byFlag) {
            for (int i = 0; i < slots; ++i)
                add(into.classCounts[i], from.classCounts[i]);
            if (d < ObjectClassSlots)
                add(into.classCounts[d], 1);
        }
        if constexpr (withValues) {
            float* sumInto = sums + size_t(lo) * nv;
            float* sumFrom = sums + size_t(hi) * nv;
            const float* v = values + size_t(c) * nv;
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
        into.lastLine = line;
        into.minColumn = std::min(into.minColumn, from.minColumn);
        into.maxColumn = std::max(into.maxColumn, from.maxColumn);
        into.firstLine = std::min(into.firstLine, from.firstLine);
        into.lastLine = std::max(line, from.lastLine);
        labels[c] = lo;
        touched = &into;
        (void)d;
    };

    // A pixel that joins label r: counts and sums, its class or values, and its label.
    auto join = [&](qint32 r, int c, int d) -> OpenObject& {
        OpenObject& o = table[r];
        add(o.pixelCount, 1);
        add(o.lineOffsetSum, qint64(line) - o.firstLine);
        add(o.columnSum, c);
        labels[c] = r;
        addExtras(o, r, c, d);
        touched = &o;
        return o;
    };

    if (width_ > 0) {
        const int d = decisions[0];
        const int flag = foreground[d];
        if constexpr (byFlag)
            flags[0] = flag;
        if (flag) {
            const int key = byFlag ? flag : d;
            const bool upMatches = !firstLine && (byFlag ? flagsAbove[0] : above[0]) == key;
            if (upMatches)
                join(map[labelsAbove[0]], 0, d).lastLine = line;
            else if (!create(0, d))
                return -1;
        }
    }

    for (int c = 1; c < width_; ++c) {
        const int d = decisions[c];
        const int flag = foreground[d];
        if constexpr (byFlag)
            flags[c] = flag;
        if (!flag)
            continue;
        const int key = byFlag ? flag : d;
        const bool leftMatches = (byFlag ? flags[c - 1] : decisions[c - 1]) == key;
        const bool upMatches = !firstLine && (byFlag ? flagsAbove[c] : above[c]) == key;

        if (leftMatches && upMatches) {
            const qint32 a = map[labels[c - 1]];
            const qint32 b = map[labelsAbove[c]];
            if (a != b)
                merge(c, d, a, b);
            else
                join(a, c, d); // inside the object: its bounds and last line stand
        } else if (upMatches) {
            join(map[labelsAbove[c]], c, d).lastLine = line;
        } else if (leftMatches) {
            OpenObject& o = join(map[labels[c - 1]], c, d);
            if (firstLine) {
                // On the first line a run only grows to the right, one column at a time.
                add(o.maxColumn, 1);
            } else {
                o.maxColumn = std::max(o.maxColumn, qint32(c));
                o.lastLine = line;
            }
        } else if (!create(c, d)) {
            return -1;
        }
    }

    if (!stream) {
        // The image's rows stay where they are; labelImage moves on to the next one.
        previousLabelRow_ = labelRow_;
        if (byFlag)
            previousFlagRow_ = flagRow_;
        currentLine_ = wrapped(qint64(currentLine_) + 1);
        previousDecisionRow_ = decisionRow_;
        return 0;
    }
    objectCount_ = 0;
    if (line % finishPeriod == 0 && finishPass<K>() != 0)
        return -1;
    std::swap(labelRow_, previousLabelRow_);
    std::fill_n(labelRow_, width_, 0);
    if (byFlag && mask() == ObjectMask::AllForeground) {
        std::swap(flagRow_, previousFlagRow_);
        std::fill_n(flagRow_, width_, 0);
    }
    currentLine_ = wrapped(qint64(currentLine_) + 1);
    previousDecisionRow_ = decisionRow_;
    return 0;
}

// Writes the record of open object `o` (label `label`) at index objectCount_, numbered
// nextObjectNumber_, with its mean values in the value kernels.
template <ZelkSegmenter::Kernel K>
void ZelkSegmenter::writeRecord(const OpenObject& o, qint32 label)
{
    using namespace objectfield;
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
        if (objDecType == 1)
            record[Decision] = objectclass::majority(o.classCounts, classSlots_);
        else if (objDecType == 2)
            record[Decision] = objectclass::byRules(defaultIndex_, rule1, rule2Enabled, rule2, o.classCounts,
                                                    o.pixelCount, nullptr);
        std::copy_n(o.classCounts, classSlots_, record + ClassSizes);
    } else if constexpr (K == Kernel::Value) {
        mean[0] = valueSums_[size_t(label)] / float(o.pixelCount);
        record[Decision] = o.decision;
        if (objDecType == 2)
            record[Decision] = objectclass::byRules(defaultIndex_, rule1, rule2Enabled, rule2, o.classCounts,
                                                    o.pixelCount, mean);
    } else {
        const float* sum = valueSums_.data() + size_t(label) * nv;
        for (int j = 0; j < nv; ++j)
            mean[j] = sum[j] / float(o.pixelCount);
        record[Decision] = o.decision;
    }
    (void)mean, (void)label;
}

template <ZelkSegmenter::Kernel K>
int ZelkSegmenter::finishPass()
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
        if (o.pixelCount < minObjSize) {
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
template int ZelkSegmenter::finishPass<ZelkSegmenter::Kernel::Decisions>();
template int ZelkSegmenter::finishPass<ZelkSegmenter::Kernel::Foreground>();
template int ZelkSegmenter::scanRow<ZelkSegmenter::Kernel::Decisions>(const quint8*, const float*);
template int ZelkSegmenter::scanRow<ZelkSegmenter::Kernel::Foreground>(const quint8*, const float*);
template void ZelkSegmenter::writeRecord<ZelkSegmenter::Kernel::Decisions>(const OpenObject&, qint32);
template void ZelkSegmenter::writeRecord<ZelkSegmenter::Kernel::Foreground>(const OpenObject&, qint32);
