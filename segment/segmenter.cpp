#include "segment/segmenter.h"

#include <algorithm>
#include <new>

namespace {

const QString unknownName = QStringLiteral("Unknown");

QString messageOf(int code)
{
    switch (code) {
    case -3500: return QStringLiteral("Empty decision list or foregound specification.");
    case -3501: return QStringLiteral("Incorrect foreground definition due to missing unknown class");
    case -3502: return QStringLiteral("Incorrect length of decision list or foreground specification");
    case -3505: return QStringLiteral("Background decision not present in classifier decision list.");
    case -3506: return QStringLiteral("Background decision is flagged as foreground.");
    case -3507: return QStringLiteral("Rule: Default decision not present in classifier decision list");
    case -3508: return QStringLiteral("Rule: Default decision not flagged as foreground");
    case -3510: return QStringLiteral("Rule 1 decision out of bounds");
    case -3511: return QStringLiteral("Rule 1: 'Unknown' decision not flagged as foreground.");
    case -3512: return QStringLiteral("Rule 1: Classifier does not return 'unknown' decision");
    case -3513: return QStringLiteral("Rule 1 decision not present in the classifier decision list");
    case -3514: return QStringLiteral("Rule 1 decision not flagged as foreground");
    case -3515: return QStringLiteral("Rule 2: 'Unknown' decision not flagged as foreground.");
    case -3516: return QStringLiteral("Rule 2: Classifier does not return 'unknown' decision");
    case -3517: return QStringLiteral("Rule 2 decision not present in the classifier decision list");
    case -3518: return QStringLiteral("Rule 2 decision not flagged as foreground");
    case -3519: return QStringLiteral("Rule 2 decision out of bounds");
    case -3520: return QStringLiteral("No decision flagged as foreground.");
    case -3521: return QStringLiteral("All decisions flagged as foreground.");
    case -3522: return QStringLiteral("Max 20 foreground classes allowed.");
    case -3600: return QStringLiteral("initSession: Decisions not compiled.");
    default: return QString();
    }
}

// Codes of the rule checks, in the order they are made.
struct RuleCodes {
    int noUnknown;            // the rule names "Unknown" but the classifier has no such decision
    int unknownNotForeground; // the unknown decision is not flagged
    int notFound;
    int notForeground;
    int outOfBounds;
};

} // namespace

ZelkSegmenter::ZelkSegmenter(QObject* parent)
    : QObject(parent)
{
}

ZelkSegmenter::~ZelkSegmenter() = default;

int ZelkSegmenter::fail(int code)
{
    lastErrorCode_ = code;
    lastErrorText_ = messageOf(code);
    return code;
}

void ZelkSegmenter::clearCompiled()
{
    compiled_ = false;
}

void ZelkSegmenter::setClassNames(const QStringList& names)
{
    clearCompiled();
    classNames_ = names;
    classNameCount_ = classNames_.size();
}

void ZelkSegmenter::setUseUnknown(bool useUnknown)
{
    clearCompiled();
    useUnknown_ = useUnknown;
}

void ZelkSegmenter::setForegroundVec(std::unique_ptr<QVector<quint8>> flags)
{
    clearCompiled();
    // The compiled table is a copy, but it stands for the vector it was made from.
    tableReady_ = false;
    foregroundVec_ = std::move(flags);
}

bool ZelkSegmenter::setForegroundFlag(int index, quint8 flag)
{
    if (!foregroundVec_ || index < 0 || index >= foregroundVec_->size())
        return false;
    (*foregroundVec_)[index] = flag;
    clearCompiled();
    return true;
}

void ZelkSegmenter::setClasses(const QStringList& names, bool useUnknown)
{
    setClassNames(names);
    useUnknown_ = useUnknown;
    setForegroundVec(std::make_unique<QVector<quint8>>(names.size() + (useUnknown ? 1 : 0), quint8(0)));
}

int ZelkSegmenter::setForeground(const QStringList& decisions, bool useUnknown, const QStringList& names,
                                 const QVector<quint8>& flags)
{
    auto flagOf = [&](int i) { return i < flags.size() ? flags[i] : quint8(0); };

    // Foreground classes that the classifier does not return still get a code, so that
    // the definition keeps them.
    QStringList list = decisions;
    for (int i = 0; i < names.size(); ++i) {
        const QString& name = names[i];
        if (name == unknownName || list.contains(name))
            continue;
        if (decisions.contains(name) || flagOf(i) != 0)
            list.append(name);
    }
    setClasses(list, useUnknown);

    for (int i = 0; i < names.size(); ++i) {
        if (useUnknown && names[i] == unknownName) {
            setForegroundFlag(classNames_.size(), flagOf(i));
        } else {
            const int index = classNames_.indexOf(names[i]);
            if (index >= 0)
                setForegroundFlag(index, flagOf(i));
        }
    }
    return compile();
}

