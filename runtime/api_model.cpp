// Loading a model file into the handle: envelope, project stream, then what the
// handle derives from the project (call family, processing set-up, input geometry).

#include "wire/container.h"
#include "wire/model_keys.h"
#include "runtime/processing_setup.h"
#include "spectral/camera_kinds.h"
#include "runtime/export.h"
#include "runtime/handle.h"

#include <QBuffer>
#include <QFile>
#include <QFileInfo>

namespace {

// Whether frames or cubes come in, as the camera's row says; some rows leave the kind as
// the previous project had it.
int applyApiKind(ZelkHandle* h)
{
    const CameraKind& kind = cameraKind(h->project->projectType, h->project->acqType);
    switch (kind.family) {
    case CallFamily::RefusesToLoad:
        return -1;
    case CallFamily::LineScan:
        h->input.lineScan = true;
        break;
    case CallFamily::Snapshot:
        h->input.lineScan = false;
        break;
    case CallFamily::AsBefore:
        break;
    }
    if (kind.cube == CubeForm::BigEndian) { // its buffers are sized by the cubes of one project
        h->cube.swapped.reset();
        h->cube.reorderScratch = {};
        h->cube.gained = {};
    }
    return 0;
}

int processingSetupOf(const ZelkHandle* h)
{
    const ZelkProject& p = *h->project;
    if (h->resampling.enabled)
        return int(p.classifier && p.segmenter && p.regressor ? ProcessingSetup::Resampling : ProcessingSetup::None);
    return int(setupOfParts(p, false));
}

void takeGeometry(ZelkHandle* h, const ZelkImage& image)
{
    h->input.width = image.cropped ? image.cropWidth : image.width;
    const int height = image.cropped ? image.cropHeight : image.height;
    h->input.height = h->input.lineScan ? 1 : height;
    h->input.bands = h->resampling.enabled && h->resampling.resampler ? h->resampling.resampler->sourceBands : image.bandCount;
}

// Deciphers a model file's bytes: 0 with the plain stream, or a negative code after a
// report. An envelope of another kind than ".zpl" that fails its check gives 1 and no
// stream: the load goes on with the project left empty, and ends without images.
int decipher(ZelkHandle* h, const QByteArray& bytes, const QString& suffix, QByteArray* plain)
{
    const bool zpl = suffix == QLatin1String("zpl");
    quint64 key = 0; // files of other names have no key and fail below
    if (suffix == QLatin1String("zelk"))
        key = modelkeys::zelkKey();
    else if (zpl)
        key = modelkeys::zplKey();
    const QByteArray body = zpl ? QByteArray::fromBase64(bytes) : bytes;

    ZelkContainer first(key);
    first.compressionMode = 1;
    first.protectionMode = 2;
    *plain = first.decrypt(body);
    if (first.lastError == ZelkContainer::NoError)
        return 0;
    if (first.lastError == ZelkContainer::BadMagic)
        return fail(h, msg::ModelFormat);
    if (!zpl)
        return 1;
    ZelkContainer second(modelkeys::zplSecondKey());
    second.compressionMode = 1;
    second.protectionMode = 2;
    *plain = second.decrypt(QByteArray::fromBase64(bytes));
    if (second.lastError != ZelkContainer::NoError)
        return fail(h, msg::modelUndeciphered(first.lastError));
    return 0;
}

int loadModel(ZelkHandle* h, const QString& fileName)
{
    if (h->isAcquiring())
        return fail(h, msg::LoadWhileAcquiring);

    h->segmentation.segmenter = nullptr; // it belongs to the project that goes now
    h->setProject(std::make_unique<ZelkProject>(0));
    h->project->device = h->computeDevices.selected;

    QFile file(fileName);
    if (!file.open(QIODevice::ReadOnly))
        return fail(h, msg::ModelOpen);
    const QByteArray bytes = file.readAll();
    file.close();
    const QString suffix = QFileInfo(fileName).suffix();

    QByteArray plain;
    const int deciphered = decipher(h, bytes, suffix, &plain);
    if (deciphered < 0) {
        h->setProject(nullptr);
        return deciphered;
    }
    if (deciphered == 0) {
        QBuffer buffer(&plain);
        buffer.open(QIODevice::ReadOnly);
        QDataStream in(&buffer);
        if (h->project->load(in) != 0) {
            h->setProject(nullptr);
            return fail(h, msg::ModelRead);
        }
    }

    if (applyApiKind(h) != 0) {
        h->setProject(nullptr);
        return fail(h, msg::UnknownAcquisitionType);
    }
    logToHandle(h, msg::modelLoaded(fileName, h->input.lineScan));

    if (h->correction.enabled) {
        h->correction.darkRef.clear();
        h->correction.gainRef.clear();
        if (h->correction.meansOnly) {
            h->correction.whiteMean.clear();
            h->correction.darkMean.clear();
        }
        h->correction.enabled = false;
    }
    h->project->processingSetup = processingSetupOf(h);

    if (h->project->images.empty())
        return failWithoutText(ZELK_E_FAILED); // the text stays the log line of the load
    if (const ZelkImage* image = h->project->images.front().get())
        takeGeometry(h, *image);
    return 0;
}

} // namespace

extern "C" ZELK_API int zelk_LoadModel(ZelkHandle* h, const char* fileName)
{
    return exported("zelk_LoadModel", h, [&] {
        if (!fileName)
            return fail(h, msg::NullFileName);
        return loadModel(h, QString::fromLatin1(fileName));
    });
}
