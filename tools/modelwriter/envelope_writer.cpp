#include "modelwriter/envelope_writer.h"

#include <QCryptographicHash>
#include <QFile>
#include <QRandomGenerator>

namespace modelwriter {

QByteArray encipher(QByteArray body, quint64 key)
{
    char previous = 0;
    for (int i = 0; i < body.size(); ++i) {
        const char keyByte = char(key >> (8 * (i % 8)));
        body[i] = char(body[i] ^ keyByte ^ previous);
        previous = body[i];
    }
    return body;
}

QByteArray sealBody(quint8 flags, const QByteArray& body, quint64 key)
{
    QByteArray out("ZELK01");
    out.append(char(flags));
    out.append(encipher(body, key));
    return out;
}

QByteArray seal(const QByteArray& payload, const Envelope& envelope)
{
    const QByteArray stored = (envelope.flags & Compressed) ? qCompress(payload) : payload;
    const int first = envelope.firstByte >= 0 ? envelope.firstByte : int(QRandomGenerator::global()->bounded(256));
    QByteArray body(1, char(first));
    if (envelope.flags & Checksum) {
        const quint16 sum = qChecksum(stored.constData(), uint(stored.size()));
        body.append(char(sum >> 8));
        body.append(char(sum & 0xFF));
    } else if (envelope.flags & Sha1Hash) {
        body.append(QCryptographicHash::hash(stored, QCryptographicHash::Sha1));
    }
    body.append(stored);
    return sealBody(envelope.flags, body, envelope.key);
}

QString fileSuffix(FileKind kind)
{
    return kind == FileKind::Zelk ? QStringLiteral("zelk") : QStringLiteral("zpl");
}

QByteArray fileContents(FileKind kind, const QByteArray& payload, quint8 flags)
{
    switch (kind) {
    case FileKind::Zelk: return seal(payload, {flags, keys::Zelk});
    case FileKind::Zpl: return seal(payload, {flags, keys::Zpl}).toBase64();
    case FileKind::ZplSecondKey: return seal(payload, {flags, keys::ZplSecond}).toBase64();
    }
    return {};
}

bool writeFile(const QString& path, const QByteArray& contents)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly | QIODevice::Truncate) && file.write(contents) == contents.size();
}

} // namespace modelwriter
