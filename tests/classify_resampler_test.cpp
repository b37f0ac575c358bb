// Resampling frames and cubes from one wavelength grid to another.

#include "classify/resampler.h"
#include "spectral/spectral_cube.h"

#include <gtest/gtest.h>

namespace {

ZelkResampler made(int width, QVector<double> source, QVector<double> dest)
{
    ZelkResampler r;
    EXPECT_EQ(r.init(width, ZelkBandSet(&source), ZelkBandSet(&dest)), 0) << r.errorText.toStdString();
    return r;
}

std::vector<quint16> run(const ZelkResampler& r, const std::vector<quint16>& frame)
{
    std::vector<quint16> out(size_t(r.width) * r.destBands);
    r.resample(frame.data(), out.data());
    return out;
}

} // namespace

TEST(Resampler, InterpolatesBetweenNeighboursAndRoundsHalfAway)
{
    // Two pixels, bands at 400, 500, 600; one band after another.
    const ZelkResampler r = made(2, {400, 500, 600}, {400, 450, 475, 600});
    const std::vector<quint16> frame = {100, 7, 201, 9, 301, 11};
    // 450 is halfway: (100 + 201) / 2 = 150.5 -> 151; 475 at t 0.75 -> 175.75 -> 176.
    // 400 takes band 0 with t 0, 600 the last band with t 1.
    EXPECT_EQ(run(r, frame), (std::vector<quint16>{100, 7, 151, 8, 176, 9, 301, 11}));

    // Just below one half: 0.49999997 and 1.4999999 round down, where adding 0.5 and
    // truncating would round up.
    const ZelkResampler below = made(2, {0, 1}, {double(0.49999997f)});
    EXPECT_EQ(run(below, {0, 0, 1, 3}), (std::vector<quint16>{0, 1}));
}

TEST(Resampler, SameGridLeavesTheFrameUnchanged)
{
    const ZelkResampler r = made(3, {400, 410, 420, 430}, {400, 410, 420, 430});
    const std::vector<quint16> frame = {1, 2, 3, 65535, 0, 65534, 7, 8, 9, 10, 11, 12};
    EXPECT_EQ(run(r, frame), frame);
}

TEST(Resampler, UnsortedSourceReadsBandsAtTheirSortedPositions)
{
    // The wavelengths are sorted (400, 500) but the bands are read in storage order:
    // a source given as {500, 400} interpolates band 0 as if it were 400.
    const ZelkResampler r = made(1, {500, 400}, {425});
    EXPECT_EQ(run(r, {100, 200}), (std::vector<quint16>{125}));
}

TEST(Resampler, RefusesBadGridsWithTheirCodes)
{
    ZelkResampler r;
    QVector<double> one{400}, two{400, 500}, unsorted{450, 420}, outside{350, 450};
    EXPECT_EQ(r.init(4, ZelkBandSet(&one), ZelkBandSet(&two)), -6001);
    EXPECT_EQ(r.errorText, QStringLiteral("-6001: Source band count must be >=2"));
    EXPECT_EQ(r.init(4, ZelkBandSet(&two), ZelkBandSet()), -6001);
    EXPECT_EQ(r.errorText, QStringLiteral("-6001: Destination band count must be >=1"));
    EXPECT_EQ(r.init(4, ZelkBandSet(&two), ZelkBandSet(&unsorted)), -6002);
    EXPECT_EQ(r.errorText, QStringLiteral("-6002: Destination wavelengths are not sorted in increasing order."));
    EXPECT_EQ(r.init(4, ZelkBandSet(&two), ZelkBandSet(&outside)), -6003);
    EXPECT_EQ(r.errorText, QStringLiteral("-6003: Destination wavelength 350 out of source wavelength range (400,500)"));
    EXPECT_FALSE(r.resamplerReady);
}

TEST(Resampler, CubesAreResampledLineByLineInBilOnly)
{
    const ZelkResampler r = made(2, {400, 500}, {450});
    ZelkSpectralCube cube(DataUInt16, LayoutBIL);
    cube.columns = 2, cube.lines = 2, cube.bands = 2;
    ASSERT_EQ(cube.allocate(8), 0);
    const quint16 values[] = {10, 20, 30, 40, /* line 1 */ 0, 100, 2, 300};
    std::copy(values, values + 8, cube.samples<quint16>());
    int status = 1;
    const auto out = cube.resampled(r, &status);
    ASSERT_TRUE(out);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(out->bands, 1);
    const quint16* s = out->samples<quint16>();
    EXPECT_EQ((std::vector<quint16>(s, s + 4)), (std::vector<quint16>{20, 30, 1, 200}));

    cube.layout = LayoutBIP;
    EXPECT_EQ(cube.resampled(r, &status), nullptr);
    EXPECT_EQ(status, -32030);
    cube.layout = LayoutBIL;
    cube.dataType = DataFloat;
    EXPECT_EQ(cube.resampled(r, &status), nullptr);
    EXPECT_EQ(cube.errorText, QStringLiteral("-32031: Only uint16 data type is supported in resampling"));
    cube.dataType = DataUInt16;
}
