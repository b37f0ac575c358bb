// zelk-scene: writes the synthetic belt scene, its references, its ground truth and a
// model trained for it into a directory.

#include "scene/scene.h"

#include <QElapsedTimer>
#include <QMap>
#include <cstdio>
#include <cstring>
#include <cstdlib>

namespace {

int usage()
{
    std::fprintf(stderr,
                 "usage: zelk-scene DIR [--width N] [--lines N] [--bands N] [--objects N] [--seed N]\n"
                 "  writes scene.hdr/.bin, whiteReference and darkReference (ENVI, uint16, BIL),\n"
                 "  truth.csv and model.zelk into DIR\n");
    return 2;
}

bool number(const char* text, int low, int high, int* out)
{
    char* end = nullptr;
    const long v = std::strtol(text, &end, 10);
    if (!*text || *end || v < low || v > high)
        return false;
    *out = int(v);
    return true;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 2 || argv[1][0] == '-')
        return usage();
    scene::Options options;
    int seed = int(options.seed);
    struct Flag {
        const char* name;
        int* value;
        int low, high;
    };
    const Flag flags[] = {{"--width", &options.width, 16, 8192},   {"--lines", &options.lines, 100, 1000000},
                          {"--bands", &options.bands, 16, 1024},   {"--objects", &options.objects, 0, 100000},
                          {"--seed", &seed, 0, 2147483647}};
    for (int i = 2; i < argc; ++i) {
        const Flag* flag = nullptr;
        for (const Flag& f : flags)
            if (!std::strcmp(argv[i], f.name))
                flag = &f;
        if (!flag || i + 1 >= argc)
            return usage();
        if (!number(argv[++i], flag->low, flag->high, flag->value)) {
            std::fprintf(stderr, "zelk-scene: %s takes a whole number from %d to %d, not '%s'\n", flag->name, flag->low,
                         flag->high, argv[i]);
            return 2;
        }
    }
    options.seed = quint32(seed);

    QElapsedTimer timer;
    timer.start();
    const scene::Scene s(options);
    QString error;
    if (!s.write(QString::fromLocal8Bit(argv[1]), &error)) {
        std::fprintf(stderr, "zelk-scene: %s\n", qPrintable(error));
        return 1;
    }
    QMap<QString, int> perMaterial;
    for (const scene::SceneObject& o : s.objects())
        ++perMaterial[s.materials()[o.material].name];
    QStringList counts;
    for (auto it = perMaterial.cbegin(); it != perMaterial.cend(); ++it)
        counts << QStringLiteral("%1 %2").arg(it.value()).arg(it.key());
    std::printf("scene: %d px x %d lines x %d bands, %d objects (%s), written to %s in %.1f s\n", options.width,
                options.lines, options.bands, int(s.objects().size()), qPrintable(counts.join(QStringLiteral(", "))), argv[1],
                double(timer.elapsed()) / 1000.0);
    return 0;
}
