#pragma once
// Writes the regressor element of a project stream and its elements: filter, feature
// selection, scaling; the linear model is the LinearElement of classifier_writer.h.

#include "modelwriter/classifier_writer.h"

namespace modelwriter {

// "ZelkAFPipelineM7:1": the file holds the parameters only, not the matrix.
struct FilterElement {
    QString tag = QStringLiteral("ZelkAFPipelineM7:1");
    qint32 inputBands = 9;
    qint32 outputBands = 5;
    qint32 derivative = 0;
    qint32 window = 5;
};
void writeTo(StreamBuilder& out, const FilterElement& element);

// "ZelkAFPipelineM10:1".
struct SelectionElement {
    QString tag = QStringLiteral("ZelkAFPipelineM10:1");
    qint32 sourceCount = 5;
    qint32 selectedCount = 2;
    TypedArray indices = TypedArray::ints({2, 1, 1, 1}, {4, 0});
};
void writeTo(StreamBuilder& out, const SelectionElement& element);

// "ZelkAFPipelineM9:1".
struct ScalingElement {
    QString tag = QStringLiteral("ZelkAFPipelineM9:1");
    qint32 featureCount = 2;
    qint32 carried = 0;
    TypedArray mean = TypedArray::floats({2, 1, 1, 1}, {1, 2});
    TypedArray scale = TypedArray::floats({2, 1, 1, 1}, {0.5f, 4});
};
void writeTo(StreamBuilder& out, const ScalingElement& element);

// The regressor body that follows the tag "ZelkRegressor". `version` picks the outer
// tag "ZelkRegModel<version>" and how far the body goes: 1 ends behind the model, 2
// behind the band selection, 3 behind the model settings. Absent elements write their
// "=NULL" tag. Rows, for `tagOverrides`: 1 the outer tag, 2 prep, 3 fsel, 4 scaling,
// 5 model, 6 "regVarList", 7 "BandSelection", 8 "ModelSettings".
struct RegressorSpec {
    int version = 3;
    std::optional<FilterElement> prep;
    std::optional<SelectionElement> selection;
    std::optional<ScalingElement> scaling = ScalingElement();
    std::optional<LinearElement> model = LinearElement();
    QStringList varNames{QStringLiteral("moisture")};
    std::optional<QVector<qint32>> bands = QVector<qint32>{0, 1}; // absent: "IntArray=NULL"
    QString bandArrayTag = QStringLiteral("IntArray:1");
    qint32 settings[2] = {2, 5};
    QMap<int, QString> tagOverrides;
};
void writeTo(StreamBuilder& out, const RegressorSpec& regressor);

} // namespace modelwriter
