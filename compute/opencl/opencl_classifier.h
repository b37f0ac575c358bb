#pragma once
// The classifier kernel on an OpenCL device. The model is copied to the device once,
// when the kernel is made; each block then goes up once (float spectra, or the raw
// camera samples that a device kernel selects, converts and corrects), runs through
// three matrix products and three small kernels on the device, and only the decision
// bytes come back.
//
// Per chunk of pixels, all column-major:
//   Z (F by n) = Mᵀ X                      matrix product
//   z += o − μ, zz = ‖z‖²                  kernel "features"
//   A (K by n) = −2 (C − μ)ᵀ Z              matrix product
//   a = exp(g · max(0, a + ‖c − μ‖² + zz))   kernel "units"
//   S (C by n) = W(1..K)ᵀ A                matrix product
//   weighting, first maximum, rejection     kernel "decide"
// with μ the mean of the centres, as in the CPU kernel (shiftCentres).

#include "compute/classifier_kernel.h"
#include "compute/opencl/device_work.h"

#include <QString>
#include <memory>

namespace compute::opencl {

class OpenClClassifier final : public ClassifierKernel, public DeviceWork {
public:
    // The source of the device code, part of the backend's program.
    static const char* programSource();

    // Copies a consistent model to the device of `context`; null, with `error` set, when
    // the device refuses a step.
    static std::unique_ptr<OpenClClassifier> create(cl_context context, cl_device_id device, cl_program program,
                                                    const ClassifierModel& model, QString* error);

    void setClassRow(const QVector<float>& row) override;
    bool classify(const float* spectra, SpectraLayout layout, int n, quint8* decisions) override;
    // A frame staged on this device is read where it lies: nothing goes up.
    bool classifyFrame(const StagedFrame& frame, quint8* decisions) override;
    // Allocates the buffers for blocks of `pixels` pixels and runs an empty block of
    // that size in both layouts once, so that the matrix products have compiled their
    // device code before the first frame.
    bool reserve(int pixels) override;

    // Intermediates are held for at most this many pixels; larger blocks go through in
    // chunks, so that a whole cube does not need K floats a pixel of device memory.
    static constexpr int ChunkPixels = 32768;

protected:
    bool classifyStaged(const SampleBlock& block, quint8* decisions) override;
    void inputStageChanged() override;
    int modelBands() const override { return model_.bands; }

private:
    explicit OpenClClassifier(const ClassifierModel& model);
    bool init(cl_context context, cl_device_id device, cl_program program);

    // Room for an n-pixel block, and `rawBytes` of camera samples.
    bool fitBlock(int n, size_t rawBytes);
    // Stages the n-pixel block in `raw` into `spectra_`, then classifies it.
    bool stageAndRun(cl_mem raw, SampleType type, SpectraLayout layout, int n, int inBands, quint8* decisions);
    // Classifies the n spectra in `spectra_` and copies the decisions to the host.
    bool run(SpectraLayout layout, int n, quint8* decisions);

    ClassifierModel model_;
    QVector<float> classRow_;
    bool rowReady_ = false;
    bool stageReady_ = false;
    int correction_ = 0; // 0 none, 1 dark subtracted, 2 dark subtracted and gain applied

    Kernel stageU16_, stageF32_, features_, units_, decide_;

    // The model, made once.
    DeviceArray matrix_, offset_, centres_, norms_, gammas_, weights_, thresholds_, row_;
    // The input stage, replaced by setInputStage.
    DeviceArray bands_, dark_, gain_;
    // Block buffers, grown to the largest block so far.
    DeviceArray raw_, spectra_, decisions_;
    DeviceArray z_, zz_, a_, s_;
    int gemmTempCheckedFor_ = -1; // the block size the temporary buffer was sized for
};

} // namespace compute::opencl
