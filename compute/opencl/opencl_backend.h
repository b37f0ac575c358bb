#pragma once
// The OpenCL backend: every device of every OpenCL platform that can compile
// programs, platforms in the order of their names, devices in each platform's own
// order. A device gets its context and the program of all the backend's device code
// when the first model is prepared on it; both are shared by all kernels on that
// device, so the driver compiles that code once per device.

#include "compute/backend.h"

#include <memory>
#include <vector>

namespace compute {

class OpenClBackend final : public Backend {
public:
    // Enumerates the devices; without an OpenCL platform the list is empty.
    OpenClBackend();
    ~OpenClBackend() override;

    int number() const override { return 4; }
    QString prefix() const override { return QStringLiteral("OpenCL:"); }
    // " <device>, <platform>" for each device.
    QStringList deviceNames() override;
    bool setDevice(int index) override;
    int device() const override;
    std::unique_ptr<ClassifierKernel> prepareClassifier(const ClassifierModel& model) override;
    std::unique_ptr<RegressionKernel> prepareRegression(const LinearMap& map) override;
    std::unique_ptr<ResampleKernel> prepareResampler(const ResampleMap& map) override;
    QString lastError() const override;

    int deviceCount() const { return int(devices_.size()); }

private:
    struct Device;
    // The current device with its context and program; null with the failure set.
    Device* preparedDevice();
    template <typename Kernel, typename Model>
    std::unique_ptr<Kernel> make(const Model& model);
    std::vector<std::unique_ptr<Device>> devices_;
};

} // namespace compute
