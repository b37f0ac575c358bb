#include "visual/color_map.h"

#include <QPainter>

namespace {

struct NamedStops {
    const char* name;
    QVector<QPair<double, QRgb>> stops;
};

const QVector<NamedStops>& namedMaps()
{
    static const QVector<NamedStops> maps = {
        {"gray", {{0.0, qRgb(0, 0, 0)}, {1.0, qRgb(255, 255, 255)}}},
        {"plasma",
         {{0.0, qRgb(47, 0, 135)}, {0.14, qRgb(98, 0, 164)}, {0.29, qRgb(146, 0, 166)}, {0.43, qRgb(186, 47, 138)},
          {0.57, qRgb(216, 91, 105)}, {0.71, qRgb(238, 137, 73)}, {0.86, qRgb(246, 189, 39)}, {1.0, qRgb(228, 250, 21)}}},
        {"viridis",
         {{0.0, qRgb(72, 0, 84)}, {0.14, qRgb(79, 48, 127)}, {0.29, qRgb(67, 91, 141)}, {0.43, qRgb(52, 127, 142)},
          {0.57, qRgb(34, 162, 135)}, {0.71, qRgb(61, 195, 108)}, {0.86, qRgb(147, 219, 53)}, {1.0, qRgb(243, 233, 28)}}},
    };
    return maps;
}

} // namespace

ZelkColorMap::ZelkColorMap(QObject* parent)
    : QObject(parent)
    , gradient_(0, 0, 1, 0)
{
    addRange(3, 254);
    addRange(1, 255);
}

void ZelkColorMap::setUpNamed(const QString& name)
{
    setNamedStops(name);
    // Every project sets up the same named maps: their tables in the ranges a map starts
    // with are rendered once and then shared, as painting them is most of a project's
    // construction.
    static const QMap<QString, ZelkColorMap::Tables> rendered = [] {
        QMap<QString, ZelkColorMap::Tables> all;
        for (const NamedStops& named : namedMaps()) {
            ZelkColorMap map;
            map.setNamedStops(QLatin1String(named.name));
            map.render();
            all.insert(QLatin1String(named.name), {map.tables_, map.images_});
        }
        return all;
    }();
    const auto it = rendered.constFind(name);
    if (it == rendered.constEnd() || it->tables.keys() != tables_.keys()) {
        render();
        return;
    }
    tables_ = it->tables;
    images_ = it->images;
    Q_EMIT colorTableChanged();
}

void ZelkColorMap::setNamedStops(const QString& name)
{
    gradient_.setStops({});
    for (const NamedStops& map : namedMaps())
        if (name == QLatin1String(map.name))
            for (const auto& stop : map.stops)
                gradient_.setColorAt(stop.first, QColor::fromRgb(stop.second));
}

void ZelkColorMap::addRange(int from, int to)
{
    const quint64 key = rangeKey(from, to);
    if (images_.contains(key) || from < 0 || to > 255 || to < from)
        return;
    images_.insert(key, QImage(to - from + 1, 1, QImage::Format_RGB888));
    tables_.insert(key, QVector<QRgb>(256, 0));
}

void ZelkColorMap::render(int from, int to)
{
    if (from < 0 || to < 0) {
        for (quint64 key : images_.keys())
            render(int(key >> 32), int(key & 0xffffffffu));
        return;
    }
    const quint64 key = rangeKey(from, to);
    if (!images_.contains(key))
        return;
    const int width = to - from + 1;
    gradient_.setFinalStop(width, 0);
    QImage& image = images_[key];
    {
        QPainter painter(&image);
        painter.fillRect(0, 0, width, 1, QBrush(gradient_));
    }
    QVector<QRgb>& table = tables_[key];
    for (int i = 0; i < width; ++i)
        table[from + i] = image.pixel(i, 0);
    Q_EMIT colorTableChanged();
}

QGradientStops ZelkColorMap::stops() const
{
    return overrideStops_.isEmpty() ? gradient_.stops() : overrideStops_;
}

const QVector<QRgb>* ZelkColorMap::table(int from, int to) const
{
    const auto it = tables_.constFind(rangeKey(from, to));
    return it == tables_.constEnd() ? nullptr : &it.value();
}

void ZelkColorMap::setStops(const QGradientStops& stops)
{
    gradient_.setStops(stops);
    Q_EMIT stopCountChanged(this->stops().size());
    render();
}

void ZelkColorMap::addStop(double position, const QColor& color)
{
    gradient_.setColorAt(position, color);
    Q_EMIT stopCountChanged(stops().size());
    render();
}

void ZelkColorMap::removeStop(int index)
{
    QGradientStops s = stops();
    if (index < 0 || index >= s.size())
        return;
    s.remove(index);
    setStops(s);
    Q_EMIT stopCountChanged(s.size());
}

void ZelkColorMap::setStopPosition(int index, double position)
{
    QGradientStops s = stops();
    if (index < 0 || index >= s.size())
        return;
    s[index].first = position;
    gradient_.setStops(s);
    Q_EMIT stopPositionChanged(index, position);
    render();
}

void ZelkColorMap::setStopColor(int index, const QColor& color)
{
    QGradientStops s = stops();
    if (index < 0 || index >= s.size())
        return;
    s[index].second = color;
    gradient_.setStops(s);
    Q_EMIT stopColorChanged(index, color);
    render();
}

void ZelkColorMap::setOverrideIndex(int index, int from)
{
    if (index < 0) {
        if (!overrideStops_.isEmpty()) {
            const QGradientStops saved = overrideStops_;
            overrideStops_.clear();
            setStops(saved);
        }
        return;
    }
    if (!overrideStops_.isEmpty())
        return;
    const QGradientStops saved = stops();
    if (index >= saved.size() || from < 0 || from >= saved.size())
        return;
    overrideStops_ = saved;
    QGradientStops preview = saved;
    preview[index].second = saved[from].second;
    preview.remove(from);
    setStops(preview);
}

void ZelkColorMap::applyOverride()
{
    overrideStops_.clear();
    setStops(gradient_.stops());
}
