#pragma once
// zelk run: an ENVI cube through a model. A line-scan model gets the cube line by line
// as camera frames, a snapshot model gets it as one cube; what comes back is written as
// the decision label map and an overview for people (PNG), the object records (CSV and
// JSON) and, for a line-scan model with a regressor, the regression outputs (an ENVI
// float cube). Before any of it the cube is checked against the model: its wavelengths,
// and for a model that takes reflectance, whether its values can be reflectance.

#include "cli.h"
#include "envi_cube.h"

#include <QImage>
#include <array>
#include <memory>
#include <vector>

class QTemporaryDir;

namespace cli {

struct RunOptions {
    QString model, cube, white, dark;
    QString outDir = QStringLiteral(".");
    int device = -1;  // -1: the library's default
    int minSize = 0;  // 0: the model's own
    bool ignoreWavelengths = false, ignoreValueRange = false;
};

class Run {
public:
    static constexpr int RecordInts = 30;
    static constexpr quint8 NoData = 255; // label of pixels at the cube's data ignore value
    static constexpr int Interrupted = 130; // the exit status of a run stopped by SIGINT

    explicit Run(RunOptions options);
    ~Run();
    int exec();

private:
    struct ObjectRow {
        std::array<int, RecordInts> record{};
        QVector<float> means; // mean regression outputs, one per variable
    };

    bool prepare();
    bool loadReferences();
    // The checks of the cube against the model, in run_checks.cpp.
    bool checkWavelengths() const;
    bool checkValueRange();
    bool checkRejections() const;
    // A line of the cube as the model takes it: scaled to reflectance when its header
    // says so, with the pixels at the data ignore value zeroed and noted in `noData`.
    bool readLine(int line, float* out, std::vector<bool>& noData, QString* error);
    bool lineScan();
    bool snapshot();
    void collectObjects();
    void printSummary() const;
    // The output files, in run_files.cpp.
    bool writeObjects() const;
    bool writeRegressionHeader() const;
    bool saveImages(QImage& labels) const;
    void count(const uchar* labels, int pixels);

    bool failed(const QString& text) const { return refuse("run", text); }
    QString output(const QString& suffix) const;

    const RunOptions o_;
    Session s_;
    EnviCube cube_;
    std::unique_ptr<QTemporaryDir> references_;
    bool corrected_ = false;
    bool segmented_ = false;
    int maskType_ = 0;
    Decisions decisions_;
    QStringList regNames_;
    std::vector<ObjectRow> objects_;
    bool overflowSeen_ = false;
    bool takesReflectance_ = false; // the model takes reflectance (0 to 1) as it is run
    float scale_ = 1;               // multiplies the stored values into what the model takes
    int rejected_ = -1;             // the decision of rejected pixels, -1 without rejection
    std::vector<qint64> labelCounts_ = std::vector<qint64>(256, 0);
    int linesDone_ = 0;             // lines in the outputs; fewer than the cube's when interrupted
    double seconds_ = 0; // inside the processing calls
    int frames_ = 0;
};

} // namespace cli
