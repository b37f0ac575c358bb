// Snapshot cube speed through zelk_ProcessCube: cubes of 512 x 512 pixels with 25 float
// bands, pixel after pixel, and a classifier of F = 10 features, K = 100 centres and
// C = 4 classes, with whole-image labelling on and off.
//
// The model is written by the model writer and loaded like any model file. Its classes
// are four prototype spectra: each centre sits at a prototype's features and votes for
// its class. The cube is a belt (class 0) with ellipses of classes 1 to 3 on it, every
// pixel its class's prototype plus noise, so that the decisions form real objects and
// can be checked against the picture.

#include "workloads.h"
#include "modelwriter/classifier_writer.h"
#include "modelwriter/envelope_writer.h"
#include "modelwriter/project_writer.h"
#include "modelwriter/segmenter_writer.h"
#include "zelk.h"

#include <QTemporaryDir>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <random>
#include <vector>

using namespace modelwriter;

namespace {

constexpr int Size = 512, B = 25, F = 10, K = 100, C = 4;
constexpr float Noise = 0.2f;

double seconds()
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

struct Prototypes {
    std::vector<float> spectra; // C by B
    std::vector<float> matrix;  // B by F, column-major
};

Prototypes prototypes(std::mt19937& rng)
{
    std::normal_distribution<float> g(0, 1);
    Prototypes p;
    p.spectra.resize(size_t(C) * B);
    for (float& x : p.spectra)
        x = g(rng);
    p.matrix.resize(size_t(B) * F);
    for (float& x : p.matrix)
        x = g(rng) / std::sqrt(float(B));
    return p;
}

QByteArray classifierBytes(const Prototypes& p, std::mt19937& rng)
{
    std::normal_distribution<float> g(0, 1);
    const QStringList names{"belt", "a", "b", "c"};
    ClassifierSpec c;
    c.inputBands = B;
    c.totalBands = B;
    c.selectedBands = QVector<qint32>(B);
    for (int b = 0; b < B; ++b)
        (*c.selectedBands)[b] = b;
    c.classNames = names;
    c.classCodes = {0, 1, 2, 3};
    c.classFlags = {false, true, true, true};

    LinearElement projection;
    projection.inputCount = B;
    projection.outputCount = F;
    projection.matrix = TypedArray::floats({B, F, 1, 1}, QVector<float>(p.matrix.begin(), p.matrix.end()));
    projection.offset = TypedArray::floats({1, F, 1, 1}, QVector<float>(F, 0.0f));
    c.projection = projection;

    // Centre k lies near the features of prototype k mod C and votes for that class.
    QVector<float> centres(F * K), weights((K + 1) * C, 0.0f);
    for (int k = 0; k < K; ++k) {
        const int cls = k % C;
        for (int f = 0; f < F; ++f) {
            float z = 0;
            for (int b = 0; b < B; ++b)
                z += p.matrix[size_t(f) * B + b] * p.spectra[size_t(cls) * B + b];
            centres[k * F + f] = z + 0.3f * g(rng);
        }
        weights[cls * (K + 1) + 1 + k] = 1.0f;
    }
    NetworkElement n;
    n.featureCount = F;
    n.unitCount = K;
    n.classCount = C;
    n.classNames = names;
    n.centres = TypedArray::floats({F, K, 1, 1}, centres);
    n.gammas = TypedArray::floats({K, 1, 1, 1}, QVector<float>(K, -0.5f));
    n.outputWeights = TypedArray::floats({K + 1, C, 1, 1}, weights);
    n.unitTags = QVector<qint32>(K, 0);
    c.network = n;
    Roc roc;
    roc.rowLength = C;
    roc.weightTable = QVector<float>(C, 1.0f);
    c.roc = roc;

    StreamBuilder out;
    out.tag(QStringLiteral("ZelkClassifier:%1").arg(c.version)).add(c);
    return out.bytes();
}

QByteArray segmenterBytes(int objMask)
{
    SegmenterSpec s;
    s.classNames = QStringList{"belt", "a", "b", "c"};
    s.foregroundVec = QVector<bool>{false, true, true, true};
    s.minObjSize = 50;
    s.objMask = objMask;
    s.objDecType = 1;
    s.ruleDefDecName = "a";
    s.rule1 = {"a", 1, 1, 0};
    s.rule2Enabled = false;
    s.rule2 = {"a", 1, 1, 0};
    s.backgroundDecName = "belt";
    StreamBuilder out;
    out.add(s);
    return out.bytes();
}

QString writeModel(const QTemporaryDir& dir, const Prototypes& protos, int objMask)
{
    std::mt19937 rng(7); // the same centres for both masks
    Project p;
    p.type = 3; // a snapshot camera of float cubes
    p.classNames = QStringList{"Unknown", "belt", "a", "b", "c"};
    p.classColors = {QColor(0, 0, 0, 0), QColor(90, 90, 90), QColor(200, 0, 0), QColor(0, 200, 0), QColor(0, 0, 200)};
    Image image;
    image.cubeName = "scan";
    image.width = Size;
    image.height = Size;
    image.bands = B;
    for (int b = 0; b < B; ++b)
        image.wavelengths.append(900 + 20 * b);
    p.images = {image};
    p.bandSelection = QVector<bool>(B, true);
    p.classifier = classifierBytes(protos, rng);
    p.classForeground = QVector<bool>{false, false, true, true, true};
    p.segmenter = segmenterBytes(objMask);
    const QString path = dir.filePath(QStringLiteral("cube%1.zelk").arg(objMask));
    writeFile(path, fileContents(FileKind::Zelk, projectBytes(p)));
    return path;
}

// A belt seen from above: ellipses of 16 to 60 pixels across in classes 1 to 3 cover
// about a fifth of the image.
std::vector<quint8> belt(std::mt19937& rng)
{
    return workloads::beltPicture(Size, Size, C, 47, rng);
}

std::vector<float> cubeOf(const std::vector<quint8>& picture, const Prototypes& p, std::mt19937& rng)
{
    std::normal_distribution<float> g(0, 1);
    std::vector<float> cube(picture.size() * B);
    for (size_t i = 0; i < picture.size(); ++i)
        for (int b = 0; b < B; ++b)
            cube[i * B + b] = p.spectra[size_t(picture[i]) * B + b] + Noise * g(rng);
    return cube;
}

void run(const char* name, const QString& model, unsigned segmentation, const std::vector<float>& cube,
         const std::vector<quint8>& picture)
{
    ZelkHandle* h = zelk_Init(nullptr);
    if (zelk_LoadModel(h, model.toLatin1()) != 0 || zelk_SetSegmentation(h, segmentation) != 0
        || zelk_StartAcquisition(h) != 0) {
        std::printf("%-28s cannot start: %s\n", name, zelk_GetErrorMsg(h));
        zelk_Release(h);
        return;
    }
    int cubes = 0;
    bool failed = false;
    const double start = seconds();
    while (!failed && (seconds() - start < 2.0 || cubes < 5)) {
        failed = zelk_ProcessCube(h, cube.data()) != 0;
        ++cubes;
    }
    const double perCube = (seconds() - start) / cubes;
    if (failed) {
        std::printf("%-28s failed: %s\n", name, zelk_GetErrorMsg(h));
        zelk_Release(h);
        return;
    }
    const unsigned char* decisions = zelk_GetCubeDecisions(h);
    size_t agree = 0;
    for (size_t i = 0; i < picture.size(); ++i)
        agree += decisions[i] == picture[i];
    std::printf("%-28s %8.2f ms/cube %8.1f Mpixel/s %5d objects %7.3f%% of pixels as drawn\n", name, perCube * 1e3,
                double(Size) * Size / perCube / 1e6, zelk_GetObjCount(h), 100.0 * double(agree) / double(picture.size()));
    zelk_Release(h);
}

} // namespace

int main()
{
    std::mt19937 rng(5);
    const Prototypes protos = prototypes(rng);
    const std::vector<quint8> picture = belt(rng);
    const std::vector<float> cube = cubeOf(picture, protos, rng);
    QTemporaryDir dir;
    const QString eachDecision = writeModel(dir, protos, 1);
    const QString allForeground = writeModel(dir, protos, 2);
    std::printf("%d x %d pixels, %d float bands, F = %d, K = %d, C = %d\n", Size, Size, B, F, K, C);
    run("classification only", eachDecision, 0, cube, picture);
    run("segmentation, mask 1", eachDecision, 1, cube, picture);
    run("segmentation, mask 2", allForeground, 1, cube, picture);
    return 0;
}
