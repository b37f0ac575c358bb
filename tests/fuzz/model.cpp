// The model loader on arbitrary bytes. The first byte picks the form: 0 a bare project
// stream (so that the parser is reached without passing the cipher's check), 1 a
// ".zelk" envelope, 2 a ".zpl" file, tried with both of its keys.

#include "wire/container.h"
#include "wire/model_keys.h"
#include "model/project.h"

#include <QBuffer>
#include <cstdint>

namespace {

void loadStream(QByteArray bytes)
{
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::ReadOnly);
    QDataStream in(&buffer);
    ZelkProject project;
    project.load(in);
}

bool openEnvelope(const QByteArray& bytes, quint64 key)
{
    ZelkContainer container(key);
    const QByteArray plain = container.decrypt(bytes);
    if (container.lastError != ZelkContainer::NoError)
        return false;
    loadStream(plain);
    return true;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    // Qt's complaints about damaged compressed data would be most of the output.
    static const bool quiet = (qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString&) {}), true);
    Q_UNUSED(quiet);
    if (size < 1)
        return 0;
    const QByteArray bytes(reinterpret_cast<const char*>(data + 1), int(size - 1));
    switch (data[0] % 3) {
    case 0:
        loadStream(bytes);
        break;
    case 1:
        openEnvelope(bytes, modelkeys::zelkKey());
        break;
    default:
        if (!openEnvelope(QByteArray::fromBase64(bytes), modelkeys::zplKey()))
            openEnvelope(QByteArray::fromBase64(bytes), modelkeys::zplSecondKey());
    }
    return 0;
}
