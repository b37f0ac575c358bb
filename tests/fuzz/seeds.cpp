// Writes a seed corpus for the model loader: whole projects of every revision as bare
// streams and in both envelopes, each behind the byte that picks its form.
//   fuzz_seeds DIRECTORY

#include "model_files.h"

#include <QDir>
#include <QFile>
#include <cstdio>

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: fuzz_seeds DIRECTORY\n");
        return 2;
    }
    const QDir dir(QString::fromLocal8Bit(argv[1]));
    dir.mkpath(QStringLiteral("."));
    int written = 0;
    auto put = [&](char form, const QByteArray& bytes) {
        QFile f(dir.filePath(QStringLiteral("seed-%1").arg(written++)));
        f.open(QIODevice::WriteOnly);
        f.write(QByteArray(1, form) + bytes);
    };
    for (int revision = 1; revision <= 17; ++revision) {
        modelwriter::Project p = modelfiles::lineScanProject(4);
        p.revision = revision;
        const QByteArray stream = modelwriter::projectBytes(p);
        put(0, stream);
        if (revision % 4 == 1) {
            put(1, modelwriter::fileContents(modelwriter::FileKind::Zelk, stream));
            put(2, modelwriter::fileContents(modelwriter::FileKind::ZplSecondKey, stream));
        }
    }
    std::printf("%d seeds in %s\n", written, argv[1]);
    return 0;
}
