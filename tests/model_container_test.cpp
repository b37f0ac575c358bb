// The model envelope: round trips from the writer, the cipher's byte-level rules, the
// odd inputs, and damaged envelopes.

#include "wire/container.h"
#include "wire/model_keys.h"
#include "modelwriter/envelope_writer.h"

#include <QCryptographicHash>
#include <QSignalSpy>
#include <gtest/gtest.h>

using modelwriter::FileKind;
namespace keys = modelwriter::keys;

namespace {

// A payload that compresses.
const QByteArray Payload = QByteArray("ZELK13 a project stream; ").repeated(40);

struct Opened {
    QByteArray payload;
    int lastError;
};

Opened open(const QByteArray& bytes, quint64 key)
{
    ZelkContainer c(key);
    const QByteArray payload = c.decrypt(bytes);
    return {payload, c.lastError};
}

QByteArray magic(quint8 flags)
{
    return QByteArray("ZELK01") + char(flags);
}

// Collects Qt's messages while it lives; corrupt zlib data makes qUncompress warn.
QStringList messages;
struct Quiet {
    Quiet() : previous(qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString& t) { messages.append(t); })) {}
    ~Quiet() { qInstallMessageHandler(previous), messages.clear(); }
    QtMessageHandler previous;
};

} // namespace

TEST(Envelope, EveryFlagCombinationOfEveryFileKindOpensWithTheLibrarysKey)
{
    const struct {
        FileKind kind;
        quint64 key;
    } kinds[] = {{FileKind::Zelk, modelkeys::zelkKey()},
                 {FileKind::Zpl, modelkeys::zplKey()},
                 {FileKind::ZplSecondKey, modelkeys::zplSecondKey()}};
    for (const auto& k : kinds)
        for (quint8 flags = 0; flags < 8; ++flags) {
            const QByteArray file = modelwriter::fileContents(k.kind, Payload, flags);
            QByteArray bytes = file;
            if (k.kind != FileKind::Zelk) {
                EXPECT_EQ(QByteArray::fromBase64(file).toBase64(), file); // plain Base64 text
                bytes = QByteArray::fromBase64(file);
            }
            const Opened o = open(bytes, k.key);
            EXPECT_EQ(o.lastError, 0) << int(k.kind) << " flags " << int(flags);
            EXPECT_EQ(o.payload, Payload) << int(k.kind) << " flags " << int(flags);
            // The retry of a ".zpl" file rests on the integrity record failing under
            // the other key.
            if (k.kind == FileKind::ZplSecondKey && (flags & 6))
                EXPECT_EQ(open(bytes, modelkeys::zplKey()).lastError, ZelkContainer::IntegrityFailed);
        }
}

TEST(Envelope, KnownBodiesDecipherToTheKeyBytesLowestFirst)
{
    // With every enciphered byte equal to c, plain byte i (i >= 1) is c ^ key[i mod 8] ^ c,
    // the key byte itself, because the chain is fed by the enciphered bytes. Byte 0 is
    // the random one and is dropped, so nine body bytes give key bytes 1..7 and then 0.
    const quint64 key = 0x0807060504030201;
    const QByteArray expected("\x02\x03\x04\x05\x06\x07\x08\x01", 8);
    for (char c : {'\x00', '\xFF', '\x5A'}) {
        const Opened o = open(magic(0) + QByteArray(9, c), key);
        EXPECT_EQ(o.lastError, 0);
        EXPECT_EQ(o.payload, expected) << int(quint8(c));
    }
}

TEST(Envelope, OneDamagedByteSpoilsTwoPlainBytes)
{
    const QByteArray payload(40, 'p');
    QByteArray file = modelwriter::seal(payload, {0, keys::Zelk, 0x33});
    file[7 + 10] = char(file[7 + 10] ^ 0x10); // body byte 10 is payload byte 9
    const Opened o = open(file, modelkeys::zelkKey());
    ASSERT_EQ(o.payload.size(), payload.size());
    for (int i = 0; i < payload.size(); ++i)
        EXPECT_EQ(o.payload[i] != payload[i], i == 9 || i == 10) << i;
}

