#include "overview.h"

#include <QGuiApplication>
#include <QPainter>
#include <algorithm>

namespace cli {

QImage drawOverview(const QImage& labels, const std::vector<OverviewObject>& objects, const Decisions& decisions,
                    const std::vector<qint64>& pixels)
{
    // Text needs the fonts of a GUI application; the offscreen platform serves them
    // without a display. What Qt says while it sets that up concerns no user's data.
    const QtMessageHandler previous = qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString&) {});
    std::unique_ptr<QGuiApplication> app;
    if (!QGuiApplication::instance()) {
        if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
            qputenv("QT_QPA_PLATFORM", "offscreen");
        static int argc = 1;
        static char name[] = "zelk";
        static char* argv[] = {name, nullptr};
        app = std::make_unique<QGuiApplication>(argc, argv);
    }

    std::vector<int> objectCounts(size_t(decisions.names.size()), 0);
    for (const OverviewObject& o : objects)
        if (o.decision >= 0 && o.decision < decisions.names.size())
            ++objectCounts[size_t(o.decision)];

    QFont font(QStringLiteral("DejaVu Sans"));
    font.setPixelSize(12);
    const QFontMetrics metrics(font);
    const int row = metrics.height() + 4, swatch = metrics.height();
    int legendWidth = 0;
    QStringList texts;
    for (int d = 0; d < decisions.names.size(); ++d) {
        texts << QStringLiteral("%1  %2 px, %3 objects").arg(decisions.names[d]).arg(pixels[size_t(d)]).arg(objectCounts[size_t(d)]);
        legendWidth = std::max(legendWidth, metrics.horizontalAdvance(texts.last()));
    }
    legendWidth += swatch + 24;
    const int legendHeight = row * (decisions.names.size() + 1) + 8;

    QImage image(labels.width() + legendWidth, std::max(labels.height(), legendHeight), QImage::Format_RGB32);
    image.fill(Qt::white);
    QPainter painter(&image);
    painter.drawImage(0, 0, labels.convertToFormat(QImage::Format_RGB32));
    painter.setPen(QPen(Qt::white, 1));
    for (const OverviewObject& o : objects) {
        painter.drawRect(o.firstColumn, o.firstLine, o.lastColumn - o.firstColumn, o.lastLine - o.firstLine);
        painter.drawLine(o.column - 3, o.line, o.column + 3, o.line);
        painter.drawLine(o.column, o.line - 3, o.column, o.line + 3);
    }
    painter.setFont(font);
    painter.setPen(Qt::black);
    const int left = labels.width() + 8;
    painter.drawText(left, 4 + metrics.ascent(), QStringLiteral("%1 objects").arg(objects.size()));
    for (int d = 0; d < decisions.names.size(); ++d) {
        const int top = 4 + row * (d + 1);
        painter.fillRect(left, top, swatch, swatch, QColor::fromRgb(decisions.colours[d]));
        painter.drawRect(left, top, swatch, swatch);
        painter.drawText(left + swatch + 6, top + metrics.ascent(), texts[d]);
    }
    painter.end();
    qInstallMessageHandler(previous);
    return image;
}

} // namespace cli
