#pragma once
// Writes the segmenter element of a project stream: the body that follows the tag
// "ZelkSegmenter". Defaults make a complete definition of version 2.

#include "modelwriter/stream_builder.h"

#include <QMap>
#include <QStringList>
#include <QVector>
#include <optional>

namespace modelwriter {

struct SegmentRule {
    QString name;
    qint32 kind = 1;
    qint32 thresholdInt = 0;
    double thresholdFloat = 0;
};

// Items by row, for `tagOverrides`: 1 the version tag, 2 "classNames", 3 "useUnknown",
// 4 "foregroundVec", 5 "minObjSize", 6 "objMask", 7 "objDecOutput", 8 "objDecType",
// 9 "ruleDefDecName", 10 "rule1", 11 "rule2", 12 "backgroundDecName", 13 "objSep".
// An absent optional item (rows 2 to 5) writes "<tag>=NULL", or its override, and no
// value; an overridden present item still writes its value.
struct SegmenterSpec {
    int version = 2; // "ZelkSegmenter:<version>"; only 2 writes "objSep"
    std::optional<QStringList> classNames = QStringList{QStringLiteral("bg"), QStringLiteral("nut")};
    std::optional<bool> useUnknown = false;
    std::optional<QVector<bool>> foregroundVec = QVector<bool>{false, true};
    qint32 foregroundCount = -1; // the count written ahead of the vector; -1: its size
    std::optional<qint32> minObjSize = 30;
    qint32 objMask = 2;
    qint32 objDecOutput = 3;
    qint32 objDecType = 2;
    QString ruleDefDecName = QStringLiteral("nut");
    SegmentRule rule1{QStringLiteral("nut"), 1, 10, 0};
    bool rule2Enabled = true;
    SegmentRule rule2{QStringLiteral("nut"), 2, 0, 0.25};
    QString backgroundDecName = QStringLiteral("bg");
    qint32 objSep = 4;
    QMap<int, QString> tagOverrides;
};
void writeTo(StreamBuilder& out, const SegmenterSpec& segmenter);

} // namespace modelwriter
