#pragma once
// The camera's randomness: a counter-based generator, so that any line renders the same
// whatever order lines are rendered in, and the counts of a pixel with their noise.

#include <QtGlobal>
#include <algorithm>
#include <array>
#include <cmath>

namespace scene {

// Standard normal quantiles at 4096 evenly spaced probabilities: a random index gives a
// normal variate, cut off at about 3.5 sigma, with no state beyond the index.
inline const std::array<float, 4096>& normalTable()
{
    static const std::array<float, 4096> table = [] {
        std::array<float, 4096> t{};
        for (size_t i = 0; i < t.size(); ++i) {
            const double p = (double(i) + 0.5) / double(t.size());
            double lo = -10, hi = 10;
            for (int step = 0; step < 80; ++step) {
                const double mid = 0.5 * (lo + hi);
                (0.5 * std::erfc(-mid / std::sqrt(2.0)) < p ? lo : hi) = mid;
            }
            t[i] = float(0.5 * (lo + hi));
        }
        return t;
    }();
    return table;
}

// A small counter-based generator: the stream of (seed, a, b) is the same whatever
// order lines are rendered in.
class Random {
public:
    Random(quint64 seed, quint64 a, quint64 b) : state_(mix(seed ^ mix(a * 0x9E3779B97F4A7C15ull + b))) {}
    quint64 next() { return mix(state_ += 0x9E3779B97F4A7C15ull); }
    double uniform() { return double(next() >> 11) * (1.0 / 9007199254740992.0); }
    double uniform(double lo, double hi) { return lo + (hi - lo) * uniform(); }
    float normal() { return normalTable()[next() >> 52]; }

private:
    static quint64 mix(quint64 z)
    {
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
        return z ^ (z >> 31);
    }
    quint64 state_;
};


// Counts of a pixel of reflectance r: the dark level, the lamp's signal and the noise
// of both (shot noise of the signal, read noise of the dark level).
inline quint16 count(double dark, double signal, Random& random)
{
    const double sigma = std::sqrt(0.5 * signal + 144.0);
    return quint16(std::clamp(std::lround(dark + signal + sigma * random.normal()), 0L, 65535L));
}


} // namespace scene
