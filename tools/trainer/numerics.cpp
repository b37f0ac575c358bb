#include "trainer/numerics.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <stdexcept>

namespace trainer {

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


double squaredDistance(const double* x, const double* y, int n)
{
    double d = 0;
    for (int i = 0; i < n; ++i)
        d += (x[i] - y[i]) * (x[i] - y[i]);
    return d;
}

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


} // namespace trainer
