#include "envi_files.h"

#include <QDir>
#include <QFileInfo>

namespace cli {
namespace {

bool isHeaderName(const QString& name)
{
    return name.endsWith(QLatin1String(".hdr"), Qt::CaseInsensitive);
}

// "scene.bil.hdr" -> "scene.bil"; "scene" for a name without ".hdr".
QString withoutHdr(const QString& path)
{
    return isHeaderName(path) ? path.left(path.size() - 4) : path;
}

QString fileNames(const QStringList& paths)
{
    QStringList names;
    for (const QString& path : paths)
        if (QFileInfo(path).suffix() == QFileInfo(path).suffix().toLower()) // the upper-case twins go without saying
            names << QFileInfo(path).fileName();
    return names.join(QStringLiteral(", "));
}

bool exists(const QString& path)
{
    const QFileInfo info(path);
    return info.exists() && info.isFile();
}

} // namespace

QString headerOf(const QString& path)
{
    if (isHeaderName(path))
        return exists(path) ? path : QString();
    const QFileInfo info(path);
    const QString base = info.dir().filePath(info.completeBaseName());
    for (const QString& candidate : {path + QStringLiteral(".hdr"), path + QStringLiteral(".HDR"), base + QStringLiteral(".hdr"),
                                     base + QStringLiteral(".HDR")})
        if (exists(candidate))
            return candidate;
    return QString();
}

QString dataFileOf(const QString& header, qint64 size, const QString& interleave, bool* bySize, QString* error)
{
    *bySize = false;
    const QString stem = withoutHdr(header);
    const QFileInfo stemInfo(stem);
    const QString base = stemInfo.dir().filePath(stemInfo.completeBaseName());
    QStringList names{stem, base};
    for (const QString& extension : {QStringLiteral("raw"), QStringLiteral("img"), QStringLiteral("dat"), QStringLiteral("bin"), interleave})
        names << base + QLatin1Char('.') + extension << base + QLatin1Char('.') + extension.toUpper();
    names.removeDuplicates();

    auto sizeText = [&](const QString& path, qint64 bytes) {
        return QStringLiteral("%1 holds %2 bytes, the header %3 describes %4").arg(path).arg(bytes).arg(header).arg(size);
    };
    for (const QString& name : names) {
        if (name == header || !exists(name))
            continue;
        const qint64 bytes = QFileInfo(name).size();
        if (bytes < size) {
            *error = QStringLiteral("the data file %1 is too short: %2").arg(name, sizeText(name, bytes));
            return QString();
        }
        return QDir::cleanPath(name);
    }

    // No file by name: one of the right size, unless it belongs to another header or
    // its extension names another interleave.
    const QDir dir = QFileInfo(header).absoluteDir();
    const QString prefix = QFileInfo(base).fileName();
    QStringList found;
    for (const QFileInfo& entry : dir.entryInfoList({prefix + QLatin1Char('*')}, QDir::Files)) {
        const QString path = entry.absoluteFilePath(), suffix = entry.suffix().toLower();
        const bool otherInterleave = (suffix == QLatin1String("bil") || suffix == QLatin1String("bip") || suffix == QLatin1String("bsq")) &&
                                     suffix != interleave;
        if (entry.size() != size || isHeaderName(path) || otherInterleave || !headerOf(path).isEmpty() &&
            QFileInfo(headerOf(path)) != QFileInfo(header))
            continue;
        found << path;
    }
    if (found.size() == 1) {
        *bySize = true;
        return found.first();
    }
    *error = found.isEmpty()
                 ? QStringLiteral("%1 has no data file: none of %2 exists, and no other file beside it holds %3 bytes")
                       .arg(header, fileNames(names))
                       .arg(size)
                 : QStringLiteral("%1 has no data file by name, and %2 files beside it hold its %3 bytes (%4): rename its data file "
                                  "to %5")
                       .arg(header)
                       .arg(found.size())
                       .arg(size)
                       .arg(found.join(QStringLiteral(", ")), stem == header ? base : stem);
    return QString();
}

} // namespace cli
