// zelk: the library's command-line program.

#include "cli.h"

#include <cstdio>
#include <cstring>

namespace {

int usage()
{
    std::fprintf(stderr,
                 "usage: zelk COMMAND ...\n"
                 "  version                print the library version\n"
                 "  devices                list the compute devices\n"
                 "  info MODEL             describe a model file\n"
                 "  run MODEL CUBE.hdr [--white W.hdr --dark D.hdr] [--out DIR] [--device N] [--min-size N]\n"
                 "                         classify an ENVI cube: line by line for a line-scan model, whole\n"
                 "                         for a snapshot model; writes CUBE_decisions.png, CUBE_objects.csv\n"
                 "                         and .json, and CUBE_regression.hdr/.bin into DIR (default .)\n"
                 "  bench MODEL [--frames N] [--device N] [--width N]\n"
                 "                         frames (or cubes) per second on synthetic input\n");
    return cli::BadUsage;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 2)
        return usage();
    const char* command = argv[1];
    if (!std::strcmp(command, "version")) {
        std::printf("%s\n", zelk_GetVersion());
        return 0;
    }
    if (!std::strcmp(command, "devices"))
        return cli::devices();
    if (!std::strcmp(command, "info"))
        return cli::info(argc, argv);
    if (!std::strcmp(command, "run"))
        return cli::run(argc, argv);
    if (!std::strcmp(command, "bench"))
        return cli::bench(argc, argv);
    return usage();
}
