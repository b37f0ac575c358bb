#pragma once
// The record behind every exported call. It holds all per-caller state; the only
// process-wide state of the runtime is the error pair in report.cpp.

#include "classify/resampler.h"
#include "model/project.h"
#include "runtime/processing_setup.h"
#include "spectral/camera_kinds.h"
#include "spectral/spectral_cube.h"
#include "compute/backend.h"
#include "compute/device.h"
#include "segment/object_record.h"
#include "zelk.h"

#include <QImage>
#include <QList>
#include <QString>
#include <QVector>
#include <memory>
#include <vector>

struct ZelkDevice {
    int backend = 0;     // 1 CPU, 2 CUDA, 4 OpenCL
    int deviceIndex = 0; // within the backend, from 0
    QString name;        // "CPU: ...", "CUDA: ...", "OpenCL: ..."
};

class ZelkSegmenter;

// Where the handle is in its life. Loading a model is refused while acquiring, so an
// acquiring handle always has a model.
enum class HandleState { Empty, Loaded, Acquiring };

struct ZelkHandle {
    // The code and text of the last failure, which the error getters hand out.
    struct ErrorReport {
        int code = 0;
        std::vector<char> text = std::vector<char>(4096, '\0');
    };

    // The compute devices found, the one models are loaded onto, and that device opened:
    // all device work of the handle is prepared on `opened`.
    struct ComputeDevices {
        QList<ZelkDevice> list;
        int selected = compute::defaultDevice;
        std::shared_ptr<compute::Backend> opened = compute::openDevice(compute::defaultDevice);
    };

    // What the camera hands in: line-scan frames or snapshot cubes, and their geometry.
    struct CameraInput {
        bool lineScan = false;
        int width = 0;
        int height = 0;
        int bands = 0;
        InputType sampleType = InputType::Undefined;
        InputLayout layout = InputLayout::Undefined;
        bool fullBandFrames = true;
    };

    // The ring of decision rows of a line-scan acquisition (or the whole cube's labels).
    struct DecisionRing {
        std::unique_ptr<QImage> labels;
        int frameCount = -1;
        int nextRow = 0;
        int lastRow = 0;
        int rows = 500;
    };

    // The part of a cube that is classified; the rest is filled with one decision.
    struct RegionOfInterest {
        bool enabled = false;
        int col = -1, row = -1, width = -1, height = -1;
        quint8 fill = 0;
        std::vector<float> spectra;    // the ROI's pixels of the last float cube, gathered
        std::vector<quint8> decisions; // the ROI's decisions before they are placed in the cube
    };

    // Object segmentation and the records of the objects found.
    struct Segmentation {
        bool enabled = false;
        ZelkSegmenter* segmenter = nullptr; // the project's, borrowed while segmentation runs
        int serial = 0;
        int maxObjects = 300;
        int count = 0;
        std::vector<qint32> records = std::vector<qint32>(size_t(maxObjects) * ObjectRecordInts, 0);
        std::vector<qint32> objectMap;
        std::vector<qint32> classObjectMap;
    };

    // Reflectance references: per band and pixel (width by bands, pixel fastest), or one
    // mean spectrum each. The selected forms hold the classifier's bands only.
    struct Correction {
        bool enabled = false;
        QVector<float> darkRef, gainRef;
        QVector<float> whiteMean, darkMean;
        QVector<float> darkSelected, gainSelected;
        bool meansOnly = false;

        // The reference scans of the last load of a "whiteReference"/"darkReference" pair;
        // they stay until the next such load or the release of the handle.
        std::unique_ptr<ZelkSpectralCube> whiteScan, darkScan;

        // The report of the last correction loader that failed, which zelk_LoadCorrection
        // publishes on every failure.
        int loaderError = 0;
        QString loaderErrorText;
    };

    // The regressor's outputs of the last frame.
    struct RegressionOutputs {
        int variableCount = 0;
        std::vector<float> outputs;        // input width x variableCount, pixel-major
        std::vector<float> variableLine;   // one variable of the last frame
    };

    // Resampling the camera's bands onto the project's wavelengths.
    struct Resampling {
        bool enabled = false;
        int deviceBands = -1;
        int deviceWidth = -1;
        std::unique_ptr<QVector<double>> deviceWavelengths;
        std::unique_ptr<QVector<double>> targetWavelengths;
        std::unique_ptr<ZelkResampler> resampler;
        std::vector<quint16> frame; // room for the frame on the project's bands, where the device is the host
    };

    // Time spent per stage, counted after the warm-up frames.
    struct Timing {
        double classifyMs = 0;
        double segmentMs = 0;
        int warmupFrames = 500;
    };

    // Buffers of cube processing, kept between cubes.
    struct CubeBuffers {
        std::vector<quint8> decisions;
        std::unique_ptr<ZelkSpectralCube> swapped;
        std::vector<quint16> reorderScratch;
        std::vector<float> gained;
    };

    ErrorReport error;
    ComputeDevices computeDevices;

    // The loaded model; null before the first load and after a load that failed on the
    // file's envelope or stream.
    std::unique_ptr<ZelkProject> project;
    HandleState state = HandleState::Empty;
    bool isAcquiring() const { return state == HandleState::Acquiring; }

    // The transitions: a load puts a project in (or drops it when it fails), a start and
    // a stop move between loaded and acquiring.
    void setProject(std::unique_ptr<ZelkProject> p)
    {
        project = std::move(p);
        state = project ? HandleState::Loaded : HandleState::Empty;
    }
    void setAcquiring(bool on) { state = on ? HandleState::Acquiring : HandleState::Loaded; }

    // The variant of zelk_ProcessFrame that the project's set-up selects, taken when an
    // acquisition starts. No load changes it during a run: a model load is refused then,
    // and a correction load sets the corrected twin of the same path.
    FramePath framePath = FramePath::Refused;

    CameraInput input;
    DecisionRing ring;
    RegionOfInterest roi;
    Segmentation segmentation;

    // The operating point of the running acquisition: one weight per class.
    QVector<float> operatingPoint;

    Correction correction;
    RegressionOutputs regression;
    Resampling resampling;
    Timing timing;
    CubeBuffers cube;

    // Adds the time of one frame or cube to the statistics, unless it falls in the
    // warm-up, and counts it.
    void accountTime(double milliseconds)
    {
        if (timing.warmupFrames <= ring.frameCount)
            timing.classifyMs += milliseconds;
        ++ring.frameCount;
    }
};
