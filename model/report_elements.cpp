#include "model/report_elements.h"
#include "wire/stream_reads.h"

using namespace streamreads;

void ZelkObjRepItem::setParameter(const QString& name, const QVariant& value)
{
    const int at = parameterNames.indexOf(name);
    if (at >= 0 && at < parameterValues.size()) {
        parameterValues[at] = value;
        return;
    }
    parameterNames.append(name);
    parameterValues.append(value);
}

int ZelkObjRepItem::load(QDataStream& in)
{
    const QString tag = value<QString>(in);
    if (tag == QLatin1String("ZelkObjRepItem:1")) {
        itemType = value<int>(in);
        if (value<QString>(in) != QLatin1String("paramInt"))
            return -1;
        const int number = value<int>(in);
        if (value<QString>(in) != QLatin1String("paramStr"))
            return -1;
        const QString text = value<QString>(in);
        if (value<QString>(in) != QLatin1String("endParam"))
            return -1;
        if (itemType == 2) {
            setParameter(QStringLiteral("specFeatName"), text);
            setParameter(QStringLiteral("binCount"), number);
        }
        return 0;
    }
    if (tag != QLatin1String("ZelkObjRepItem:2"))
        return -1;
    itemType = value<int>(in);
    read(in, parameterNames);
    read(in, parameterValues);
    return 0;
}

int ZelkVisAlg::load(QDataStream& in)
{
    if (value<QString>(in) != QLatin1String("ZelkVisAlg:1"))
        return -1;
    algType = value<int>(in);
    algMode = value<int>(in);
    paramCount = value<int>(in);
    params.reset();
    const QString paramTag = value<QString>(in);
    if (paramTag == QLatin1String("params:1")) {
        QVector<ParamRecord> records;
        const qint64 count = qMax(0, paramCount);
        if (count * 16 > remaining(in)) {
            exhaust(in);
        } else {
            records.resize(int(count));
            for (ParamRecord& r : records)
                for (int& v : r)
                    v = value<int>(in);
        }
        params = records;
    } else if (paramTag != QLatin1String("params=NULL")) {
        return -1;
    }
    wavelengthCount = value<int>(in);
    wavelengths.reset();
    if (value<QString>(in) == QLatin1String("wavelengths")) {
        QVector<double> w;
        read(in, w);
        wavelengths = w;
    }
    visFlag = value<bool>(in);
    lowValue = value<float>(in);
    highValue = value<float>(in);
    algLabel = value<QString>(in);
    return 0;
}
