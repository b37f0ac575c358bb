#pragma once
// Model files for the tests of the C interface, written to a temporary directory.
//
// The line-scan model: four bands, of which the classifier takes bands 1 and 3 as its
// two features. Centre 0 at (0, 0) votes for "bg", centre 1 at (10, 0) for "leaf"; the
// unit is exp(-squared distance). So a pixel whose band 1 is near 10 is "leaf", one
// near 0 is "bg". With rejection on, a pixel far from both centres is rejected (code 2).

#include "modelwriter/classifier_writer.h"
#include "modelwriter/envelope_writer.h"
#include "modelwriter/project_writer.h"
#include "modelwriter/regression_writer.h"
#include "modelwriter/segmenter_writer.h"

#include <QFile>
#include <QTemporaryDir>
#include <QTextStream>

namespace modelfiles {

using namespace modelwriter;

inline ClassifierSpec twoCentreClassifier()
{
    ClassifierSpec c;
    c.inputBands = 2;
    c.totalBands = 4;
    c.selectedBands = QVector<qint32>{1, 3};
    c.classNames = QStringList{"bg", "leaf"};
    c.classCodes = {0, 1};
    c.classFlags = {false, true};
    LinearElement projection;
    projection.inputCount = 2;
    projection.outputCount = 2;
    projection.matrix = TypedArray::floats({2, 2, 1, 1}, {1, 0, 0, 1});
    projection.offset = TypedArray::floats({1, 2, 1, 1}, {0, 0});
    c.projection = projection;
    NetworkElement n;
    n.featureCount = 2;
    n.unitCount = 2;
    n.classCount = 2;
    n.classNames = c.classNames;
    n.centres = TypedArray::floats({2, 2, 1, 1}, {0, 0, 10, 0});
    n.gammas = TypedArray::floats({2, 1, 1, 1}, {-1, -1});
    n.outputWeights = TypedArray::floats({3, 2, 1, 1}, {0, 1, 0, 0, 0, 1});
    c.network = n;
    Roc roc;
    roc.rowLength = 2;
    roc.currentPoint = 0;
    roc.weightTable = QVector<float>{1, 1};
    c.roc = roc;
    return c;
}

// Objects of "leaf" pixels, each decision on its own (mask 1) or all foreground
// together (mask 2).
inline SegmenterSpec leafObjects(int objMask)
{
    SegmenterSpec s;
    s.classNames = QStringList{"bg", "leaf"};
    s.foregroundVec = QVector<bool>{false, true};
    s.minObjSize = 1;
    s.objMask = objMask;
    s.objDecType = 1;
    s.ruleDefDecName = "leaf";
    s.rule1 = {"leaf", 1, 1, 0};
    s.rule2Enabled = false;
    s.rule2 = {"leaf", 1, 1, 0};
    s.backgroundDecName = "bg";
    return s;
}

inline QByteArray classifierBytes(const ClassifierSpec& c)
{
    StreamBuilder out;
    out.tag(QStringLiteral("ZelkClassifier:%1").arg(c.version)).add(c);
    return out.bytes();
}

inline QByteArray segmenterBytes(const SegmenterSpec& s)
{
    StreamBuilder out;
    out.add(s);
    return out.bytes();
}

// A project of camera type 14 (line-scan), one image of `width` pixels and 4 bands.
inline Project lineScanProject(int width);

// The line-scan project made for camera `type` (and acquisition type), whose image is
// of that camera's class, as the correction loaders look for it.
inline Project projectOfType(int type, int acqType = 0, int width = 8)
{
    Project p = lineScanProject(width);
    p.type = type;
    p.acqType = acqType;
    p.images[0].imageType = type;
    if (type == 1)
        p.images[0].tailText = QString();
    return p;
}

// A project of camera type 14 (line-scan), one image of `width` pixels and 4 bands.
inline Project lineScanProject(int width = 8)
{
    Project p;
    p.type = 14;
    p.classNames = QStringList{"Unknown", "bg", "leaf"};
    p.classColors = {QColor(0, 0, 0, 0), QColor(10, 20, 30), QColor(0, 200, 0)};
    Image image;
    image.cubeName = "scan";
    image.width = width;
    image.height = 100;
    image.bands = 4;
    image.wavelengths = {900, 1000, 1100, 1200};
    p.images = {image};
    p.bandSelection = QVector<bool>(4, true);
    p.classifier = classifierBytes(twoCentreClassifier());
    p.classForeground = QVector<bool>{false, false, true};
    p.segmenter = segmenterBytes(leafObjects(1));
    return p;
}

// A regressor on the four bands: it selects bands 3 and 1, standardises them with
// means (1, 2) and scales (2, 0.5) to w0 and w1, and maps them onto "fat" = w0 and,
// with two variables, "water" = w0 - w1 + 100.
inline RegressorSpec twoBandRegressor(int variables)
{
    RegressorSpec r;
    r.selection = SelectionElement{QStringLiteral("ZelkAFPipelineM10:1"), 4, 2, TypedArray::ints({2, 1, 1, 1}, {3, 1})};
    r.scaling = ScalingElement{QStringLiteral("ZelkAFPipelineM9:1"), 2, 0, TypedArray::floats({2, 1, 1, 1}, {1, 2}),
                               TypedArray::floats({2, 1, 1, 1}, {2, 0.5f})};
    LinearElement m;
    m.inputCount = 2;
    m.outputCount = variables;
    m.matrix = variables == 1 ? TypedArray::floats({2, 1, 1, 1}, {1, 0}) : TypedArray::floats({2, 2, 1, 1}, {1, 0, 1, -1});
    m.offset = variables == 1 ? TypedArray::floats({1, 1, 1, 1}, {0}) : TypedArray::floats({1, 2, 1, 1}, {0, 100});
    r.model = m;
    r.varNames = variables == 1 ? QStringList{"fat"} : QStringList{"fat", "water"};
    return r;
}

// The line-scan project with that regressor beside its classifier (set-up 7).
inline Project regressionProject(int width, int variables = 2)
{
    Project p = lineScanProject(width);
    StreamBuilder out;
    out.add(twoBandRegressor(variables));
    p.regressor = out.bytes();
    return p;
}

// A snapshot project of camera `type` (3: float cubes, 9 and 11: unsigned 16-bit) whose
// cubes are `width` by `height` pixels, with the classifier's bands selected.
inline Project snapshotProject(int type, int acqType = 0, int objMask = 1, int width = 8, int height = 6)
{
    Project p = lineScanProject(width);
    p.type = type;
    p.acqType = acqType;
    p.images[0].height = height;
    p.bandSelection = {false, true, false, true};
    p.segmenter = segmenterBytes(leafObjects(objMask));
    return p;
}

// Writes the ENVI header of a camera of `width` pixels whose five bands lie halfway
// between the points of a 900 to 1200 nm grid; returns its path, empty on failure.
inline QString writeFiveBandCameraHeader(const QTemporaryDir& dir, int width)
{
    const QString header = dir.filePath(QStringLiteral("camera.hdr"));
    QFile f(header);
    if (!f.open(QIODevice::WriteOnly))
        return QString();
    QTextStream(&f) << "ENVI\nsamples = " << width << "\nbands = 5\nwavelength = {850, 950, 1050, 1150, 1250}\n";
    return header;
}

// Writes the project as a model file of `kind` into `dir` and returns its path.
inline QString writeModel(const QTemporaryDir& dir, const Project& p, FileKind kind = FileKind::Zelk,
                          const QString& name = QStringLiteral("model"))
{
    const QString path = dir.filePath(name + QLatin1Char('.') + fileSuffix(kind));
    writeFile(path, fileContents(kind, projectBytes(p)));
    return path;
}

} // namespace modelfiles
