#include "classify/regressor.h"
#include "classify/apply_elements.h"
#include "classify/device_copy.h"
#include "compute/backend.h"
#include "compute/device.h"
#include "wire/data_set.h"

#include <vector>

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
    framePixels_ = frameBands_ = 0; // the folded chain was made from the old twins
    frameKernel_.reset();
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

bool ZelkRegressor::prepareFrames(std::shared_ptr<compute::Backend> backend, int pixels, int bands, QString* why)
{
    framePixels_ = frameBands_ = 0;
    frameKernel_.reset();
    stagedFrame_.reset();
    frameBackend_ = std::move(backend);
    auto fail = [why](const QString& text) {
        if (why)
            *why = text;
        return false;
    };
    if (!frameBackend_)
        return fail(QStringLiteral("no compute device"));
    if (pixels <= 0 || bands <= 0)
        return fail(QStringLiteral("frames of %1 pixels and %2 bands").arg(pixels).arg(bands));
    if (!runnable(bands, why))
        return false;

    // Row r of the standardised features is (filter column or band `source`, plus its
    // constant, minus mean r) times scale r; the model weighs it with row r of its
    // matrix. Summing over r gives each band's weight per variable, and the constants
    // gather in the offset.
    const ZelkAFPipelineM9& scaling = *deviceScaling;
    const ZelkAFPipelineM1& model = *deviceModel;
    const int features = scaling.featureCount, variables = model.outputCount;
    if (variables < 1)
        return fail(QStringLiteral("the model has no outputs"));
    const float* mean = scaling.mean.f32().constData();
    const float* scale = scaling.scale.f32().constData();
    const float* weights = model.matrix.f32().constData();
    const qint32* chosen = deviceSelection ? deviceSelection->indices.s32().constData() : nullptr;
    const float* filter = deviceFilter ? deviceFilter->matrix.f32().constData() : nullptr;
    const QVector<float>& filterOffset = deviceFilter ? deviceFilter->offset.f32() : QVector<float>();

    std::vector<double> folded(size_t(bands) * size_t(variables), 0.0);
    std::vector<double> offset(size_t(variables), 0.0);
    for (int v = 0; v < variables; ++v)
        offset[size_t(v)] = double(model.offset.f32()[v]);
    for (int r = 0; r < features; ++r) {
        const int source = chosen ? chosen[r] : r;
        const double constant = filter && source < filterOffset.size() ? double(filterOffset[source]) : 0.0;
        const float* column = filter ? filter + qint64(source) * bands : nullptr;
        for (int v = 0; v < variables; ++v) {
            const double k = double(scale[r]) * double(weights[qint64(v) * features + r]);
            offset[size_t(v)] += k * (constant - double(mean[r]));
            double* target = folded.data() + size_t(v) * size_t(bands);
            if (!column) {
                target[source] += k;
                continue;
            }
            for (int b = 0; b < bands; ++b)
                target[b] += k * double(column[b]);
        }
    }
    compute::LinearMap map;
    map.bands = bands;
    map.variables = variables;
    map.weights = QVector<float>(folded.begin(), folded.end());
    map.offset = QVector<float>(offset.begin(), offset.end());
    QString failure;
    frameKernel_ = frameBackend_->prepareRegression(map, &failure);
    if (!frameKernel_)
        return fail(QStringLiteral("the compute device cannot take it: %1").arg(failure));
    stagedFrame_ = frameBackend_->prepareFrame(pixels, bands, &failure);
    if (!frameKernel_->reserve(pixels) || !stagedFrame_) {
        frameKernel_.reset();
        stagedFrame_.reset();
        return fail(QStringLiteral("the compute device has no room for frames of %1 pixels").arg(pixels));
    }
    framePixels_ = pixels;
    frameBands_ = bands;
    return true;
}

bool ZelkRegressor::predictFrame(const float* frame, int pixels, int bands, float* output)
{
    if (!frame || !output)
        return false;
    if ((pixels != framePixels_ || bands != frameBands_ || !frameKernel_) &&
        !prepareFrames(frameBackend_ ? frameBackend_ : compute::openDevice(compute::defaultDevice), pixels, bands))
        return false;
    return frameKernel_->predict(frame, pixels, output);
}

bool ZelkRegressor::predictStaged(float* output)
{
    return output && frameKernel_ && stagedFrame_ && frameKernel_->predictFrame(*stagedFrame_, output);
}
