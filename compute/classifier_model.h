#pragma once
// What a classifier kernel needs of a trained classifier, in host memory, column-major:
// a linear projection z = Mᵀx + o of B bands onto F features, a radial basis network of
// K centres, a linear output layer of C classes, the class weights of the operating
// point and, when rejection is on, one threshold per class.

#include <QVector>
#include <vector>

namespace compute {

struct ClassifierModel {
    int bands = 0;    // B
    int features = 0; // F
    int units = 0;    // K
    int classes = 0;  // C
    QVector<float> matrix;     // B by F
    QVector<float> offset;     // F
    QVector<float> centres;    // F by K, one centre a column
    QVector<float> gammas;     // K factors of the squared distances, used as they are
    QVector<float> weights;    // (K + 1) by C; row 0 is the bias of each class
    QVector<float> thresholds; // C, or empty when the classifier does not reject

    bool rejects() const { return !thresholds.isEmpty(); }

    // True when every array has the size that the counts give and every count is
    // positive; kernels are only made for consistent models.
    bool consistent() const
    {
        const qint64 b = bands, f = features, k = units, c = classes;
        return b > 0 && f > 0 && k > 0 && c > 0 && c <= 255 && matrix.size() == b * f && offset.size() == f &&
               centres.size() == f * k && gammas.size() == k && weights.size() == (k + 1) * c &&
               (thresholds.isEmpty() || thresholds.size() == c);
    }
};

// The network in the form the fast kernels use: distances come from
// ‖z‖² − 2zᵀc + ‖c‖², which cancels badly when features and centres lie far from the
// origin. Shifting both by the mean μ of the centres leaves the distances as they are
// and makes the norms small.
struct ShiftedCentres {
    std::vector<float> offset;  // o − μ, F
    std::vector<float> centres; // c_k − μ, F by K
    std::vector<float> norms;   // ‖c_k − μ‖², K
};

// For a consistent model.
ShiftedCentres shiftCentres(const ClassifierModel& model);

// How spectra stand in a block of n pixels: one spectrum a column (B by n: frames in
// BIP and whole cubes) or one band a column (n by B: frames in BIL).
enum class SpectraLayout { BandsByPixels, PixelsByBands };

} // namespace compute
