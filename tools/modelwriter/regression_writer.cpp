#include "modelwriter/regression_writer.h"

namespace modelwriter {
namespace {

// "ZelkRegModel1:<part>" and the element, or "ZelkRegModel1:<part>=NULL".
template <class Element>
void part(StreamBuilder& out, const QMap<int, QString>& overrides, int row, const char* name,
          const std::optional<Element>& element)
{
    const QString tag = QStringLiteral("ZelkRegModel1:") + QLatin1String(name);
    out.tag(overrides.value(row, element ? tag : tag + QStringLiteral("=NULL")));
    if (element)
        out.add(*element);
}

} // namespace

void writeTo(StreamBuilder& out, const FilterElement& e)
{
    out.tag(e.tag).i32(e.inputBands).i32(e.outputBands).i32(e.derivative).i32(e.window);
}

void writeTo(StreamBuilder& out, const SelectionElement& e)
{
    out.tag(e.tag).i32(e.sourceCount).i32(e.selectedCount).afArray(e.indices);
}

void writeTo(StreamBuilder& out, const ScalingElement& e)
{
    out.tag(e.tag).i32(e.featureCount).i32(e.carried).afArray(e.mean).afArray(e.scale);
}

void writeTo(StreamBuilder& out, const RegressorSpec& r)
{
    const QMap<int, QString>& o = r.tagOverrides;
    out.tag(o.value(1, QStringLiteral("ZelkRegModel%1").arg(r.version)));
    part(out, o, 2, "prep", r.prep);
    part(out, o, 3, "fsel", r.selection);
    part(out, o, 4, "scaling", r.scaling);
    part(out, o, 5, "model", r.model);
    if (r.version < 2)
        return;
    out.tag(o.value(6, QStringLiteral("regVarList"))).stringList(r.varNames);
    out.tag(o.value(7, QStringLiteral("BandSelection")));
    if (r.bands) {
        out.tag(r.bandArrayTag);
        writeInts(out, *r.bands);
    } else {
        out.absent(QStringLiteral("IntArray"));
    }
    if (r.version < 3)
        return;
    out.tag(o.value(8, QStringLiteral("ModelSettings"))).i32(r.settings[0]).i32(r.settings[1]);
}

} // namespace modelwriter
