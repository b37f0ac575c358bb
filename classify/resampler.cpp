#include "classify/resampler.h"
#include "compute/cpu/vector_math.h"

#include <algorithm>
#include <omp.h>

namespace {

constexpr qint64 ParallelSamples = 1 << 15;

} // namespace

int ZelkResampler::fail(int code, const QString& message)
{
    errorCode = code;
    errorText = QStringLiteral("%1: %2").arg(code).arg(message);
    return code;
}

int ZelkResampler::init(int width_, const ZelkBandSet& source, const ZelkBandSet& destination)
{
    resamplerReady = false;
    if (source.size() < 2)
        return fail(-6001, QStringLiteral("Source band count must be >=2"));
    if (destination.size() < 1)
        return fail(-6001, QStringLiteral("Destination band count must be >=1"));
    if (width_ <= 0)
        return fail(-6001, QStringLiteral("Frame width must be positive"));
    const int sourceCount = source.size();
    const int destCount = destination.size();

    // Both lists are narrowed to float and sorted. The destination must already be in
    // order; the source need not be, and its positions below are those of the sorted
    // list.
    std::vector<float> sorted(source.data(), source.data() + sourceCount);
    std::sort(sorted.begin(), sorted.end());
    std::vector<float> wanted(destination.data(), destination.data() + destCount);
    if (!std::is_sorted(wanted.begin(), wanted.end()))
        return fail(-6002, QStringLiteral("Destination wavelengths are not sorted in increasing order."));
    const float lowest = sorted.front(), highest = sorted.back();

    const size_t count = static_cast<size_t>(destCount);
    std::vector<int> low(count), high(count);
    std::vector<float> fraction(count);
    int walk = 0;
    for (int j = 0; j < destCount; ++j) {
        const float w = wanted[size_t(j)];
        if (!(w >= lowest && w <= highest))
            return fail(-6003, QStringLiteral("Destination wavelength %1 out of source wavelength range (%2,%3)")
                                   .arg(double(w), 0, 'g').arg(double(lowest), 0, 'g').arg(double(highest), 0, 'g'));
        int lower;
        if (w == lowest)
            lower = 0;
        else if (w == highest)
            lower = sourceCount - 2;
        else {
            while (walk < sourceCount - 1 && !(sorted[size_t(walk)] <= w && w < sorted[size_t(walk) + 1]))
                ++walk;
            if (walk >= sourceCount - 1)
                return -1;
            lower = walk;
        }
        low[size_t(j)] = lower;
        high[size_t(j)] = lower + 1;
        fraction[size_t(j)] = (w - sorted[size_t(lower)]) / (sorted[size_t(lower) + 1] - sorted[size_t(lower)]);
    }
    width = width_;
    sourceBands = sourceCount;
    destBands = destCount;
    lowBand_ = std::move(low);
    highBand_ = std::move(high);
    fraction_ = std::move(fraction);
    resamplerReady = true;
    return 0;
}

void ZelkResampler::resample(const quint16* frame, quint16* out) const
{
    // The destination bands are independent: a frame's bands are shared between the
    // cores, a narrow frame stays on one.
    const int threads = qint64(width) * destBands >= ParallelSamples ? std::max(1, omp_get_max_threads()) : 1;
#pragma omp parallel for num_threads(threads) schedule(static) if (threads > 1)
    for (int j = 0; j < destBands; ++j)
        compute::cpu::interpolateSamples(frame + size_t(lowBand_[size_t(j)]) * width, frame + size_t(highBand_[size_t(j)]) * width,
                                         fraction_[size_t(j)], out + size_t(j) * width, width);
}
