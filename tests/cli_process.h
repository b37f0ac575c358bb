#pragma once
// The command-line program run as a child process, and the CSV files it writes.

#include <QFile>
#include <QMap>
#include <QProcess>
#include <QStringList>
#include <QTextStream>
#include <vector>

namespace cliprocess {

struct Outcome {
    int status = -1; // -1 when the program did not exit normally
    QString out, err;
};

inline Outcome zelk(const QStringList& args)
{
    QProcess p;
    p.start(QStringLiteral(ZELK_CLI), args);
    p.waitForFinished(600000);
    Outcome o;
    o.status = p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1;
    o.out = QString::fromLocal8Bit(p.readAllStandardOutput());
    o.err = QString::fromLocal8Bit(p.readAllStandardError());
    return o;
}

// Rows of a CSV file without quoted fields, by column name.
inline std::vector<QMap<QString, QString>> readCsv(const QString& path)
{
    QFile file(path);
    std::vector<QMap<QString, QString>> rows;
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text))
        return rows;
    QTextStream in(&file);
    const QStringList header = in.readLine().split(QLatin1Char(','));
    while (!in.atEnd()) {
        const QStringList fields = in.readLine().split(QLatin1Char(','));
        QMap<QString, QString> row;
        for (int i = 0; i < header.size() && i < fields.size(); ++i)
            row[header[i]] = fields[i];
        rows.push_back(row);
    }
    return rows;
}

} // namespace cliprocess
