#include "classify/element_reads.h"
#include "wire/stream_reads.h"
#include "wire/typed_arrays.h"

using streamreads::value;

namespace {

bool tagIs(QDataStream& in, const char* expected)
{
    return value<QString>(in) == QLatin1String(expected);
}

// The two counts and two arrays that M1, M2 and M3 share on the wire.
template <class Element> int loadTwoArrays(QDataStream& in, const char* tag, Element& e, HostArray Element::*first,
                                           HostArray Element::*second, int Element::*countA, int Element::*countB)
{
    if (!tagIs(in, tag))
        return -1;
    e.*countA = value<qint32>(in);
    e.*countB = value<qint32>(in);
    bool ok = false;
    e.*first = readAFArray(in, &ok);
    e.*second = readAFArray(in, &ok);
    return 0;
}

} // namespace

int loadElement(QDataStream& in, ZelkAFPipelineM1& e)
{
    using M = ZelkAFPipelineM1;
    return loadTwoArrays(in, "ZelkAFPipelineM1:1", e, &M::matrix, &M::offset, &M::inputCount, &M::outputCount);
}

int loadElement(QDataStream& in, ZelkAFPipelineM2& e)
{
    using M = ZelkAFPipelineM2;
    return loadTwoArrays(in, "ZelkAFPipelineM2:1", e, &M::arrayA, &M::arrayB, &M::first, &M::second);
}

int loadElement(QDataStream& in, ZelkAFPipelineM3& e)
{
    using M = ZelkAFPipelineM3;
    return loadTwoArrays(in, "ZelkAFPipelineM3:1", e, &M::arrayA, &M::arrayB, &M::first, &M::second);
}

int loadElement(QDataStream& in, ZelkAFPipelineM5& e)
{
    if (!tagIs(in, "ZelkAFPipelineM5:1"))
        return -1;
    e.featureCount = value<qint32>(in);
    e.auxCount = value<qint32>(in);
    e.unitCount = value<qint32>(in);
    e.classCount = value<qint32>(in);
    streamreads::read(in, e.classNames);
    bool ok = false;
    e.centres = readAFArray(in, &ok);
    e.auxArray = readAFArray(in, &ok);
    e.gammas = readAFArray(in, &ok);
    e.outputWeights = readAFArray(in, &ok);
    readIntArray(in, &e.unitTags);
    return 0;
}

int loadElement(QDataStream& in, ZelkAFPipelineM7& e)
{
    if (!tagIs(in, "ZelkAFPipelineM7:1"))
        return -1;
    e.inputBands = value<qint32>(in);
    e.outputBands = value<qint32>(in);
    e.derivative = value<qint32>(in);
    e.window = value<qint32>(in);
    e.matrix = HostArray();
    e.offset = HostArray();
    // A pair without coefficients leaves the element without a matrix; the regressor
    // refuses to run such a chain later.
    e.buildFilter(e.inputBands, e.derivative, e.window);
    return 0;
}

int loadElement(QDataStream& in, ZelkAFPipelineM9& e)
{
    if (!tagIs(in, "ZelkAFPipelineM9:1"))
        return -1;
    e.featureCount = value<qint32>(in);
    e.carried = value<qint32>(in);
    bool meanOk = false, scaleOk = false;
    e.mean = readAFArray(in, &meanOk);
    if (!meanOk)
        return -1;
    e.scale = readAFArray(in, &scaleOk);
    return scaleOk ? 0 : -1;
}

int loadElement(QDataStream& in, ZelkAFPipelineM10& e)
{
    if (!tagIs(in, "ZelkAFPipelineM10:1"))
        return -1;
    e.sourceCount = value<qint32>(in);
    e.selectedCount = value<qint32>(in);
    bool ok = false;
    e.indices = readAFArray(in, &ok);
    return 0;
}
