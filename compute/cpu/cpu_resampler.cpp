#include "compute/cpu/cpu_resampler.h"
#include "compute/cpu/vector_math.h"

#include <algorithm>
#include <omp.h>

namespace compute::cpu {

void resampleFrame(const ResampleMap& map, const quint16* frame, quint16* out)
{
    constexpr qint64 ParallelSamples = 1 << 15;
    const int width = map.width, destBands = map.destBands();
    const int threads = qint64(width) * destBands >= ParallelSamples ? std::max(1, omp_get_max_threads()) : 1;
#pragma omp parallel for num_threads(threads) schedule(static) if (threads > 1)
    for (int j = 0; j < destBands; ++j)
        interpolateSamples(frame + size_t(map.low[size_t(j)]) * width, frame + size_t(map.high[size_t(j)]) * width,
                           map.fraction[size_t(j)], out + size_t(j) * width, width);
}

} // namespace compute::cpu
