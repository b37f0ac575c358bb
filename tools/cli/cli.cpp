#include "cli.h"

#include <cstdio>

namespace cli {

int fail(const char* command, const QString& text)
{
    std::fprintf(stderr, "zelk %s: %s\n", command, qPrintable(text));
    return Failed;
}

bool refuse(const char* command, const QString& text)
{
    fail(command, text);
    return false;
}

QString Session::failure(int code) const
{
    const char* text = zelk_GetErrorMsg(h);
    const QString message = text ? QString::fromLocal8Bit(text) : QString();
    // A call may return its code without keeping a text, or keep one of an earlier call.
    if (message.isEmpty() || zelk_GetErrorCode(h) != code)
        return QStringLiteral("the library returned %1").arg(code);
    return QStringLiteral("%1 (%2)").arg(message).arg(code);
}

bool Session::chooseDevice(const char* command, int index)
{
    if (!h)
        return refuse(command, QStringLiteral("no handle: %1").arg(QString::fromLocal8Bit(zelk_GetErrorMsg(nullptr))));
    if (index < 0)
        return true;
    if (const int r = zelk_RefreshDeviceList(h, 1, 1); r < 0)
        return refuse(command, QStringLiteral("cannot list the devices: %1").arg(failure(r)));
    if (const int r = zelk_SetDevice(h, index); r < 0)
        return refuse(command, QStringLiteral("cannot use device %1: %2").arg(index).arg(failure(r)));
    return true;
}

bool Session::loadModel(const char* command, const QString& path)
{
    if (!h)
        return refuse(command, QStringLiteral("no handle: %1").arg(QString::fromLocal8Bit(zelk_GetErrorMsg(nullptr))));
    const int r = zelk_LoadModel(h, path.toLatin1().constData());
    if (r == 0) {
        // The load's own line in the handle names the kind: "... (snapshot API)".
        snapshot = QString::fromLocal8Bit(zelk_GetErrorMsg(h)).endsWith(QLatin1String("(snapshot API)"));
        return true;
    }
    if (r == -1)
        return refuse(command, QStringLiteral("%1 is not a usable model: it holds no image to take the input geometry from, or its "
                                     "integrity check failed (-1)").arg(path));
    return refuse(command, QStringLiteral("cannot load the model %1: %2").arg(path, failure(r)));
}

bool Arguments::parse(const char* command, int argc, char** argv, int first, const QStringList& known, const QStringList& flags)
{
    for (int i = first; i < argc; ++i) {
        const QString word = QString::fromLocal8Bit(argv[i]);
        if (!word.startsWith(QLatin1String("--"))) {
            positional << word;
            continue;
        }
        const int equals = word.indexOf(QLatin1Char('='));
        const QString name = word.mid(2, equals < 0 ? -1 : equals - 2);
        if (flags.contains(name)) {
            if (equals >= 0)
                return refuse(command, QStringLiteral("--%1 takes no value").arg(name));
            options[name] = QString();
            continue;
        }
        if (!known.contains(name)) {
            return refuse(command, QStringLiteral("unknown option --%1 (zelk help %2 lists them)").arg(name, QLatin1String(command)));
        }
        if (equals >= 0) {
            options[name] = word.mid(equals + 1);
            continue;
        }
        if (i + 1 >= argc) {
            return refuse(command, QStringLiteral("%1 needs a value").arg(word));
        }
        options[name] = QString::fromLocal8Bit(argv[++i]);
    }
    return true;
}

bool Arguments::number(const char* command, const QString& name, int low, int high, int fallback, int* out) const
{
    if (!options.contains(name)) {
        *out = fallback;
        return true;
    }
    bool ok = false;
    const int value = options[name].toInt(&ok);
    if (!ok || value < low || value > high) {
        return refuse(command, QStringLiteral("--%1 takes a whole number from %2 to %3, not '%4'")
                                   .arg(name).arg(low).arg(high).arg(options[name]));
    }
    *out = value;
    return true;
}

bool Decisions::read(ZelkHandle* h)
{
    const int count = zelk_GetDecCount(h);
    if (count < 0)
        return false;
    for (int i = 0; i < count; ++i) {
        const char* name = zelk_GetDecName(h, i);
        names << (name ? QString::fromLocal8Bit(name) : QStringLiteral("decision %1").arg(i));
        unsigned char r = 0, g = 0, b = 0;
        zelk_GetDecColor(h, i, &r, &g, &b);
        colours << (unsigned(r) << 16 | unsigned(g) << 8 | b);
    }
    return true;
}

QString Decisions::name(int code) const
{
    return code >= 0 && code < names.size() ? names[code] : QStringLiteral("decision %1").arg(code);
}

int devices()
{
    Session s;
    if (!s.h)
        return fail("devices", QStringLiteral("no handle: %1").arg(QString::fromLocal8Bit(zelk_GetErrorMsg(nullptr))));
    int status = 0;
    if (const int r = zelk_RefreshDeviceList(s.h, 1, 1); r < 0)
        status = fail("devices", QStringLiteral("the list may be incomplete: %1").arg(s.failure(r)));
    const int count = zelk_GetDeviceCount(s.h);
    for (int i = 0; i < count; ++i)
        std::printf("%d  %s\n", i, zelk_GetDeviceName(s.h, i));
    return status;
}

} // namespace cli
