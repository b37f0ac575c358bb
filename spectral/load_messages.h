#pragma once
// The texts with which scan loaders report to the application, which shows them as rich
// text. They are kept literally.

#include <QString>

namespace loadmessages {

inline QString loadError(const QString& name, const QString& text)
{
    return QStringLiteral("<font color=\"red\"><b>Error loading image %1:</b></font>\n %2").arg(name, text);
}

inline QString loadWarning(const QString& text)
{
    return QStringLiteral("<font color=\"yellow\">%1</font>").arg(text);
}

inline QString typeWarning()
{
    return QStringLiteral("<font color=\"yellow\"><b>Warning: UINT16 or float data type expected. Cube considered as externally corrected.</b></font>");
}

inline QString referenceScan()
{
    return QStringLiteral("<font color=\"red\"><b>To open correction files, use ENVI project type.</b></font>");
}

// The code stands in both places of the title on purpose.
inline QString correctionError(int code, const QString& text)
{
    return QStringLiteral("<font color=\"red\"><b>Error %1 when loading image: %1</b></font>\n %2").arg(QString::number(code), text);
}

inline QString namedCorrectionError(int code, const QString& name, const QString& text)
{
    return QStringLiteral("<font color=\"red\"><b>Error %1 when loading image: %2</b></font>\n %3").arg(QString::number(code), name, text);
}

// Failures of the scans that carry their own correction: "<title> <name>:" then code:text.
inline QString titledError(const char* title, const QString& name, int code, const QString& text)
{
    return QStringLiteral("<font color=\"red\"><b>%1 %2:</b></font>\n %3:%4").arg(QLatin1String(title), name, QString::number(code), text);
}

} // namespace loadmessages
