// The segmenter element of a project stream: a version tag, then tagged items. An
// optional item whose tag does not match has had its tag consumed and keeps its
// default; a required one ends the read with -1. Version 2 adds a trailing "objSep".

#include "wire/stream_reads.h"
#include "segment/segment_definition.h"

using streamreads::value;

namespace {

bool tagIs(QDataStream& in, const char* expected)
{
    return value<QString>(in) == QLatin1String(expected);
}

// Name, kind and the two thresholds; the index waits for a compile.
void readRule(QDataStream& in, ZelkSegmentRule& rule)
{
    rule.decName = value<QString>(in);
    rule.kind = value<qint32>(in);
    rule.thresholdInt = value<qint32>(in);
    rule.thresholdFloat = value<float>(in);
    rule.decIndex = -1;
}

} // namespace

int ZelkSegmentDefinition::load(QDataStream& in)
{
    clearCompiled();
    // Any other version text reads as the items that both versions share.
    const QString version = value<QString>(in);
    const bool second = version == QLatin1String("ZelkSegmenter:2");
    if (version == QLatin1String("ZelkSegmenter:1"))
        objSep = 1;

    if (tagIs(in, "classNames")) {
        QStringList names;
        streamreads::read(in, names);
        setClassNames(names);
    }
    if (tagIs(in, "useUnknown"))
        setUseUnknown(value<bool>(in));

    setForegroundVec(nullptr);
    if (tagIs(in, "foregroundVec")) {
        // The stored vector replaces one of the announced size as a whole, so the
        // announced size is not used for anything.
        value<qint32>(in);
        QVector<bool> flags;
        streamreads::read(in, flags);
        auto vec = std::make_unique<QVector<quint8>>(flags.size());
        for (int i = 0; i < flags.size(); ++i)
            (*vec)[i] = flags[i] ? 1 : 0;
        setForegroundVec(std::move(vec));
    }

    if (tagIs(in, "minObjSize"))
        minObjSize = value<qint32>(in);

    if (!tagIs(in, "objMask"))
        return -1;
    objMask = value<qint32>(in);
    if (!tagIs(in, "objDecOutput"))
        return -1;
    objDecOutput = value<qint32>(in);
    if (!tagIs(in, "objDecType"))
        return -1;
    objDecType = value<qint32>(in);
    if (!tagIs(in, "ruleDefDecName"))
        return -1;
    ruleDefDecName = value<QString>(in);
    defaultIndex_ = -1;
    if (!tagIs(in, "rule1"))
        return -1;
    readRule(in, rule1);
    if (!tagIs(in, "rule2"))
        return -1;
    rule2Enabled = value<bool>(in);
    readRule(in, rule2);
    if (!tagIs(in, "backgroundDecName"))
        return -1;
    backgroundDecName = value<QString>(in);
    backgroundIndex_ = -1;

    if (second) {
        if (!tagIs(in, "objSep"))
            return -1;
        objSep = value<qint32>(in);
    }
    return 0;
}
