#pragma once
// The decision picture of the segmentation benches: `objects` ellipses of three
// foreground decisions on the belt (0), 4% of their pixels sprinkled with another
// decision and 0.3% of the belt with stray foreground, as a classifier leaves them.
// `coverage` receives the share of foreground pixels.

#include <QtGlobal>
#include <random>
#include <vector>

inline std::vector<quint8> noisyBelt(int width, int rows, int objects, double* coverage)
{
    std::mt19937 rng(3);
    std::uniform_real_distribution<float> u(0.0f, 1.0f);
    std::vector<quint8> picture(size_t(width) * rows, 0);
    for (int n = 0; n < objects; ++n) {
        const float cx = u(rng) * width, cy = u(rng) * rows;
        const float rx = 8.0f + u(rng) * 22.0f, ry = 8.0f + u(rng) * 22.0f;
        const quint8 code = quint8(1 + rng() % 3);
        for (int y = int(cy - ry); y <= int(cy + ry); ++y)
            for (int x = int(cx - rx); x <= int(cx + rx); ++x) {
                const float dx = (x - cx) / rx, dy = (y - cy) / ry;
                if (x < 0 || x >= width || y < 0 || y >= rows || dx * dx + dy * dy > 1.0f)
                    continue;
                picture[size_t(y) * width + x] = u(rng) < 0.04f ? quint8(1 + rng() % 3) : code;
            }
    }
    size_t covered = 0;
    for (quint8& p : picture) {
        if (p == 0 && u(rng) < 0.003f)
            p = quint8(1 + rng() % 3);
        covered += p != 0;
    }
    *coverage = double(covered) / double(picture.size());
    return picture;
}
