#include "classify/resampler.h"
#include "compute/backend.h"

#include <algorithm>

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
    map_.width = width_;
    map_.sourceBands = sourceCount;
    map_.low = std::move(low);
    map_.high = std::move(high);
    map_.fraction = std::move(fraction);
    frameKernel_.reset(); // made for the old map
    resamplerReady = true;
    return 0;
}

void ZelkResampler::resample(const quint16* frame, quint16* out) const
{
    compute::resampleOnHost(map_, frame, out);
}

bool ZelkResampler::prepareFrames(compute::Backend& backend, QString* why)
{
    frameKernel_.reset();
    QString failure;
    if (resamplerReady)
        frameKernel_ = backend.prepareResampler(map_, &failure);
    if (!frameKernel_ && why)
        *why = resamplerReady ? QStringLiteral("the compute device cannot take it: %1").arg(failure)
                              : QStringLiteral("the resampler is not ready");
    return frameKernel_ != nullptr;
}

bool ZelkResampler::stageFrame(compute::StagedFrame& staged, const quint16* frame, quint16* scratch,
                               const QVector<float>& dark, const QVector<float>& gain)
{
    return frameKernel_ && staged.stageResampled(frame, *frameKernel_, scratch, dark, gain);
}
