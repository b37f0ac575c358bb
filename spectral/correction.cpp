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

int ZelkCorrection::checkReferences(QString* message) const
{
    if (state == Cube)
        for (const ZelkSpectralCube* ref : {white.get(), dark.get()})
            if (ref->layout != LayoutBIP) {
                *message = QStringLiteral("BIP cube reference expected, got %1").arg(ref->layout);
                return -4305;
            }
    if (white->dataType != DataUInt16 && white->dataType != DataFloat) {
        *message = QStringLiteral("white cube reference should have float data type, got %1").arg(white->dataType);
        return -4306;
    }
    if (dark->dataType != DataUInt16 && dark->dataType != DataFloat) {
        *message = QStringLiteral("Dark cube reference should have float data type, got %1").arg(dark->dataType);
        return -4306;
    }
    return 0;
}

void ZelkCorrection::levels(int columns, int lines, bool pixelFastest, QVector<float>* darkOut, QVector<float>* gainOut) const
{
    const int bands = white->bands;
    const int n = columns * lines * bands;
    QVector<float> w(n), d(n);
    for (int l = 0; l < lines; ++l)
        for (int c = 0; c < columns; ++c)
            for (int b = 0; b < bands; ++b) {
                const int pixel = l * columns + c;
                const int k = pixelFastest ? b * columns * lines + pixel : pixel * bands + b;
                w[k] = white->valueAt(c, l, b);
                d[k] = dark->valueAt(c, l, b);
            }
    *gainOut = correction::gainOf(w, d, whiteLevel);
    *darkOut = std::move(d);
}

namespace correction {

QVector<float> gainOf(const QVector<float>& white, const QVector<float>& dark, float level)
{
    QVector<float> gain(white.size());
    for (int i = 0; i < gain.size(); ++i)
        gain[i] = level / (white[i] - dark[i]);
    return gain;
}

QString loadedFrom(const QString& path)
{
    const QString shown = path.size() >= 30 ? QStringLiteral("...") + path.right(30) : path;
    return QStringLiteral("Loaded from %1").arg(shown);
}

} // namespace correction
