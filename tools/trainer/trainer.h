#pragma once
// A small trainer for the classifier that models carry: a linear projection onto the
// leading principal components of the training spectra, a radial basis network whose
// centres are k-means centres of each class in that projection, output weights fitted
// by least squares to one-hot targets, and one rejection threshold per class taken as
// a low quantile of the winning scores of held-out spectra of that class.

#include <QStringList>
#include <QVector>
#include <vector>

namespace trainer {

// Spectra one after the other, `bands` values each, with a class index per spectrum.
struct Samples {
    int bands = 0;
    std::vector<float> values;
    std::vector<int> labels;

    int count() const { return int(labels.size()); }
    const float* spectrum(int i) const { return values.data() + size_t(i) * size_t(bands); }
    void add(const float* spectrum, int label);
};

struct Options {
    int components = 6;         // F, the projected features
    int centresPerClass = 3;    // centres of each class; K is classes times this
    double width = 1.5;         // RBF width, in units of a cluster's own spread
    double ridge = 1e-6;        // ridge of the least-squares fit, relative to the mean diagonal
    double rejectQuantile = 0.002; // share of a class's held-out spectra that fall below its threshold
    int kmeansRounds = 30;
    unsigned seed = 1;
};

// The trained classifier, laid out as the model file stores it (column-major arrays).
struct Model {
    int bands = 0, features = 0, centres = 0, classes = 0;
    std::vector<float> projection;    // bands x features
    std::vector<float> offset;        // features: minus the projected training mean
    std::vector<float> centreValues;  // features x centres, a centre per column
    std::vector<float> gammas;        // centres, negative
    std::vector<float> outputWeights; // (centres + 1) x classes, row 0 the bias
    std::vector<int> centreClass;     // the class each centre was found in
    std::vector<float> thresholds;    // classes

    // The class scores of one spectrum, as the library's kernels compute them with an
    // operating point of all ones.
    std::vector<float> scores(const float* spectrum) const;
};

// Trains on `training` and takes the thresholds from `heldOut`. Every class from 0 to
// `classes` - 1 needs at least `centresPerClass` training spectra.
Model train(const Samples& training, const Samples& heldOut, int classes, const Options& options = {});

} // namespace trainer
