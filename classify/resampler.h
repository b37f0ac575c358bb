#pragma once
// Maps unsigned 16-bit BIL frames from a camera's band grid to a project's band grid by
// linear interpolation between the two neighbouring source bands. All searching happens
// in init(); a frame then costs two look-ups, two products and a rounding per sample.

#include "compute/backend.h"
#include "compute/staged_frame.h"

#include <QString>
#include <QVector>
#include <memory>

// A list of wavelengths, or none.
class ZelkBandSet {
public:
    ZelkBandSet() = default;
    explicit ZelkBandSet(const QVector<double>* wavelengths) : present_(wavelengths != nullptr)
    {
        if (wavelengths)
            values_ = *wavelengths;
    }
    int size() const { return present_ ? values_.size() : -1; }
    const double* data() const { return present_ ? values_.constData() : nullptr; }
    const QVector<double>& values() const { return values_; }

private:
    bool present_ = false;
    QVector<double> values_;
};

class ZelkResampler {
public:
    bool resamplerReady = false;
    int device = 65536;
    int width = -1;
    int sourceBands = -1;
    int destBands = 0;
    int errorCode = 0;
    QString errorText;

    // 0, or -6001 / -6002 / -6003 with errorText, or -1.
    int init(int width, const ZelkBandSet& source, const ZelkBandSet& destination);

    // `frame` holds `width` pixels of `sourceBands` bands, one band after another (BIL);
    // `out` receives `width` by `destBands` samples in the same form. On the host, for
    // cubes and references.
    void resample(const quint16* frame, quint16* out) const;

    // The kernel of an acquisition's frames on `backend`; false, with the reason in
    // `why`, when the resampler is not ready or the device cannot take it.
    bool prepareFrames(compute::Backend& backend, QString* why);
    bool framesPrepared() const { return frameKernel_ != nullptr; }
    // One frame through that kernel into `staged`, corrected there with `dark` and `gain`
    // (none when empty); `scratch` holds the resampled frame where the device is the
    // host. False when there is no kernel or the device failed.
    bool stageFrame(compute::StagedFrame& staged, const quint16* frame, quint16* scratch, const QVector<float>& dark,
                    const QVector<float>& gain);

private:
    int fail(int code, const QString& message);

    compute::ResampleMap map_; // positions in the sorted source list
    std::unique_ptr<compute::ResampleKernel> frameKernel_;
};
