#pragma once
// Writes the classifier element of a project stream, its operating points and its
// stored model elements. Defaults make a small complete classifier of the newest
// version; tests change what they need.
//
// Optional parts are std::optional: an absent one writes its tag with "=NULL" behind
// the name and nothing else. `tagOverrides` replaces the text written at a numbered
// row (see ClassifierSpec) while everything else is written as usual, which makes
// wrong tags and unknown forms.

#include "modelwriter/stream_builder.h"

#include <QMap>
#include <QStringList>
#include <QVector>
#include <optional>

namespace modelwriter {

// The element with two counts and two typed arrays: "ZelkAFPipelineM1:1",
// "ZelkAFPipelineM2:1" or "ZelkAFPipelineM3:1" by `tag`.
struct LinearElement {
    QString tag = QStringLiteral("ZelkAFPipelineM1:1");
    qint32 inputCount = 2;
    qint32 outputCount = 1;
    TypedArray matrix = TypedArray::floats({2, 1, 1, 1}, {0.5f, -1.0f});
    TypedArray offset = TypedArray::floats({1, 1, 1, 1}, {0.25f});

    static LinearElement m2() { return named(QStringLiteral("ZelkAFPipelineM2:1")); }
    static LinearElement m3() { return named(QStringLiteral("ZelkAFPipelineM3:1")); }
    static LinearElement named(const QString& tag)
    {
        LinearElement e;
        e.tag = tag;
        return e;
    }
};
void writeTo(StreamBuilder& out, const LinearElement& element);

// "ZelkAFPipelineM5:1": a network of `unitCount` centres in `featureCount` dimensions.
struct NetworkElement {
    QString tag = QStringLiteral("ZelkAFPipelineM5:1");
    qint32 featureCount = 1;
    qint32 auxCount = 0;
    qint32 unitCount = 2;
    qint32 classCount = 2;
    QStringList classNames{QStringLiteral("a"), QStringLiteral("b")};
    TypedArray centres = TypedArray::floats({1, 2, 1, 1}, {0, 3});
    TypedArray auxArray = TypedArray::floats({0, 0, 0, 0}, {});
    TypedArray gammas = TypedArray::floats({2, 1, 1, 1}, {-1, -1});
    TypedArray outputWeights = TypedArray::floats({3, 2, 1, 1}, {0, 1, 0, 0, 0, 1});
    std::optional<QVector<qint32>> unitTags = QVector<qint32>{0, 1};
};
void writeTo(StreamBuilder& out, const NetworkElement& element);

struct RocConstraint {
    QString key;
    QString tag = QStringLiteral("ZelkROCConstrain:1"); // another text writes no fields
    qint32 code = 0;
    QString name, text;
    double value = 0;
    bool active = true;
};

// The element behind the tag "ZelkROC".
struct Roc {
    QString tag = QStringLiteral("ZelkROC:1");
    qint32 rocInt1 = 0, rowLength = 2, rocInt2 = 0, currentPoint = 0;
    QStringList names;
    QVector<RocConstraint> constraints;
    std::optional<QVector<float>> tableA;
    std::optional<QVector<float>> weightTable = QVector<float>{1, 1};
    std::optional<QVector<float>> tableB, tableC;
    std::optional<QVector<qint8>> mask;
};
void writeTo(StreamBuilder& out, const Roc& roc);

struct RejectionTables {
    qint32 levelCount = 100;
    std::optional<QVector<qint32>> ids;
    std::optional<QVector<float>> table;
};

// The classifier body that follows "ZelkClassifier" and "ZelkClassifier:<version>".
// Rows, for `tagOverrides`: 4 band selection, 8 "ZelkROC", 11 "RejectionThresholds:1",
// 12 to 15 the element tags of M1, M2, M3 and M5, 19 "trainingRound". Rows that the
// version does not have are not written.
struct ClassifierSpec {
    int version = 4;
    qint32 modelKind = 1;
    qint32 inputBands = 2;
    qint32 totalBands = 4;
    std::optional<QVector<qint32>> selectedBands = QVector<qint32>{1, 3}; // absent: "BandSelection=ALL"
    QStringList classNames{QStringLiteral("a"), QStringLiteral("b")};
    QVector<qint32> classCodes{1, 2};
    qint32 randomSeed = 7;
    std::optional<Roc> roc = Roc();
    bool rejectEnabled = false;
    std::optional<QVector<float>> rejectThresholds;
    std::optional<RejectionTables> rejection;
    std::optional<LinearElement> projection = LinearElement();
    std::optional<LinearElement> extraM2, extraM3;
    std::optional<NetworkElement> network = NetworkElement();
    QVector<qint32> colourTable;
    QVector<bool> classFlags{false, true};
    bool finalFlag = true;
    std::optional<qint32> trainingRound = 3;
    QMap<int, QString> tagOverrides;
};
void writeTo(StreamBuilder& out, const ClassifierSpec& classifier);

// QVector<int> as QDataStream has it: the count, then the entries.
void writeInts(StreamBuilder& out, const QVector<qint32>& values);

} // namespace modelwriter
