// Pipeline elements on the host: the filter matrix, the products and the chunk walk.

#include "classify/apply_elements.h"

#include <QtGlobal>
#include <cmath>
#include <gtest/gtest.h>
#include <random>

namespace {

HostArray block(int rows, int columns, const std::function<float(int, int)>& value)
{
    QVector<float> v(rows * columns);
    for (int c = 0; c < columns; ++c)
        for (int r = 0; r < rows; ++r)
            v[c * rows + r] = value(r, c);
    return HostArray({rows, columns, 1, 1}, v);
}

float at(const HostArray& a, int row, int column)
{
    return a.f32()[int(column * a.dim(0) + row)];
}

ZelkAFPipelineM7 filter(int bands, int derivative, int window)
{
    ZelkAFPipelineM7 f;
    EXPECT_EQ(f.buildFilter(bands, derivative, window), 0);
    return f;
}

int infoLines = 0;
void countInfo(QtMsgType type, const QMessageLogContext&, const QString& text)
{
    if (type == QtInfoMsg && text == QLatin1String("s8 e"))
        ++infoLines;
}

} // namespace

TEST(SavitzkyGolay, BuildsOnlyTheTabulatedPairsAndWholeWindows)
{
    ZelkAFPipelineM7 f;
    for (auto [d, w] : {std::pair{0, 3}, std::pair{0, 17}, std::pair{0, 19}, std::pair{1, 21}, std::pair{2, 5}, std::pair{2, 11},
                        std::pair{3, 5}})
        EXPECT_EQ(f.buildFilter(40, d, w), -1) << d << "/" << w;
    EXPECT_TRUE(f.matrix.isEmpty()); // a refused pair leaves the matrix as it was
    EXPECT_EQ(f.buildFilter(40, 1, 19), 0);
    EXPECT_EQ(f.outputBands, 22);
    EXPECT_EQ(f.buildFilter(4, 0, 5), -1);
    EXPECT_EQ(f.buildFilter(5, 0, 5), 0);
    EXPECT_EQ(f.outputBands, 1);
    EXPECT_EQ(f.offset.elements(), 1);
    EXPECT_EQ(f.offset.f32()[0], 0.0f);
}

TEST(SavitzkyGolay, MatrixColumnsHoldTheWeightsShiftedByOneBand)
{
    const ZelkAFPipelineM7 f = filter(7, 0, 5); // 3 output bands
    ASSERT_EQ(f.matrix.dim(0), 7);
    ASSERT_EQ(f.matrix.dim(1), 3);
    const float w[] = {-3.0f / 35, 12.0f / 35, 17.0f / 35, 12.0f / 35, -3.0f / 35};
    for (int column = 0; column < 3; ++column)
        for (int row = 0; row < 7; ++row) {
            const int j = row - column;
            EXPECT_EQ(at(f.matrix, row, column), j >= 0 && j < 5 ? w[j] : 0.0f) << row << "," << column;
        }
}

// The least-squares weights that give the coefficient of x^d at the centre of w points
// for a polynomial of degree p: row d of (AᵀA)⁻¹Aᵀ, A the Vandermonde matrix of the
// offsets -(w-1)/2 .. (w-1)/2, solved here by elimination in extended precision.
std::vector<long double> leastSquaresWeights(int d, int w, int p)
{
    const int n = p + 1, m = w / 2;
    std::vector<std::vector<long double>> a(n, std::vector<long double>(n + w, 0));
    for (int r = 0; r < n; ++r) {
        for (int c = 0; c < n; ++c)
            for (int x = -m; x <= m; ++x)
                a[r][c] += std::pow((long double)x, r + c);
        for (int j = 0; j < w; ++j)
            a[r][n + j] = std::pow((long double)(j - m), r);
    }
    for (int col = 0; col < n; ++col)
        for (int r = 0; r < n; ++r)
            if (r != col) {
                const long double f = a[r][col] / a[col][col];
                for (int c = 0; c < n + w; ++c)
                    a[r][c] -= f * a[col][c];
            }
    std::vector<long double> weights(w);
    for (int j = 0; j < w; ++j)
        weights[j] = a[d][n + j] / a[d][d];
    return weights;
}

TEST(SavitzkyGolay, EveryPairHoldsTheFittedWeightsRoundedToFloat)
{
    struct Pair { int derivative, window, degree; };
    std::vector<Pair> pairs;
    for (int w : {5, 7, 9, 11, 13, 15})
        pairs.push_back({0, w, 2});
    for (int w : {5, 7, 9, 11, 13, 15, 19, 27})
        pairs.push_back({1, w, 2});
    pairs.push_back({2, 9, 2});
    pairs.push_back({2, 15, 4});
    pairs.push_back({2, 19, 4});
    for (const Pair& p : pairs) {
        const ZelkAFPipelineM7 f = filter(p.window, p.derivative, p.window);
        ASSERT_EQ(f.matrix.dim(1), 1) << p.derivative << "/" << p.window;
        const std::vector<long double> c = leastSquaresWeights(p.derivative, p.window, p.degree);
        for (int j = 0; j < p.window; ++j)
            EXPECT_EQ(at(f.matrix, j, 0), float(c[j])) << p.derivative << "/" << p.window << " weight " << j;
    }
}

