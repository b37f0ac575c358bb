#pragma once
#include "compute/backend.h"

namespace compute {

// The host backend. It always exists and is the resting state of the library.
class CpuBackend final : public Backend {
public:
    int number() const override { return 1; }
    QString prefix() const override { return QStringLiteral("CPU:"); }
    QStringList deviceNames() override;
    bool setDevice(int index) override { return index == 0; }
    int device() const override { return 0; }
    std::unique_ptr<ClassifierKernel> prepareClassifier(const ClassifierModel& model) override;
    std::unique_ptr<RegressionKernel> prepareRegression(const LinearMap& map) override;
    std::unique_ptr<ResampleKernel> prepareResampler(const ResampleMap& map) override;
};

} // namespace compute
