#include "classify/classifier.h"
#include "classify/device_copy.h"
#include "compute/backend.h"

QVector<float> ZelkROC::classRow(int classes) const
{
    const qint64 start = qint64(currentPoint) * rowLength;
    if (currentPoint < 0 || classes <= 0 || classes > rowLength || start + classes > weightTable.size())
        return {};
    return weightTable.mid(int(start), classes);
}

ZelkClassifier::ZelkClassifier(QObject* parent)
    : QObject(parent)
{
}

ZelkClassifier::~ZelkClassifier() = default;

QString ZelkClassifier::decisionName(int code) const
{
    if (code >= 0 && code < classCount())
        return classNames.at(code);
    if (code == classCount() && rejectEnabled)
        return QStringLiteral("Unseen in training");
    return {};
}

void ZelkClassifier::selectAllBands()
{
    QVector<int> bands(qMax(0, totalBands));
    for (int b = 0; b < bands.size(); ++b)
        bands[b] = b;
    selectedBands = bands;
    selectedBandCount = bands.size();
}

void ZelkClassifier::buildRejectGrid()
{
    if (rejectLevelCount == 0)
        rejectLevelCount = 100;
    // A count of 1 divides by zero; the grid is carried, never used, so it stays so.
    const float step = 1.0f / float(rejectLevelCount - 1);
    // The count comes from the file and nothing stands behind it there: a damaged one
    // must not ask for gigabytes, so the grid holds no more than MaxRejectLevels levels.
    rejectGrid = QVector<float>(qBound(0, rejectLevelCount, MaxRejectLevels));
    for (int i = 0; i < rejectGrid.size(); ++i)
        rejectGrid[i] = float(i) * step;
}

void ZelkClassifier::setProgress(int value)
{
    Q_EMIT progressChanged(value);
}

int ZelkClassifier::prepareDevice()
{
    auto refuse = [this](const QString& why) {
        lastError = QStringLiteral("Classifier cannot run: %1").arg(why);
        return -1;
    };
    bandIndex = selectedBands.value_or(QVector<int>()).mid(0, qMax(0, selectedBandCount));
    deviceThresholds.clear();
    if (rejectEnabled) {
        if (rejectThresholds.size() < classCount())
            return refuse(QStringLiteral("fewer rejection thresholds than classes"));
        deviceThresholds = rejectThresholds.mid(0, classCount());
    }
    deviceProjection.reset();
    if (projection)
        deviceProjection = deviceCopy(*projection, unsigned(device));
    deviceNetwork.reset();
    if (network)
        deviceNetwork = deviceCopy(*network, unsigned(device));
    unfoldedProjection.reset();

    if (!projection || !network)
        return refuse(QStringLiteral("the projection or the network is missing"));
    if (!deviceProjection || !deviceNetwork)
        return refuse(QStringLiteral("an array does not have the size its element states"));
    const ZelkAFPipelineM1& p = *deviceProjection;
    const ZelkAFPipelineM5& n = *deviceNetwork;
    if (p.inputCount != bandIndex.size() || p.outputCount < 1)
        return refuse(QStringLiteral("the projection takes %1 bands, the band selection has %2").arg(p.inputCount).arg(bandIndex.size()));
    if (n.featureCount != p.outputCount || n.unitCount < 1)
        return refuse(QStringLiteral("the network does not take the %1 projected features").arg(p.outputCount));
    if (n.classCount != classCount() || classCount() < 1 || classCount() > 255)
        return refuse(QStringLiteral("the network has %1 outputs for %2 classes").arg(n.classCount).arg(classCount()));
    return 0;
}

int prepareKernel(ZelkClassifier& c, compute::Backend& backend, const QVector<float>& classRow, compute::InputStage stage)
{
    c.kernel.reset();
    if (!c.deviceProjection || !c.deviceNetwork) {
        c.lastError = QStringLiteral("Classifier cannot run: it has no device copies");
        return -1;
    }
    const ZelkAFPipelineM1& p = *c.deviceProjection;
    const ZelkAFPipelineM5& n = *c.deviceNetwork;
    compute::ClassifierModel model;
    model.bands = p.inputCount;
    model.features = p.outputCount;
    model.units = n.unitCount;
    model.classes = c.classCount();
    model.matrix = p.matrix.f32();
    model.offset = p.offset.f32();
    model.centres = n.centres.f32();
    model.gammas = n.gammas.f32();
    model.weights = n.outputWeights.f32();
    model.thresholds = c.deviceThresholds;
    if (!model.consistent() || n.featureCount != p.outputCount || n.classCount != model.classes) {
        c.lastError = QStringLiteral("Classifier cannot run: its parts do not fit together");
        return -1;
    }
    if (classRow.size() != model.classes) {
        c.lastError = QStringLiteral("Classifier cannot run: no operating point for its %1 classes").arg(model.classes);
        return -1;
    }
    QString why;
    c.kernel = backend.prepareClassifier(model, &why);
    if (!c.kernel) {
        c.lastError = QStringLiteral("Classifier cannot run on the compute device: %1").arg(why);
        return -1;
    }
    c.kernel->setClassRow(classRow);
    c.kernel->setInputStage(std::move(stage));
    if (c.frameWidth > 0 && !c.kernel->reserve(c.frameWidth)) {
        c.kernel.reset();
        c.lastError = QStringLiteral("Classifier cannot run: the compute device has no room for frames of %1 pixels").arg(c.frameWidth);
        return -1;
    }
    return 0;
}

int foldCorrection(ZelkClassifier& c, const QVector<float>& first, const QVector<float>& second, int count, const int* bands)
{
    if (!c.unfoldedProjection)
        c.unfoldedProjection = std::move(c.deviceProjection);
    c.deviceProjection = std::make_unique<ZelkAFPipelineM1>();
    if (!c.unfoldedProjection)
        return -1;
    const ZelkAFPipelineM1& source = *c.unfoldedProjection;
    const int rows = source.inputCount, F = source.outputCount, B = c.totalBands;
    if (B < 1 || first.size() != B || second.size() != B || source.matrix.f32().size() != qint64(rows) * F ||
        source.offset.f32().size() != F)
        return -1;

    // The training bands' rows in place, zeros for the bands the model does not use.
    QVector<float> m = source.matrix.f32();
    if (B != rows) {
        if (count != rows || !bands)
            return -1;
        m = QVector<float>(B * F, 0.0f);
        for (int i = 0; i < count; ++i) {
            if (bands[i] < 0 || bands[i] >= B)
                return -1;
            for (int f = 0; f < F; ++f)
                m[f * B + bands[i]] = source.matrix.f32()[f * rows + i];
        }
    }
    QVector<float> matrix(B * F), offset = source.offset.f32();
    for (int f = 0; f < F; ++f)
        for (int b = 0; b < B; ++b) {
            const float range = first[b] - second[b];
            matrix[f * B + b] = (1.0f / range) * m[f * B + b];
            offset[f] += (-second[b] / range) * m[f * B + b];
        }
    ZelkAFPipelineM1& folded = *c.deviceProjection;
    folded.inputCount = B;
    folded.outputCount = F;
    folded.matrix = HostArray({B, F, 1, 1}, matrix);
    folded.offset = HostArray({1, F, 1, 1}, offset);
    folded.device = source.device;
    return 0;
}
