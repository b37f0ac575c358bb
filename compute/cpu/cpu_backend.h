#pragma once
#include "compute/backend.h"
#include "compute/device.h"

namespace compute {

// The host device. It always exists and is every handle's device until a caller
// chooses another.
class CpuBackend final : public Backend {
public:
    // " <processor>, <n> cores": the one entry of the device list after "CPU:".
    static QString deviceName();

    int device() const override { return defaultDevice; }
    std::unique_ptr<ClassifierKernel> prepareClassifier(const ClassifierModel& model, QString* error) override;
    std::unique_ptr<RegressionKernel> prepareRegression(const LinearMap& map, QString* error) override;
    std::unique_ptr<ResampleKernel> prepareResampler(const ResampleMap& map, QString* error) override;
    std::unique_ptr<StagedFrame> prepareFrame(int pixels, int bands, QString* error) override;
};

} // namespace compute