TEST(Envelope, IntegrityRecordsFollowTheRandomByteInTheirStoredForm)
{
    const QByteArray payload("a stream of some length");
    const quint16 sum = qChecksum(payload.constData(), uint(payload.size()));
    ASSERT_NE(sum >> 8, sum & 0xFF); // so that the byte order matters
    const QByteArray bigEndian = QByteArray(1, char(sum >> 8)) + char(sum & 0xFF);
    const QByteArray littleEndian = QByteArray(1, char(sum & 0xFF)) + char(sum >> 8);
    const QByteArray hash = QCryptographicHash::hash(payload, QCryptographicHash::Sha1);
    auto code = [&](quint8 flags, const QByteArray& body) { return open(modelwriter::sealBody(flags, body, 7), 7); };

    EXPECT_EQ(code(2, "r" + bigEndian + payload).payload, payload);
    EXPECT_EQ(code(2, "r" + littleEndian + payload).lastError, ZelkContainer::IntegrityFailed);
    EXPECT_EQ(code(4, "r" + hash + payload).payload, payload);
    QByteArray wrongHash = hash;
    wrongHash[19] = char(wrongHash[19] ^ 1);
    EXPECT_EQ(code(4, "r" + wrongHash + payload).lastError, ZelkContainer::IntegrityFailed);
    // Bit 1 wins: the checksum covers hash and payload, and the hash stays in front.
    const QByteArray both = hash + payload;
    const quint16 bothSum = qChecksum(both.constData(), uint(both.size()));
    const Opened six = code(6, "r" + QByteArray(1, char(bothSum >> 8)) + char(bothSum & 0xFF) + both);
    EXPECT_EQ(six.lastError, 0);
    EXPECT_EQ(six.payload, both);
    // Bits above 2 are ignored.
    EXPECT_EQ(code(0xF8 | 2, "r" + bigEndian + payload).payload, payload);
}

TEST(Envelope, InputsShorterThanThreeBytesLeaveLastErrorAsItWas)
{
    ZelkContainer c(keys::Zelk);
    for (const QByteArray& before : {QByteArray("ZELK01"), QByteArray("not an envelope"), magic(2)}) {
        c.decrypt(before); // 0, 2, 4
        const int kept = c.lastError;
        for (const QByteArray& tiny : {QByteArray(), QByteArray("Z"), QByteArray("ZE")}) {
            EXPECT_TRUE(c.decrypt(tiny).isEmpty());
            EXPECT_EQ(c.lastError, kept);
        }
    }
    EXPECT_EQ(c.lastError, ZelkContainer::IntegrityFailed);
}

TEST(Envelope, OddInputsGiveTheirDocumentedCode)
{
    const QByteArray emptyHash = QCryptographicHash::hash(QByteArray(), QCryptographicHash::Sha1);
    const struct {
        QByteArray bytes;
        int lastError;
    } cases[] = {
        {"ZEL", 2}, {"ZELK0", 2}, {QByteArray("ZELK02\x00\x01\x02", 9), 2}, {"zelk01xyz", 2},
        {"ZELK01", 0},                   // the bare magic reads its flags as 0
        {magic(0), 0}, {magic(0) + 'x', 0}, {magic(0xF8) + 'x', 0}, // nothing behind the random byte
        {magic(2), 4}, {magic(4), 4}, {magic(6), 4}, // seven bytes: no room for a record
        {modelwriter::sealBody(2, "r1", 9), 4},
        {modelwriter::sealBody(4, "r" + QByteArray(19, 'h'), 9), 4},
        {modelwriter::sealBody(4, "r" + emptyHash, 9), 0}, // a hash of an empty payload is fine
    };
    for (const auto& c : cases) {
        const Opened o = open(c.bytes, 9);
        EXPECT_EQ(o.lastError, c.lastError) << c.bytes.toHex().constData();
        EXPECT_TRUE(o.payload.isEmpty());
    }
    // With no record a wrong key goes unnoticed: the payload is garbage of its size.
    const Opened wrong = open(modelwriter::seal(Payload, {0, keys::Zpl}), keys::Zelk);
    EXPECT_EQ(wrong.lastError, 0);
    EXPECT_EQ(wrong.payload.size(), Payload.size());
    EXPECT_NE(wrong.payload, Payload);
}

