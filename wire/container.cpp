#include "wire/container.h"

#include <QCryptographicHash>
#include <QDateTime>
#include <QtEndian>
#include <QtGlobal>

namespace {

const char Magic[] = "ZELK01";
constexpr int MagicSize = 6;
constexpr int HeadSize = MagicSize + 1; // magic and flags
constexpr int ChecksumSize = 2;
constexpr int HashSize = 20;

// zlib cannot expand a deflate stream by more than 1032 to 1.
constexpr qint64 MaxInflateRatio = 1032;

// qUncompress reserves the size named by the 4-byte big-endian prefix before it
// inflates anything. A prefix larger than the stream behind it can expand to was not
// written by qCompress; it is refused like corrupt data, so that a forged prefix cannot
// reserve up to 2 GiB. Every other payload goes to qUncompress unchanged.
QByteArray inflate(const QByteArray& payload)
{
    if (payload.size() > 4) {
        const quint32 expected = qFromBigEndian<quint32>(payload.constData());
        if (qint64(expected) > qint64(payload.size() - 4) * MaxInflateRatio)
            return {};
    }
    return qUncompress(payload);
}

} // namespace

ZelkContainer::ZelkContainer(quint64 key, QObject* parent) : QObject(parent), key(key)
{
    keyBytes.resize(8);
    for (int j = 0; j < 8; ++j)
        keyBytes[j] = char((key >> (8 * j)) & 0xFF);
    // The seed is a global effect of every load; the random colours of a project draw
    // from the same generator.
    QT_WARNING_PUSH
    QT_WARNING_DISABLE_DEPRECATED
    qsrand(uint(QDateTime::currentMSecsSinceEpoch() & 0xFFFF));
    QT_WARNING_POP
}

void ZelkContainer::setProgress(QString text, int value)
{
    Q_EMIT progressChanged(text, value);
}

QByteArray ZelkContainer::decrypt(QByteArray data)
{
    if (keyBytes.isEmpty()) {
        qWarning("No key set.");
        lastError = NoKey;
        return {};
    }
    // Too short to say anything; the caller's stream reader rejects the empty result.
    if (data.size() < 3)
        return {};
    // An input shorter than the magic fails where its bytes run out.
    for (int i = 0; i < MagicSize; ++i) {
        if (i >= data.size() || data.at(i) != Magic[i]) {
            lastError = BadMagic;
            return {};
        }
    }
    const quint8 flags = data.size() > MagicSize ? quint8(data.at(MagicSize)) : 0;
    data.remove(0, HeadSize);

    // Each plain byte is the enciphered byte XOR a key byte XOR the enciphered byte
    // before it, so a damaged byte spoils two plain bytes and no more. The key index
    // counts from the random byte at the head of the body.
    char* bytes = data.data();
    const char* k = keyBytes.constData();
    const int keySize = keyBytes.size();
    char prev = 0;
    for (int i = 0; i < data.size(); ++i) {
        const char c = bytes[i];
        bytes[i] = char(c ^ k[i % keySize] ^ prev);
        prev = c;
    }
    data.remove(0, 1); // the random byte

    // The checksum wins when both integrity bits are set; the hash bytes then stay at
    // the head of the payload.
    if (flags & Checksum) {
        if (data.size() < ChecksumSize) {
            lastError = IntegrityFailed;
            return {};
        }
        const quint16 stored = qFromBigEndian<quint16>(data.constData());
        data.remove(0, ChecksumSize);
        if (qChecksum(data.constData(), uint(data.size())) != stored) {
            lastError = IntegrityFailed;
            return {};
        }
    } else if (flags & Sha1Hash) {
        if (data.size() < HashSize) {
            lastError = IntegrityFailed;
            return {};
        }
        const QByteArray stored = data.left(HashSize);
        data.remove(0, HashSize);
        const QByteArray digest = QCryptographicHash::hash(data, QCryptographicHash::Sha1);
        if (digest.size() != stored.size() || digest != stored) {
            lastError = IntegrityFailed;
            return {};
        }
    }

    if (flags & Compressed)
        data = inflate(data);
    lastError = NoError;
    return data;
}
