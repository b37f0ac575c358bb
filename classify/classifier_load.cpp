// The classifier element of a project stream: four reader versions that share one
// order of fields, version 2 adding the band selection, 3 the rejection tables and 4
// the training round. Tags marked optional are consumed whatever they say; on another
// text the value behind them is not read.

#include "classify/classifier.h"
#include "classify/element_reads.h"
#include "wire/stream_reads.h"
#include "wire/typed_arrays.h"

using streamreads::read;
using streamreads::remaining;
using streamreads::value;

namespace {

bool tagIs(QDataStream& in, const char* expected)
{
    return value<QString>(in) == QLatin1String(expected);
}

// An optional element: the object is made as soon as its tag matches, before its own
// version tag is read, so that a wrong version tag leaves it with its defaults.
template <class Element> void loadOptional(QDataStream& in, const char* tag, std::unique_ptr<Element>& slot)
{
    if (!tagIs(in, tag))
        return;
    slot = std::make_unique<Element>();
    loadElement(in, *slot);
}

} // namespace

int ZelkROC::load(QDataStream& in)
{
    if (!tagIs(in, "ZelkROC:1"))
        return -1;
    // The file has the second and third in the other order than the record.
    rocInt1 = value<qint32>(in);
    rowLength = value<qint32>(in);
    rocInt2 = value<qint32>(in);
    currentPoint = value<qint32>(in);
    read(in, rocNames);

    qDeleteAll(constraints);
    constraints.clear();
    const qint32 count = value<qint32>(in);
    // An entry holds at least its key and its announcement; a count that the rest of the
    // stream cannot hold reads as a truncated stream.
    if (qint64(count) * 8 > remaining(in))
        streamreads::exhaust(in);
    else
        for (qint32 i = 0; i < count; ++i) {
            const QString key = value<QString>(in);
            auto* entry = new ZelkROCConstrain(this);
            if (tagIs(in, "ZelkROCConstrain:1")) {
                entry->constrainCode = value<qint32>(in);
                entry->constrainName = value<QString>(in);
                entry->constrainText = value<QString>(in);
                entry->constrainValue = value<float>(in);
                entry->constrainActive = value<bool>(in);
            }
            delete constraints.value(key, nullptr);
            constraints.insert(key, entry);
        }

    readFloatArray(in, &rocTableA);
    readFloatArray(in, &weightTable);
    readFloatArray(in, &rocTableB);
    readFloatArray(in, &rocTableC);
    QVector<qint8> mask;
    if (readCharArray(in, &mask) == 0)
        rocMask = QByteArray(reinterpret_cast<const char*>(mask.constData()), mask.size());
    return 0;
}

int ZelkClassifier::load(QDataStream& in, int version)
{
    modelKind = value<qint32>(in);
    inputBands = value<qint32>(in);
    totalBands = value<qint32>(in);

    if (version >= 2) {
        const QString tag = value<QString>(in);
        if (tag == QLatin1String("BandSelection=ALL")) {
            selectAllBands();
        } else if (tag == QLatin1String("BandSelection")) {
            // The old selection goes first; an absent array, or one with a wrong tag,
            // leaves the classifier without a selection of its own.
            selectedBands.reset();
            QVector<qint32> bands;
            bool present = false;
            if (readIntArray(in, &bands, &present) == 0) {
                selectedBandCount = bands.size();
                if (present)
                    selectedBands = bands;
            }
        }
    }

    read(in, classNames);
    read(in, classCodes);
    randomSeed = value<qint32>(in);

    if (tagIs(in, "ZelkROC")) {
        roc = std::make_unique<ZelkROC>();
        roc->load(in);
    }

    rejectEnabled = value<bool>(in);
    readFloatArray(in, &rejectThresholds);

    if (version >= 3 && tagIs(in, "RejectionThresholds:1")) {
        rejectLevelCount = value<qint32>(in);
        buildRejectGrid();
        rejectTableIds.clear();
        rejectTableCount = 0;
        rejectTable.clear();
        if (readIntArray(in, &rejectTableIds) == 0)
            rejectTableCount = rejectTableIds.size();
        readFloatArray(in, &rejectTable);
    }

    loadOptional(in, "ZelkAFPipelineM1", projection);
    loadOptional(in, "ZelkAFPipelineM2", extraElementM2);
    loadOptional(in, "ZelkAFPipelineM3", extraElementM3);
    loadOptional(in, "ZelkAFPipelineM5", network);

    read(in, colourTable);
    // One flag per class name, replaced as a whole by the stored vector.
    classFlags = QVector<bool>(classNames.size(), false);
    read(in, classFlags);
    finalFlag = value<bool>(in);

    if (version >= 4 && tagIs(in, "trainingRound"))
        trainingRound = value<qint32>(in);
    return 0;
}
