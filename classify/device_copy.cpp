#include "classify/device_copy.h"

using compute::ElementType;

std::optional<HostArray> restaged(const HostArray& array, const HostArray::Dims& dims, ElementType type)
{
    const qint64 elements = dims[0] * dims[1] * dims[2] * dims[3];
    if (dims[0] < 0 || dims[1] < 0 || dims[2] < 0 || dims[3] < 0 || array.type() != type || array.elements() != elements)
        return std::nullopt;
    switch (type) {
    case ElementType::F32: return HostArray(dims, array.f32());
    case ElementType::S32: return HostArray(dims, array.s32());
    case ElementType::U8: return HostArray(dims, array.u8());
    }
    return std::nullopt;
}

namespace {

// A null result when an array that must hold values could not be restaged.
bool staged(const HostArray& source, HostArray& target, const HostArray::Dims& dims)
{
    auto array = restaged(source, dims);
    if (array)
        target = std::move(*array);
    return bool(array);
}

} // namespace

std::unique_ptr<ZelkAFPipelineM1> deviceCopy(const ZelkAFPipelineM1& element, unsigned device)
{
    auto copy = std::make_unique<ZelkAFPipelineM1>();
    copy->inputCount = element.inputCount;
    copy->outputCount = element.outputCount;
    copy->device = int(device);
    if (!staged(element.matrix, copy->matrix, {element.inputCount, element.outputCount, 1, 1}) ||
        !staged(element.offset, copy->offset, {1, element.outputCount, 1, 1}))
        return nullptr;
    return copy;
}

std::unique_ptr<ZelkAFPipelineM2> deviceCopy(const ZelkAFPipelineM2& element, unsigned device)
{
    auto copy = std::make_unique<ZelkAFPipelineM2>();
    copy->first = element.first;
    copy->second = element.second;
    copy->device = int(device);
    if (!staged(element.arrayA, copy->arrayA, {element.first, element.second, 1, 1}) ||
        !staged(element.arrayB, copy->arrayB, {1, element.second, 1, 1}))
        return nullptr;
    return copy;
}

std::unique_ptr<ZelkAFPipelineM5> deviceCopy(const ZelkAFPipelineM5& element, unsigned device)
{
    auto copy = std::make_unique<ZelkAFPipelineM5>();
    copy->featureCount = element.featureCount;
    copy->auxCount = element.auxCount;
    copy->unitCount = element.unitCount;
    copy->classCount = element.classCount;
    copy->classNames = element.classNames;
    copy->device = int(device);
    // The auxiliary array is not used by a kernel and stays behind.
    if (!staged(element.centres, copy->centres, {element.featureCount, element.unitCount, 1, 1}) ||
        !staged(element.gammas, copy->gammas, {element.unitCount, 1, 1, 1}) ||
        !staged(element.outputWeights, copy->outputWeights, {qint64(element.unitCount) + 1, element.classCount, 1, 1}))
        return nullptr;
    if (!element.unitTags.isEmpty()) {
        if (element.unitTags.size() < element.unitCount)
            return nullptr;
        copy->unitTags = element.unitTags.mid(0, element.unitCount);
    }
    return copy;
}

std::unique_ptr<ZelkAFPipelineM7> deviceCopy(const ZelkAFPipelineM7& element, unsigned device)
{
    auto copy = std::make_unique<ZelkAFPipelineM7>();
    copy->derivative = element.derivative;
    copy->window = element.window;
    copy->inputBands = element.inputBands;
    copy->outputBands = element.outputBands;
    copy->device = int(device);
    if (!staged(element.matrix, copy->matrix, {element.inputBands, element.outputBands, 1, 1}) ||
        !staged(element.offset, copy->offset, {1, element.outputBands, 1, 1}))
        return nullptr;
    return copy;
}

std::unique_ptr<ZelkAFPipelineM12> deviceCopy(ZelkAFPipelineM12& element, unsigned device)
{
    if (element.trained == 0) {
        element.errorCode = -44001;
        element.errorText = QStringLiteral("%1: %2").arg(-44001).arg(QStringLiteral("Model not trained"));
        return nullptr;
    }
    auto copy = std::make_unique<ZelkAFPipelineM12>();
    copy->trained = 1;
    copy->first = element.first;
    copy->second = element.second;
    if (element.inner)
        copy->inner = deviceCopy(*element.inner, device);
    copy->arrayA = element.arrayA;
    copy->arrayB = element.arrayB;
    copy->arrayC = element.arrayC;
    copy->third = element.third;
    copy->fourth = element.fourth;
    copy->device = int(device);
    return copy;
}
