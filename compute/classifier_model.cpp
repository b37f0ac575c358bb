#include "compute/classifier_model.h"

namespace compute {

ShiftedCentres shiftCentres(const ClassifierModel& model)
{
    const int F = model.features, K = model.units;
    std::vector<double> mean(size_t(F), 0.0);
    for (int k = 0; k < K; ++k)
        for (int f = 0; f < F; ++f)
            mean[size_t(f)] += model.centres[k * F + f];
    for (double& m : mean)
        m /= K;

    ShiftedCentres s;
    s.offset.resize(size_t(F));
    for (int f = 0; f < F; ++f)
        s.offset[size_t(f)] = float(double(model.offset[f]) - mean[size_t(f)]);
    s.centres.resize(size_t(F) * K);
    s.norms.resize(size_t(K));
    for (int k = 0; k < K; ++k) {
        double norm = 0;
        for (int f = 0; f < F; ++f) {
            const float c = float(double(model.centres[k * F + f]) - mean[size_t(f)]);
            s.centres[size_t(k) * F + f] = c;
            norm += double(c) * c;
        }
        s.norms[size_t(k)] = float(norm);
    }
    return s;
}

} // namespace compute
