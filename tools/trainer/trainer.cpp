#include "trainer/trainer.h"

#include "trainer/numerics.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <stdexcept>

namespace trainer {

void Samples::add(const float* spectrum, int label)
{
    values.insert(values.end(), spectrum, spectrum + bands);
    labels.push_back(label);
}


std::vector<float> Model::scores(const float* x) const
{
    std::vector<double> z(size_t(features), 0.0);
    for (int f = 0; f < features; ++f) {
        double sum = offset[size_t(f)];
        const float* column = projection.data() + size_t(f) * bands;
        for (int b = 0; b < bands; ++b)
            sum += double(column[b]) * x[b];
        z[size_t(f)] = sum;
    }
    std::vector<float> s(static_cast<size_t>(classes));
    for (int c = 0; c < classes; ++c)
        s[size_t(c)] = outputWeights[size_t(c) * (centres + 1)];
    for (int k = 0; k < centres; ++k) {
        double d = 0;
        for (int f = 0; f < features; ++f) {
            const double e = z[size_t(f)] - centreValues[size_t(k) * features + f];
            d += e * e;
        }
        const double a = std::exp(gammas[size_t(k)] * d);
        for (int c = 0; c < classes; ++c)
            s[size_t(c)] += float(a * outputWeights[size_t(c) * (centres + 1) + k + 1]);
    }
    return s;
}

Model train(const Samples& training, const Samples& heldOut, int classes, const Options& o)
{
    const int n = training.count(), bands = training.bands, f = o.components;
    if (bands < f || f < 1 || classes < 1 || heldOut.bands != bands)
        throw std::invalid_argument("training: spectra, features and classes do not fit together");
    std::vector<int> perClass(size_t(classes), 0);
    for (int label : training.labels) {
        if (label < 0 || label >= classes)
            throw std::invalid_argument("training: a label lies outside the classes");
        ++perClass[size_t(label)];
    }
    for (int count : perClass)
        if (count < o.centresPerClass)
            throw std::invalid_argument("training: a class has fewer spectra than centres");

    Model m;
    m.bands = bands;
    m.features = f;
    m.classes = classes;
    m.centres = classes * o.centresPerClass;

    // Principal components of all training spectra.
    std::vector<double> mean(size_t(bands), 0.0);
    for (int i = 0; i < n; ++i)
        for (int b = 0; b < bands; ++b)
            mean[size_t(b)] += training.spectrum(i)[b];
    for (double& v : mean)
        v /= n;
    std::vector<double> cov(size_t(bands) * bands, 0.0), centred(static_cast<size_t>(bands));
    for (int i = 0; i < n; ++i) {
        for (int b = 0; b < bands; ++b)
            centred[size_t(b)] = training.spectrum(i)[b] - mean[size_t(b)];
        for (int c = 0; c < bands; ++c)
            for (int r = c; r < bands; ++r)
                cov[size_t(c) * bands + r] += centred[size_t(r)] * centred[size_t(c)];
    }
    for (int c = 0; c < bands; ++c)
        for (int r = c; r < bands; ++r)
            cov[size_t(r) * bands + c] = cov[size_t(c) * bands + r] /= n;
    std::vector<double> eigenvalues, eigenvectors;
    symmetricEigen(cov, bands, &eigenvalues, &eigenvectors);
    m.projection.assign(eigenvectors.begin(), eigenvectors.begin() + ptrdiff_t(bands) * f);
    m.offset.assign(size_t(f), 0.0f);
    for (int j = 0; j < f; ++j) {
        double sum = 0;
        for (int b = 0; b < bands; ++b)
            sum -= eigenvectors[size_t(j) * bands + b] * mean[size_t(b)];
        m.offset[size_t(j)] = float(sum);
    }

    auto project = [&](const float* x, double* z) {
        for (int j = 0; j < f; ++j) {
            double s = m.offset[size_t(j)];
            for (int b = 0; b < bands; ++b)
                s += double(m.projection[size_t(j) * bands + b]) * x[b];
            z[j] = s;
        }
    };
    std::vector<double> z(size_t(n) * f);
    for (int i = 0; i < n; ++i)
        project(training.spectrum(i), z.data() + size_t(i) * f);

    // Centres of each class, with a width from the class's spread around each.
    std::mt19937 rng(o.seed);
    for (int c = 0; c < classes; ++c) {
        std::vector<double> points;
        for (int i = 0; i < n; ++i)
            if (training.labels[size_t(i)] == c)
                points.insert(points.end(), z.begin() + ptrdiff_t(i) * f, z.begin() + ptrdiff_t(i + 1) * f);
        const std::vector<double> centres = kmeans(points, f, o.centresPerClass, o.kmeansRounds, rng);
        std::vector<double> spread(size_t(o.centresPerClass), 0.0);
        std::vector<int> members(size_t(o.centresPerClass), 0);
        for (size_t p = 0; p < points.size(); p += size_t(f)) {
            int best = 0;
            double bestDistance = std::numeric_limits<double>::max();
            for (int k = 0; k < o.centresPerClass; ++k) {
                const double d = squaredDistance(points.data() + p, centres.data() + size_t(k) * f, f);
                if (d < bestDistance) {
                    bestDistance = d;
                    best = k;
                }
            }
            spread[size_t(best)] += bestDistance;
            ++members[size_t(best)];
        }
        for (int k = 0; k < o.centresPerClass; ++k) {
            const double meanSquare = std::max(members[size_t(k)] ? spread[size_t(k)] / members[size_t(k)] : 0.0, 1e-12);
            m.centreValues.insert(m.centreValues.end(), centres.begin() + ptrdiff_t(k) * f, centres.begin() + ptrdiff_t(k + 1) * f);
            m.gammas.push_back(float(-1.0 / (2.0 * o.width * o.width * meanSquare)));
            m.centreClass.push_back(c);
        }
    }

    // Output weights: least squares from the activations to one-hot targets. The bias
    // row stays 0, so that a spectrum far from every centre scores near 0 in every class
    // and falls below the rejection thresholds.
    const int k = m.centres;
    std::vector<double> gram(size_t(k) * k, 0.0), right(size_t(k) * classes, 0.0), a(static_cast<size_t>(k));
    for (int i = 0; i < n; ++i) {
        for (int u = 0; u < k; ++u) {
            double d = 0;
            for (int j = 0; j < f; ++j) {
                const double e = z[size_t(i) * f + j] - m.centreValues[size_t(u) * f + j];
                d += e * e;
            }
            a[size_t(u)] = std::exp(double(m.gammas[size_t(u)]) * d);
        }
        for (int u = 0; u < k; ++u) {
            for (int v = 0; v < k; ++v)
                gram[size_t(v) * k + u] += a[size_t(u)] * a[size_t(v)];
            right[size_t(training.labels[size_t(i)]) * k + u] += a[size_t(u)];
        }
    }
    double trace = 0;
    for (int u = 0; u < k; ++u)
        trace += gram[size_t(u) * k + u];
    for (int u = 0; u < k; ++u)
        gram[size_t(u) * k + u] += o.ridge * trace / k;
    const std::vector<double> w = solveSpd(gram, k, right, classes);
    m.outputWeights.assign(size_t(k + 1) * classes, 0.0f);
    for (int c = 0; c < classes; ++c)
        for (int u = 0; u < k; ++u)
            m.outputWeights[size_t(c) * (k + 1) + u + 1] = float(w[size_t(c) * k + u]);

    // Thresholds: the quantile of the winning score over the held-out spectra that the
    // classifier assigns to their own class.
    std::vector<std::vector<float>> winning(static_cast<size_t>(classes));
    for (int i = 0; i < heldOut.count(); ++i) {
        const std::vector<float> s = m.scores(heldOut.spectrum(i));
        const int best = int(std::max_element(s.begin(), s.end()) - s.begin());
        if (best == heldOut.labels[size_t(i)])
            winning[size_t(best)].push_back(s[size_t(best)]);
    }
    m.thresholds.assign(size_t(classes), 0.0f);
    for (int c = 0; c < classes; ++c) {
        std::vector<float>& w = winning[size_t(c)];
        if (w.empty())
            continue;
        const size_t at = std::min(w.size() - 1, size_t(o.rejectQuantile * double(w.size())));
        std::nth_element(w.begin(), w.begin() + ptrdiff_t(at), w.end());
        m.thresholds[size_t(c)] = w[at];
    }
    return m;
}

} // namespace trainer
