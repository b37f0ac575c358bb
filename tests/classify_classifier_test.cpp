// The classifier object: the reject grid, the checks before a model may run, running on
// selected bands, and folding a correction into the projection.

#include "classify/classifier.h"
#include "classify/device_copy.h"
#include "compute/backend.h"
#include "compute/device.h"

#include <cmath>
#include <gtest/gtest.h>

namespace {

// The CPU device, on which these kernels are made.
compute::Backend& host()
{
    static const std::shared_ptr<compute::Backend> cpu = compute::openDevice(compute::defaultDevice);
    return *cpu;
}

HostArray floats(qint64 rows, qint64 cols, QVector<float> v)
{
    return HostArray({rows, cols, 1, 1}, std::move(v));
}

// Three camera bands; the model reads bands 2 and 0 as its two features. Centre 0 at
// (0, 0) votes for "dark", centre 1 at (10, 0) for "bright"; one operating point of
// weights (1, 1).
std::unique_ptr<ZelkClassifier> twoClassClassifier()
{
    auto c = std::make_unique<ZelkClassifier>();
    c->classNames = QStringList{"dark", "bright"};
    c->totalBands = 3;
    c->selectedBands = QVector<int>{2, 0};
    c->selectedBandCount = 2;
    c->projection = std::make_unique<ZelkAFPipelineM1>();
    c->projection->inputCount = 2;
    c->projection->outputCount = 2;
    c->projection->matrix = floats(2, 2, {1, 0, 0, 1});
    c->projection->offset = floats(1, 2, {0, 0});
    c->network = std::make_unique<ZelkAFPipelineM5>();
    c->network->featureCount = 2;
    c->network->unitCount = 2;
    c->network->classCount = 2;
    c->network->centres = floats(2, 2, {0, 0, 10, 0});
    c->network->gammas = floats(2, 1, {-1, -1});
    c->network->outputWeights = floats(3, 2, {0, 1, 0, 0, 0, 1});
    c->roc = std::make_unique<ZelkROC>();
    c->roc->rowLength = 2;
    c->roc->currentPoint = 0;
    c->roc->weightTable = {1, 1};
    return c;
}

std::vector<quint8> classifyBip(ZelkClassifier& c, const std::vector<float>& pixels, int bands)
{
    std::vector<quint8> out(pixels.size() / size_t(bands), 99);
    compute::SampleBlock block{pixels.data(), compute::SampleType::F32, compute::SpectraLayout::BandsByPixels,
                               int(out.size()), bands};
    EXPECT_TRUE(c.kernel->classifySamples(block, out.data()));
    return out;
}

} // namespace

// The grids of the stored counts 0 and 3 are read back in classify_streams_test.cpp.
TEST(Classifier, RejectGridStepsByTheReciprocalAndDegenerateCounts)
{
    ZelkClassifier c;
    c.buildRejectGrid();
    ASSERT_EQ(c.rejectGrid.size(), 100);
    EXPECT_EQ(c.rejectGrid[99], 99 * (1.0f / 99.0f));
    EXPECT_EQ(c.rejectGrid[1], 1.0f / 99.0f);
    c.rejectLevelCount = 1; // 0 times an infinite step
    c.buildRejectGrid();
    ASSERT_EQ(c.rejectGrid.size(), 1);
    EXPECT_TRUE(std::isnan(c.rejectGrid[0]));
    c.rejectLevelCount = -5;
    c.buildRejectGrid();
    EXPECT_TRUE(c.rejectGrid.isEmpty());
}

TEST(Classifier, OperatingPointRowMustLieInsideTheTable)
{
    ZelkROC roc;
    roc.rowLength = 3;
    roc.weightTable = {1, 2, 3, 4, 5, 6};
    EXPECT_TRUE(roc.classRow(2).isEmpty()); // current point -1
    roc.currentPoint = 1;
    EXPECT_EQ(roc.classRow(2), (QVector<float>{4, 5}));
    EXPECT_TRUE(roc.classRow(4).isEmpty()); // longer than a row
    roc.currentPoint = 2;
    EXPECT_TRUE(roc.classRow(2).isEmpty());
    roc.rowLength = 0;
    roc.currentPoint = 0;
    EXPECT_TRUE(roc.classRow(1).isEmpty());
}

