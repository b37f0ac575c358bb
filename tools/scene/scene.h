#pragma once
// A synthetic line-scan recording of a sorting belt: objects of a few materials with
// distinct near-infrared spectra lie on a dark belt and pass under a line camera that
// counts in 16 bits with a dark level, an uneven lamp and shot noise. The scene also
// gives the camera's white and dark reference scans, the ground truth of every object,
// training spectra for the materials, and a model trained on them.

#include "modelwriter/project_writer.h"
#include "trainer/trainer.h"

#include <QColor>
#include <QString>
#include <QVector>
#include <vector>

namespace scene {

struct Options {
    int width = 640;
    int lines = 2000;
    int bands = 224;
    double firstWavelength = 900, lastWavelength = 1700; // nm
    quint32 seed = 7;
    int objects = -1;        // -1: one per 12,000 pixels of belt
    int referenceLines = 16; // lines of each reference scan
    int trainingSpectra = 2500, heldOutSpectra = 1500; // per class
};

struct Material {
    QString name;
    QColor colour;
    bool trained = true;            // known to the model; the others must be rejected
    double minRadius = 0, maxRadius = 0; // semi-major axis, pixels
    double minAspect = 1, maxAspect = 1; // semi-minor over semi-major
    QVector<float> reflectance;     // one value per band
};

// An object on the belt: an ellipse, and the ground truth of its rendering.
struct SceneObject {
    int id = 0;
    int material = 0; // index into materials()
    double centreLine = 0, centreColumn = 0, semiMajor = 0, semiMinor = 0, angle = 0;
    double brightness = 1;
    // The pixels covered at least half: their mean line and column, count and extent.
    double line = 0, column = 0;
    int pixels = 0;
    int firstLine = 0, lastLine = 0, firstColumn = 0, lastColumn = 0;
};

class Scene {
public:
    explicit Scene(const Options& options = {});

    const Options& options() const { return options_; }
    const QVector<double>& wavelengths() const { return wavelengths_; }
    // The belt first, then the objects' materials.
    const QVector<Material>& materials() const { return materials_; }
    const std::vector<SceneObject>& objects() const { return objects_; }

    // One camera line in raw counts, band after band (bands x width).
    void renderLine(int line, quint16* counts) const;
    // One line of the white or the dark reference scan.
    void renderReference(bool white, int line, quint16* counts) const;

    // A model trained for the scene (in scene_model.cpp).
    modelwriter::Project project(const trainer::Model& model) const;
    trainer::Model train(const trainer::Options& options = {}) const;

    // Writes scene.hdr/.bin, whiteReference.hdr/.bin, darkReference.hdr/.bin (ENVI,
    // uint16, BIL), truth.csv and model.zelk into `directory`. False with `error` set
    // when a file cannot be written or the training fails.
    bool write(const QString& directory, QString* error) const;

private:
    // Corrected spectra of the trained materials over `bands`, `perClass` of each, labelled
    // by the class index of classNames().
    trainer::Samples spectra(const QVector<int>& bands, int perClass, quint32 seed) const;
    QStringList classNames() const;
    // The bands the classifier takes: all but a few at each end of the range, where the
    // lamp is weak.
    QVector<int> selectedBands() const;
    double illumination(int column, int band) const;
    double darkCount(int column, int band) const;
    void place();

    Options options_;
    QVector<double> wavelengths_;
    QVector<Material> materials_;
    std::vector<SceneObject> objects_;
    // The references as the library takes them from the reference scans: the brightest
    // white and the darkest dark line, per pixel and band (band-major).
    std::vector<float> white_, dark_;
};

} // namespace scene
