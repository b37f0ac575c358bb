// Reading the element that a project stores for each image: a version word, the common
// head, the labels that later versions added, and the tail of a few formats.

#include "wire/stream_reads.h"
#include "spectral/image_family.h"

#include <cstring>

using namespace streamreads;

namespace {

constexpr quint32 FirstVersionWord = 0xAABBCC01u;
constexpr quint32 LastVersionWord = 0xAABBCC08u;
constexpr int AnnotationSlots = 10;

float unsetValue()
{
    const quint32 bits = 0xFFC00000u; // a quiet NaN
    float f;
    std::memcpy(&f, &bits, sizeof f);
    return f;
}

// A count of records that each take at least `minimumBytes`; 0 and an exhausted
// stream when the rest of the stream cannot hold them.
int recordCount(QDataStream& in, int n, qint64 minimumBytes)
{
    if (n <= 0)
        return 0;
    if (qint64(n) * minimumBytes > remaining(in)) {
        exhaust(in);
        return 0;
    }
    return n;
}

// "ZelkPointAnnotation": single-valued records; a record with another announcement
// repeats the previous one.
QList<ZelkPointAnnotation> readSingleAnnotations(QDataStream& in)
{
    QList<ZelkPointAnnotation> list;
    ZelkPointAnnotation last;
    last.values = QVector<float>(AnnotationSlots, unsetValue());
    const int n = recordCount(in, value<int>(in), 4);
    for (int i = 0; i < n; ++i) {
        if (value<QString>(in) == QLatin1String("ZelkPointAnnotation:1")) {
            last.name = value<QString>(in);
            last.x = value<int>(in);
            last.y = value<int>(in);
            value<QString>(in); // a second name, not kept
            last.values = QVector<float>(AnnotationSlots, unsetValue());
            last.values[0] = value<float>(in);
            value<int>(in); // not kept
        }
        list.append(last);
    }
    return list;
}

QList<ZelkPointAnnotation> readMultiAnnotations(QDataStream& in)
{
    QList<ZelkPointAnnotation> list;
    ZelkPointAnnotation last;
    const int n = recordCount(in, value<int>(in), 4);
    for (int i = 0; i < n; ++i) {
        if (value<QString>(in) == QLatin1String("ZelkPointAnnMulti:1")) {
            last.name = value<QString>(in);
            last.x = value<int>(in);
            last.y = value<int>(in);
            const int count = recordCount(in, value<int>(in), 8);
            last.values.resize(count);
            for (float& v : last.values)
                v = value<float>(in);
        }
        list.append(last);
    }
    return list;
}

} // namespace

int ZelkImage::load(QDataStream& in)
{
    const quint32 word = value<quint32>(in);
    if (word < FirstVersionWord || word > LastVersionWord)
        return -1;
    const int version = int(word & 0xFF);

    imageType = value<int>(in);
    cubeName = value<QString>(in);
    imageInt1 = value<int>(in);
    imageInt2 = value<int>(in);
    width = value<int>(in);
    height = value<int>(in);
    bandCount = value<int>(in);
    QVector<double> bands;
    read(in, bands);
    wavelengths = bands;
    imageBlob = value<QByteArray>(in);

    cropped = false;
    imageInt3 = 0;
    cropA = cropB = cropC = cropD = cropWidth = cropHeight = 0;
    pointAnnotations.reset();
    objectLabelCount = 0;
    objectLabelTable.clear();
    objectLabelNotes.reset();
    objectLabelNames.reset();

    if (version >= 2) {
        cropped = value<bool>(in);
        if (cropped)
            for (int* field : {&cropWidth, &cropHeight, &cropA, &cropB, &cropC, &cropD})
                *field = value<int>(in);
    }
    if (version >= 3)
        imageInt3 = value<int>(in);
    if (version >= 4) {
        const QString tag = value<QString>(in);
        if (tag == QLatin1String("ZelkPointAnnotation"))
            pointAnnotations = readSingleAnnotations(in);
        else if (tag == QLatin1String("ZelkPointAnnotation:Multi"))
            pointAnnotations = readMultiAnnotations(in);
        // "=NULL" and unknown texts leave no annotations.
    }
    if (version >= 5) {
        const QString tag = value<QString>(in);
        const bool second = tag == QLatin1String("ZelkObjectLabels:2");
        if (second || tag == QLatin1String("ZelkObjectLabels")) {
            objectLabelCount = value<int>(in);
            read(in, objectLabelTable);
        }
        if (second) {
            if (value<QString>(in) != QLatin1String("ZelkObjLabNotes=NULL")) {
                QStringList notes;
                read(in, notes);
                objectLabelNotes = notes;
            }
            // Generated names, one per object that the table actually holds.
            QStringList names;
            const int named = qMin(objectLabelCount, int(objectLabelTable.size() / 6));
            for (int i = 0; i < named; ++i)
                names.append(QStringLiteral("obj%1").arg(i));
            objectLabelNames = names;
        }
    }
    if (version >= 6 && value<QString>(in) == QLatin1String("annState"))
        annState = value<int>(in);
    if (version >= 7) {
        objectLabelNames.reset();
        if (value<QString>(in) != QLatin1String("ZelkObjLabNames=NULL")) {
            QStringList names;
            read(in, names);
            objectLabelNames = names;
        }
    }
    if (version >= 8)
        imageBlob2 = value<QByteArray>(in);

    labelsTaken = false;
    labelReads = 0;
    loadTail(in);
    return 0;
}

void ZelkImageSpecim::loadTail(QDataStream& in)
{
    extraText = value<QString>(in);
}

void ZelkImageMatlab::loadTail(QDataStream& in)
{
    variableName = value<QString>(in);
}

void ZelkImageSENOP::loadTail(QDataStream& in)
{
    read(in, fileWavelengths);
    read(in, sequenceOrder);
    gains.reset();
    if (value<QString>(in) == QLatin1String("Gain")) {
        QVector<double> g;
        read(in, g);
        gains = g;
    }
}
