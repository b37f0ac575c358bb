// Line-scan tracker speed: 100000 rows of 640 pixels through each of the four row
// kernels, on one core.
//
// The stream is a sorting belt: ellipses of 16 to 60 pixels across in three foreground
// classes cover about a fifth of the belt; 4% of an object's pixels are classified as
// another foreground class, and 0.3% of the belt is isolated foreground noise. The
// objects below 50 pixels (mostly noise) are rejected by size.

#include "segment/segmenter.h"
#include "noisy_belt.h"

#include <chrono>
#include <cstdio>
#include <random>
#include <vector>

namespace {

constexpr int width = 640;
constexpr int pictureRows = 10000; // fed ten times over
constexpr int streamRows = 100000;

double seconds()
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

std::vector<quint8> belt(double* coverage)
{
    return noisyBelt(width, pictureRows, 1150, coverage);
}

enum class Kernel { Decisions, Foreground, Value, Values };

void run(const char* name, Kernel kernel, int valuesPerPixel, const std::vector<quint8>& picture)
{
    ZelkSegmenter s;
    s.setClasses({QStringLiteral("belt"), QStringLiteral("a"), QStringLiteral("b"), QStringLiteral("c")}, false);
    for (int c = 1; c <= 3; ++c)
        s.setForegroundFlag(c, 1);
    s.backgroundDecName = QStringLiteral("belt");
    s.objMask = kernel == Kernel::Foreground ? 2 : 1;
    if (s.compile() != 0 || s.prepareSegmenter(true, width, valuesPerPixel) != 0) {
        std::printf("%s: cannot prepare: %s\n", name, qPrintable(s.lastErrorText()));
        return;
    }
    // Values of one row, used for every row: the kernels read them, whatever they are.
    std::vector<float> values(size_t(width) * std::max(valuesPerPixel, 1));
    for (size_t i = 0; i < values.size(); ++i)
        values[i] = float(i % 17) * 0.25f;

    long objects = 0;
    const double start = seconds();
    for (int line = 0; line < streamRows; ++line) {
        const quint8* row = picture.data() + size_t(line % pictureRows) * width;
        int r = 0;
        switch (kernel) {
        case Kernel::Decisions: r = s.trackDecisions(row); break;
        case Kernel::Foreground: r = s.trackForeground(row); break;
        case Kernel::Value: r = s.trackValue(row, values.data()); break;
        case Kernel::Values: r = s.trackValues(row, values.data()); break;
        }
        if (r != 0) {
            std::printf("%s: failed on line %d\n", name, line);
            return;
        }
        objects += s.objectCount();
    }
    const double elapsed = seconds() - start;
    std::printf("%-18s %10.0f rows/s %8.1f Mpixel/s %8ld objects reported\n", name, streamRows / elapsed,
                streamRows * double(width) / elapsed / 1e6, objects);
}

} // namespace

int main()
{
    double coverage = 0;
    const std::vector<quint8> picture = belt(&coverage);
    std::printf("%d rows of %d pixels, %.1f%% foreground\n", streamRows, width, 100.0 * coverage);
    run("trackDecisions", Kernel::Decisions, 0, picture);
    run("trackForeground", Kernel::Foreground, 0, picture);
    run("trackValue", Kernel::Value, 1, picture);
    run("trackValues (K=4)", Kernel::Values, 4, picture);
    return 0;
}
