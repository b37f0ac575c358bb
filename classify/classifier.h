#pragma once
// A trained classifier as a project holds it: the host elements read from the file,
// the operating point and rejection data, the copies its kernel is made from, and the
// kernel of the running acquisition.

#include "classify/pipeline_elements.h"
#include "compute/backend.h"

#include <QDataStream>
#include <QMap>
#include <QObject>
#include <QStringList>
#include <QVector>
#include <memory>
#include <optional>

class ZelkROCConstrain : public QObject {
    Q_OBJECT
public:
    using QObject::QObject;
    int constrainCode = 0;
    QString constrainName;
    QString constrainText;
    float constrainValue = 0;
    bool constrainActive = true;
};

// The operating points of a classifier: rows of `rowLength` class weights in
// `weightTable`, of which row `currentPoint` is in force. The other tables and the
// constraints are carried with the model but play no part in a decision.
class ZelkROC : public QObject {
    Q_OBJECT
public:
    using QObject::QObject;

    // Reads the element behind its "ZelkROC" tag: 0, or -1 when its version tag is not
    // "ZelkROC:1", with nothing changed.
    int load(QDataStream& in);

    // The first `classes` weights of the current row; empty when the table holds no
    // such row.
    QVector<float> classRow(int classes) const;

    QVector<float> rocTableA;
    int rocInt1 = 0;
    int rocInt2 = 0;
    int rowLength = 0;
    int currentPoint = -1;
    QStringList rocNames;
    QMap<QString, ZelkROCConstrain*> constraints; // children of this object
    QVector<float> weightTable;
    QVector<float> rocTableB;
    QVector<float> rocTableC;
    QByteArray rocMask;

Q_SIGNALS:
    void displayMessage(QString text);
};

class ZelkClassifier : public QObject {
    Q_OBJECT
public:
    explicit ZelkClassifier(QObject* parent = nullptr);
    ~ZelkClassifier() override;

    // Reads the classifier element of stream version 1 to 4, the two tags in front of it
    // already consumed. Always 0: a part that fails to read is left half filled, and the
    // stream then reads out of step for whatever follows.
    int load(QDataStream& in, int version);

    // C, the number of classes, and the decisions: the classes, then the rejected
    // pixel when the classifier rejects.
    int classCount() const { return classNames.size(); }
    int decisionCount() const { return classCount() + (rejectEnabled ? 1 : 0); }
    // The name of a decision code, or a null string when there is no such code.
    QString decisionName(int code) const;

    // "BandSelection=ALL": every band of the training data, in order.
    void selectAllBands();
    // Levels from 0 to 1 in rejectLevelCount equal steps; a count of 0 means 100. The
    // grid stops after MaxRejectLevels entries.
    void buildRejectGrid();
    static constexpr int MaxRejectLevels = 1 << 16;

    // Makes the copies that a kernel is built from and the band index; -1 with
    // `lastError` set when the model cannot run (missing or inconsistent parts).
    int prepareDevice();

    int device = 65536;
    QVector<int> classCodes;
    int modelKind = 0;
    int inputBands = 0;
    int trainingRound = -1;
    int totalBands = 0;
    int selectedBandCount = 0;
    std::optional<QVector<int>> selectedBands; // absent until a file or the project gives one
    QVector<int> bandIndex;
    int randomSeed = 0;
    std::unique_ptr<ZelkROC> roc;
    bool rejectEnabled = false;
    QVector<float> rejectThresholds;
    int rejectLevelCount = 0;
    QVector<float> rejectGrid;
    int rejectTableCount = 0;
    QVector<int> rejectTableIds;
    QVector<float> rejectTable;
    std::unique_ptr<ZelkAFPipelineM7> prepFilter;
    std::unique_ptr<ZelkAFPipelineM1> projection;
    std::unique_ptr<ZelkAFPipelineM2> extraElementM2;
    std::unique_ptr<ZelkAFPipelineM3> extraElementM3;
    std::unique_ptr<ZelkAFPipelineM5> network;
    std::unique_ptr<ZelkAFPipelineM1> deviceProjection;
    std::unique_ptr<ZelkAFPipelineM5> deviceNetwork;
    QVector<float> deviceThresholds;
    std::unique_ptr<ZelkAFPipelineM1> unfoldedProjection;
    QVector<int> colourTable;
    QStringList classNames;
    QVector<bool> classFlags;
    bool finalFlag = false;

    // Run-time state of an acquisition.
    int frameWidth = 0;
    std::unique_ptr<compute::ClassifierKernel> kernel;

    QString lastError;

public Q_SLOTS:
    void setProgress(int value);
    void setRandomSeed(int seed) { randomSeed = seed; }

Q_SIGNALS:
    void displayMessage(QString text);
    void displayMemInfo(QString text);
    void progressChanged(int value);
    void curopChanged(ZelkROC* roc);
};

// Builds the kernel of an acquisition on `backend` from the classifier's
// copies, with the operating point `classRow` and the input stage of the frames or
// cubes to come. A gain that differs from pixel to pixel sits in the stage, so the
// per-pixel form and the plain form are one kernel. -1 with `lastError` set when the
// copies, the row or the stage do not fit together.
int prepareKernel(ZelkClassifier& classifier, compute::Backend& backend, const QVector<float>& classRow,
                  compute::InputStage stage);

// Rewrites the projection so that it takes uncorrected spectra of all `totalBands`
// bands: x ↦ (x − second) / (first − second) and the band choice `bands` (count of
// them) are folded into matrix and offset. `first` and `second` hold one value per
// band. A second fold starts again from the unfolded projection. -1 when the sizes do
// not agree.
int foldCorrection(ZelkClassifier& classifier, const QVector<float>& first, const QVector<float>& second, int count,
                   const int* bands);
