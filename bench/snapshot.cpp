// Whole-image labelling speed: images of 512 x 512 and 2048 x 2048 decisions through
// labelCube and labelCubeForeground, with resetAfterCube after each, on one core.
//
// The images are a sorting belt seen from above: ellipses of 16 to 60 pixels across in
// three foreground classes cover about a fifth of the image; 4% of an object's pixels
// are classified as another foreground class, and 0.3% of the belt is isolated
// foreground noise. Objects below 50 pixels are rejected by size. For comparison, each
// kernel also runs with merges relabelled by a scan of the whole label table.

#include "segment/segmenter.h"
#include "noisy_belt.h"

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
    return noisyBelt(size, size, int(double(size) * size * 1150 / (640.0 * 10000)), coverage); // as dense as the line-scan belt
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
