// The shared library exports exactly the functions that the public header declares.

#include <QFile>
#include <QProcess>
#include <QRegularExpression>
#include <QSet>
#include <gtest/gtest.h>

namespace {

QSet<QString> declaredFunctions()
{
    QFile header(QStringLiteral(ZELK_PUBLIC_HEADER));
    if (!header.open(QIODevice::ReadOnly))
        return {};
    const QString text = QString::fromUtf8(header.readAll());
    QSet<QString> names;
    auto it = QRegularExpression(QStringLiteral("ZELK_API[^;(]*\\b(zelk_\\w+)\\s*\\(")).globalMatch(text);
    while (it.hasNext())
        names.insert(it.next().captured(1));
    return names;
}

QSet<QString> exportedSymbols()
{
    QProcess nm;
    nm.start(QStringLiteral("nm"), {QStringLiteral("-D"), QStringLiteral("--defined-only"), QStringLiteral(ZELK_SHARED_LIBRARY)});
    if (!nm.waitForFinished() || nm.exitCode() != 0)
        return {};
    QSet<QString> names;
    for (const QString& line : QString::fromLatin1(nm.readAllStandardOutput()).split(QLatin1Char('\n'), Qt::SkipEmptyParts)) {
        const QStringList parts = line.split(QLatin1Char(' '), Qt::SkipEmptyParts);
        if (parts.size() == 3)
            names.insert(parts[2]);
    }
    return names;
}

} // namespace

TEST(Exports, SharedLibraryExportsExactlyTheDeclaredFunctions)
{
    const QSet<QString> declared = declaredFunctions();
    const QSet<QString> exported = exportedSymbols();
    ASSERT_GE(declared.size(), 9);
    ASSERT_FALSE(exported.isEmpty()) << "nm found no symbols in " << ZELK_SHARED_LIBRARY;
    for (const QString& name : exported)
        EXPECT_TRUE(declared.contains(name)) << "exported but not declared: " << name.toStdString();
    for (const QString& name : declared)
        EXPECT_TRUE(exported.contains(name)) << "declared but not exported: " << name.toStdString();
}
