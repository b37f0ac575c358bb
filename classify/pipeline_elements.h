#pragma once
// The pipeline elements that numerical models are built from. Each holds its
// parameters as host arrays; device copies are made when a model is prepared.
// M2, M3 and M12 are stored so that a project survives being read; nothing here
// computes with them.

#include "compute/host_array.h"

#include <QString>
#include <QStringList>
#include <QVector>
#include <memory>

using compute::HostArray;

// Linear map with offset: result = matrixᵀ · spectrum + offsetᵀ.
struct ZelkAFPipelineM1 {
    int inputCount = 0;  // rows of matrix
    int outputCount = 0; // columns of matrix
    HostArray matrix;    // inputCount by outputCount
    HostArray offset;    // 1 by outputCount
    int device = 1;
};

struct ZelkAFPipelineM2 {
    int first = 0;
    int second = 0;
    HostArray arrayA;
    HostArray arrayB;
    QString note;
    int device = 1;
};

struct ZelkAFPipelineM3 {
    int first = 0;
    int second = 0;
    HostArray arrayA;
    HostArray arrayB;
    QString note;
};

// Radial basis function network: exp of each centre's scaled squared distance,
// then a linear layer whose row 0 is the bias of each class.
struct ZelkAFPipelineM5 {
    int featureCount = 0; // rows of centres
    int auxCount = 0;
    HostArray centres; // featureCount by unitCount, one centre a column
    HostArray auxArray;
    int unitCount = 0;       // K
    HostArray gammas;        // unitCount factors of the squared distances
    HostArray outputWeights; // (unitCount + 1) by classCount
    QVector<int> unitTags;
    int classCount = 0;
    QStringList classNames;
    QString note;
    int device = 1;
};

// Savitzky-Golay filter over the band axis, held as a banded matrix so that it runs
// as a plain linear element.
struct ZelkAFPipelineM7 {
    int derivative = 0;
    int window = 0;
    int inputBands = 0;
    int outputBands = 0; // inputBands - window + 1
    HostArray matrix;    // inputBands by outputBands
    HostArray offset;    // 1 by outputBands, zeros
    int device = 1;

    // Builds matrix and offset for `bands` input bands. -1 for a (derivative, window)
    // pair without coefficients or fewer bands than the window.
    int buildFilter(int bands, int derivative, int window);
};

// Per-feature offset and scale: (x - mean) * scale.
struct ZelkAFPipelineM9 {
    int featureCount = 0;
    int carried = 0;
    HostArray mean;  // featureCount by 1
    HostArray scale; // featureCount by 1
    int device = 1;
};

// Selection of rows.
struct ZelkAFPipelineM10 {
    int sourceCount = 0;
    int selectedCount = 0;
    HostArray indices; // selectedCount signed 32-bit row numbers
    QString note;
    int device = 1;
};

struct ZelkAFPipelineM12 {
    int first = 0;
    int second = 0;
    int trained = 0;
    std::unique_ptr<ZelkAFPipelineM2> inner;
    HostArray arrayA;
    HostArray arrayB;
    HostArray arrayC;
    int third = 0;
    int fourth = 0;
    int errorCode = 0;
    QString errorText;
    int device = 65536;
};