TEST(Envelope, KeyZeroIsAKeyAnEmptyKeyIsNoneAndProgressIsForwarded)
{
    ZelkContainer zero(0);
    EXPECT_EQ(zero.keyBytes, QByteArray(8, '\0'));
    EXPECT_EQ(zero.compressionMode, 0);
    EXPECT_EQ(zero.protectionMode, 1);
    EXPECT_EQ(zero.decrypt(modelwriter::seal(Payload, {3, 0})), Payload);
    EXPECT_EQ(zero.lastError, 0);

    Quiet quiet;
    zero.keyBytes.clear();
    EXPECT_TRUE(zero.decrypt(modelwriter::seal(Payload, {3, 0})).isEmpty());
    EXPECT_EQ(zero.lastError, ZelkContainer::NoKey);
    EXPECT_EQ(messages, QStringList{QStringLiteral("No key set.")});

    QSignalSpy spy(&zero, &ZelkContainer::progressChanged);
    zero.setProgress(QStringLiteral("step"), 40);
    ASSERT_EQ(spy.count(), 1);
    EXPECT_EQ(spy[0], (QVariantList{QStringLiteral("step"), 40}));
}

TEST(Envelope, APayloadThatDoesNotInflateIsEmptyWithoutError)
{
    Quiet quiet;
    QByteArray zipped = qCompress(Payload);
    auto withStored = [](quint8 flags, const QByteArray& stored) {
        const quint16 sum = qChecksum(stored.constData(), uint(stored.size()));
        return open(modelwriter::sealBody(flags, "r" + QByteArray(1, char(sum >> 8)) + char(sum & 0xFF) + stored, 5), 5);
    };
    QByteArray broken = zipped;
    broken[8] = char(broken[8] ^ 0x55);
    for (const QByteArray& stored : {broken, zipped.left(zipped.size() - 3), QByteArray("abc")}) {
        const Opened o = withStored(3, stored);
        EXPECT_EQ(o.lastError, 0);
        EXPECT_TRUE(o.payload.isEmpty());
    }
    // The length prefix is a hint: one that is too small still inflates, one that the
    // stream behind it could never fill is refused instead of being reserved.
    QByteArray small = zipped;
    small.replace(0, 4, QByteArray("\x00\x00\x00\x01", 4));
    EXPECT_EQ(withStored(3, small).payload, Payload);
    QByteArray huge = zipped;
    huge.replace(0, 4, QByteArray("\x7F\xFF\xFF\x00", 4));
    const Opened o = withStored(3, huge);
    EXPECT_EQ(o.lastError, 0);
    EXPECT_TRUE(o.payload.isEmpty());
}

TEST(Envelope, TruncatedEnvelopesFailAsTheirFlagsSay)
{
    Quiet quiet;
    const QByteArray payload = Payload.left(200);
    for (quint8 flags = 0; flags < 8; ++flags) {
        const QByteArray full = modelwriter::seal(payload, {flags, keys::Zelk, 0x42});
        for (int n = 0; n < full.size(); ++n) {
            ZelkContainer c(keys::Zelk);
            const QByteArray out = c.decrypt(full.left(n));
            if (n < 3)
                EXPECT_EQ(c.lastError, 0);
            else if (n < 6)
                EXPECT_EQ(c.lastError, ZelkContainer::BadMagic);
            else if (n == 6) // the bare magic: no flags
                EXPECT_EQ(c.lastError, 0);
            else if (flags & (ZelkContainer::Checksum | ZelkContainer::Sha1Hash))
                EXPECT_EQ(c.lastError, ZelkContainer::IntegrityFailed) << int(flags) << " at " << n;
            else
                EXPECT_EQ(c.lastError, 0);
            if (flags & ZelkContainer::Compressed)
                EXPECT_TRUE(out.isEmpty()) << int(flags) << " at " << n;
            else if (flags == 0)
                EXPECT_EQ(out, payload.left(qMax(0, n - 8))); // the plain prefix
        }
    }
}

TEST(Envelope, EveryFlippedBitIsCaughtByTheIntegrityRecord)
{
    Quiet quiet;
    const QByteArray payload = Payload.left(120);
    for (quint8 flags : {2, 3, 4, 5, 6, 7}) {
        const QByteArray full = modelwriter::seal(payload, {flags, keys::Zelk});
        for (int i = 0; i < full.size(); ++i)
            for (int bit = 0; bit < 8; ++bit) {
                QByteArray damaged = full;
                damaged[i] = char(damaged[i] ^ (1 << bit));
                const Opened o = open(damaged, keys::Zelk);
                if (i < 6)
                    EXPECT_EQ(o.lastError, ZelkContainer::BadMagic);
                else if (i == 6) // another flags value: any outcome but a crash
                    EXPECT_TRUE(o.lastError == 0 || o.lastError == ZelkContainer::IntegrityFailed);
                else
                    ASSERT_EQ(o.lastError, ZelkContainer::IntegrityFailed) << int(flags) << " byte " << i << " bit " << bit;
            }
    }
}