int ZelkSegmenter::compile()
{
    tableReady_ = false;
    compiled_ = false;
    const int n = classNames_.size();
    if (n == 0 || !foregroundVec_)
        return fail(-3500);
    const QVector<quint8>& flags = *foregroundVec_;
    const int v = flags.size();
    if (useUnknown_ && v != n + 1)
        return fail(-3501);
    if (!useUnknown_ && v != n)
        return fail(-3502);

    // Only flags equal to 1 count here, though every non-zero flag is foreground to the
    // tracker.
    const int flagged = int(std::count(flags.begin(), flags.end(), quint8(1)));
    if (flagged == 0 || v == 0)
        return fail(-3520);
    if (flagged == v)
        return fail(-3521);
    if (flagged >= ObjectClassSlots)
        return fail(-3522);

    // The unknown decision has no name in the list, so it can't be the background.
    backgroundIndex_ = classNames_.indexOf(backgroundDecName);
    if (backgroundIndex_ < 0 || flags[backgroundIndex_] == 1) {
        const int code = backgroundIndex_ < 0 ? -3505 : -3506;
        backgroundDecName.clear();
        backgroundIndex_ = -1;
        return fail(code);
    }

    if (objDecType == 2) {
        defaultIndex_ = useUnknown_ && ruleDefDecName == unknownName ? n : classNames_.indexOf(ruleDefDecName);
        if (defaultIndex_ < 0 || flags[defaultIndex_] == 0) {
            const int code = defaultIndex_ < 0 ? -3507 : -3508;
            ruleDefDecName.clear();
            defaultIndex_ = -1;
            return fail(code);
        }

        // Resolves one rule's decision; 0 or the failing code, after which the rule's
        // name is cleared and its index is -1.
        auto compileRule = [&](ZelkSegmentRule& rule, const RuleCodes& codes) {
            int code = 0;
            int index = -1;
            if (rule.decName == unknownName) {
                if (!useUnknown_)
                    code = codes.noUnknown;
                else if (flags[n] == 0)
                    code = codes.unknownNotForeground;
                else
                    index = n;
            } else {
                index = classNames_.indexOf(rule.decName);
                if (index < 0)
                    code = codes.notFound;
                else if (flags[index] == 0)
                    code = codes.notForeground;
            }
            if (code == 0 && (index < 0 || index >= v))
                code = codes.outOfBounds;
            if (code != 0) {
                rule.decName.clear();
                rule.decIndex = -1;
                return code;
            }
            rule.decIndex = index;
            return 0;
        };

        if (const int code = compileRule(rule1, {-3512, -3511, -3513, -3514, -3510}))
            return fail(code);
        if (!rule2Enabled)
            rule2.decIndex = -1;
        else if (const int code = compileRule(rule2, {-3516, -3515, -3517, -3518, -3519}))
            return fail(code);
    }

    // The tracker looks every byte code up in a full table, so that a code beyond the
    // vector (a rejected pixel the definition does not know) reads as background.
    foregroundLut_.fill(0);
    std::copy_n(flags.constData(), std::min(v, int(foregroundLut_.size())), foregroundLut_.begin());
    classSlots_ = std::min(v, ObjectClassSlots);
    tableReady_ = true;
    compiled_ = true;
    lastErrorCode_ = 0;
    lastErrorText_ = QStringLiteral("OK");
    return 0;
}

void ZelkSegmenter::setMinObjSize(int size)
{
    if (size > 0)
        minObjSize = size;
}

int ZelkSegmenter::firstForeground() const
{
    if (!foregroundVec_)
        return -1;
    return int(foregroundVec_->indexOf(quint8(1)));
}

int ZelkSegmenter::prepareSegmenter(bool streaming, int width, int valuesPerPixel)
{
    if (!compiled_)
        return fail(-3600);
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
            if (mask() == ObjectMask::AllForeground)
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
        // Tables that large for this many values per pixel can't be had; the segmenter
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
