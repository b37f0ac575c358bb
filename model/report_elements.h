#pragma once
// Two elements that a project carries for the desktop tool: what is reported about an
// object, and stored visualisation recipes. The library reads and keeps them and
// computes nothing from them.

#include <QDataStream>
#include <QObject>
#include <QStringList>
#include <QVariantList>
#include <QVector>
#include <array>
#include <optional>

class ZelkObjRepItem : public QObject {
    Q_OBJECT
public:
    using QObject::QObject;

    // "ZelkObjRepItem:1" or ":2"; 0, or -1 on a wrong tag.
    int load(QDataStream& in);
    // Replaces the value of a name already present, otherwise appends both.
    void setParameter(const QString& name, const QVariant& value);

    int itemType = 0;
    QStringList parameterNames;
    QVariantList parameterValues;
};

class ZelkVisAlg : public QObject {
    Q_OBJECT
public:
    using QObject::QObject;

    // 0, or -1 on a wrong tag.
    int load(QDataStream& in);

    using ParamRecord = std::array<int, 4>;

    int algType = 0;
    int algMode = 0;
    int paramCount = 0;
    int wavelengthCount = 0;
    std::optional<QVector<ParamRecord>> params;
    std::optional<QVector<double>> wavelengths;
    bool visFlag = true;
    float lowValue = 0;
    float highValue = 0;
    QString algLabel;
    QVector<unsigned int> colourTable;
};
