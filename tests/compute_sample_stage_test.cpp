// Staging camera samples into model spectra: band choice, conversion and correction,
// and the CPU kernel's tile-wise staging against staging the whole block first.

#include "classifier_models.h"
#include "compute/cpu/cpu_classifier.h"
#include "compute/cpu/reference_classifier.h"
#include "compute/sample_block.h"

#include <gtest/gtest.h>
#include <random>
#include <set>

using namespace compute;

TEST(SampleStage, SelectsConvertsAndCorrectsInBothLayouts)
{
    // Two pixels of three bands; the model takes bands 2 and 0, in that order.
    InputStage stage;
    stage.bands = {2, 0};
    stage.width = 2;
    stage.dark = {1, 2, /* band 0 */ 10, 20};
    stage.gain = {2, 3, /* band 0 */ 0.5f, 0.25f};

    const quint16 bip[] = {100, 200, 300, /* pixel 1 */ 400, 500, 600};
    SampleBlock block{bip, SampleType::U16, SpectraLayout::BandsByPixels, 2, 3};
    ASSERT_TRUE(stage.fits(block, 2));
    float out[4];
    stageSpectra(block, stage, 2, 0, 2, out);
    // Pixel 0: ((300-1)*2, (100-10)*0.5); pixel 1: ((600-2)*3, (400-20)*0.25).
    EXPECT_EQ(std::vector<float>(out, out + 4), (std::vector<float>{598, 45, 1794, 95}));

    const float bil[] = {100, 400, /* band 1 */ 200, 500, /* band 2 */ 300, 600};
    block = {bil, SampleType::F32, SpectraLayout::PixelsByBands, 2, 3};
    stageSpectra(block, stage, 2, 1, 1, out); // pixel 1 alone
    EXPECT_EQ(std::vector<float>(out, out + 2), (std::vector<float>{1794, 95}));

    stage.gain.clear(); // subtraction only
    stageSpectra(block, stage, 2, 0, 2, out);
    EXPECT_EQ(std::vector<float>(out, out + 4), (std::vector<float>{299, 598, 90, 380}));
}

TEST(SampleStage, RefusesBlocksThatDoNotFit)
{
    const float x[8] = {};
    InputStage stage;
    EXPECT_TRUE(stage.fits({x, SampleType::F32, SpectraLayout::PixelsByBands, 4, 2}, 2));
    EXPECT_FALSE(stage.fits({x, SampleType::F32, SpectraLayout::PixelsByBands, 4, 2}, 3)); // bands differ
    EXPECT_FALSE(stage.fits({nullptr, SampleType::F32, SpectraLayout::PixelsByBands, 4, 2}, 2));
    EXPECT_FALSE(stage.fits({x, SampleType::F32, SpectraLayout::PixelsByBands, -1, 2}, 2));

    stage.bands = {0, 2};
    EXPECT_FALSE(stage.fits({x, SampleType::F32, SpectraLayout::PixelsByBands, 2, 2}, 2)); // band 2 of 2
    EXPECT_TRUE(stage.fits({x, SampleType::F32, SpectraLayout::PixelsByBands, 2, 3}, 2));

    stage.width = 2;
    stage.dark = {0, 0, 0, 0};
    EXPECT_TRUE(stage.fits({x, SampleType::F32, SpectraLayout::PixelsByBands, 2, 3}, 2));
    EXPECT_FALSE(stage.fits({x, SampleType::F32, SpectraLayout::PixelsByBands, 1, 3}, 2)); // not the frame width
    stage.gain = {1, 1, 1};
    EXPECT_FALSE(stage.fits({x, SampleType::F32, SpectraLayout::PixelsByBands, 2, 3}, 2));
    stage.dark.clear();
    stage.gain = {1, 1, 1, 1};
    EXPECT_FALSE(stage.fits({x, SampleType::F32, SpectraLayout::PixelsByBands, 2, 3}, 2)); // gain without dark

    cpu::ReferenceClassifier kernel([] {
        ClassifierModel m;
        m.bands = 2, m.features = 1, m.units = 1, m.classes = 1;
        m.matrix = {1, 1}, m.offset = {0}, m.centres = {0}, m.gammas = {-1}, m.weights = {0, 1};
        return m;
    }());
    quint8 d[2] = {7, 7};
    EXPECT_FALSE(kernel.classifySamples({x, SampleType::F32, SpectraLayout::PixelsByBands, 2, 5}, d));
    EXPECT_EQ(d[0], 7);
}

TEST(SampleStage, TileWiseStagingMatchesWholeBlockStaging)
{
    std::mt19937 rng(7);
    const int inBands = 40, B = 12, F = 5, K = 30, C = 4, W = 700;
    ClassifierModel m;
    m.bands = B, m.features = F, m.units = K, m.classes = C;
    testmodels::fillNormal(m.matrix, B * F, 0.01f, 0, rng);
    testmodels::fillNormal(m.offset, F, 1.0f, 0, rng);
    testmodels::fillNormal(m.centres, F * K, 1.0f, 0, rng);
    testmodels::fillNormal(m.gammas, K, 0.05f, -0.3f, rng);
    testmodels::fillNormal(m.weights, (K + 1) * C, 1.0f, 0, rng);

    InputStage stage;
    for (int b = 0; b < B; ++b)
        stage.bands.append(inBands - 1 - 3 * b); // descending, with gaps
    stage.width = W;
    testmodels::fillNormal(stage.dark, W * B, 5.0f, 100.0f, rng);
    testmodels::fillNormal(stage.gain, W * B, 0.05f, 0.5f, rng);

    std::vector<quint16> u16(size_t(W) * inBands);
    std::vector<float> f32(u16.size());
    for (size_t i = 0; i < u16.size(); ++i)
        f32[i] = u16[i] = quint16(100 + (rng() % 200));

    cpu::CpuClassifier fast(m);
    cpu::ReferenceClassifier plain(m);
    for (const SpectraLayout layout : {SpectraLayout::BandsByPixels, SpectraLayout::PixelsByBands})
        for (const SampleBlock& block : {SampleBlock{u16.data(), SampleType::U16, layout, W, inBands},
                                         SampleBlock{f32.data(), SampleType::F32, layout, W, inBands}}) {
            fast.setInputStage(stage);
            plain.setInputStage(stage);
            std::vector<quint8> a(W, 99), b(W, 98);
            ASSERT_TRUE(fast.classifySamples(block, a.data()));
            ASSERT_TRUE(plain.classifySamples(block, b.data()));
            EXPECT_EQ(a, b);
            EXPECT_GT(std::set<quint8>(a.begin(), a.end()).size(), 1u); // a test with one answer proves little
        }
}
