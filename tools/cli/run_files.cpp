// The files of zelk run: the decision image, the object records and the header of the
// regression cube.

#include "run.h"

#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTextStream>

namespace cli {
namespace {

constexpr int ClassSizes = 9; // first of the per-decision pixel counts of a record
constexpr quint8 Cross = 255; // marks an object's centroid in the decision image

QString csvField(const QString& text)
{
    if (!text.contains(QLatin1Char(',')) && !text.contains(QLatin1Char('"')) && !text.contains(QLatin1Char('\n')))
        return text;
    return QLatin1Char('"') + QString(text).replace(QLatin1String("\""), QLatin1String("\"\"")) + QLatin1Char('"');
}

} // namespace

// Decisions in the model's colours, and a white cross at each object's centroid as the
// library marks them in its ring of rows: an arm of 11 pixels along the centroid's line
// and one of 10 lines through its column. (The frames handed back carry no crosses:
// they are burnt into rows that were handed back before.)
bool Run::saveDecisionImage(QImage& image) const
{
    QVector<QRgb> table(256, qRgb(0, 0, 0));
    for (int i = 0; i < decisions_.colours.size() && i < Cross; ++i)
        table[i] = 0xFF000000u | decisions_.colours[i];
    table[Cross] = qRgb(255, 255, 255);
    image.setColorTable(table);
    for (const ObjectRow& o : objects_) {
        const int line = o.record[1], column = o.record[2];
        if (line >= 0 && line < image.height())
            for (int x = std::max(0, column - 5); x <= std::min(image.width() - 1, column + 5); ++x)
                image.scanLine(line)[x] = Cross;
        if (column >= 0 && column < image.width())
            for (int y = std::max(0, line - 5); y < std::min(image.height(), line + 5); ++y)
                image.scanLine(y)[column] = Cross;
    }
    const QString path = output(QStringLiteral("_decisions.png"));
    return image.save(path, "png") || failed(QStringLiteral("cannot write %1").arg(path));
}

bool Run::writeRegressionHeader() const
{
    QFile header(output(QStringLiteral("_regression.hdr")));
    if (!header.open(QIODevice::WriteOnly | QIODevice::Text))
        return false;
    QTextStream out(&header);
    out << "ENVI\ndescription = {regression outputs of " << QFileInfo(o_.model).fileName() << "}\nsamples = " << cube_.samples
        << "\nlines = " << cube_.lines << "\nbands = " << regNames_.size()
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
            out << ',' << csvField(QStringLiteral("pixels_") + name);
    for (const QString& name : regNames_)
        out << ',' << csvField(name);
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
                           {QStringLiteral("cube"), o_.cube},
                           {QStringLiteral("kind"), s_.snapshot ? QStringLiteral("snapshot") : QStringLiteral("line-scan")},
                           {QStringLiteral("width"), cube_.samples},
                           {QStringLiteral("lines"), cube_.lines},
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
