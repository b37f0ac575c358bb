// zelk: the library's command-line program.

#include "cli.h"

#include <QtGlobal>
#include <cstdio>
#include <cstring>

namespace {

struct Command {
    const char* name;
    const char* summary;
    const char* help; // usage and options
};

const Command Commands[] = {
    {"info", "describe a model file", "zelk info MODEL\n"
                                      "  the model's camera, input form, wavelengths, decisions, classifier, segmenter\n"
                                      "  and regression variables\n"},
    {"run", "classify an ENVI recording with a model",
     "zelk run MODEL CUBE [--white W.hdr --dark D.hdr] [--out DIR] [options]\n"
     "  CUBE is the ENVI header (.hdr) or its data file. A line-scan model gets the cube\n"
     "  line by line, a snapshot model whole. Writes into DIR (default .):\n"
     "    CUBE_decisions.png   label map: each pixel's decision code, palette and names\n"
     "                         in the PNG (text chunk \"decisions\"); 255 is no data\n"
     "    CUBE_overview.png    the decisions with object boxes and a legend, to look at\n"
     "    CUBE_objects.csv     one row per object; CUBE_objects.json the same and more\n"
     "    CUBE_regression.hdr  regression outputs per pixel (ENVI float), if the model has them\n"
     "  Ctrl-C stops at the next line and writes the outputs for the lines done (exit 130).\n"
     "options:\n"
     "  --white W.hdr --dark D.hdr  references of the recording: each pixel becomes\n"
     "                         reflectance (x - dark) / (white - dark); without them the\n"
     "                         model takes the cube as reflectance\n"
     "  --out DIR              the output directory\n"
     "  --device N             compute device N of 'zelk devices'\n"
     "  --min-size N           the smallest object in pixels (default: the model's)\n"
     "  --ignore-wavelengths   run a cube whose wavelengths differ from the model's\n"
     "  --ignore-value-range   run a cube whose values cannot be reflectance without references\n"
     "  --verbose              also print the library's diagnostics\n"},
    {"devices", "list the compute devices", "zelk devices\n  the compute devices, by the index --device takes\n"},
    {"bench", "frames (or cubes) per second of a model", "zelk bench MODEL [--frames N] [--device N] [--width N]\n"
                                                         "  frames (or cubes) per second on synthetic input\n"},
    {"version", "print the library version", "zelk version\n  the same as zelk --version\n"},
    {"help", "help on a command", "zelk help [COMMAND]\n"},
};

const Command* find(const char* name)
{
    for (const Command& c : Commands)
        if (!std::strcmp(c.name, name))
            return &c;
    return nullptr;
}

void overview(FILE* to)
{
    std::fprintf(to, "usage: zelk COMMAND [ARGS]   (zelk help COMMAND, or zelk COMMAND --help, for more)\n");
    for (const Command& c : Commands)
        std::fprintf(to, "  %-10s %s\n", c.name, c.summary);
    std::fprintf(to, "  --version  print the library version; --verbose with any command shows the library's diagnostics\n");
}

int help(const char* name)
{
    if (!name) {
        overview(stdout);
        return 0;
    }
    const Command* c = find(name);
    if (!c) {
        std::fprintf(stderr, "zelk help: there is no command '%s'\n", name);
        overview(stderr);
        return cli::BadUsage;
    }
    std::printf("usage: %s", c->help);
    return 0;
}

// The library's debug and info lines are for its developers; without --verbose only
// warnings and worse reach standard error.
bool verbose = false;

void messages(QtMsgType type, const QMessageLogContext&, const QString& text)
{
    if (verbose || (type != QtDebugMsg && type != QtInfoMsg))
        std::fprintf(stderr, "%s\n", qPrintable(text));
}

} // namespace

int main(int argc, char** argv)
{
    // --verbose may stand anywhere; it is taken out before the command sees its arguments.
    int kept = 1;
    for (int i = 1; i < argc; ++i) {
        if (!std::strcmp(argv[i], "--verbose"))
            verbose = true;
        else
            argv[kept++] = argv[i];
    }
    argc = kept;
    argv[argc] = nullptr;
    qInstallMessageHandler(messages);

    if (argc < 2) {
        overview(stderr);
        return cli::BadUsage;
    }
    const char* command = argv[1];
    if (!std::strcmp(command, "--help") || !std::strcmp(command, "-h"))
        return help(nullptr);
    if (!std::strcmp(command, "help"))
        return help(argc > 2 ? argv[2] : nullptr);
    if (!std::strcmp(command, "version") || !std::strcmp(command, "--version")) {
        std::printf("zelk %s\n", zelk_GetVersion());
        return 0;
    }
    if (!find(command)) {
        std::fprintf(stderr, "zelk: there is no command '%s'\n", command);
        overview(stderr);
        return cli::BadUsage;
    }
    for (int i = 2; i < argc; ++i)
        if (!std::strcmp(argv[i], "--help") || !std::strcmp(argv[i], "-h"))
            return help(command);
    if (!std::strcmp(command, "devices"))
        return cli::devices();
    if (!std::strcmp(command, "info"))
        return cli::info(argc, argv);
    if (!std::strcmp(command, "run"))
        return cli::run(argc, argv);
    return cli::bench(argc, argv);
}