TEST(Classifier, RefusesModelsThatCannotRun)
{
    auto expectRefused = [](void (*spoil)(ZelkClassifier&)) {
        auto c = twoClassClassifier();
        spoil(*c);
        EXPECT_EQ(c->prepareDevice(), -1);
        EXPECT_FALSE(c->lastError.isEmpty());
    };
    expectRefused([](ZelkClassifier& c) { c.network.reset(); });
    expectRefused([](ZelkClassifier& c) { c.projection.reset(); });
    expectRefused([](ZelkClassifier& c) { c.network->unitCount = 3; });       // centres hold 2
    expectRefused([](ZelkClassifier& c) { c.classNames.append("third"); });   // network has 2 outputs
    expectRefused([](ZelkClassifier& c) { c.selectedBands = QVector<int>{1}; c.selectedBandCount = 1; });
    expectRefused([](ZelkClassifier& c) { c.rejectEnabled = true; c.rejectThresholds = {0.1f}; });
    expectRefused([](ZelkClassifier& c) { c.projection->matrix = HostArray({4, 1, 1, 1}, QVector<qint32>{1, 0, 0, 1}); });

    auto c = twoClassClassifier();
    ASSERT_EQ(c->prepareDevice(), 0);
    EXPECT_EQ(c->bandIndex, (QVector<int>{2, 0}));
    EXPECT_TRUE(c->deviceThresholds.isEmpty());
    EXPECT_EQ(prepareKernel(*c, host(), {1}, {}), -1); // one weight for two classes
    EXPECT_EQ(c->kernel, nullptr);
    c->network->unitCount = 3; // a second preparation replaces the copies
    EXPECT_EQ(c->prepareDevice(), -1);
    EXPECT_EQ(c->deviceNetwork, nullptr);
}

TEST(Classifier, RunsOnSelectedBandsInTheModelsOrder)
{
    auto c = twoClassClassifier();
    c->rejectEnabled = true;
    c->rejectThresholds = {0.5f, 0.5f};
    ASSERT_EQ(c->prepareDevice(), 0);
    compute::InputStage stage;
    stage.bands = c->bandIndex;
    ASSERT_EQ(prepareKernel(*c, host(), c->roc->classRow(2), stage), 0);
    // Pixels of three bands (b0, b1, b2); the features are (b2, b0).
    EXPECT_EQ(classifyBip(*c, {0, 7, 0, /**/ 0, 7, 10, /**/ 10, 7, 0, /**/ 0, 7, 5}, 3),
              (std::vector<quint8>{0, 1, 2, 2}));
}

TEST(Classifier, FoldedCorrectionClassifiesRawSpectraLikeCorrectedOnes)
{
    auto c = twoClassClassifier();
    ASSERT_EQ(c->prepareDevice(), 0);
    const QVector<float> white{1000, 2000, 3000}, dark{100, 200, 300};
    // Raw pixels whose corrected band 2 is 0.0, 10.0 and 4.0; band 0 stays at 0 after correction.
    const std::vector<float> raw{100, 555, 300, /**/ 100, 555, 300 + 10 * 2700, /**/ 100, 555, 300 + 4 * 2700};

    for (int round = 0; round < 2; ++round) { // the second fold must start from the unfolded projection
        ASSERT_EQ(foldCorrection(*c, white, dark, c->selectedBandCount, c->selectedBands->constData()), 0);
        ASSERT_EQ(c->deviceProjection->inputCount, 3);
        ASSERT_EQ(prepareKernel(*c, host(), {1, 1}, {}), 0);
        EXPECT_EQ(classifyBip(*c, raw, 3), (std::vector<quint8>{0, 1, 0}));
    }
    EXPECT_EQ(foldCorrection(*c, {1, 2}, {0, 0}, 2, c->selectedBands->constData()), -1); // two levels for three bands
}

TEST(Classifier, DeviceCopiesTakeTheShapeTheirCountsState)
{
    ZelkAFPipelineM1 m1;
    m1.inputCount = 3;
    m1.outputCount = 2;
    m1.matrix = floats(6, 1, {1, 2, 3, 4, 5, 6}); // stored flat, staged 3 by 2
    m1.offset = floats(2, 1, {0, 1});
    auto copy = deviceCopy(m1, 65536);
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(copy->matrix.dims(), (HostArray::Dims{3, 2, 1, 1}));
    EXPECT_EQ(copy->offset.dims(), (HostArray::Dims{1, 2, 1, 1}));
    m1.outputCount = 3;
    EXPECT_EQ(deviceCopy(m1, 65536), nullptr);

    ZelkAFPipelineM12 m12;
    EXPECT_EQ(deviceCopy(m12, 65536), nullptr);
    EXPECT_EQ(m12.errorCode, -44001);
    EXPECT_EQ(m12.errorText, "-44001: Model not trained");
    m12.trained = 7;
    m12.inner = std::make_unique<ZelkAFPipelineM2>();
    auto trained = deviceCopy(m12, 65536);
    ASSERT_NE(trained, nullptr);
    EXPECT_EQ(trained->trained, 1);
    EXPECT_NE(trained->inner, nullptr);
}
