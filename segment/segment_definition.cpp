#include "segment/segment_definition.h"

#include <algorithm>

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

int ZelkSegmentDefinition::fail(int code)
{
    lastErrorCode_ = code;
    lastErrorText_ = messageOf(code);
    return code;
}

void ZelkSegmentDefinition::clearCompiled()
{
    compiled_ = false;
}

void ZelkSegmentDefinition::setClassNames(const QStringList& names)
{
    clearCompiled();
    classNames_ = names;
    classNameCount_ = classNames_.size();
}

void ZelkSegmentDefinition::setUseUnknown(bool useUnknown)
{
    clearCompiled();
    useUnknown_ = useUnknown;
}

void ZelkSegmentDefinition::setForegroundVec(std::unique_ptr<QVector<quint8>> flags)
{
    clearCompiled();
    // The compiled table is a copy, but it stands for the vector it was made from.
    tableReady_ = false;
    foregroundVec_ = std::move(flags);
}

bool ZelkSegmentDefinition::setForegroundFlag(int index, quint8 flag)
{
    if (!foregroundVec_ || index < 0 || index >= foregroundVec_->size())
        return false;
    (*foregroundVec_)[index] = flag;
    clearCompiled();
    return true;
}

void ZelkSegmentDefinition::setClasses(const QStringList& names, bool useUnknown)
{
    setClassNames(names);
    useUnknown_ = useUnknown;
    setForegroundVec(std::make_unique<QVector<quint8>>(names.size() + (useUnknown ? 1 : 0), quint8(0)));
}

int ZelkSegmentDefinition::setForeground(const QStringList& decisions, bool useUnknown, const QStringList& names,
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

int ZelkSegmentDefinition::compile()
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

void ZelkSegmentDefinition::setMinObjSize(int size)
{
    if (size > 0)
        minObjSize = size;
}

int ZelkSegmentDefinition::firstForeground() const
{
    if (!foregroundVec_)
        return -1;
    return int(foregroundVec_->indexOf(quint8(1)));
}
