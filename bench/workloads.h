#pragma once
// The reference workloads of the benchmarks, as model files and camera data:
//   W1: line-scan BIL frames of 640 pixels and 224 bands of unsigned 16-bit counts; the
//   classifier takes every other band (B = 112, F = 24, K = 200, C = 5, rejection on),
//   objects of four foreground classes on a belt class.
//   Cube: snapshot cubes of 512 x 512 pixels and 25 bands of unsigned 16-bit counts,
//   pixel after pixel (F = 10, K = 100, C = 4), objects of three classes on a belt.
// The centres of each model lie on the projected spectra of its classes, so that the
// decisions vary as the pictures do and the activations are those of real pixels.

#include "tests/model_files.h"

#include <cmath>
#include <random>
#include <vector>

namespace workloads {

using namespace modelfiles;

// The numbers of a classifier as the model file holds them, for references that redo
// its arithmetic: column-major, as in the file.
struct Network {
    int bands = 0, features = 0, units = 0, classes = 0;
    std::vector<int> selectedBands;  // camera band of each model band
    std::vector<float> matrix;       // bands by features
    std::vector<float> offset;       // features
    std::vector<float> centres;      // features by units
    std::vector<float> gammas;       // units
    std::vector<float> weights;      // units + 1 by classes: the bias row first
    std::vector<float> thresholds;   // classes; empty when the classifier does not reject
};

// One belt picture of `classes` - 1 foreground classes on class 0: `count` ellipses of
// 16 to 60 pixels across.
inline std::vector<quint8> beltPicture(int width, int rows, int classes, int count, std::mt19937& rng)
{
    std::uniform_real_distribution<float> u(0.0f, 1.0f);
    std::vector<quint8> picture(size_t(width) * rows, 0);
    for (int n = 0; n < count; ++n) {
        const float cx = u(rng) * width, cy = u(rng) * rows, rx = 8 + u(rng) * 22, ry = 8 + u(rng) * 22;
        const quint8 c = quint8(1 + rng() % (classes - 1));
        for (int y = std::max(0, int(cy - ry)); y <= std::min(rows - 1, int(cy + ry)); ++y)
            for (int x = std::max(0, int(cx - rx)); x <= std::min(width - 1, int(cx + rx)); ++x) {
                const float dx = (x - cx) / rx, dy = (y - cy) / ry;
                if (dx * dx + dy * dy <= 1)
                    picture[size_t(y) * width + x] = c;
            }
    }
    return picture;
}

// A network whose unit k sits near the projected spectrum of class k mod C and votes
// for it. `spectrum(c, b)` gives class c's counts in model band b.
template <typename Spectrum>
Network networkNear(int bands, int F, int K, int C, float gamma, float spread, Spectrum spectrum, std::mt19937& rng)
{
    std::normal_distribution<float> g(0, 1);
    Network n;
    n.bands = bands, n.features = F, n.units = K, n.classes = C;
    n.matrix.resize(size_t(bands) * F);
    for (float& x : n.matrix)
        x = g(rng) / std::sqrt(float(bands));
    n.offset.assign(size_t(F), 0.0f);
    n.centres.resize(size_t(F) * K);
    n.weights.assign(size_t(K + 1) * C, 0.0f);
    for (int k = 0; k < K; ++k) {
        const int c = k % C;
        for (int f = 0; f < F; ++f) {
            double z = 0;
            for (int b = 0; b < bands; ++b)
                z += n.matrix[size_t(f) * bands + b] * spectrum(c, b);
            n.centres[size_t(k) * F + f] = float(z) + spread * g(rng);
        }
        n.weights[size_t(c) * (K + 1) + k + 1] = 1;
    }
    n.gammas.assign(size_t(K), gamma);
    return n;
}

inline QVector<float> qvector(const std::vector<float>& v)
{
    return QVector<float>(v.begin(), v.end());
}

// The classifier of a network, on `totalBands` camera bands with class names `names`.
inline QByteArray classifierOf(const Network& n, int totalBands, const QStringList& names)
{
    const int B = n.bands, F = n.features, K = n.units, C = n.classes;
    ClassifierSpec c;
    c.inputBands = B;
    c.totalBands = totalBands;
    c.selectedBands = QVector<qint32>(n.selectedBands.begin(), n.selectedBands.end());
    c.classNames = names;
    for (int i = 0; i < C; ++i) {
        c.classCodes.append(i);
        c.classFlags.append(i > 0);
    }
    c.projection = LinearElement{QStringLiteral("ZelkAFPipelineM1:1"), B, F, TypedArray::floats({B, F, 1, 1}, qvector(n.matrix)),
                                 TypedArray::floats({1, F, 1, 1}, qvector(n.offset))};
    NetworkElement e;
    e.featureCount = F;
    e.unitCount = K;
    e.classCount = C;
    e.classNames = names;
    e.centres = TypedArray::floats({F, K, 1, 1}, qvector(n.centres));
    e.gammas = TypedArray::floats({K, 1, 1, 1}, qvector(n.gammas));
    e.outputWeights = TypedArray::floats({K + 1, C, 1, 1}, qvector(n.weights));
    e.unitTags.reset();
    c.network = e;
    c.rejectEnabled = !n.thresholds.empty();
    if (c.rejectEnabled)
        c.rejectThresholds = qvector(n.thresholds);
    Roc roc;
    roc.rowLength = C;
    roc.weightTable = QVector<float>(C, 1);
    c.roc = roc;
    return classifierBytes(c);
}

// Objects of every foreground class, each decision on its own, of 50 pixels or more.
inline QByteArray objectsOf(const QStringList& names)
{
    SegmenterSpec s = leafObjects(1);
    s.classNames = names;
    s.foregroundVec = QVector<bool>(names.size(), true);
    (*s.foregroundVec)[0] = false;
    s.minObjSize = 50;
    s.ruleDefDecName = s.rule1.name = s.rule2.name = names[1];
    s.backgroundDecName = names[0];
    return segmenterBytes(s);
}

// A project of camera `type` (and acquisition type) around the classifier, one image of
// the camera's size.
inline Project projectOf(int type, int acqType, const Network& n, int totalBands, int width, int height, const QStringList& names)
{
    Project p = lineScanProject(width);
    p.type = type;
    p.acqType = acqType;
    p.classNames = QStringList{"Unknown"} + names;
    p.classColors = QVector<QColor>(names.size() + 1, QColor(10, 20, 30));
    Image& image = p.images.front();
    image.height = height;
    image.bands = totalBands;
    image.wavelengths.clear();
    for (int b = 0; b < totalBands; ++b)
        image.wavelengths.append(400.0 + 2.5 * b);
    p.bandSelection = QVector<bool>(totalBands, true);
    p.classifier = classifierOf(n, totalBands, names);
    p.classForeground = QVector<bool>(names.size() + 1, true);
    (*p.classForeground)[0] = (*p.classForeground)[1] = false;
    p.segmenter = objectsOf(names);
    return p;
}

struct Workload {
    Network network;
    Project project;
    std::vector<quint16> data; // frames or cubes, one after another
    size_t unitSamples = 0;    // samples of one frame or cube
    int units = 0;             // frames or cubes in `data`
    int pixels = 0;            // of one frame or cube
    int layout = 0;            // as zelk_SetInputDataLayout takes it
};

// Counts of class c at wavelength w: smooth curves that differ in level and shape.
inline double classCounts(int c, double w)
{
    return 1500.0 + 400.0 * c + 300.0 * std::sin(w / (40.0 + 9.0 * c) + c);
}

inline double cameraWavelength(int b)
{
    return 400.0 + 2.5 * b;
}

constexpr int W1Width = 640, W1Bands = 224, W1Classes = 5, W1PictureRows = 160;

inline Workload w1()
{
    std::mt19937 rng(5);
    const QStringList names{"belt", "a", "b", "c", "d"};
    Workload w;
    const int selected = W1Bands / 2;
    w.network = networkNear(selected, 24, 200, W1Classes, -2e-5f, 20.0f,
                            [](int c, int b) { return classCounts(c, cameraWavelength(2 * b + 1)); }, rng);
    for (int i = 0; i < selected; ++i)
        w.network.selectedBands.push_back(2 * i + 1);
    w.network.thresholds.assign(W1Classes, 1e-3f);
    w.project = projectOf(19, 3, w.network, W1Bands, W1Width, 100, names); // line-scan, 16-bit counts
    w.layout = 2;

    const std::vector<quint8> picture = beltPicture(W1Width, W1PictureRows, W1Classes, 30, rng);
    std::normal_distribution<float> noise(0, 15);
    w.pixels = W1Width;
    w.units = W1PictureRows;
    w.unitSamples = size_t(W1Width) * W1Bands;
    w.data.resize(w.unitSamples * W1PictureRows);
    for (int r = 0; r < W1PictureRows; ++r)
        for (int b = 0; b < W1Bands; ++b)
            for (int p = 0; p < W1Width; ++p) {
                const int c = picture[size_t(r) * W1Width + p];
                w.data[(size_t(r) * W1Bands + b) * W1Width + p] =
                    quint16(std::lround(classCounts(c, cameraWavelength(b)) + noise(rng)));
            }
    return w;
}

constexpr int CubeSize = 512, CubeBands = 25, CubeClasses = 4, CubeCount = 2;

inline Workload cube()
{
    std::mt19937 rng(7);
    const QStringList names{"belt", "a", "b", "c"};
    std::uniform_real_distribution<float> level(1000, 3000);
    std::vector<float> spectra(size_t(CubeClasses) * CubeBands);
    for (float& x : spectra)
        x = level(rng);
    Workload w;
    w.network = networkNear(CubeBands, 10, 100, CubeClasses, -1e-4f, 10.0f,
                            [&](int c, int b) { return spectra[size_t(c) * CubeBands + b]; }, rng);
    for (int b = 0; b < CubeBands; ++b)
        w.network.selectedBands.push_back(b);
    w.project = projectOf(11, 0, w.network, CubeBands, CubeSize, CubeSize, names); // snapshot, 16-bit counts
    w.layout = 1;

    std::normal_distribution<float> noise(0, 20);
    w.pixels = CubeSize * CubeSize;
    w.units = CubeCount;
    w.unitSamples = size_t(w.pixels) * CubeBands;
    w.data.resize(w.unitSamples * CubeCount);
    for (int n = 0; n < CubeCount; ++n) {
        const std::vector<quint8> picture = beltPicture(CubeSize, CubeSize, CubeClasses, 47, rng);
        for (int i = 0; i < w.pixels; ++i)
            for (int b = 0; b < CubeBands; ++b)
                w.data[size_t(n) * w.unitSamples + size_t(i) * CubeBands + b] =
                    quint16(std::lround(spectra[size_t(picture[size_t(i)]) * CubeBands + b] + noise(rng)));
    }
    return w;
}

} // namespace workloads
