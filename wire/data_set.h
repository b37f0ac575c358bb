#pragma once
// Labelled spectra drawn from a training project's images. The run-time library only
// carries them; the number of samples sizes the regressor's caches.

#include <QDataStream>
#include <QObject>
#include <QStringList>
#include <QVector>

class ZelkDataSet : public QObject {
    Q_OBJECT
public:
    using QObject::QObject;

    // Reads the untagged form or "ZelkDataSet:1"/":2"; 0, or -1 for a wrong tag. Stored
    // vectors shorter than their counts say are kept as short as they are.
    int load(QDataStream& in);

    bool dataFlag = true;
    QVector<float> data; // sampleCount rows of featureCount values
    int sampleCount = 0;
    int featureCount = 0;
    QVector<int> samplesPerClass;
    int classCount = 0;
    QStringList classNames;
    QVector<qint8> labels;
    int targetCount = 0;
    QVector<float> targets;
    QStringList targetNames;
    QVector<int> objectLabels;
    QStringList objectNames;
};
