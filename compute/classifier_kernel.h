#pragma once
// Turns blocks of spectra into one decision byte per pixel: 0 .. C-1 for the class with
// the largest weighted score, C for a pixel whose best weighted score is strictly below
// its class's threshold.

#include "compute/classifier_model.h"
#include "compute/sample_block.h"
#include "compute/staged_frame.h"

#include <QVector>
#include <QtGlobal>

namespace compute {

// How blocks of camera samples become the spectra a classifier takes: band selection,
// conversion to float and the reflectance correction (x - dark) * gain, per pixel and
// band.
struct InputStage {
    // Band numbers taken from each pixel, in the order of the model's bands. Empty: the
    // block holds exactly the model's bands.
    QVector<int> bands;
    // Correction of a frame `width` pixels wide, both width by model bands with the pixel
    // index running fastest. An empty dark means no correction; an empty gain with a
    // dark only subtracts (the gain then sits in the model).
    int width = 0;
    QVector<float> dark;
    QVector<float> gain;

    // True when the stage can take `block` for a model of `modelBands` bands.
    bool fits(const SampleBlock& block, int modelBands) const;
};

class ClassifierKernel {
public:
    virtual ~ClassifierKernel() = default;

    // The operating point: one weight per class, multiplied into the scores.
    virtual void setClassRow(const QVector<float>& row) = 0;

    // `spectra` holds n pixels of B float bands in `layout`; n decisions are written.
    // False, with nothing written, when the device failed; host kernels always succeed.
    virtual bool classify(const float* spectra, SpectraLayout layout, int n, quint8* decisions) = 0;

    // Makes room for blocks of up to `pixels` pixels before the first one comes, so
    // that blocks of that size allocate nothing and compile nothing. False when the
    // device cannot hold them.
    virtual bool reserve(int pixels) { return pixels >= 0; }

    // How blocks of camera samples become spectra: fixed for an acquisition.
    void setInputStage(InputStage stage)
    {
        stage_ = std::move(stage);
        inputStageChanged();
    }

    // Stages a block of samples and classifies it; false, with nothing written, when
    // the block does not fit the stage and the model, or when the device failed.
    bool classifySamples(const SampleBlock& block, quint8* decisions);

    // Classifies a staged frame, the stage picking the model's bands from it (a
    // correction of the stage would apply on top). By default through the frame's host
    // copy; device backends read their own frames where they lie. False, with nothing
    // written, as classifySamples, or when the frame is not where the kernel can read it.
    virtual bool classifyFrame(const StagedFrame& frame, quint8* decisions);

protected:
    // Stages a block that fits and classifies it, each backend in its own way: the CPU
    // tile by tile into its workspace, a device inside its kernels.
    virtual bool classifyStaged(const SampleBlock& block, quint8* decisions) = 0;
    // Called after every setInputStage; device backends copy the stage over here.
    virtual void inputStageChanged() {}
    virtual int modelBands() const = 0;

    InputStage stage_;
};

} // namespace compute
