// The regressor element of a project stream. Its outer tag gives the reader version:
// 1 ends behind the four elements, 2 adds the variable names and band selection, 3 the
// model settings. The element tags say "ZelkRegModel1" in every version.

#include "classify/element_reads.h"
#include "classify/regressor.h"
#include "wire/stream_reads.h"
#include "wire/typed_arrays.h"

using streamreads::value;

namespace {

enum LoadCode {
    OuterTagUnknown = -1101,
    FilterFailed = -1102,
    PrepTagWrong = -1103,
    SelectionFailed = -1104, // the fsel tag or the element's own
    ScalingFailed = -1105,
    ScalingTagWrong = -1106,
    ModelFailed = -1107,
    ModelTagWrong = -1108,
    NamesMissing = -1109,
    NamesMismatch = -1110,
    BandsMissing = -1111,
    BandArrayTagWrong = -1112,
    SettingsMissing = -1,
};

// "<name>=NULL" leaves the slot empty, "<name>" is followed by the element; the slot is
// emptied before the tag is compared. 0, `tagCode` or `elementCode`.
template <class Element>
int loadPart(QDataStream& in, const char* name, std::unique_ptr<Element>& slot, int tagCode, int elementCode)
{
    slot.reset();
    const QString tag = value<QString>(in);
    if (tag == QString::fromLatin1(name) + QStringLiteral("=NULL"))
        return 0;
    if (tag != QLatin1String(name))
        return tagCode;
    slot = std::make_unique<Element>();
    return loadElement(in, *slot) == 0 ? 0 : elementCode;
}

} // namespace

int ZelkRegressor::load(QDataStream& in)
{
    const QString outer = value<QString>(in);
    int version = 0;
    for (int v = 1; v <= 3; ++v)
        if (outer == QStringLiteral("ZelkRegModel%1").arg(v))
            version = v;
    if (version == 0)
        return OuterTagUnknown;

    if (int r = loadPart(in, "ZelkRegModel1:prep", regPrep, PrepTagWrong, FilterFailed))
        return r;
    if (int r = loadPart(in, "ZelkRegModel1:fsel", regSelection, SelectionFailed, SelectionFailed))
        return r;
    if (int r = loadPart(in, "ZelkRegModel1:scaling", regScaling, ScalingTagWrong, ScalingFailed))
        return r;
    if (int r = loadPart(in, "ZelkRegModel1:model", regModel, ModelTagWrong, ModelFailed))
        return r;
    if (version == 1) {
        regVarNames = QStringList{QStringLiteral("var1")};
        return 0;
    }

    if (value<QString>(in) != QLatin1String("regVarList"))
        return NamesMissing;
    streamreads::read(in, regVarNames);
    if (regModel && regModel->outputCount != regVarNames.size())
        return NamesMismatch;

    if (value<QString>(in) != QLatin1String("BandSelection"))
        return BandsMissing;
    regBands.clear();
    regBandCount = 0;
    if (readIntArray(in, &regBands) != 0)
        return BandArrayTagWrong;
    regBandCount = regBands.size();
    if (version == 2)
        return 0;

    if (value<QString>(in) != QLatin1String("ModelSettings"))
        return SettingsMissing;
    modelSettings[0] = value<qint32>(in);
    modelSettings[1] = value<qint32>(in);
    return 0;
}
