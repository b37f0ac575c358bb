#pragma once
// zelk run: an ENVI cube through a model. A line-scan model gets the cube line by line
// as camera frames, a snapshot model gets it as one cube; what comes back is written as
// the decision image (PNG), the object records (CSV and JSON) and, for a line-scan model
// with a regressor, the regression outputs (an ENVI float cube).

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
};

class Run {
public:
    static constexpr int RecordInts = 30;

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
    bool lineScan();
    bool snapshot();
    void collectObjects();
    void printSummary() const;
    // The output files, in run_files.cpp.
    bool writeObjects() const;
    bool writeRegressionHeader() const;
    bool saveDecisionImage(QImage& image) const;

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
    double seconds_ = 0; // inside the processing calls
    int frames_ = 0;
};

} // namespace cli
