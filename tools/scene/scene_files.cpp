// The files of a scene: the recording and its references as ENVI scans, the ground
// truth, and the trained model.

#include "scene/scene.h"

#include "modelwriter/envelope_writer.h"
#include "modelwriter/scan_writer.h"

#include <QDir>
#include <QFile>
#include <QTextStream>
#include <QtEndian>
#include <stdexcept>

namespace scene {
namespace {

QByteArray enviHeader(const Scene& scene, int lines)
{
    modelwriter::EnviScan scan;
    scan.samples = scene.options().width;
    scan.lines = lines;
    scan.bands = scene.options().bands;
    scan.dataType = 12;
    scan.interleave = QStringLiteral("bil");
    QStringList values;
    for (double w : scene.wavelengths())
        values << QString::number(w, 'f', 2);
    scan.extraFields = QStringLiteral("wavelength units = Nanometers\nwavelength = {%1}\n").arg(values.join(QStringLiteral(", ")));
    return modelwriter::enviHeaderText(scan);
}

// Writes `lines` lines of `render` as a raw little-endian uint16 file, rendering a block
// of lines in parallel before writing it.
template <class Render>
bool writeRaw(const QString& path, int lines, qint64 lineValues, Render render)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        return false;
    constexpr int Block = 32;
    std::vector<quint16> block(size_t(Block * lineValues));
    for (int first = 0; first < lines; first += Block) {
        const int count = std::min(Block, lines - first);
#pragma omp parallel for schedule(dynamic)
        for (int i = 0; i < count; ++i) {
            quint16* line = block.data() + qint64(i) * lineValues;
            render(first + i, line);
            for (qint64 v = 0; v < lineValues; ++v)
                line[v] = qToLittleEndian(line[v]);
        }
        const qint64 bytes = qint64(count) * lineValues * 2;
        if (file.write(reinterpret_cast<const char*>(block.data()), bytes) != bytes)
            return false;
    }
    return file.flush();
}


} // namespace

bool Scene::write(const QString& directory, QString* error) const
{
    const QDir dir(directory);
    if (!QDir().mkpath(directory)) {
        *error = QStringLiteral("cannot make the directory %1").arg(directory);
        return false;
    }
    const qint64 lineValues = qint64(options_.width) * options_.bands;
    auto fail = [&](const QString& file) {
        *error = QStringLiteral("cannot write %1").arg(dir.filePath(file));
        return false;
    };
    if (!modelwriter::writeFile(dir.filePath(QStringLiteral("scene.hdr")), enviHeader(*this, options_.lines)) ||
        !writeRaw(dir.filePath(QStringLiteral("scene.bin")), options_.lines, lineValues,
                  [this](int line, quint16* out) { renderLine(line, out); }))
        return fail(QStringLiteral("scene.bin"));
    for (const bool white : {true, false}) {
        const QString base = white ? QStringLiteral("whiteReference") : QStringLiteral("darkReference");
        if (!modelwriter::writeFile(dir.filePath(base + QStringLiteral(".hdr")), enviHeader(*this, options_.referenceLines)) ||
            !writeRaw(dir.filePath(base + QStringLiteral(".bin")), options_.referenceLines, lineValues,
                      [this, white](int line, quint16* out) { renderReference(white, line, out); }))
            return fail(base + QStringLiteral(".bin"));
    }

    QFile truth(dir.filePath(QStringLiteral("truth.csv")));
    if (!truth.open(QIODevice::WriteOnly | QIODevice::Text))
        return fail(QStringLiteral("truth.csv"));
    QTextStream out(&truth);
    out << "id,material,trained,centroid_line,centroid_column,pixels,first_line,last_line,first_column,last_column\n";
    for (const SceneObject& o : objects_)
        out << o.id << ',' << materials_[o.material].name << ',' << (materials_[o.material].trained ? 1 : 0) << ','
            << QString::number(o.line, 'f', 2) << ',' << QString::number(o.column, 'f', 2) << ',' << o.pixels << ','
            << o.firstLine << ',' << o.lastLine << ',' << o.firstColumn << ',' << o.lastColumn << '\n';
    out.flush();
    if (out.status() != QTextStream::Ok)
        return fail(QStringLiteral("truth.csv"));

    trainer::Model model;
    try {
        model = train();
    } catch (const std::exception& e) {
        *error = QStringLiteral("training failed: %1").arg(QLatin1String(e.what()));
        return false;
    }
    const QByteArray file = modelwriter::fileContents(modelwriter::FileKind::Zelk, modelwriter::projectBytes(project(model)));
    if (!modelwriter::writeFile(dir.filePath(QStringLiteral("model.zelk")), file))
        return fail(QStringLiteral("model.zelk"));
    return true;
}


} // namespace scene
