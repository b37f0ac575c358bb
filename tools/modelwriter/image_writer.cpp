#include "modelwriter/image_writer.h"

namespace modelwriter {
namespace {

// A tag for a value that may be absent: "<name>" and the value, or "<name>=NULL".
template <typename T>
void optional(QDataStream& out, const QString& name, const std::optional<T>& value)
{
    if (value)
        out << name << *value;
    else
        out << name + QStringLiteral("=NULL");
}

} // namespace

void writeImage(QDataStream& out, const Image& im)
{
    const int version = int(im.versionWord & 0xFF);
    out << im.versionWord << qint32(im.imageType) << im.cubeName;
    out << qint32(im.displayWidth) << qint32(im.displayHeight) << qint32(im.width) << qint32(im.height) << qint32(im.bands);
    out << im.wavelengths << im.blob;
    if (version >= 2) {
        out << im.cropped;
        if (im.cropped)
            for (int v : im.crop)
                out << qint32(v);
    }
    if (version >= 3)
        out << qint32(im.int3);
    if (version >= 4) {
        out << im.annotationTag;
        if (im.annotationTag == QLatin1String("ZelkPointAnnotation") ||
            im.annotationTag == QLatin1String("ZelkPointAnnotation:Multi")) {
            const bool multi = im.annotationTag.endsWith(QLatin1String("Multi"));
            out << qint32(im.annotations.size());
            for (const PointRecord& r : im.annotations) {
                out << r.announcement;
                if (r.announcement != QLatin1String(multi ? "ZelkPointAnnMulti:1" : "ZelkPointAnnotation:1"))
                    continue;
                out << r.name << qint32(r.x) << qint32(r.y);
                if (multi) {
                    out << qint32(r.values.size());
                    for (double v : r.values)
                        out << v;
                } else {
                    out << QStringLiteral("second name") << r.values.value(0) << qint32(0);
                }
            }
        }
    }
    if (version >= 5) {
        out << im.objectLabelTag;
        if (im.objectLabelTag.startsWith(QLatin1String("ZelkObjectLabels")))
            out << qint32(im.objectCount) << im.objectTable;
        if (im.objectLabelTag == QLatin1String("ZelkObjectLabels:2")) {
            if (im.notes)
                out << QStringLiteral("ZelkObjLabNotes") << *im.notes;
            else
                out << QStringLiteral("ZelkObjLabNotes=NULL");
        }
    }
    if (version >= 6) {
        out << im.annStateTag;
        if (im.annStateTag == QLatin1String("annState"))
            out << qint32(im.annState);
    }
    if (version >= 7)
        optional(out, QStringLiteral("ZelkObjLabNames"), im.objectNames);
    if (version >= 8)
        out << im.blob2;
    for (int i = 0; i < im.tailVectors.size(); ++i) {
        if (i == 2) // the gains follow their tag
            out << QStringLiteral("Gain");
        out << im.tailVectors[i];
    }
    if (im.tailText)
        out << *im.tailText;
}

void writeDataSet(QDataStream& out, const DataSet& s)
{
    if (s.form == 0) {
        out << qint32(s.samples) << qint32(s.features) << s.data.value_or(QVector<double>()) << qint32(s.classes)
            << s.samplesPerClass.value_or(QVector<int>()) << s.classNames << s.labels.value_or(QVector<qint8>());
        return;
    }
    out << qint32(-1) << QStringLiteral("ZelkDataSet:%1").arg(s.form);
    out << qint32(s.samples) << qint32(s.features);
    optional(out, QStringLiteral("data"), s.data);
    out << s.dataFlag << QStringLiteral("classes") << qint32(s.classes);
    optional(out, QStringLiteral("samplesPerClass"), s.samplesPerClass);
    out << QStringLiteral("classNames") << s.classNames;
    optional(out, QStringLiteral("labels"), s.labels);
    if (!s.targets) {
        out << QStringLiteral("targets=NULL");
    } else {
        out << QStringLiteral("targets");
        if (s.form == 2)
            out << qint32(s.targetCount) << s.targetNames;
        out << *s.targets;
    }
    out << QStringLiteral("objectNames") << s.objectNames;
    optional(out, QStringLiteral("objectLabels"), s.objectLabels);
}

} // namespace modelwriter
