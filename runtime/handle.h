#pragma once
// The record behind every exported call. It holds all per-caller state; the only
// process-wide state of the runtime is the error pair in report.cpp.

#include "classify/resampler.h"
#include "model/project.h"
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

struct ZelkHandle {
    int errorCode = 0;
    int messageSize = 4096;
    std::vector<char> message = std::vector<char>(size_t(messageSize), '\0');
    QList<ZelkDevice> devices;

    // The loaded model; null before the first load and after a load that failed on the
    // file's envelope or stream.
    std::unique_ptr<ZelkProject> project;

    // API kind and the geometry of what the caller hands in.
    bool lineScan = false;
    int inputWidth = 0;
    int inputBands = 0;
    int inputHeight = 0;
    int inputDataType = 0;   // 0 unset, 1 uint16, 2 float
    int inputDataLayout = 0; // 0 unset, 1 BIP, 2 BIL, 3 BSQ
    bool fullBandFrames = true;

    int frameCount = -1;
    int ringNext = 0;
    int ringLast = 0;

    bool roiEnabled = false;
    int roiCol = -1, roiRow = -1, roiWidth = -1, roiHeight = -1;
    quint8 roiFill = 0;
    std::vector<float> roiSpectra; // the ROI's pixels of the last float cube, gathered

    bool segmentationEnabled = false;
    ZelkSegmenter* segmenter = nullptr; // the project's, borrowed while segmentation runs
    int objectSerial = 0;
    int maxObjects = 300;
    int objCount = 0;
    std::vector<qint32> objects = std::vector<qint32>(size_t(maxObjects) * ObjectRecordInts, 0);
    bool markObjects = true;
    int ringRows = 500;

    std::unique_ptr<QImage> labelImage;   // ring of decision rows, or the whole cube
    std::vector<quint8> cubeDecisions;
    std::vector<quint8> roiDecisions;
    std::vector<qint32> objectMap;
    std::vector<qint32> classObjectMap;

    // The operating point of the running acquisition: one weight per class.
    QVector<float> classRow;

    // Reflectance references: per band and pixel (width by bands, pixel fastest), or one
    // mean spectrum each. The selected forms hold the classifier's bands only.
    bool correctionEnabled = false;
    QVector<float> darkRef, gainRef;
    QVector<float> whiteMean, darkMean;
    QVector<float> darkSel, gainSel;
    int device = compute::defaultDevice;
    // The device of `device`, opened when the caller chose it; all device work of the
    // handle is prepared on it.
    std::shared_ptr<compute::Backend> backend = compute::openDevice(compute::defaultDevice);
    bool meanCorrection = false;

    int regVarCount = 0;
    std::vector<float> regOutput;  // inputWidth x regVarCount, pixel-major
    std::vector<float> regVarLine; // one variable of the last frame
    std::vector<quint16> resampledFrame; // the frame on the project's bands, when resampling

    bool acquiring = false;

    double algTimeMs = 0;
    double segTimeMs = 0;
    int warmupFrames = 500;

    bool resamplingEnabled = false;
    int deviceBandCount = -1;
    int deviceFrameWidth = -1;
    std::unique_ptr<QVector<double>> deviceWavelengths;
    std::unique_ptr<QVector<double>> resamplingWavelengths;
    std::unique_ptr<ZelkResampler> resampler;

    std::unique_ptr<ZelkSpectralCube> swapCube;
    std::vector<quint16> swapMask;
    std::vector<float> swapFloat;

    // The reference scans of the last load of a "whiteReference"/"darkReference" pair;
    // they stay until the next such load or the release of the handle.
    std::unique_ptr<ZelkSpectralCube> whiteScan, darkScan;

    // The report of the last correction loader that failed, which zelk_LoadCorrection
    // publishes on every failure.
    int correctionError = 0;
    QString correctionErrorMsg;
};
