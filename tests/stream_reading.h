#pragma once
// A stream over its own copy of the bytes, for tests that read back what a writer made.

#include <QByteArray>
#include <QDataStream>
#include <QString>

struct Reading {
    explicit Reading(const QByteArray& b) : bytes(b), in(bytes) {}
    QString nextString()
    {
        QString s;
        in >> s;
        return s;
    }
    qint32 nextInt()
    {
        qint32 v = -1;
        in >> v;
        return v;
    }
    QByteArray bytes;
    QDataStream in;
};
