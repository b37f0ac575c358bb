// The files of zelk run: the decision image, the object records and the header of the
// regression cube.

#include "run.h"

#include "overview.h"

#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTextStream>

namespace cli {
namespace {

constexpr int ClassSizes = 9; // first of the per-decision pixel counts of a record

// A column name without spaces or commas: "Unseen in training" -> "Unseen_in_training".
QString columnName(const QString& text)
{
    QString name = text.simplified();
    for (QChar& c : name)
        if (!c.isLetterOrNumber() && c != QLatin1Char('_') && c != QLatin1Char('-') && c != QLatin1Char('.'))
            c = QLatin1Char('_');
    return name;
}

QString csvField(const QString& text)
{
    if (!text.contains(QLatin1Char(',')) && !text.contains(QLatin1Char('"')) && !text.contains(QLatin1Char('\n')))
        return text;
    return QLatin1Char('"') + QString(text).replace(QLatin1String("\""), QLatin1String("\"\"")) + QLatin1Char('"');
}

} // namespace

// The decision of every pixel as an indexed PNG: the index is the decision's code, the
// palette holds the decisions' colours and the text chunk "decisions" their codes, names
// and colours, one per line. It is a label map for programs, with nothing drawn on it.
bool Run::saveImages(QImage& labels) const
{
    QVector<QRgb> table(256, qRgb(0, 0, 0));
    QStringList legend;
    for (int i = 0; i < decisions_.colours.size() && i < NoData; ++i) {
        table[i] = 0xFF000000u | decisions_.colours[i];
        legend << QStringLiteral("%1\t%2\t#%3").arg(i).arg(decisions_.names[i]).arg(decisions_.colours[i], 6, 16, QLatin1Char('0'));
    }
    if (labelCounts_[NoData] > 0)
        legend << QStringLiteral("%1\tno data\t#000000").arg(NoData);
    labels.setColorTable(table);
    labels.setText(QStringLiteral("decisions"), legend.join(QLatin1Char('\n')));
    labels.setText(QStringLiteral("Software"), QStringLiteral("zelk %1").arg(QLatin1String(zelk_GetVersion())));
    labels.setText(QStringLiteral("Source"), QFileInfo(o_.cube).fileName());
    const QString path = output(QStringLiteral("_decisions.png"));
    if (!labels.save(path, "png"))
        return failed(QStringLiteral("cannot write %1").arg(path));
    const QString overview = output(QStringLiteral("_overview.png"));
    std::vector<OverviewObject> boxes;
    for (const ObjectRow& o : objects_) {
        const auto& r = o.record;
        boxes.push_back({r[1], r[2], r[3], r[4], r[5], r[6], r[8]});
    }
    return drawOverview(labels, boxes, decisions_, labelCounts_).save(overview, "png") ||
           failed(QStringLiteral("cannot write %1").arg(overview));
}

bool Run::writeRegressionHeader() const
{
    QFile header(output(QStringLiteral("_regression.hdr")));
    if (!header.open(QIODevice::WriteOnly | QIODevice::Text))
        return false;
    QTextStream out(&header);
    out << "ENVI\ndescription = {regression outputs of " << QFileInfo(o_.model).fileName() << "}\nsamples = " << cube_.samples
        << "\nlines = " << linesDone_ << "\nbands = " << regNames_.size()
        << "\nheader offset = 0\nfile type = ENVI Standard\ndata type = 4\ninterleave = bil\nbyte order = 0\nband names = {"
        << regNames_.join(QStringLiteral(", ")) << "}\n";
    out.flush();
    return out.status() == QTextStream::Ok;
}

bool Run::writeObjects() const
{
    // Pixels per decision exist only when all foreground decisions form objects together.
    const bool classSizes = maskType_ == 2;
    QFile csv(output(QStringLiteral("_objects.csv")));
    if (!csv.open(QIODevice::WriteOnly | QIODevice::Text))
        return failed(QStringLiteral("cannot write %1").arg(csv.fileName()));
    QTextStream out(&csv);
    out << "object,decision,decision_name,centroid_line,centroid_column,first_line,last_line,first_column,last_column,pixels";
    if (classSizes)
        for (const QString& name : decisions_.names)
            out << ',' << QStringLiteral("pixels_") + columnName(name);
    for (const QString& name : regNames_)
        out << ',' << columnName(name);
    out << '\n';

    QJsonArray objects;
    for (const ObjectRow& o : objects_) {
        const auto& r = o.record;
        out << r[0] << ',' << r[8] << ',' << csvField(decisions_.name(r[8]));
        for (int i : {1, 2, 3, 4, 5, 6, 7})
            out << ',' << r[size_t(i)];
        QJsonObject json{{QStringLiteral("object"), r[0]},
                         {QStringLiteral("decision"), r[8]},
                         {QStringLiteral("decision_name"), decisions_.name(r[8])},
                         {QStringLiteral("centroid"), QJsonObject{{QStringLiteral("line"), r[1]}, {QStringLiteral("column"), r[2]}}},
                         {QStringLiteral("lines"), QJsonArray{r[3], r[4]}},
                         {QStringLiteral("columns"), QJsonArray{r[5], r[6]}},
                         {QStringLiteral("pixels"), r[7]}};
        if (classSizes) {
            QJsonObject sizes;
            for (int d = 0; d < decisions_.names.size(); ++d) {
                const int n = d < RecordInts - ClassSizes ? r[size_t(ClassSizes + d)] : 0;
                out << ',' << n;
                sizes[decisions_.names[d]] = n;
            }
            json[QStringLiteral("decision_pixels")] = sizes;
        }
        QJsonObject means;
        for (int v = 0; v < regNames_.size(); ++v) {
            const double mean = v < o.means.size() ? double(o.means[v]) : 0.0;
            out << ',' << mean;
            means[regNames_[v]] = mean;
        }
        if (!regNames_.isEmpty())
            json[QStringLiteral("regression")] = means;
        out << '\n';
        objects.append(json);
    }
    out.flush();
    if (out.status() != QTextStream::Ok)
        return failed(QStringLiteral("cannot write %1").arg(csv.fileName()));

    QJsonArray decisions;
    for (int d = 0; d < decisions_.names.size(); ++d)
        decisions.append(QJsonObject{{QStringLiteral("code"), d}, {QStringLiteral("name"), decisions_.names[d]},
                                     {QStringLiteral("colour"), QStringLiteral("#%1").arg(decisions_.colours[d], 6, 16, QLatin1Char('0'))}});
    const QJsonObject root{{QStringLiteral("model"), o_.model},
                           {QStringLiteral("cube"), cube_.headerPath},
                           {QStringLiteral("data_file"), cube_.dataPath},
                           {QStringLiteral("kind"), s_.snapshot ? QStringLiteral("snapshot") : QStringLiteral("line-scan")},
                           {QStringLiteral("width"), cube_.samples},
                           {QStringLiteral("lines"), linesDone_},
                           {QStringLiteral("interrupted"), linesDone_ < cube_.lines},
                           {QStringLiteral("bands"), cube_.bands},
                           {QStringLiteral("corrected"), corrected_},
                           {QStringLiteral("seconds"), seconds_},
                           {QStringLiteral("decisions"), decisions},
                           {QStringLiteral("objects"), objects}};
    QFile json(output(QStringLiteral("_objects.json")));
    if (!json.open(QIODevice::WriteOnly) || json.write(QJsonDocument(root).toJson()) < 0)
        return failed(QStringLiteral("cannot write %1").arg(json.fileName()));
    return true;
}

} // namespace cli
