// Whole-image labelling speed: images of 512 x 512 and 2048 x 2048 decisions through
// labelCube and labelCubeForeground, with resetAfterCube after each, on one core.
//
// The images are a sorting belt seen from above: ellipses of 16 to 60 pixels across in
// three foreground classes cover about a fifth of the image; 4% of an object's pixels
// are classified as another foreground class, and 0.3% of the belt is isolated
// foreground noise. Objects below 50 pixels are rejected by size. For comparison, each
// kernel also runs with merges relabelled by a scan of the whole label table.

#include "segment/segmenter.h"

#include <chrono>
#include <cstdio>
#include <random>
#include <vector>

namespace {

double seconds()
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

std::vector<quint8> belt(int size, double* coverage)
{
    std::mt19937 rng(3);
    std::uniform_real_distribution<float> u(0.0f, 1.0f);
    std::vector<quint8> picture(size_t(size) * size, 0);
    const int objects = int(double(size) * size * 1150 / (640.0 * 10000)); // as dense as the line-scan belt
    for (int n = 0; n < objects; ++n) {
        const float cx = u(rng) * size, cy = u(rng) * size;
        const float rx = 8.0f + u(rng) * 22.0f, ry = 8.0f + u(rng) * 22.0f;
        const quint8 code = quint8(1 + rng() % 3);
        for (int y = int(cy - ry); y <= int(cy + ry); ++y)
            for (int x = int(cx - rx); x <= int(cx + rx); ++x) {
                const float dx = (x - cx) / rx, dy = (y - cy) / ry;
                if (x < 0 || x >= size || y < 0 || y >= size || dx * dx + dy * dy > 1.0f)
                    continue;
                picture[size_t(y) * size + x] = u(rng) < 0.04f ? quint8(1 + rng() % 3) : code;
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

void run(const char* name, bool allForeground, bool plainRelabel, int size, int repeats,
         const std::vector<quint8>& picture)
{
    ZelkSegmenter s;
    s.setClasses({QStringLiteral("belt"), QStringLiteral("a"), QStringLiteral("b"), QStringLiteral("c")}, false);
    for (int c = 1; c <= 3; ++c)
        s.setForegroundFlag(c, 1);
    s.backgroundDecName = QStringLiteral("belt");
    s.objMask = allForeground ? 2 : 1;
    s.setPlainRelabel(plainRelabel);
    if (s.compile() != 0 || s.prepareSegmenter(false, size, 0) != 0) {
        std::printf("%s: cannot prepare: %s\n", name, qPrintable(s.lastErrorText()));
        return;
    }
    std::vector<qint32> labels(picture.size(), 0), flags(picture.size(), 0);
    int objects = 0;
    double elapsed = 0;
    for (int i = 0; i < repeats; ++i) {
        std::fill(labels.begin(), labels.end(), 0); // the caller's part, not timed
        const double start = seconds();
        const int r = allForeground
                          ? s.labelCubeForeground(picture.data(), labels.data(), flags.data(), size, size)
                          : s.labelCube(picture.data(), labels.data(), size, size);
        objects = s.objectCount();
        s.resetAfterCube();
        elapsed += seconds() - start;
        if (r != 0) {
            std::printf("%s: failed\n", name);
            return;
        }
    }
    qint32 maxLabel = 0;
    for (qint32 l : labels)
        maxLabel = std::max(maxLabel, l);
    const double perImage = elapsed / repeats;
    std::printf("%4d x %-4d %-32s %8.2f ms/image %8.1f Mpixel/s %6d objects %6d labels\n", size, size, name,
                perImage * 1e3, double(size) * size / perImage / 1e6, objects, maxLabel);
}

} // namespace

int main()
{
    for (int size : {512, 2048}) {
        double coverage = 0;
        const std::vector<quint8> picture = belt(size, &coverage);
        std::printf("%d x %d pixels, %.1f%% foreground\n", size, size, 100.0 * coverage);
        const int repeats = size == 512 ? 200 : 12;
        run("labelCube", false, false, size, repeats, picture);
        run("labelCubeForeground", true, false, size, repeats, picture);
        run("labelCube, table scan", false, true, size, repeats, picture);
        run("labelCubeForeground, table scan", true, true, size, repeats, picture);
    }
    return 0;
}
