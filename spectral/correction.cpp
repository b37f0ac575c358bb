#include "spectral/correction.h"

#include <QDebug>

ZelkCorrection::ZelkCorrection(QObject* parent)
    : QObject(parent)
{
}

ZelkCorrection::~ZelkCorrection() = default;

int ZelkCorrection::setLast(int code, const QString& message)
{
    lastError = code;
    lastMessage = QStringLiteral("%1: %2").arg(code).arg(message);
    return code;
}

int ZelkCorrection::deriveState(const ZelkSpectralCube& scan)
{
    const int c = scan.columns, l = scan.lines, b = scan.bands;
    if (white && white->bands != b)
        return setLast(-4206, QStringLiteral("White ref has different band count (%1) than the cube (%2)").arg(white->bands).arg(b));
    if (dark && dark->bands != b)
        return setLast(-4206, QStringLiteral("Dark ref has different band count (%1) than the cube (%2)").arg(dark->bands).arg(b));
    if (!white && !dark) {
        state = NoCorrection;
        return 0;
    }
    if (!white || !dark) {
        state = NotSet;
        return -1;
    }
    if (white->columns == 1 && white->lines == 1 && dark->columns == 1 && dark->lines == 1) {
        state = Point;
        return 0;
    }
    // A size that does not match leaves the state alone; the number is not an error code.
    if (white->columns != c || dark->columns != c)
        return c;
    const bool sameLayout = (white->layout == LayoutBIL && dark->layout == LayoutBIL) ||
                            (white->layout == LayoutBIP && dark->layout == LayoutBIP);
    if (white->lines == 1 && dark->lines == 1 && sameLayout) {
        state = Frame;
        return 0;
    }
    if (white->lines != l || dark->lines != l)
        return l;
    state = Cube;
    return 0;
}

int ZelkCorrection::isValid(int mode)
{
    qInfo() << "mcor: isval 1";
    if (mode == -1)
        return setLast(-4201, QStringLiteral("Unknown correction algorithm"));
    if (state == NotSet)
        return setLast(-4202, QStringLiteral("Correction state not set"));
    if (state == NoCorrection && !white && !dark)
        return setLast(0, QStringLiteral("Valid correction state (no correction)"));
    if (white && dark && mode == 1) {
        qInfo() << "mcor: isval 2";
        if (white->bands != dark->bands)
            return setLast(-4204, QStringLiteral("White and dark references have different band count"));
        const ZelkSpectralCube &w = *white, &d = *dark;
        if (state == Point && w.columns == 1 && w.lines == 1 && d.columns == 1 && d.lines == 1) {
            qInfo() << "mcor: isval 3";
            return setLast(0, QStringLiteral("Valid correction state (point)"));
        }
        if (state == Frame && w.columns > 1 && w.lines == 1 && d.columns > 1 && d.lines == 1) {
            qInfo() << "mcor: isval 4";
            return setLast(0, QStringLiteral("Valid correction state (frame)"));
        }
        if (state == Cube && w.columns > 1 && w.lines > 1 && d.columns > 1 && d.lines > 1) {
            qInfo() << "mcor: isval 5";
            return setLast(0, QStringLiteral("Valid correction state (cube)"));
        }
    }
    return setLast(-4203, QStringLiteral("Invalid correction"));
}

namespace correction {

QString loadedFrom(const QString& path)
{
    const QString shown = path.size() >= 30 ? QStringLiteral("...") + path.right(30) : path;
    return QStringLiteral("Loaded from %1").arg(shown);
}

} // namespace correction
