// zelk bench: frames (or cubes) per second of a model on synthetic input of the form the
// model takes, timed inside the processing calls after a warm-up.

#include "cli.h"

#include <QElapsedTimer>
#include <cstdio>
#include <random>
#include <vector>

namespace cli {
namespace {

constexpr const char* Command = "bench";
constexpr int Variants = 8; // distinct inputs, handed in by turns

} // namespace

int bench(int argc, char** argv)
{
    Arguments args;
    int count = 0, device = -1, width = 0;
    if (!args.parse(Command, argc, argv, 2, {"frames", "device", "width"}) ||
        !args.number(Command, QStringLiteral("frames"), 1, 100000000, 0, &count) ||
        !args.number(Command, QStringLiteral("device"), 0, 1000, -1, &device) ||
        !args.number(Command, QStringLiteral("width"), 1, 1 << 20, 0, &width))
        return BadUsage;
    if (args.positional.size() != 1) {
        fail(Command, QStringLiteral("needs one model: zelk bench MODEL [--frames N] [--device N] [--width N]"));
        return BadUsage;
    }
    Session s;
    if (!s.chooseDevice(Command, device) || !s.loadModel(Command, args.positional[0]))
        return Failed;
    const bool snapshot = s.snapshot;
    if (width > 0 && !snapshot)
        if (const int r = zelk_SetInputWidth(s.h, width); r < 0)
            return fail(Command, QStringLiteral("cannot set the frame width: %1").arg(s.failure(r)));
    if (zelk_GetMaskType(s.h) > 0)
        zelk_SetSegmentation(s.h, 1); // objects are part of the work when the model has them

    const int w = zelk_GetInputWidth(s.h), h = zelk_GetInputHeight(s.h), bands = zelk_GetInputBands(s.h);
    const int layout = zelk_GetInputDataLayout(s.h);
    int type = zelk_GetInputDataType(s.h);
    if (layout == 3)
        type = 1; // band-sequential cubes are 16-bit counts
    if (type < 0 || layout < 0)
        return fail(Command, QStringLiteral("the model states no input form: %1").arg(s.failure(type < 0 ? type : layout)));
    if (w < 1 || h < 1 || bands < 1)
        return fail(Command, QStringLiteral("the model states no input geometry"));
    if (count == 0)
        count = snapshot ? 20 : 5000;
    const int warmup = snapshot ? 2 : 200;

    // Counts or reflectances spread over a plausible range.
    const size_t values = size_t(w) * size_t(h) * size_t(bands);
    std::mt19937 random(1);
    std::vector<std::vector<quint16>> counts(type == 1 ? Variants : 0, std::vector<quint16>(values));
    std::vector<std::vector<float>> floats(type == 2 ? Variants : 0, std::vector<float>(values));
    for (auto& v : counts)
        for (quint16& x : v)
            x = quint16(std::uniform_int_distribution<int>(1000, 30000)(random));
    for (auto& v : floats)
        for (float& x : v)
            x = std::uniform_real_distribution<float>(0.0f, 1.0f)(random);
    auto input = [&](int i) -> const void* {
        return type == 1 ? static_cast<const void*>(counts[size_t(i % Variants)].data()) : floats[size_t(i % Variants)].data();
    };

    if (const int r = zelk_StartAcquisition(s.h); r < 0)
        return fail(Command, QStringLiteral("cannot start: %1").arg(s.failure(r)));
    QElapsedTimer timer;
    qint64 nanoseconds = 0;
    for (int i = 0; i < warmup + count; ++i) {
        timer.start();
        const int r = snapshot ? zelk_ProcessCube(s.h, input(i)) : zelk_ProcessFrame(s.h, input(i));
        if (i >= warmup)
            nanoseconds += timer.nsecsElapsed();
        if (r < 0 && r != -160) {
            const QString why = s.failure(r);
            zelk_StopAcquisition(s.h);
            return fail(Command, QStringLiteral("%1 %2 was refused: %3").arg(snapshot ? "cube" : "frame").arg(i).arg(why));
        }
    }
    zelk_StopAcquisition(s.h);
    const double seconds = std::max(double(nanoseconds) * 1e-9, 1e-9);
    int chosen = device < 0 ? 0 : device;
    const char* name = zelk_GetDeviceName(s.h, chosen);
    std::printf("%s, %d x %d pixels x %d bands, %s %s, on %s\n", snapshot ? "snapshot" : "line-scan", w, h, bands,
                type == 1 ? "uint16" : "float", layout == 1 ? "BIP" : layout == 2 ? "BIL" : "BSQ", name ? name : "?");
    std::printf("%.0f %s/s (%.2f Mpixel/s) over %d %s after %d of warm-up\n", count / seconds, snapshot ? "cubes" : "frames",
                double(count) * w * h / seconds / 1e6, count, snapshot ? "cubes" : "frames", warmup);
    return 0;
}

} // namespace cli
