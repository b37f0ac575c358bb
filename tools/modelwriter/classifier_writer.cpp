#include "modelwriter/classifier_writer.h"

namespace modelwriter {
namespace {

void floatsOrAbsent(StreamBuilder& out, const std::optional<QVector<float>>& values)
{
    if (values)
        out.floatArray(*values);
    else
        out.absent(QStringLiteral("FloatArray"));
}

// The tag of an optional row: its own text, "<name>=NULL" when the part is absent, or
// the override. Returns whether the part's content follows.
template <class T>
bool optionalTag(StreamBuilder& out, const QMap<int, QString>& overrides, int row, const QString& name,
                 const std::optional<T>& part)
{
    out.tag(overrides.value(row, part ? name : name + QStringLiteral("=NULL")));
    return part.has_value();
}

} // namespace

void writeInts(StreamBuilder& out, const QVector<qint32>& values)
{
    out.u32(quint32(values.size()));
    for (qint32 v : values)
        out.i32(v);
}

void writeTo(StreamBuilder& out, const LinearElement& e)
{
    out.tag(e.tag).i32(e.inputCount).i32(e.outputCount).afArray(e.matrix).afArray(e.offset);
}

void writeTo(StreamBuilder& out, const NetworkElement& e)
{
    out.tag(e.tag).i32(e.featureCount).i32(e.auxCount).i32(e.unitCount).i32(e.classCount).stringList(e.classNames);
    out.afArray(e.centres).afArray(e.auxArray).afArray(e.gammas).afArray(e.outputWeights);
    if (e.unitTags)
        out.intArray(*e.unitTags);
    else
        out.absent(QStringLiteral("IntArray"));
}

void writeTo(StreamBuilder& out, const Roc& r)
{
    out.tag(r.tag).i32(r.rocInt1).i32(r.rowLength).i32(r.rocInt2).i32(r.currentPoint).stringList(r.names);
    out.i32(r.constraints.size());
    for (const RocConstraint& c : r.constraints) {
        out.string(c.key).tag(c.tag);
        if (c.tag == QLatin1String("ZelkROCConstrain:1"))
            out.i32(c.code).string(c.name).string(c.text).real(c.value).boolean(c.active);
    }
    floatsOrAbsent(out, r.tableA);
    floatsOrAbsent(out, r.weightTable);
    floatsOrAbsent(out, r.tableB);
    floatsOrAbsent(out, r.tableC);
    if (r.mask)
        out.charArray(*r.mask);
    else
        out.absent(QStringLiteral("CharArray"));
}

void writeTo(StreamBuilder& out, const ClassifierSpec& c)
{
    const QMap<int, QString>& o = c.tagOverrides;
    out.i32(c.modelKind).i32(c.inputBands).i32(c.totalBands);
    if (c.version >= 2) {
        if (c.selectedBands) {
            out.tag(o.value(4, QStringLiteral("BandSelection")));
            out.intArray(*c.selectedBands);
        } else {
            out.tag(o.value(4, QStringLiteral("BandSelection=ALL")));
        }
    }
    out.stringList(c.classNames);
    writeInts(out, c.classCodes);
    out.i32(c.randomSeed);
    if (optionalTag(out, o, 8, QStringLiteral("ZelkROC"), c.roc))
        out.add(*c.roc);
    out.boolean(c.rejectEnabled);
    floatsOrAbsent(out, c.rejectThresholds);
    if (c.version >= 3 && optionalTag(out, o, 11, QStringLiteral("RejectionThresholds:1"), c.rejection)) {
        out.i32(c.rejection->levelCount);
        if (c.rejection->ids)
            out.intArray(*c.rejection->ids);
        else
            out.absent(QStringLiteral("IntArray"));
        floatsOrAbsent(out, c.rejection->table);
    }
    if (optionalTag(out, o, 12, QStringLiteral("ZelkAFPipelineM1"), c.projection))
        out.add(*c.projection);
    if (optionalTag(out, o, 13, QStringLiteral("ZelkAFPipelineM2"), c.extraM2))
        out.add(*c.extraM2);
    if (optionalTag(out, o, 14, QStringLiteral("ZelkAFPipelineM3"), c.extraM3))
        out.add(*c.extraM3);
    if (optionalTag(out, o, 15, QStringLiteral("ZelkAFPipelineM5"), c.network))
        out.add(*c.network);
    writeInts(out, c.colourTable);
    out.bools(c.classFlags).boolean(c.finalFlag);
    if (c.version >= 4 && optionalTag(out, o, 19, QStringLiteral("trainingRound"), c.trainingRound))
        out.i32(*c.trainingRound);
}

} // namespace modelwriter
