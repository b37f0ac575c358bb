#include "modelwriter/report_writer.h"

namespace modelwriter {

void writeReportItem(QDataStream& out, const ReportItemV1& item)
{
    out << item.tag << qint32(item.type) << item.intTag << qint32(item.number) << item.strTag << item.text << item.endTag;
}

void writeReportItem(QDataStream& out, const ReportItemV2& item)
{
    out << QStringLiteral("ZelkObjRepItem:2") << qint32(item.type) << item.names << qint32(item.values.size());
    for (const QVariant& v : item.values)
        out << v;
}

void writeVisAlg(QDataStream& out, const VisAlg& v)
{
    out << v.tag << qint32(v.type) << qint32(v.mode) << qint32(v.paramCount);
    if (v.params) {
        out << QStringLiteral("params:1");
        for (const auto& record : *v.params)
            for (int x : record)
                out << qint32(x);
    } else {
        out << QStringLiteral("params=NULL");
    }
    out << qint32(v.wavelengthCount);
    if (v.wavelengths)
        out << QStringLiteral("wavelengths") << *v.wavelengths;
    else
        out << QStringLiteral("wavelengths=NULL");
    out << v.flag << v.low << v.high << v.label;
}

} // namespace modelwriter
