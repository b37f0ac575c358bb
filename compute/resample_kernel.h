#pragma once
// Resamples unsigned 16-bit frames held band after band (BIL) from one band grid to
// another: each destination band interpolates linearly between two source bands,
// y = hi·t − lo·(t − 1), rounded half away from zero and clamped to the 16-bit range.

#include <QtGlobal>
#include <vector>

namespace compute {

struct ResampleMap {
    int width = 0;       // pixels of a frame
    int sourceBands = 0; // bands of a frame going in
    // Per destination band: the source bands below and above, and the weight t of the
    // one above.
    std::vector<int> low, high;
    std::vector<float> fraction;

    int destBands() const { return int(fraction.size()); }
    bool consistent() const
    {
        const size_t n = fraction.size();
        if (width <= 0 || n == 0 || low.size() != n || high.size() != n)
            return false;
        for (size_t j = 0; j < n; ++j)
            if (low[j] < 0 || low[j] >= sourceBands || high[j] < 0 || high[j] >= sourceBands)
                return false;
        return true;
    }
};

// Resamples one frame on the host, whichever device runs the frames: for the cubes of
// loaders and the like, outside an acquisition.
void resampleOnHost(const ResampleMap& map, const quint16* frame, quint16* out);

class ResampleKernel {
public:
    virtual ~ResampleKernel() = default;
    // `frame`: width by sourceBands samples; `out`: width by destBands. False, with
    // nothing written, when the device failed; host kernels always succeed.
    virtual bool resample(const quint16* frame, quint16* out) = 0;
};

} // namespace compute
