#include "overview.h"

#include "legend_font.h"

#include <QPainter>
#include <algorithm>

namespace cli {
namespace {

// Writes `text` with its cells' top at `top`; characters beyond ASCII show as '?'.
void drawText(QImage& image, int left, int top, const QString& text)
{
    using namespace legendfont;
    const QByteArray latin = text.toLatin1();
    for (int i = 0; i < latin.size(); ++i) {
        const int c = uchar(latin[i]) >= First && uchar(latin[i]) <= Last ? uchar(latin[i]) : '?';
        for (int y = 0; y < Height; ++y)
            for (int x = 0; x < Width; ++x)
                if (Glyphs[c - First][y] >> (Width - 1 - x) & 1 && image.valid(left + i * Width + x, top + y))
                    image.setPixel(left + i * Width + x, top + y, qRgb(0, 0, 0));
    }
}

} // namespace

QImage drawOverview(const QImage& labels, const std::vector<OverviewObject>& objects, const Decisions& decisions,
                    const std::vector<qint64>& pixels)
{
    std::vector<int> objectCounts(size_t(decisions.names.size()), 0);
    for (const OverviewObject& o : objects)
        if (o.decision >= 0 && o.decision < decisions.names.size())
            ++objectCounts[size_t(o.decision)];
    QStringList texts{QStringLiteral("%1 objects").arg(objects.size())};
    for (int d = 0; d < decisions.names.size(); ++d)
        texts << QStringLiteral("%1  %2 px, %3 objects").arg(decisions.names[d]).arg(pixels[size_t(d)]).arg(objectCounts[size_t(d)]);
    int longest = 0;
    for (const QString& t : texts)
        longest = std::max(longest, int(t.size()));
    constexpr int Row = legendfont::Height + 6, Swatch = legendfont::Height, Margin = 8;
    const int legendWidth = Margin + Swatch + 6 + longest * legendfont::Width + Margin;
    const int legendHeight = Margin + Row * int(texts.size()) + Margin;

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
    const int left = labels.width() + Margin;
    painter.setPen(Qt::black);
    for (int d = 0; d < decisions.names.size(); ++d) {
        const int top = Margin + Row * (d + 1);
        painter.fillRect(left, top, Swatch, Swatch, QColor::fromRgb(decisions.colours[d]));
        painter.drawRect(left, top, Swatch, Swatch);
    }
    painter.end();
    drawText(image, left, Margin, texts[0]);
    for (int d = 0; d < decisions.names.size(); ++d)
        drawText(image, left + Swatch + 6, Margin + Row * (d + 1), texts[d + 1]);
    return image;
}

} // namespace cli
