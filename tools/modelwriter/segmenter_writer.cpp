#include "modelwriter/segmenter_writer.h"

namespace modelwriter {
namespace {

void writeRule(StreamBuilder& out, const SegmentRule& rule)
{
    out.string(rule.name).i32(rule.kind).i32(rule.thresholdInt).real(rule.thresholdFloat);
}

} // namespace

void writeTo(StreamBuilder& out, const SegmenterSpec& s)
{
    const QMap<int, QString>& o = s.tagOverrides;
    auto tag = [&](int row, const QString& text) -> StreamBuilder& { return out.tag(o.value(row, text)); };
    auto optionalTag = [&](int row, const QString& text, bool present) {
        tag(row, present ? text : text + QStringLiteral("=NULL"));
        return present;
    };

    tag(1, QStringLiteral("ZelkSegmenter:%1").arg(s.version));
    if (optionalTag(2, QStringLiteral("classNames"), s.classNames.has_value()))
        out.stringList(*s.classNames);
    if (optionalTag(3, QStringLiteral("useUnknown"), s.useUnknown.has_value()))
        out.boolean(*s.useUnknown);
    if (optionalTag(4, QStringLiteral("foregroundVec"), s.foregroundVec.has_value()))
        out.i32(s.foregroundCount < 0 ? s.foregroundVec->size() : s.foregroundCount).bools(*s.foregroundVec);
    if (optionalTag(5, QStringLiteral("minObjSize"), s.minObjSize.has_value()))
        out.i32(*s.minObjSize);
    tag(6, QStringLiteral("objMask")).i32(s.objMask);
    tag(7, QStringLiteral("objDecOutput")).i32(s.objDecOutput);
    tag(8, QStringLiteral("objDecType")).i32(s.objDecType);
    tag(9, QStringLiteral("ruleDefDecName")).string(s.ruleDefDecName);
    writeRule(tag(10, QStringLiteral("rule1")), s.rule1);
    tag(11, QStringLiteral("rule2")).boolean(s.rule2Enabled);
    writeRule(out, s.rule2);
    tag(12, QStringLiteral("backgroundDecName")).string(s.backgroundDecName);
    if (s.version == 2)
        tag(13, QStringLiteral("objSep")).i32(s.objSep);
}

} // namespace modelwriter