TEST(SavitzkyGolay, PolynomialsComeOutAsTheirValueSlopeAndCurvature)
{
    // Every filter of the table is exact for polynomials up to its degree: smoothing
    // keeps a parabola, the first derivative of x² + 3x at the centre is 2x + 3, and
    // derivative 2 gives the coefficient of x², 1, not the second derivative 2.
    struct Pair { int derivative, window; };
    for (Pair p : {Pair{0, 5}, Pair{0, 15}, Pair{1, 7}, Pair{1, 27}, Pair{2, 9}, Pair{2, 15}, Pair{2, 19}}) {
        const int bands = 40;
        const ZelkAFPipelineM7 f = filter(bands, p.derivative, p.window);
        const HostArray spectrum = block(bands, 1, [](int r, int) { return 0.01f * r * r + 0.3f * r + 2.0f; });
        const HostArray out = applyFilter(f, spectrum);
        ASSERT_EQ(out.dim(0), bands - p.window + 1);
        for (int i = 0; i < out.dim(0); ++i) {
            const float x = float(i + p.window / 2);
            const float expected = p.derivative == 0 ? 0.01f * x * x + 0.3f * x + 2.0f : p.derivative == 1 ? 0.02f * x + 0.3f : 0.01f;
            EXPECT_NEAR(at(out, i, 0), expected, 2e-4f) << p.derivative << "/" << p.window << " band " << i;
        }
    }
}

TEST(ApplyElements, LinearIsTheTransposedProductPlusOffset)
{
    std::mt19937 rng(7);
    std::uniform_real_distribution<float> u(-1, 1);
    ZelkAFPipelineM1 m;
    m.inputCount = 6;
    m.outputCount = 3;
    m.matrix = block(6, 3, [&](int, int) { return u(rng); });
    m.offset = block(1, 3, [&](int, int) { return u(rng); });
    const HostArray in = block(6, 11, [&](int, int) { return u(rng); });
    const HostArray out = applyLinear(m, in);
    ASSERT_EQ(out.dim(0), 3);
    ASSERT_EQ(out.dim(1), 11);
    for (int c = 0; c < 11; ++c)
        for (int o = 0; o < 3; ++o) {
            double sum = at(m.offset, 0, o);
            for (int i = 0; i < 6; ++i)
                sum += double(at(m.matrix, i, o)) * at(in, i, c);
            EXPECT_NEAR(at(out, o, c), sum, 1e-5);
        }
    EXPECT_TRUE(applyLinear(m, block(5, 2, [](int, int) { return 1.0f; })).isEmpty()); // wrong band count
}

TEST(ApplyElements, WideBlocksAreWalkedInChunksOf5000Columns)
{
    const ZelkAFPipelineM7 f = filter(5, 0, 5);
    const auto previous = qInstallMessageHandler(countInfo);
    struct Case { int columns, chunks; };
    for (Case c : {Case{4999, 0}, Case{5000, 1}, Case{5001, 2}, Case{12000, 3}}) {
        infoLines = 0;
        const HostArray out = applyFilter(f, block(5, c.columns, [](int r, int col) { return float(r + col % 7); }));
        EXPECT_EQ(infoLines, c.chunks) << c.columns;
        ASSERT_EQ(out.dim(1), c.columns);
        // The last column of every chunk is computed like any other.
        const int last = c.columns - 1;
        EXPECT_NEAR(at(out, 0, last), 2.0f + last % 7, 1e-5f);
    }
    qInstallMessageHandler(previous);
}

TEST(ApplyElements, SelectionKeepsRowsInTheGivenOrder)
{
    ZelkAFPipelineM10 s;
    s.indices = HostArray({4, 1, 1, 1}, QVector<qint32>{3, 2, 1, 0});
    s.selectedCount = 4;
    for (int columns : {3, 19999, 20000, 20001}) {
        const HostArray out = applySelection(s, block(4, columns, [](int r, int c) { return float(10 * c + r); }));
        ASSERT_EQ(out.dim(1), columns);
        EXPECT_EQ(at(out, 0, 0), 3.0f);
        EXPECT_EQ(at(out, 3, columns - 1), 10.0f * (columns - 1));
    }
    s.indices = HostArray({2, 1, 1, 1}, QVector<qint32>{0, 4});
    EXPECT_TRUE(applySelection(s, block(4, 2, [](int, int) { return 0.0f; })).isEmpty());
}

TEST(ApplyElements, ScalingSubtractsThenMultiplies)
{
    ZelkAFPipelineM9 s;
    s.mean = block(2, 1, [](int r, int) { return r == 0 ? 1.0f : -2.0f; });
    s.scale = block(2, 1, [](int r, int) { return r == 0 ? 0.5f : 0.0f; });
    const HostArray out = applyScaling(s, block(2, 2, [](int r, int c) { return float(5 + r + c); }));
    EXPECT_EQ(at(out, 0, 0), 2.0f);  // (5 - 1) * 0.5
    EXPECT_EQ(at(out, 0, 1), 2.5f);  // (6 - 1) * 0.5
    EXPECT_EQ(at(out, 1, 0), 0.0f);  // a zero scale gives zero, no division
}
