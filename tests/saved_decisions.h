#pragma once
// The decision image as a caller sees it: written by zelk_SaveImage and read back, so
// that the tests read every row of the ring, not only the last frame's.

#include "zelk.h"

#include <QByteArray>
#include <QImage>
#include <QTemporaryDir>

// The image, null when the call refused to write it.
inline QImage savedDecisions(ZelkHandle* h)
{
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("decisions.png"));
    if (zelk_SaveImage(h, path.toLatin1().constData()) != 0)
        return QImage();
    return QImage(path);
}

// Row `row` of the saved image: one decision byte per pixel.
inline QByteArray savedRow(const QImage& image, int row)
{
    if (image.isNull() || row < 0 || row >= image.height())
        return QByteArray();
    return QByteArray(reinterpret_cast<const char*>(image.constScanLine(row)), image.width());
}
