#pragma once
// A regression model: filter, feature selection, standardisation and a linear map
// that turn each pixel's spectrum into its output variables.

#include "classify/pipeline_elements.h"
#include "compute/backend.h"

#include <QDataStream>
#include <QObject>
#include <QStringList>
#include <QVector>
#include <memory>
#include <vector>

class ZelkDataSet;

class ZelkRegressor : public QObject {
    Q_OBJECT
public:
    explicit ZelkRegressor(QObject* parent = nullptr);
    ~ZelkRegressor() override;

    // Reads the element behind its "ZelkRegressor" tag. 0, or the code of the first
    // failure (-1, -1101 to -1112); what was read up to it stays.
    int load(QDataStream& in);

    // Attach the project's training and test data; the per-sample caches get one zero
    // entry per sample of the data set.
    void setRegData(ZelkDataSet* data);
    void setRegTestData(ZelkDataSet* data);

    // Makes the device twins of the elements present; absent ones stay null.
    void prepareDevice();
    // True when the twins form a chain that can run: a scaling and a model whose sizes
    // follow from the filter and selection before them.
    bool runnable(int bands, QString* why = nullptr) const;

    // Spectra one a column (bands by pixels) to variables by pixels; empty when the
    // block does not fit the chain.
    HostArray predict(const HostArray& block) const;
    // Readies predictFrame for frames of `pixels` pixels and `bands` bands. The chain is
    // linear from end to end, so filter, selection, scaling and model are folded here,
    // in double precision, into one bands-by-variables matrix and one offset per
    // variable, and the kernel of that map is made on `backend`, which later shapes
    // use too. False, with the reason in `why`, when the chain or the device cannot
    // take such frames.
    bool prepareFrames(std::shared_ptr<compute::Backend> backend, int pixels, int bands, QString* why = nullptr);
    // A frame of `pixels` pixels with one band a column (pixels by bands, corrected,
    // all bands) into `output`: the variables of a pixel next to each other. One matrix
    // product; nothing is allocated or compiled once prepareFrames has seen this shape
    // (another shape is prepared first, on the backend of the last prepareFrames, or on
    // the CPU before any).
    bool predictFrame(const float* frame, int pixels, int bands, float* output);
    // The kernel that prepareFrames made; null before.
    const compute::RegressionKernel* frameKernel() const { return frameKernel_.get(); }
    // The frame that prepareFrames made room for on the same device: the caller stages
    // each frame into it, the classifier may read it as well, and predictStaged maps it.
    // Null before.
    compute::StagedFrame* stagedFrame() const { return stagedFrame_.get(); }
    // The staged frame through the kernel into `output`, as predictFrame; false when
    // nothing is prepared or the device failed.
    bool predictStaged(float* output);

    ZelkDataSet* regData = nullptr;
    ZelkDataSet* regTestData = nullptr;
    int regBandCount = 0;
    QVector<int> regBands;
    int device = 65536;
    int modelSettings[2] = {-1, -1};
    std::unique_ptr<ZelkAFPipelineM10> regSelection;
    std::unique_ptr<ZelkAFPipelineM9> regScaling;
    std::unique_ptr<ZelkAFPipelineM7> regPrep;
    std::unique_ptr<ZelkAFPipelineM1> regModel;
    std::unique_ptr<ZelkAFPipelineM12> regDormant;
    QStringList regVarNames;
    QVector<double> sampleCaches[3];
    QVector<double> testSampleCaches[3];
    double carriedValues[2] = {0.75, 2.0};
    bool carriedFlags[2] = {true, true};

    std::unique_ptr<ZelkAFPipelineM10> deviceSelection;
    std::unique_ptr<ZelkAFPipelineM9> deviceScaling;
    std::unique_ptr<ZelkAFPipelineM7> deviceFilter;
    std::unique_ptr<ZelkAFPipelineM1> deviceModel;
    std::unique_ptr<ZelkAFPipelineM12> deviceDormant;

Q_SIGNALS:
    void displayMessage(QString text);
    void setBatchProgress(QString text, int value);

private:
    // The kernel of prepareFrames, for frames of that shape; a shape of 0 pixels means none.
    int framePixels_ = 0;
    int frameBands_ = 0;
    std::unique_ptr<compute::RegressionKernel> frameKernel_;
    std::shared_ptr<compute::Backend> frameBackend_;
    std::unique_ptr<compute::StagedFrame> stagedFrame_;
};
