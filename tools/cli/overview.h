#pragma once
// The overview image of zelk run, for people to look at: the decisions in their
// colours, each object's box and centroid, and a legend of the decisions with their
// pixel and object counts.

#include "cli.h"

#include <QImage>
#include <vector>

namespace cli {

struct OverviewObject {
    int line, column;                                     // centroid
    int firstLine, lastLine, firstColumn, lastColumn;     // box
    int decision;
};

// `labels` is the indexed label map with its colour table; `pixels` counts its labels.
QImage drawOverview(const QImage& labels, const std::vector<OverviewObject>& objects, const Decisions& decisions,
                    const std::vector<qint64>& pixels);

} // namespace cli
