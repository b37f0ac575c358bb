#pragma once
// Writes the object report items and visualisation recipes of a project stream.

#include <QDataStream>
#include <QStringList>
#include <QVariantList>
#include <QVector>
#include <array>
#include <optional>

namespace modelwriter {

struct ReportItemV1 {
    QString tag = QStringLiteral("ZelkObjRepItem:1");
    int type = 2;
    int number = 0;
    QString text;
    QString intTag = QStringLiteral("paramInt"), strTag = QStringLiteral("paramStr"), endTag = QStringLiteral("endParam");
};
void writeReportItem(QDataStream& out, const ReportItemV1& item);

struct ReportItemV2 {
    int type = 0;
    QStringList names;
    QVariantList values;
};
void writeReportItem(QDataStream& out, const ReportItemV2& item);

struct VisAlg {
    QString tag = QStringLiteral("ZelkVisAlg:1");
    int type = 0, mode = 0;
    int paramCount = 0; // may differ from the records written, as files may
    std::optional<QVector<std::array<int, 4>>> params;
    int wavelengthCount = 0;
    std::optional<QVector<double>> wavelengths;
    bool flag = true;
    double low = 0, high = 0;
    QString label;
};
void writeVisAlg(QDataStream& out, const VisAlg& vis);

} // namespace modelwriter
