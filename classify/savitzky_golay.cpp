// Savitzky-Golay coefficients and the banded filter matrix.
//
// Each coefficient list holds the least-squares weights that give, at the centre of
// `window` equally spaced points, the smoothed value (derivative 0, quadratic fit), the
// first derivative (derivative 1, quadratic fit) or the coefficient of x² (derivative 2,
// quadratic fit for window 9 and quartic for 15 and 19; half the second derivative).
// The weights are exact fractions; dividing two floats that hold small integers
// exactly rounds each to the nearest float, so nothing is fitted at run time.

#include "classify/pipeline_elements.h"

#include <vector>

namespace {

constexpr qint64 MaxMatrixEntries = qint64(1) << 26;

struct Fraction {
    int numerator;
    int denominator;
};

struct CoefficientList {
    int derivative;
    int window;
    std::vector<Fraction> weights;
};

const std::vector<CoefficientList>& coefficientTable()
{
    static const std::vector<CoefficientList> table = {
#include "classify/savitzky_golay_table.inc"
    };
    return table;
}

const CoefficientList* findCoefficients(int derivative, int window)
{
    for (const CoefficientList& list : coefficientTable())
        if (list.derivative == derivative && list.window == window)
            return &list;
    return nullptr;
}

} // namespace

int ZelkAFPipelineM7::buildFilter(int bands, int derivative_, int window_)
{
    derivative = derivative_;
    window = window_;
    const CoefficientList* list = findCoefficients(derivative_, window_);
    if (!list)
        return -1;
    inputBands = bands;
    outputBands = bands - window_ + 1;
    if (outputBands < 1)
        return -1;
    // A band count from a corrupt file must not ask for gigabytes.
    if (qint64(inputBands) * outputBands > MaxMatrixEntries)
        return -1;

    // Column i holds the weights in rows i .. i + window - 1: output band i is the
    // weighted sum of input bands i .. i + window - 1. The first and last
    // (window - 1) / 2 bands have no whole window and are lost.
    QVector<float> values(qsizetype(inputBands) * outputBands, 0.0f);
    for (int i = 0; i < outputBands; ++i)
        for (int j = 0; j < window_; ++j) {
            const Fraction& f = list->weights[size_t(j)];
            values[qsizetype(i) * inputBands + i + j] = float(f.numerator) / float(f.denominator);
        }
    matrix = HostArray({inputBands, outputBands, 1, 1}, std::move(values));
    offset = HostArray({1, outputBands, 1, 1}, QVector<float>(outputBands, 0.0f));
    return 0;
}
