#pragma once
// Writes the image and data set elements of a project stream. Defaults describe a
// plain, complete element of the newest version; tests change what they need.

#include <QByteArray>
#include <QDataStream>
#include <QStringList>
#include <QVector>
#include <optional>

namespace modelwriter {

struct PointRecord {
    QString announcement; // "ZelkPointAnnotation:1" or "ZelkPointAnnMulti:1"; other texts carry no fields
    QString name;
    int x = 0;
    int y = 0;
    QVector<double> values; // one value in the single form
};

struct Image {
    quint32 versionWord = 0xAABBCC08u; // version in the low byte
    int imageType = 14;
    QString cubeName = QStringLiteral("scan");
    int displayWidth = 0, displayHeight = 0, width = 0, height = 0, bands = 0;
    QVector<double> wavelengths;
    QByteArray blob;
    bool cropped = false;
    int crop[6] = {0, 0, 0, 0, 0, 0}; // full width, full height, x, y, w, h
    int int3 = 0;
    QString annotationTag = QStringLiteral("ZelkPointAnnotation=NULL");
    QList<PointRecord> annotations;
    QString objectLabelTag = QStringLiteral("ZelkObjectLabels:2");
    int objectCount = 0;
    QVector<int> objectTable; // six per object
    std::optional<QStringList> notes;
    QString annStateTag = QStringLiteral("annState");
    int annState = 0;
    std::optional<QStringList> objectNames;
    QByteArray blob2;
    QList<QVector<double>> tailVectors; // SENOP: two or three vectors
    std::optional<QString> tailText;    // Specim and Matlab: one string; SENOP: the gain tag
};

void writeImage(QDataStream& out, const Image& image);

struct DataSet {
    int form = 2; // 0 the untagged form, 1 or 2 the tagged versions
    int samples = 0;
    int features = 0;
    std::optional<QVector<double>> data;
    bool dataFlag = true;
    int classes = 0;
    std::optional<QVector<int>> samplesPerClass;
    QStringList classNames;
    std::optional<QVector<qint8>> labels;
    std::optional<QVector<double>> targets;
    int targetCount = 1;
    QStringList targetNames;
    QStringList objectNames;
    std::optional<QVector<int>> objectLabels;
};

void writeDataSet(QDataStream& out, const DataSet& set);

} // namespace modelwriter
