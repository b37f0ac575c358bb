#pragma once
// Writes the envelope of model files: the magic "ZELK01", a flags byte and the body
// enciphered with a key-dependent XOR chain. The body is a random byte, the integrity
// record the flags ask for, and the payload (the project stream), compressed with
// qCompress when flag bit 0 is set.

#include <QByteArray>
#include <QString>

namespace modelwriter {

// The keys of the two kinds of model file. A ".zpl" file opens with either.
namespace keys {
constexpr quint64 Zelk = 0xB7F1C05E3A9D4462;
constexpr quint64 Zpl = 0x9DE35A04C1F7286B;
constexpr quint64 ZplSecond = 0xC8264FD7E05B13A9;
} // namespace keys

// Bits of the flags byte. With Checksum and Sha1Hash both set, only the checksum is
// written.
enum EnvelopeFlag : quint8 { Compressed = 1, Checksum = 2, Sha1Hash = 4 };

struct Envelope {
    quint8 flags = Compressed | Checksum;
    quint64 key = keys::Zelk;
    int firstByte = -1; // the byte at the head of the body; -1 draws a random one
};

// The envelope of `payload`.
QByteArray seal(const QByteArray& payload, const Envelope& envelope = {});

// The magic, `flags` and `body` enciphered, with `body` taken as it is: the random
// byte, a record and a payload of the caller's choosing. For envelopes that seal()
// does not make: records that do not match, a hash behind a checksum, odd flag bits.
QByteArray sealBody(quint8 flags, const QByteArray& body, quint64 key);

// The XOR chain: each enciphered byte is the plain byte XOR key byte (i mod 8), least
// significant key byte first, XOR the enciphered byte before it (0 for the first).
QByteArray encipher(QByteArray body, quint64 key);

// The kinds of model file: a binary ".zelk", or a Base64 ".zpl" with its first or
// its second key.
enum class FileKind { Zelk, Zpl, ZplSecondKey };

QString fileSuffix(FileKind kind);
// The contents of a file of that kind around `payload`.
QByteArray fileContents(FileKind kind, const QByteArray& payload, quint8 flags = Compressed | Checksum);
bool writeFile(const QString& path, const QByteArray& contents);

} // namespace modelwriter
