// The regression chain: filter, selection of filtered rows, standardisation and the
// linear map, the checks before it may run, and the data caches.

#include "classify/regressor.h"
#include "wire/data_set.h"

#include <gtest/gtest.h>

namespace {

// Ten camera bands, smoothed with the window-5 filter into six rows, of which rows 5
// and 0 are kept, standardised and mapped onto two variables.
std::unique_ptr<ZelkRegressor> smoothingRegressor()
{
    auto r = std::make_unique<ZelkRegressor>();
    r->regPrep = std::make_unique<ZelkAFPipelineM7>();
    EXPECT_EQ(r->regPrep->buildFilter(10, 0, 5), 0);
    r->regSelection = std::make_unique<ZelkAFPipelineM10>();
    r->regSelection->sourceCount = 6;
    r->regSelection->selectedCount = 2;
    r->regSelection->indices = HostArray({2, 1, 1, 1}, QVector<qint32>{5, 0});
    r->regScaling = std::make_unique<ZelkAFPipelineM9>();
    r->regScaling->featureCount = 2;
    r->regScaling->mean = HostArray({2, 1, 1, 1}, QVector<float>{1, 2});
    r->regScaling->scale = HostArray({2, 1, 1, 1}, QVector<float>{2, 0.5f});
    r->regModel = std::make_unique<ZelkAFPipelineM1>();
    r->regModel->inputCount = 2;
    r->regModel->outputCount = 2;
    r->regModel->matrix = HostArray({2, 2, 1, 1}, QVector<float>{1, 0, /* var 1 */ 1, -1});
    r->regModel->offset = HostArray({1, 2, 1, 1}, QVector<float>{0, 100});
    r->regVarNames = QStringList{"fat", "water"};
    r->prepareDevice();
    return r;
}

// The same chain written out in double precision for one spectrum.
std::vector<double> expected(const std::vector<double>& x)
{
    const double c[5] = {-3 / 35.0, 12 / 35.0, 17 / 35.0, 12 / 35.0, -3 / 35.0};
    auto smooth = [&](int row) {
        double s = 0;
        for (int j = 0; j < 5; ++j)
            s += c[j] * x[size_t(row + j)];
        return s;
    };
    const double w0 = (smooth(5) - 1) * 2, w1 = (smooth(0) - 2) * 0.5;
    return {w0, w0 - w1 + 100};
}

} // namespace

TEST(Regressor, ChainSelectsAmongFilteredRowsAndLaysOutVariablesPerPixel)
{
    auto r = smoothingRegressor();
    QString why;
    ASSERT_TRUE(r->runnable(10, &why)) << why.toStdString();

    // Three pixels, one band a column as frames arrive.
    const int pixels = 3, bands = 10;
    std::vector<std::vector<double>> spectra(pixels);
    std::vector<float> frame(size_t(pixels * bands));
    for (int p = 0; p < pixels; ++p)
        for (int b = 0; b < bands; ++b) {
            const double v = (p + 1) * b * b * 0.25 - p * b + 3;
            spectra[size_t(p)].push_back(float(v));
            frame[size_t(b * pixels + p)] = float(v);
        }
    std::vector<float> out(size_t(pixels * 2), -1);
    ASSERT_TRUE(r->predictFrame(frame.data(), pixels, bands, out.data()));
    for (int p = 0; p < pixels; ++p) {
        const auto y = expected(spectra[size_t(p)]);
        EXPECT_NEAR(out[size_t(p * 2)], y[0], 1e-3) << "pixel " << p;
        EXPECT_NEAR(out[size_t(p * 2 + 1)], y[1], 1e-3) << "pixel " << p;
    }
    EXPECT_FALSE(r->predictFrame(frame.data(), pixels, 9, out.data())); // the filter takes 10 bands
}

TEST(Regressor, RefusesChainsThatCannotRun)
{
    auto r = smoothingRegressor();
    EXPECT_FALSE(r->runnable(12));

    r->regSelection->indices = HostArray({2, 1, 1, 1}, QVector<qint32>{7, 0}); // a camera band, not a filtered row
    r->prepareDevice();
    EXPECT_FALSE(r->runnable(10));

    r = smoothingRegressor();
    r->regVarNames.append("protein");
    EXPECT_FALSE(r->runnable(10));

    r = smoothingRegressor();
    r->regScaling.reset();
    r->prepareDevice();
    QString why;
    EXPECT_FALSE(r->runnable(10, &why));
    EXPECT_FALSE(why.isEmpty());
    EXPECT_TRUE(r->predict(HostArray({10, 1, 1, 1}, QVector<float>(10, 1))).isEmpty());

    r = smoothingRegressor();
    r->regModel->matrix = HostArray({3, 1, 1, 1}, QVector<float>{1, 2, 3}); // four values stated
    r->prepareDevice();
    EXPECT_EQ(r->deviceModel, nullptr);
    EXPECT_FALSE(r->runnable(10));
}

TEST(Regressor, CachesFollowTheAttachedDataSets)
{
    ZelkRegressor r;
    ZelkDataSet data, test;
    data.objectNames = QStringList{"a", "b", "c"};
    test.objectNames = QStringList{"x"};
    r.setRegData(&data);
    r.setRegTestData(&test);
    for (const auto& cache : r.sampleCaches)
        EXPECT_EQ(cache, QVector<double>(3, 0.0));
    for (const auto& cache : r.testSampleCaches)
        EXPECT_EQ(cache, QVector<double>(1, 0.0));
    r.setRegData(nullptr); // keeps the caches
    EXPECT_EQ(r.sampleCaches[2].size(), 3);
    r.setRegTestData(nullptr); // releases them
    EXPECT_TRUE(r.testSampleCaches[0].isEmpty());
}
