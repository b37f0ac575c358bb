#include "wire/data_set.h"
#include "wire/stream_reads.h"

using namespace streamreads;

namespace {

// Reads a vector and keeps at most `expected` entries of it.
template <typename T>
QVector<T> readExpected(QDataStream& in, qint64 expected)
{
    QVector<T> v;
    read(in, v);
    if (v.size() > expected)
        v.resize(int(qMax<qint64>(0, expected)));
    return v;
}

// Reads a tag that announces either an absent value ("<name>=NULL") or a present one
// ("<name>"): 1 present, 0 absent, -1 neither.
int presence(QDataStream& in, const QString& name)
{
    const QString tag = value<QString>(in);
    if (tag == name)
        return 1;
    return tag == name + QLatin1String("=NULL") ? 0 : -1;
}

} // namespace

int ZelkDataSet::load(QDataStream& in)
{
    const int head = value<int>(in);
    if (head != -1) {
        sampleCount = head;
        featureCount = value<int>(in);
        data = readExpected<float>(in, qint64(sampleCount) * featureCount);
        classCount = value<int>(in);
        samplesPerClass = readExpected<int>(in, classCount);
        read(in, classNames);
        labels = readExpected<qint8>(in, sampleCount);
        return 0;
    }
    const QString version = value<QString>(in);
    const bool second = version == QLatin1String("ZelkDataSet:2");
    if (!second && version != QLatin1String("ZelkDataSet:1"))
        return -1;

    sampleCount = value<int>(in);
    featureCount = value<int>(in);
    data.clear();
    switch (presence(in, QStringLiteral("data"))) {
    case 1: data = readExpected<float>(in, qint64(sampleCount) * featureCount); break;
    case -1: return -1;
    }
    dataFlag = value<bool>(in);
    if (value<QString>(in) != QLatin1String("classes"))
        return -1;
    classCount = value<int>(in);
    samplesPerClass.clear();
    switch (presence(in, QStringLiteral("samplesPerClass"))) {
    case 1: samplesPerClass = readExpected<int>(in, classCount); break;
    case -1: return -1;
    }
    if (value<QString>(in) != QLatin1String("classNames"))
        return -1;
    read(in, classNames);
    labels.clear();
    switch (presence(in, QStringLiteral("labels"))) {
    case 1: labels = readExpected<qint8>(in, sampleCount); break;
    case -1: return -1;
    }
    targets.clear();
    switch (presence(in, QStringLiteral("targets"))) {
    case 1:
        if (second) {
            targetCount = value<int>(in);
            read(in, targetNames);
        } else {
            targetCount = 1;
        }
        targets = readExpected<float>(in, qint64(sampleCount) * targetCount);
        break;
    case 0:
        targetCount = 0;
        targetNames.clear();
        break;
    case -1: return -1;
    }
    if (value<QString>(in) != QLatin1String("objectNames"))
        return -1;
    read(in, objectNames);
    objectLabels.clear();
    switch (presence(in, QStringLiteral("objectLabels"))) {
    case 1: objectLabels = readExpected<int>(in, sampleCount); break;
    case -1: return -1;
    }
    return 0;
}
