#pragma once
// A gradient of colour stops rendered into lookup tables of 256 entries, one table per
// range of entries. The ranges (3, 254) and (1, 255) leave room for special values at
// the ends of a table.

#include <QImage>
#include <QLinearGradient>
#include <QMap>
#include <QObject>
#include <QVector>

class ZelkColorMap : public QObject {
    Q_OBJECT
public:
    explicit ZelkColorMap(QObject* parent = nullptr);

    // The stops of "gray", "plasma" or "viridis"; any other name leaves no stops.
    void setUpNamed(const QString& name);
    // Adds a table for entries from .. to, inclusive, zeroed until the next rendering.
    void addRange(int from, int to);
    // Renders one range, or all of them when from or to is negative.
    void render(int from = -1, int to = -1);
    QGradientStops stops() const;

    // The table of a range, or null for a range that does not exist.
    const QVector<QRgb>* table(int from, int to) const;
    static quint64 rangeKey(int from, int to) { return (quint64(quint32(from)) << 32) | quint32(to); }

Q_SIGNALS:
    void stopCountChanged(int count);
    void stopPositionChanged(int index, double position);
    void stopColorChanged(int index, QColor color);
    void colorTableChanged();

public Q_SLOTS:
    void setStops(const QGradientStops& stops);
    void addStop(double position, const QColor& color);
    void removeStop(int index);
    void setStopPosition(int index, double position);
    void setStopColor(int index, const QColor& color);
    // Previews stop `from`'s colour in place of stop `index`'s; a negative index ends
    // the preview and restores the saved stops.
    void setOverrideIndex(int index, int from);
    void applyOverride();

private:
    struct Tables {
        QMap<quint64, QVector<QRgb>> tables;
        QMap<quint64, QImage> images;
    };
    void setNamedStops(const QString& name);

    QMap<quint64, QVector<QRgb>> tables_;
    QMap<quint64, QImage> images_;
    QLinearGradient gradient_;
    QGradientStops overrideStops_;
};
