#include "compute/cpu/cpu_resampler.h"
#include "compute/cpu/vector_math.h"

#include <algorithm>

namespace compute::cpu {

void resampleFrame(const ResampleMap& map, const quint16* frame, quint16* out)
{
    const int width = map.width, destBands = map.destBands();
    for (int j = 0; j < destBands; ++j)
        interpolateSamples(frame + size_t(map.low[size_t(j)]) * width, frame + size_t(map.high[size_t(j)]) * width,
                           map.fraction[size_t(j)], out + size_t(j) * width, width);
}

} // namespace compute::cpu

void compute::resampleOnHost(const ResampleMap& map, const quint16* frame, quint16* out)
{
    cpu::resampleFrame(map, frame, out);
}
