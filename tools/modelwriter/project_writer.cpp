#include "modelwriter/project_writer.h"

namespace modelwriter {

namespace {

// Any text that no optional section starts with.
const QString Skipped = QStringLiteral("-");

class ProjectWriter {
public:
    ProjectWriter(QDataStream& out, const Project& p) : out(out), p(p) {}

    void write();

private:
    void tag(const char* text) { out << p.replacedTags.value(QLatin1String(text), QLatin1String(text)); }
    // An optional section: its tag and value, or a tag of another text.
    template <class T, class Write> void optional(const char* text, const std::optional<T>& value, Write write)
    {
        if (!value) {
            out << Skipped;
            return;
        }
        tag(text);
        write(*value);
    }
    void raw(const QByteArray& bytes) { out.writeRawData(bytes.constData(), bytes.size()); }
    void dataSetOrNull(const char* text, const std::optional<DataSet>& set)
    {
        if (!set) {
            tag((QByteArray(text) + "=NULL").constData());
            return;
        }
        tag(text);
        writeDataSet(out, *set);
    }
    void elementOrNull(const char* text, const std::optional<QByteArray>& element)
    {
        if (!element) {
            tag((QByteArray(text) + "=NULL").constData());
            return;
        }
        tag(text);
        raw(*element);
    }

    QDataStream& out;
    const Project& p;
};

void ProjectWriter::write()
{
    const int v = p.revision;
    out << p.magic.value_or(QStringLiteral("ZELK%1").arg(v, 2, 10, QLatin1Char('0')));
    out << qint32(p.type) << p.header << p.classNames << p.classColors;
    out << qint32(p.images.size());
    for (const Image& image : p.images)
        writeImage(out, image);
    out << qint32(p.dataSets.size());
    for (const auto& [key, set] : p.dataSets) {
        out << key;
        writeDataSet(out, set);
    }
    out << p.savedFloat << qint32(p.savedInt);
    if (v >= 2)
        out << p.bandSelection;
    if (v >= 3) {
        optional("preview+current Bands", p.previewBands, [&](const std::array<int, 4>& b) {
            for (int x : b)
                out << qint32(x);
        });
        optional("ZelkClassifier", p.classifier, [&](const QByteArray& c) { raw(c); });
    }
    if (v >= 4)
        optional("ZelkClassForeground", p.classForeground, [&](const QVector<bool>& f) { out << f; });
    if (v >= 5) {
        optional("ZelkPointAnnotationProjectData", p.pointAnnotationData, [&](int d) { out << qint32(d); });
        optional("ZelkImagesTest", p.imagesTest, [&](const QVector<bool>& t) { out << t; });
        optional("maxValidValue", p.maxValidValue, [&](const QPair<bool, double>& m) { out << m.first << m.second; });
    }
    if (v >= 6) {
        optional("ZelkClassifierPreprocessing", p.preprocessing, [&](const std::tuple<bool, int, int>& s) {
            out << std::get<0>(s) << qint32(std::get<1>(s)) << qint32(std::get<2>(s));
        });
        dataSetOrNull("ZelkRegData", p.regData);
    }
    if (v >= 7)
        elementOrNull("ZelkRegressor", p.regressor);
    if (v >= 8)
        dataSetOrNull("ZelkRegTestData", p.regTestData);
    if (v >= 9)
        elementOrNull("ZelkSegmenter", p.segmenter);
    if (v >= 10) {
        optional("ZelkTrainingAlg", p.trainingAlg, [&](int a) { out << qint32(a); });
        optional("ZelkClassIncluded", p.classIncluded, [&](const QVector<bool>& c) { out << c; });
    }
    if (v >= 11) {
        tag("Visualization:1");
        QStringList names;
        for (const auto& entry : p.visualisations)
            names << entry.first;
        out << names;
        for (const auto& entry : p.visualisations)
            writeVisAlg(out, entry.second);
    }
    if (v >= 12)
        optional("RegVarList:1", p.regVarList, [&](const QStringList& l) { out << l; });
    if (v >= 13) {
        tag("objRep");
        tag("objRepLocation");
        out << qint32(p.objRepLocation);
        tag("objRepWhat");
        out << qint32(p.objRepWhat);
        tag("objRepTemplateImageInd");
        out << qint32(p.objRepTemplateImageInd);
        tag("objRepNames");
        QStringList names;
        for (const auto& entry : p.objRepItems)
            names << entry.first;
        out << names;
        tag("objRepList");
        for (const auto& entry : p.objRepItems)
            writeReportItem(out, entry.second);
    }
    if (v >= 14) {
        tag("RegRadius");
        out << qint32(p.regRadius);
    }
    if (v >= 15) {
        tag("AcqSettings");
        out << p.acqSettings;
    }
    if (v >= 16) {
        tag("RegCache:1");
        if (!p.regCache) {
            out << Skipped;
        } else {
            tag("keys");
            QStringList keys;
            for (const Project::CacheEntry& entry : *p.regCache)
                keys << entry.key;
            out << keys;
            tag("objects");
            for (const Project::CacheEntry& entry : *p.regCache) {
                out << entry.tag;
                if (entry.tag == QLatin1String("ZelkDataSet"))
                    writeDataSet(out, entry.set);
            }
        }
        tag("AcqType");
        out << qint32(p.acqType);
    }
}

} // namespace

void writeProject(QDataStream& out, const Project& project)
{
    ProjectWriter(out, project).write();
}

QByteArray projectBytes(const Project& project)
{
    QByteArray bytes;
    QDataStream out(&bytes, QIODevice::WriteOnly);
    writeProject(out, project);
    return bytes;
}

} // namespace modelwriter
