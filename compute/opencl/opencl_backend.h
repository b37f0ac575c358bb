#pragma once
// The OpenCL backend: every device of every OpenCL platform that can compile
// programs, platforms in the order of their names, devices in each platform's own
// order. A device gets its context and the program of all the backend's device code
// when the first model is prepared on it; both are shared by all kernels on that
// device, whichever handle made them, so the driver compiles that code once per device.

#include "compute/backend.h"

#include <memory>
#include <vector>

namespace compute {

// The devices found, enumerated once for the process.
class OpenClDevices {
public:
    // Enumerates the devices; without an OpenCL platform the list is empty.
    OpenClDevices();
    ~OpenClDevices();

    int count() const { return int(devices_.size()); }
    // " <device>, <platform>" for each device.
    QStringList names() const;
    // Device `index`; null, with `error` set, when there is no such device.
    std::shared_ptr<Backend> open(int index, QString* error);

    struct Device;

private:
    std::vector<std::unique_ptr<Device>> devices_;
};

// One OpenCL device as a caller holds it.
class OpenClBackend final : public Backend {
public:
    OpenClBackend(OpenClDevices::Device& device, int index) : device_(device), index_(index) {}

    int device() const override;
    std::unique_ptr<ClassifierKernel> prepareClassifier(const ClassifierModel& model, QString* error) override;
    std::unique_ptr<RegressionKernel> prepareRegression(const LinearMap& map, QString* error) override;
    std::unique_ptr<ResampleKernel> prepareResampler(const ResampleMap& map, QString* error) override;
    std::unique_ptr<StagedFrame> prepareFrame(int pixels, int bands, QString* error) override;

private:
    template <typename Kernel, typename Model>
    std::unique_ptr<Kernel> make(const Model& model, QString* error);

    OpenClDevices::Device& device_;
    int index_;
};

} // namespace compute
