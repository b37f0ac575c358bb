#pragma once
// Which files make an ENVI cube: a text header and a raw data file beside it, named by
// the conventions that cameras and GDAL-like tools follow.

#include <QString>
#include <QStringList>

namespace cli {

// The header of a path that may be a header or a data file: the path itself when it
// ends in ".hdr", else "NAME.hdr" or NAME with its extension replaced by ".hdr". Empty
// when none exists.
QString headerOf(const QString& path);

// The data file of `header`, whose samples take `size` bytes (header offset included).
// By name first: the header name without ".hdr", then its base with no extension,
// ".raw", ".img", ".dat", ".bin" or the extension of `interleave` ("bil", "bip",
// "bsq"). Only when no file has such a name, by size: the one file beside it of that
// size which has no header of its own and names no other interleave. Empty with
// `error` set when no file qualifies; `bySize` tells how it was found.
QString dataFileOf(const QString& header, qint64 size, const QString& interleave, bool* bySize, QString* error);

} // namespace cli
