#pragma once
// What the commands of the command-line program share: a handle that is released on
// every path, the library's report of a failed call, and the parsing of arguments.

#include "spectral/camera_kinds.h"
#include "zelk.h"

#include <QMap>
#include <QString>
#include <QStringList>

namespace cli {

// Exit statuses: a failure of the work, and a command line that does not parse.
constexpr int Failed = 1;
constexpr int BadUsage = 2;

class Session {
public:
    Session() : h(zelk_Init(nullptr)) {}
    ~Session() { zelk_Release(h); }
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    // The library's text and code for a call that returned `code`. A call that
    // returned a code without keeping a text shows the code alone.
    QString failure(int code) const;
    // Chooses device `index` of the full list (GPU families included); false after a
    // report on stderr.
    bool chooseDevice(const char* command, int index);
    // Loads the model and notes its kind; false after a report on stderr.
    bool loadModel(const char* command, const QString& path);

    ZelkHandle* const h;
    bool snapshot = false; // the model takes whole cubes, not lines
};

// Print "zelk COMMAND: TEXT" on stderr; fail() returns Failed, refuse() false.
int fail(const char* command, const QString& text);
bool refuse(const char* command, const QString& text);

// Positional arguments, "--name value" or "--name=value" options and "--name" flags of
// one command.
struct Arguments {
    QStringList positional;
    QMap<QString, QString> options; // flags map to an empty value

    // Splits argv[first..] into positional arguments, the options named in `known` and
    // the flags named in `flags`; false after a report on stderr.
    bool parse(const char* command, int argc, char** argv, int first, const QStringList& known, const QStringList& flags = {});
    // The option as a whole number from `low` to `high`, or `fallback` when it is not
    // given; false after a report on stderr.
    bool number(const char* command, const QString& name, int low, int high, int fallback, int* out) const;
};

// Decision names and colours of the loaded model, read once: the name calls share the
// handle's text buffer with everything else.
struct Decisions {
    QStringList names;
    QVector<unsigned> colours; // 0xRRGGBB
    bool read(ZelkHandle* h);
    QString name(int code) const;
};

// Whether models of this camera correct raw counts with white and dark references
// (they take reflectance without them).
inline bool takesReferences(int projectType, int acqType)
{
    const CameraKind& kind = cameraKind(projectType, acqType);
    return kind.input != InputType::UInt16 && kind.correctedInput == InputType::UInt16;
}

// The commands; each returns the program's exit status.
int info(int argc, char** argv);
int run(int argc, char** argv);
int bench(int argc, char** argv);
int devices();

} // namespace cli
