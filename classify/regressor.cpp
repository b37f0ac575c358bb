#include "classify/regressor.h"
#include "classify/apply_elements.h"
#include "classify/device_copy.h"
#include "model/data_set.h"

#include <cstring>

ZelkRegressor::ZelkRegressor(QObject* parent)
    : QObject(parent)
{
}

ZelkRegressor::~ZelkRegressor() = default;

void ZelkRegressor::setRegData(ZelkDataSet* data)
{
    regData = data;
    if (data)
        for (QVector<double>& cache : sampleCaches)
            cache = QVector<double>(data->objectNames.size(), 0.0);
}

void ZelkRegressor::setRegTestData(ZelkDataSet* data)
{
    regTestData = data;
    for (QVector<double>& cache : testSampleCaches)
        cache = data ? QVector<double>(data->objectNames.size(), 0.0) : QVector<double>();
}

void ZelkRegressor::prepareDevice()
{
    deviceSelection.reset();
    if (regSelection) {
        auto indices = restaged(regSelection->indices, {regSelection->selectedCount, 1, 1, 1}, compute::ElementType::S32);
        if (indices) {
            deviceSelection = std::make_unique<ZelkAFPipelineM10>(*regSelection);
            deviceSelection->indices = *indices;
            deviceSelection->device = device;
        }
    }
    deviceFilter = regPrep ? deviceCopy(*regPrep, unsigned(device)) : nullptr;
    deviceScaling.reset();
    if (regScaling) {
        const qint64 n = regScaling->featureCount;
        auto mean = restaged(regScaling->mean, {n, 1, 1, 1});
        auto scale = restaged(regScaling->scale, {n, 1, 1, 1});
        if (mean && scale) {
            deviceScaling = std::make_unique<ZelkAFPipelineM9>(*regScaling);
            deviceScaling->mean = *mean;
            deviceScaling->scale = *scale;
            deviceScaling->device = device;
        }
    }
    deviceModel = regModel ? deviceCopy(*regModel, unsigned(device)) : nullptr;
    deviceDormant = regDormant ? deviceCopy(*regDormant, unsigned(device)) : nullptr;
}

bool ZelkRegressor::runnable(int bands, QString* why) const
{
    auto fail = [why](const QString& text) {
        if (why)
            *why = text;
        return false;
    };
    if (!deviceScaling || !deviceModel)
        return fail(QStringLiteral("the regressor has no usable scaling or model"));
    if ((regPrep && !deviceFilter) || (regSelection && !deviceSelection))
        return fail(QStringLiteral("an element of the regressor does not have the size it states"));
    qint64 rows = bands;
    if (deviceFilter) {
        if (deviceFilter->inputBands != rows || deviceFilter->matrix.isEmpty())
            return fail(QStringLiteral("the filter takes %1 bands, frames have %2").arg(deviceFilter->inputBands).arg(rows));
        rows = deviceFilter->outputBands;
    }
    if (deviceSelection) {
        for (qint32 i : deviceSelection->indices.s32())
            if (i < 0 || i >= rows)
                return fail(QStringLiteral("the feature selection names row %1 of %2").arg(i).arg(rows));
        rows = deviceSelection->selectedCount;
    }
    if (deviceScaling->featureCount != rows || deviceModel->inputCount != rows)
        return fail(QStringLiteral("scaling and model do not take the %1 features before them").arg(rows));
    if (deviceModel->outputCount != regVarNames.size())
        return fail(QStringLiteral("the model has %1 outputs for %2 variables").arg(deviceModel->outputCount).arg(regVarNames.size()));
    return true;
}

HostArray ZelkRegressor::predict(const HostArray& block) const
{
    if (!deviceScaling || !deviceModel)
        return {};
    HostArray x = block;
    if (deviceFilter)
        x = applyFilter(*deviceFilter, x);
    if (deviceSelection && !x.isEmpty())
        x = applySelection(*deviceSelection, x);
    if (!x.isEmpty())
        x = applyScaling(*deviceScaling, x);
    return x.isEmpty() ? x : applyLinear(*deviceModel, x);
}

bool ZelkRegressor::predictFrame(const float* frame, int pixels, int bands, float* output) const
{
    if (!frame || !output || pixels <= 0 || bands <= 0)
        return false;
    QVector<float> transposed(pixels * bands);
    for (int b = 0; b < bands; ++b)
        for (int p = 0; p < pixels; ++p)
            transposed[p * bands + b] = frame[qint64(b) * pixels + p];
    const HostArray result = predict(HostArray({bands, pixels, 1, 1}, transposed));
    if (result.isEmpty() || result.dim(1) != pixels)
        return false;
    std::memcpy(output, result.f32().constData(), size_t(result.elements()) * sizeof(float));
    return true;
}
