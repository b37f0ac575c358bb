#pragma once
// Helpers of the segmentation tests: segmenters built from flag lists, decision rows
// drawn as text, a feeder that runs a kernel row by row and collects what each pass
// reports, and an independent flood-fill labelling to check the tracker against.

#include "segment/segmenter.h"

#include <QStringList>
#include <algorithm>
#include <array>
#include <cmath>
#include <memory>
#include <string>
#include <vector>

namespace segtest {

enum class Kernel { Decisions, Foreground, Value, Values };

// Classes "c0", "c1", ... with the given foreground flags; "c0" is the background.
inline std::unique_ptr<ZelkSegmenter> definition(const std::vector<quint8>& flags, int objMask = 1)
{
    auto s = std::make_unique<ZelkSegmenter>();
    QStringList names;
    for (size_t i = 0; i < flags.size(); ++i)
        names << QStringLiteral("c%1").arg(i);
    s->setClasses(names, false);
    for (size_t i = 0; i < flags.size(); ++i)
        s->setForegroundFlag(int(i), flags[i]);
    s->backgroundDecName = QStringLiteral("c0");
    s->objMask = objMask;
    return s;
}

// A compiled segmenter prepared for a stream of `width` pixels.
inline std::unique_ptr<ZelkSegmenter> prepared(const std::vector<quint8>& flags, int width, int minSize = 1,
                                               int objMask = 1, int valuesPerPixel = 0)
{
    auto s = definition(flags, objMask);
    s->setMinObjSize(minSize);
    if (s->compile() != 0 || s->prepareSegmenter(true, width, valuesPerPixel) != 0)
        return nullptr;
    return s;
}

// A row drawn as text: '.' is code 0, a digit that code, a letter from 'a' code 10 on.
inline std::vector<quint8> row(const std::string& text)
{
    std::vector<quint8> r;
    for (char ch : text)
        r.push_back(ch == '.' ? 0 : ch >= 'a' ? quint8(10 + ch - 'a') : quint8(ch - '0'));
    return r;
}

struct Report {
    int line = 0; // line on which the pass reported it
    std::array<qint32, ObjectRecordInts> record{};
    std::vector<float> means;
};

// Runs one kernel over rows. The row before stays intact in its own buffer until the
// next call has returned, as the tracker requires.
class Feeder {
public:
    Feeder(ZelkSegmenter& s, Kernel kernel)
        : s_(s)
        , kernel_(kernel)
    {
    }

    // Feeds one row (and its values for the value kernels); keeps the reports.
    int feed(const std::vector<quint8>& decisions, const std::vector<float>& values = {})
    {
        const int line = s_.currentLine();
        std::vector<quint8>& buffer = rows_[parity_];
        buffer = decisions;
        std::vector<float>& v = values_[parity_];
        v = values;
        parity_ ^= 1;
        int result = -1;
        switch (kernel_) {
        case Kernel::Decisions: result = s_.trackDecisions(buffer.data()); break;
        case Kernel::Foreground: result = s_.trackForeground(buffer.data()); break;
        case Kernel::Value: result = s_.trackValue(buffer.data(), v.data()); break;
        case Kernel::Values: result = s_.trackValues(buffer.data(), v.data()); break;
        }
        for (int i = 0; i < s_.objectCount(); ++i) {
            Report r;
            r.line = line;
            std::copy_n(s_.object(i), ObjectRecordInts, r.record.begin());
            const int k = s_.valuesPerPixel();
            if (k > 0)
                r.means.assign(s_.objectMeans() + size_t(i) * k, s_.objectMeans() + size_t(i + 1) * k);
            reports.push_back(r);
        }
        return result;
    }

    // Feeds drawn rows, then background rows up to and including line `through`.
    int run(const std::vector<std::string>& picture, int through)
    {
        for (const std::string& text : picture)
            if (int r = feed(row(text)))
                return r;
        const std::vector<quint8> empty(size_t(s_.width()), 0);
        while (s_.currentLine() <= through)
            if (int r = feed(empty))
                return r;
        return 0;
    }

