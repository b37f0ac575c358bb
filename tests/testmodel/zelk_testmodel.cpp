// Writes the small model files that callers in other languages test against: the
// line-scan project of the C interface's tests (frames of 8 pixels and 4 bands; band 1
// near 10 is "leaf", near 0 "bg", and leaf pixels form objects), or the same project as
// a snapshot camera of type 3 (float cubes of 8 x 100 pixels, pixel after pixel).
//
//   zelk_testmodel [--snapshot | --references] [--all-foreground] OUT.zelk|OUT.zpl
//
// --all-foreground makes objects of all foreground decisions together, which gives the
// records their counts per decision. --references makes it a line-scan camera of type
// 10, which takes white and dark references (whiteReference, darkReference).

#include "model_files.h"

#include <QCoreApplication>
#include <QStringList>
#include <cstdio>

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QStringList args = app.arguments().mid(1);
    const bool snapshot = args.removeAll(QStringLiteral("--snapshot")) > 0;
    const bool allForeground = args.removeAll(QStringLiteral("--all-foreground")) > 0;
    const bool references = args.removeAll(QStringLiteral("--references")) > 0;
    if (args.size() != 1 || args.first().startsWith(QLatin1Char('-')) || (snapshot && references)) {
        std::fprintf(stderr, "usage: zelk_testmodel [--snapshot | --references] [--all-foreground] OUT.zelk|OUT.zpl\n");
        return 2;
    }
    const QString path = args.first();

    modelwriter::Project p = modelfiles::lineScanProject();
    if (snapshot)
        p.type = 3;
    if (references)
        p.type = 10;
    p.segmenter = modelfiles::segmenterBytes(modelfiles::leafObjects(allForeground ? 2 : 1));

    // The library picks the key by the file's suffix.
    const auto kind = path.endsWith(QLatin1String(".zpl")) ? modelwriter::FileKind::Zpl : modelwriter::FileKind::Zelk;
    if (!modelwriter::writeFile(path, modelwriter::fileContents(kind, modelwriter::projectBytes(p)))) {
        std::fprintf(stderr, "zelk_testmodel: cannot write %s\n", qPrintable(path));
        return 1;
    }
    return 0;
}
