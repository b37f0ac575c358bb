#pragma once
// Maps frames of spectra onto output variables with one linear map, y = Wᵀx + o: the
// whole chain of a regressor folded into one matrix and one offset. A frame holds its
// pixels with one band a column, as BIL frames arrive; the outputs hold the variables
// of a pixel next to each other.

#include "compute/staged_frame.h"

#include <QVector>

namespace compute {

struct LinearMap {
    int bands = 0;            // B
    int variables = 0;        // V
    QVector<float> weights;   // B by V, column-major
    QVector<float> offset;    // V

    bool consistent() const
    {
        return bands > 0 && variables > 0 && weights.size() == qint64(bands) * variables && offset.size() == variables;
    }
};

class RegressionKernel {
public:
    virtual ~RegressionKernel() = default;

    // `frame` holds n pixels by B bands; n times V outputs are written. False, with
    // nothing written, when the device failed; host kernels always succeed.
    virtual bool predict(const float* frame, int pixels, float* outputs) = 0;
    // The same for a staged frame of the map's bands: by default through its host copy;
    // device backends read their own frames where they lie. False, with nothing
    // written, when the frame is not where the kernel can read it.
    virtual bool predictFrame(const StagedFrame& frame, float* outputs)
    {
        return frame.host() && predict(frame.host(), frame.pixels(), outputs);
    }

    // Makes room for frames of up to `pixels` pixels, and has the device compile what
    // such frames need, before the first one comes. False when the device cannot.
    virtual bool reserve(int pixels) = 0;
};

} // namespace compute