    std::vector<Report> reports;

private:
    ZelkSegmenter& s_;
    Kernel kernel_;
    std::vector<quint8> rows_[2];
    std::vector<float> values_[2];
    int parity_ = 0;
};

// A component of a decision image found by flood fill: pixels that are foreground and
// connect left, right, up or down to a pixel of the same key (decision code, or
// foreground flag in 'All foreground' mode).
struct Component {
    int first = 0; // raster index of its first pixel
    int pixels = 0;
    int firstLine = 1 << 30, lastLine = -1, firstColumn = 1 << 30, lastColumn = -1;
    qint64 lineSum = 0, columnSum = 0;
    int decision = 0; // code of its first pixel
    std::array<int, 256> perCode{};
    std::vector<double> valueSums;

    // The rounded means, computed as the record defines them.
    int centroidLine() const
    {
        return int(std::roundf(float(lineSum - qint64(pixels) * firstLine) * (1.0f / float(pixels)))) + firstLine;
    }
    int centroidColumn() const { return int(std::roundf(float(columnSum) * (1.0f / float(pixels)))); }
    // The code with the most pixels, the lower one on a tie: the decision by majority.
    int majority() const { return int(std::max_element(perCode.begin(), perCode.end()) - perCode.begin()); }
};

// Components in the order of their first pixel. `values` (optional) holds
// `valuesPerPixel` numbers per pixel, pixel-major and row by row; `componentOf`
// (optional) receives the index of each pixel's component, -1 for the background.
inline std::vector<Component> floodFill(const std::vector<std::vector<quint8>>& image, const quint8* flags,
                                        bool byFlag, const std::vector<float>& values = {},
                                        int valuesPerPixel = 0, std::vector<int>* componentOf = nullptr)
{
    const int h = int(image.size());
    const int w = h ? int(image[0].size()) : 0;
    std::vector<int> seen(size_t(w) * h, 0);
    if (componentOf)
        componentOf->assign(size_t(w) * h, -1);
    std::vector<Component> out;
    auto key = [&](int y, int x) { return byFlag ? int(flags[image[y][x]]) : int(image[y][x]); };
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            if (!flags[image[y][x]] || seen[size_t(y) * w + x])
                continue;
            Component c;
            c.first = y * w + x;
            c.decision = image[y][x];
            c.valueSums.assign(size_t(valuesPerPixel), 0.0);
            const int k = key(y, x);
            std::vector<std::pair<int, int>> stack{{y, x}};
            seen[size_t(y) * w + x] = 1;
            while (!stack.empty()) {
                auto [py, px] = stack.back();
                stack.pop_back();
                ++c.pixels;
                if (componentOf)
                    (*componentOf)[size_t(py) * w + px] = int(out.size());
                c.firstLine = std::min(c.firstLine, py), c.lastLine = std::max(c.lastLine, py);
                c.firstColumn = std::min(c.firstColumn, px), c.lastColumn = std::max(c.lastColumn, px);
                c.lineSum += py, c.columnSum += px;
                ++c.perCode[image[py][px]];
                for (int j = 0; j < valuesPerPixel; ++j)
                    c.valueSums[j] += values[(size_t(py) * w + px) * valuesPerPixel + j];
                const int dy[] = {-1, 1, 0, 0}, dx[] = {0, 0, -1, 1};
                for (int n = 0; n < 4; ++n) {
                    const int ny = py + dy[n], nx = px + dx[n];
                    if (ny < 0 || ny >= h || nx < 0 || nx >= w || seen[size_t(ny) * w + nx])
                        continue;
                    if (flags[image[ny][nx]] && key(ny, nx) == k) {
                        seen[size_t(ny) * w + nx] = 1;
                        stack.push_back({ny, nx});
                    }
                }
            }
            out.push_back(c);
        }
    return out;
}

} // namespace segtest
