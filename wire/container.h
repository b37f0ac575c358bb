#pragma once
// The cipher envelope of a model file: the magic "ZELK01", a flags byte and a body
// scrambled by a key-dependent XOR chain. Deciphering checks the magic, undoes the
// chain, drops the random first byte, checks the integrity record the flags ask for
// and inflates the payload when it is compressed. The result is the project stream.
//
// Body after deciphering: one random byte; then a 16-bit checksum (flag bit 1) or a
// 20-byte SHA-1 hash (flag bit 2 without bit 1); then the payload, compressed in the
// form of qCompress when flag bit 0 is set. The record covers the payload as stored.

#include <QByteArray>
#include <QObject>
#include <QString>

class ZelkContainer : public QObject {
    Q_OBJECT
public:
    // Values of lastError. 3 is not assigned.
    enum Error { NoError = 0, NoKey = 1, BadMagic = 2, IntegrityFailed = 4 };
    // Bits of the flags byte; other bits are ignored.
    enum Flag { Compressed = 1, Checksum = 2, Sha1Hash = 4 };

    // Splits the key into keyBytes, least significant byte first, and seeds Qt's
    // global pseudo-random generator from the clock (the random class colours of a
    // project draw from it, so they differ from load to load).
    explicit ZelkContainer(quint64 key, QObject* parent = nullptr);

    // The plain payload, or an empty array on failure. Sets lastError, except for an
    // input of fewer than 3 bytes, which leaves it as it was. A payload whose
    // decompression fails comes back empty with lastError 0.
    QByteArray decrypt(QByteArray data);

    quint64 key;
    QByteArray keyBytes;     // 8 bytes; an empty array means that no key is set
    int compressionMode = 0; // writer's options: kept, never read when deciphering
    int protectionMode = 1;
    int lastError = NoError;

Q_SIGNALS:
    void progressChanged(QString text, int value);

public Q_SLOTS:
    void setProgress(QString text, int value);
};
