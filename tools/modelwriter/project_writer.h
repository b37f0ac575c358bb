#pragma once
// Writes a whole project stream of any revision from a compact description. Sections a
// revision does not have are not written; an optional section that is not given is
// written as a tag of another text, as the format allows. Nested classifier, regressor
// and segmenter elements come as bytes, made by their own writers.

#include "modelwriter/image_writer.h"
#include "modelwriter/report_writer.h"

#include <QByteArray>
#include <QColor>
#include <QList>
#include <QMap>
#include <QPair>
#include <QStringList>
#include <QVariantMap>
#include <QVector>
#include <array>
#include <optional>
#include <tuple>

namespace modelwriter {

struct Project {
    int revision = 17;
    int type = 14;
    QString header;
    QStringList classNames{QStringLiteral("Unknown")};
    QVector<QColor> classColors{QColor(0, 0, 0, 0)};
    QList<Image> images;
    QList<QPair<QString, DataSet>> dataSets;
    double savedFloat = 0;
    int savedInt = 0;
    QVector<bool> bandSelection;
    std::optional<std::array<int, 4>> previewBands; // red, green, blue, current
    // "ZelkClassifier:N" and the classifier's fields.
    std::optional<QByteArray> classifier;
    std::optional<QVector<bool>> classForeground;
    std::optional<int> pointAnnotationData;
    std::optional<QVector<bool>> imagesTest;
    std::optional<QPair<bool, double>> maxValidValue;
    std::optional<std::tuple<bool, int, int>> preprocessing; // enabled, derivative, window
    std::optional<DataSet> regData, regTestData;            // absent: the "=NULL" form
    std::optional<QByteArray> regressor;                     // "ZelkRegModelN" onwards
    std::optional<QByteArray> segmenter;                     // "ZelkSegmenter:N" onwards
    std::optional<int> trainingAlg;
    std::optional<QVector<bool>> classIncluded;
    QList<QPair<QString, VisAlg>> visualisations;
    std::optional<QStringList> regVarList;
    int objRepLocation = 0, objRepWhat = 1, objRepTemplateImageInd = -1;
    QList<QPair<QString, ReportItemV2>> objRepItems;
    int regRadius = 0;
    QVariantMap acqSettings;
    // The cache block; absent writes a tag other than "keys". An entry is its key, its
    // tag ("ZelkDataSet", "NULL" or another text) and the data set behind the first.
    struct CacheEntry {
        QString key;
        QString tag = QStringLiteral("ZelkDataSet");
        DataSet set;
    };
    std::optional<QList<CacheEntry>> regCache;
    int acqType = 0;

    // Damage for failure tests: a tag text written in place of another, and a magic of
    // another text.
    QMap<QString, QString> replacedTags;
    std::optional<QString> magic;
};

void writeProject(QDataStream& out, const Project& project);
QByteArray projectBytes(const Project& project);

} // namespace modelwriter
