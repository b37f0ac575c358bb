#pragma once
// The contract between the library and a compute backend. Only compute/ knows the
// concrete backends; everything else reaches them through this interface and the
// selection functions below.

#include "compute/classifier_kernel.h"
#include "compute/regression_kernel.h"
#include "compute/resample_kernel.h"

#include <QStringList>
#include <memory>

namespace compute {

class Backend {
public:
    virtual ~Backend() = default;

    // 1 CPU, 2 CUDA, 4 OpenCL.
    virtual int number() const = 0;
    // "CPU:", "CUDA:" or "OpenCL:": what the device list puts before a name.
    virtual QString prefix() const = 0;
    // Readable names of the backend's devices, in the backend's own device order.
    virtual QStringList deviceNames() = 0;
    // Makes `index` the device that later work of this backend runs on.
    virtual bool setDevice(int index) = 0;
    virtual int device() const = 0;

    // A kernel for a consistent model on the current device, ready for blocks of any
    // size; null when the device could not take the model (lastError says why).
    virtual std::unique_ptr<ClassifierKernel> prepareClassifier(const ClassifierModel& model) = 0;
    // The same for the folded linear map of a regressor and for a resampling map;
    // null when the device could not take them or they are not consistent.
    virtual std::unique_ptr<RegressionKernel> prepareRegression(const LinearMap& map) = 0;
    virtual std::unique_ptr<ResampleKernel> prepareResampler(const ResampleMap& map) = 0;

    // Why the last device selection or preparation failed, for the caller's report.
    virtual QString lastError() const { return {}; }
};

// Bit mask of the backends this build and machine offer: bit 0 CPU, bit 1 CUDA,
// bit 2 OpenCL.
int availableBackends();
// Whether the backend of that number is available; only that backend is looked for.
bool backendAvailable(int number);

// The backend of that number, or null when it is not available.
Backend* backend(int number);

// Selection is per thread, as a caller's thread feeds one acquisition. False, with the
// selection left as it was, when the backend or device does not exist.
bool selectDevice(int device);
Backend& activeBackend();

// Back to the resting state, the CPU backend.
void rest();

// Selects a device for the lifetime of the object and rests on the CPU afterwards:
// the pattern of every call that does device work outside an acquisition.
class DeviceScope {
public:
    explicit DeviceScope(int device) : ok_(selectDevice(device)) {}
    ~DeviceScope() { rest(); }
    DeviceScope(const DeviceScope&) = delete;
    DeviceScope& operator=(const DeviceScope&) = delete;
    bool ok() const { return ok_; }

private:
    bool ok_;
};

} // namespace compute
