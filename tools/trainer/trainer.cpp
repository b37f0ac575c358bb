#include "trainer/trainer.h"

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

void symmetricEigen(std::vector<double> a, int n, std::vector<double>* values, std::vector<double>* vectors)
{
    std::vector<double> v(size_t(n) * n, 0.0);
    for (int i = 0; i < n; ++i)
        v[size_t(i) * n + i] = 1.0;
    auto at = [n](std::vector<double>& m, int r, int c) -> double& { return m[size_t(c) * n + r]; };

    double total = 0;
    for (double x : a)
        total += x * x;
    for (int sweep = 0; sweep < 60; ++sweep) {
        double off = 0;
        for (int q = 0; q < n; ++q)
            for (int p = 0; p < q; ++p)
                off += at(a, p, q) * at(a, p, q);
        if (off <= 1e-24 * total)
            break;
        for (int q = 1; q < n; ++q) {
            for (int p = 0; p < q; ++p) {
                const double apq = at(a, p, q);
                if (std::abs(apq) <= 1e-300)
                    continue;
                // The rotation in the (p, q) plane that zeroes a(p, q): the smaller root
                // of t² + 2θt − 1 = 0, for stability.
                const double theta = (at(a, q, q) - at(a, p, p)) / (2 * apq);
                const double t = (theta >= 0 ? 1.0 : -1.0) / (std::abs(theta) + std::sqrt(theta * theta + 1));
                const double c = 1 / std::sqrt(t * t + 1), s = t * c;
                for (int k = 0; k < n; ++k) {
                    const double kp = at(a, k, p), kq = at(a, k, q);
                    at(a, k, p) = c * kp - s * kq;
                    at(a, k, q) = s * kp + c * kq;
                }
                for (int k = 0; k < n; ++k) {
                    const double pk = at(a, p, k), qk = at(a, q, k);
                    at(a, p, k) = c * pk - s * qk;
                    at(a, q, k) = s * pk + c * qk;
                }
                for (int k = 0; k < n; ++k) {
                    const double kp = at(v, k, p), kq = at(v, k, q);
                    at(v, k, p) = c * kp - s * kq;
                    at(v, k, q) = s * kp + c * kq;
                }
            }
        }
    }

    std::vector<int> order(static_cast<size_t>(n));
    for (int i = 0; i < n; ++i)
        order[size_t(i)] = i;
    std::sort(order.begin(), order.end(), [&](int x, int y) { return at(a, x, x) > at(a, y, y); });
    values->assign(size_t(n), 0.0);
    vectors->assign(size_t(n) * n, 0.0);
    for (int j = 0; j < n; ++j) {
        (*values)[size_t(j)] = at(a, order[size_t(j)], order[size_t(j)]);
        std::copy_n(v.begin() + ptrdiff_t(order[size_t(j)]) * n, n, vectors->begin() + ptrdiff_t(j) * n);
    }
}

namespace {

double squaredDistance(const double* x, const double* y, int n)
{
    double d = 0;
    for (int i = 0; i < n; ++i)
        d += (x[i] - y[i]) * (x[i] - y[i]);
    return d;
}

// k centres of `points` (n points of `dims` values each) by k-means++ seeding and Lloyd
// rounds. An emptied cluster takes the point farthest from its centre.
std::vector<double> kmeans(const std::vector<double>& points, int dims, int k, int rounds, std::mt19937& rng)
{
    const int n = int(points.size() / size_t(dims));
    auto point = [&](int i) { return points.data() + size_t(i) * dims; };
    std::vector<double> centres;
    std::vector<double> nearest(size_t(n), std::numeric_limits<double>::max());
    int chosen = std::uniform_int_distribution<int>(0, n - 1)(rng);
    for (int c = 0; c < k; ++c) {
        centres.insert(centres.end(), point(chosen), point(chosen) + dims);
        double sum = 0;
        for (int i = 0; i < n; ++i) {
            nearest[size_t(i)] = std::min(nearest[size_t(i)], squaredDistance(point(i), point(chosen), dims));
            sum += nearest[size_t(i)];
        }
        double pick = std::uniform_real_distribution<double>(0, sum)(rng);
        for (chosen = 0; chosen < n - 1 && pick >= nearest[size_t(chosen)]; ++chosen)
            pick -= nearest[size_t(chosen)];
    }

    std::vector<int> member(size_t(n), 0);
    for (int round = 0; round < rounds; ++round) {
        for (int i = 0; i < n; ++i) {
            double best = std::numeric_limits<double>::max();
            for (int c = 0; c < k; ++c) {
                const double d = squaredDistance(point(i), centres.data() + size_t(c) * dims, dims);
                if (d < best) {
                    best = d;
                    member[size_t(i)] = c;
                }
            }
        }
        std::vector<double> sums(size_t(k) * dims, 0.0);
        std::vector<int> counts(size_t(k), 0);
        for (int i = 0; i < n; ++i) {
            ++counts[size_t(member[size_t(i)])];
            for (int d = 0; d < dims; ++d)
                sums[size_t(member[size_t(i)]) * dims + d] += point(i)[d];
        }
        for (int c = 0; c < k; ++c) {
            double* centre = centres.data() + size_t(c) * dims;
            if (counts[size_t(c)] > 0) {
                for (int d = 0; d < dims; ++d)
                    centre[d] = sums[size_t(c) * dims + d] / counts[size_t(c)];
                continue;
            }
            int far = 0;
            double farthest = -1;
            for (int i = 0; i < n; ++i) {
                const double d = squaredDistance(point(i), centres.data() + size_t(member[size_t(i)]) * dims, dims);
                if (d > farthest) {
                    farthest = d;
                    far = i;
                }
            }
            std::copy_n(point(far), dims, centre);
        }
    }
    return centres;
}

// Solves the symmetric positive definite system g x = r for `columns` right-hand sides
// (g n x n, r n x columns, both column-major) by Cholesky factorisation.
std::vector<double> solveSpd(std::vector<double> g, int n, std::vector<double> r, int columns)
{
    auto at = [n](std::vector<double>& m, int i, int j) -> double& { return m[size_t(j) * n + i]; };
    for (int j = 0; j < n; ++j) {
        double d = at(g, j, j);
        for (int k = 0; k < j; ++k)
            d -= at(g, j, k) * at(g, j, k);
        if (d <= 0)
            throw std::runtime_error("the least-squares system is singular");
        at(g, j, j) = std::sqrt(d);
        for (int i = j + 1; i < n; ++i) {
            double s = at(g, i, j);
            for (int k = 0; k < j; ++k)
                s -= at(g, i, k) * at(g, j, k);
            at(g, i, j) = s / at(g, j, j);
        }
    }
    for (int c = 0; c < columns; ++c) {
        double* x = r.data() + size_t(c) * n;
        for (int i = 0; i < n; ++i) {
            for (int k = 0; k < i; ++k)
                x[i] -= at(g, i, k) * x[k];
            x[i] /= at(g, i, i);
        }
        for (int i = n - 1; i >= 0; --i) {
            for (int k = i + 1; k < n; ++k)
                x[i] -= at(g, k, i) * x[k];
            x[i] /= at(g, i, i);
        }
    }
    return r;
}

} // namespace

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

int Model::decide(const float* spectrum) const
{
    const std::vector<float> s = scores(spectrum);
    const int best = int(std::max_element(s.begin(), s.end()) - s.begin());
    return s[size_t(best)] < thresholds[size_t(best)] ? classes : best;
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
