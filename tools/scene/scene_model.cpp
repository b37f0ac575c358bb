// The model of a scene: training spectra drawn as the camera would see the materials,
// corrected with the scene's references, and the project that carries the trained
// classifier and a segmenter.

#include "scene/scene.h"

#include "modelwriter/classifier_writer.h"
#include "modelwriter/segmenter_writer.h"
#include "scene/noise.h"

namespace scene {

QStringList Scene::classNames() const
{
    QStringList names;
    for (const Material& m : materials_)
        if (m.trained)
            names << m.name;
    return names;
}

QVector<int> Scene::selectedBands() const
{
    const int edge = options_.bands >= 50 ? options_.bands / 25 : 0;
    QVector<int> bands;
    for (int b = edge; b < options_.bands - edge; ++b)
        bands.append(b);
    return bands;
}

trainer::Samples Scene::spectra(const QVector<int>& bands, int perClass, quint32 seed) const
{
    trainer::Samples samples;
    samples.bands = bands.size();
    std::vector<float> spectrum(size_t(bands.size()));
    int label = 0;
    for (int m = 0; m < materials_.size(); ++m) {
        if (!materials_[m].trained)
            continue;
        Random random(options_.seed ^ seed, quint64(m), 4);
        for (int i = 0; i < perClass; ++i) {
            const int c = int(random.uniform() * options_.width) % options_.width;
            const double gain = (m == 0 ? 1.0 : random.uniform(0.9, 1.1)) * (1.0 + 0.03 * random.normal());
            for (int j = 0; j < bands.size(); ++j) {
                const int b = bands[j];
                const size_t at = size_t(b) * size_t(options_.width) + size_t(c);
                const float raw = count(darkCount(c, b), gain * materials_[m].reflectance[b] * illumination(c, b), random);
                spectrum[size_t(j)] = (raw - dark_[at]) * (1.0f / (white_[at] - dark_[at]));
            }
            samples.add(spectrum.data(), label);
        }
        ++label;
    }
    return samples;
}

trainer::Model Scene::train(const trainer::Options& options) const
{
    const QVector<int> bands = selectedBands();
    return trainer::train(spectra(bands, options_.trainingSpectra, 1), spectra(bands, options_.heldOutSpectra, 2),
                          classNames().size(), options);
}

modelwriter::Project Scene::project(const trainer::Model& m) const
{
    using namespace modelwriter;
    const QStringList classes = classNames();
    const int c = classes.size();

    ClassifierSpec spec;
    spec.inputBands = m.bands;
    spec.totalBands = options_.bands;
    spec.selectedBands = selectedBands();
    spec.classNames = classes;
    spec.classCodes.clear();
    for (int i = 0; i < c; ++i)
        spec.classCodes.append(i);
    spec.randomSeed = int(options_.seed);
    Roc roc;
    roc.rowLength = c;
    roc.currentPoint = 0;
    roc.weightTable = QVector<float>(c, 1.0f);
    spec.roc = roc;
    spec.rejectEnabled = true;
    spec.rejectThresholds = QVector<float>(m.thresholds.begin(), m.thresholds.end());
    spec.rejection = RejectionTables();
    LinearElement projection;
    projection.inputCount = m.bands;
    projection.outputCount = m.features;
    projection.matrix = TypedArray::floats({m.bands, m.features, 1, 1}, QVector<float>(m.projection.begin(), m.projection.end()));
    projection.offset = TypedArray::floats({1, m.features, 1, 1}, QVector<float>(m.offset.begin(), m.offset.end()));
    spec.projection = projection;
    NetworkElement network;
    network.featureCount = m.features;
    network.unitCount = m.centres;
    network.classCount = c;
    network.classNames = classes;
    network.centres = TypedArray::floats({m.features, m.centres, 1, 1}, QVector<float>(m.centreValues.begin(), m.centreValues.end()));
    network.gammas = TypedArray::floats({m.centres, 1, 1, 1}, QVector<float>(m.gammas.begin(), m.gammas.end()));
    network.outputWeights =
        TypedArray::floats({m.centres + 1, c, 1, 1}, QVector<float>(m.outputWeights.begin(), m.outputWeights.end()));
    network.unitTags = QVector<qint32>(m.centreClass.begin(), m.centreClass.end());
    spec.network = network;
    spec.classFlags = QVector<bool>(c, true);
    spec.classFlags[0] = false;
    spec.trainingRound = 1;

    // Objects are all foreground pixels together, rejected ones included, so that the
    // mixed pixels at an object's rim stay part of it and a foreign body is an object of
    // its own, decided by the majority of its pixels.
    SegmenterSpec segmenter;
    segmenter.classNames = classes;
    segmenter.useUnknown = true;
    QVector<bool> foreground(c + 1, true);
    foreground[0] = false;
    segmenter.foregroundVec = foreground;
    segmenter.minObjSize = 40;
    segmenter.objMask = 2;
    segmenter.objDecOutput = 1;
    segmenter.objDecType = 1;
    segmenter.ruleDefDecName = classes.value(1);
    segmenter.rule1 = {classes.value(1), 1, 1, 0};
    segmenter.rule2Enabled = false;
    segmenter.rule2 = segmenter.rule1;
    segmenter.backgroundDecName = classes.value(0);

    Project p;
    p.type = 10;
    p.header = QStringLiteral("belt scene, %1 materials").arg(c);
    p.classNames = QStringList{QStringLiteral("Unknown")} + classes;
    p.classColors = {QColor(0, 0, 0, 0)};
    for (const Material& material : materials_)
        if (material.trained)
            p.classColors.append(material.colour);
    Image image;
    image.imageType = 10;
    image.cubeName = QStringLiteral("scene");
    image.width = options_.width;
    image.height = options_.lines;
    image.bands = options_.bands;
    image.wavelengths = wavelengths_;
    p.images = {image};
    p.bandSelection = QVector<bool>(options_.bands, true);
    StreamBuilder classifier;
    classifier.tag(QStringLiteral("ZelkClassifier:%1").arg(spec.version)).add(spec);
    p.classifier = classifier.bytes();
    QVector<bool> projectForeground(c + 1, true);
    projectForeground[0] = projectForeground[1] = false;
    p.classForeground = projectForeground;
    StreamBuilder segmenterStream;
    segmenterStream.add(segmenter);
    p.segmenter = segmenterStream.bytes();
    return p;
}

} // namespace scene
