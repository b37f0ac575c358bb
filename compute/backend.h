#pragma once
// The contract between the library and a compute backend. Only compute/ knows the
// concrete backends; everything else opens the device a caller chose, holds the object
// it gets and hands it to whatever prepares device work. Failures come back with the
// call that failed: a null kernel and the reason in `error`.

#include "compute/classifier_kernel.h"
#include "compute/regression_kernel.h"
#include "compute/resample_kernel.h"
#include "compute/staged_frame.h"

#include <QStringList>
#include <memory>

namespace compute {

// One device of one backend.
class Backend {
public:
    virtual ~Backend() = default;

    // The packed device value (device.h) of this device.
    virtual int device() const = 0;
    int number() const { return device() >> 16; }

    // A kernel for a consistent model on this device, ready for blocks of any size;
    // null, with the reason in `error` (when given), when the device could not take it.
    virtual std::unique_ptr<ClassifierKernel> prepareClassifier(const ClassifierModel& model, QString* error) = 0;
    // The same for the folded linear map of a regressor and for a resampling map; null
    // when the device could not take them or they are not consistent.
    virtual std::unique_ptr<RegressionKernel> prepareRegression(const LinearMap& map, QString* error) = 0;
    virtual std::unique_ptr<ResampleKernel> prepareResampler(const ResampleMap& map, QString* error) = 0;
    // Room on this device for staged frames of that shape, which the kernels made here
    // read where they lie; null, with the reason in `error`, when the device refuses.
    virtual std::unique_ptr<StagedFrame> prepareFrame(int pixels, int bands, QString* error) = 0;
};

// Bit mask of the backends this build and machine offer: bit 0 CPU, bit 1 CUDA,
// bit 2 OpenCL.
int availableBackends();
// Whether the backend of that number is available; only that backend is looked for.
bool backendAvailable(int number);

// The readable names of a backend's devices in its own device order, each after the
// backend's prefix ("CPU:", "CUDA:" or "OpenCL:"); empty when it is not available.
QStringList deviceNames(int number);

// The device of that packed value, for the caller to hold while it runs work there
// (and for whatever must re-prepare work on it later to share); null, with the reason
// in `error` (when given), when the backend or device does not exist. The CPU device
// always opens.
std::shared_ptr<Backend> openDevice(int device, QString* error = nullptr);

} // namespace compute
