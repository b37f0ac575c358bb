#include "model/project.h"

#include <QtGlobal>

namespace {

// Opaque greys 0..253, a cyan marker at 254 and transparent white at 255.
QVector<unsigned int> makeGreyTable()
{
    QVector<unsigned int> table(256);
    for (int i = 0; i < 254; ++i)
        table[i] = qRgb(i, i, i);
    table[254] = 0xFF00C8C8u;
    table[255] = 0x00FFFFFFu;
    return table;
}

} // namespace

ZelkProject::ZelkProject(int type, QObject* parent)
    : QObject(parent)
    , projectType(type)
    , greyTable(makeGreyTable())
    , segmenter(std::make_unique<ZelkSegmenter>())
{
    for (const char* name : {"gray", "plasma", "viridis"}) {
        colorMapNames.append(QLatin1String(name));
        auto map = std::make_unique<ZelkColorMap>();
        map->setUpNamed(QLatin1String(name));
        colorMaps.push_back(std::move(map));
    }
    const unsigned a = unsigned(overlayAlpha) << 24, b = unsigned(overlayZeroAlpha) << 24;
    markerColours[0] = a | 0xFF0000u;
    markerColours[1] = b;
    markerColours[2] = a | 0x00FF00u;
    markerColours[3] = a | 0x00FFFFu;

    // Decisions are drawn over greys through the second map, each with the overlay's
    // alpha; decision 0 stays nearly transparent.
    overlayTable = QVector<unsigned int>(256);
    for (int i = 0; i < 256; ++i)
        overlayTable[i] = qRgb(i, i, i);
    if (const QVector<QRgb>* table = colorMaps[1]->table(1, 255))
        for (int i = 1; i < 256; ++i)
            overlayTable[i] = (*table)[i];
    for (unsigned int& entry : overlayTable)
        entry = (entry & 0x00FFFFFFu) | (unsigned(overlayAlpha) << 24);
    overlayTable[0] = unsigned(overlayZeroAlpha) << 24;
}

ZelkProject::~ZelkProject()
{
    // The owned parts go in a fixed order, so that a project that a failed read left
    // half built goes the same way as a whole one.
    images.clear();
    classifier.reset();
    bandSelection.reset();
    selectedBands.reset();
    segmenter.reset();
    regressor.reset(); // holds the two data sets below by plain pointer
    regData.reset();
    regTestData.reset();
    regCache.clear();
    visAlgs.clear();
    colorMaps.clear();
}

int ZelkProject::addRegVar(const QString& name)
{
    if (regVarList.size() >= 10 || regVarList.contains(name))
        return -1;
    regVarList.append(name);
    return 0;
}

void ZelkProject::rebuildSelectedBands()
{
    QVector<int> bands;
    if (bandSelection)
        for (int i = 0; i < bandSelection->size(); ++i)
            if ((*bandSelection)[i])
                bands.append(i);
    selectedBandCount = bands.size();
    selectedBands = bands;
}

void ZelkProject::buildColours(const QStringList& names, QVector<int>& table, int size)
{
    table.clear();
    for (const QString& name : names) {
        const int at = classNames.indexOf(name);
        if (at >= 0 && at < classColors.size())
            table.append(int(classColors[at].rgba()));
    }
    table.append(int(QColor(128, 128, 128, 180).rgba()));
    while (table.size() < size) {
        const int red = qrand() % 256;
        const int green = qrand() % 256;
        const int blue = qrand() % 256;
        table.append(int(qRgb(red, green, blue)));
    }
}

void ZelkProject::buildClassifierColours()
{
    if (!classifier)
        return;
    buildColours(classifier->classNames, classifier->colourTable, 255);
    classifier->colourTable.append(int(0xFFC8C8FFu));
}

void ZelkProject::buildSegmenterColours()
{
    if (segmenter)
        buildColours(segmenter->classNames(), segmenter->colourTable, 256);
}

void ZelkProject::updateClassStats(const QString& name)
{
    const QString keys[3] = {name + QLatin1String("__Mean__"), name + QLatin1String("__Min__"),
                             name + QLatin1String("__Max__")};
    if (!classNames.contains(name) || !statsClasses.contains(name)) {
        for (const QString& key : keys)
            classStats.erase(key);
        Q_EMIT classStatsUpdated(name, QColor(), nullptr, nullptr, nullptr);
        return;
    }
    const int bands = qMax(0, bandCount);
    QVector<double>* v[3];
    for (int i = 0; i < 3; ++i) {
        v[i] = &classStats[keys[i]];
        v[i]->fill(0.0, bands);
    }
    QVector<double>& mean = *v[0];
    QVector<double>& minimum = *v[1];
    QVector<double>& maximum = *v[2];
    qint64 samples = 0;
    for (const auto& [key, set] : dataSets) {
        const int label = set->classNames.indexOf(name);
        const int values = qMin(bands, set->featureCount);
        for (int s = 0; s < set->labels.size(); ++s) {
            if (set->labels[s] != label || qint64(s + 1) * set->featureCount > set->data.size())
                continue;
            const float* x = set->data.constData() + qint64(s) * set->featureCount;
            for (int b = 0; b < values; ++b) {
                mean[b] += x[b];
                minimum[b] = qMin(minimum[b], double(x[b]));
                maximum[b] = qMax(maximum[b], double(x[b]));
            }
            ++samples;
        }
    }
    const double scale = 1.0 / double(samples);
    for (double& m : mean)
        m *= scale;
    const int at = classNames.indexOf(name);
    Q_EMIT classStatsUpdated(name, classColors.value(at), v[0], v[1], v[2]);
}

void ZelkProject::setProgress(QString text, int value)
{
    Q_EMIT progressChanged(text, value);
}

void ZelkProject::setAlpha(int alpha)
{
    overlayAlpha = alpha;
}

void ZelkProject::setMatlabVarName(QString varName)
{
    Q_EMIT MatlabVarNameSet(varName, QString());
}

void ZelkProject::setMatlabDataAndWavelengthVarNames(QString varName, QString wavelengthVarName)
{
    Q_EMIT MatlabVarNameSet(varName, wavelengthVarName);
}

void ZelkProject::setRandomSeed(int seed)
{
    if (seed == randomSeed)
        return;
    Q_EMIT displayMessage(QStringLiteral("Random seed: %1").arg(seed));
    randomSeed = seed;
    if (classifier)
        classifier->setRandomSeed(seed);
}

void ZelkProject::setBandAsSelected(int band, bool value)
{
    if (bandSelection && band >= 0 && band < bandSelection->size())
        (*bandSelection)[band] = value;
}
