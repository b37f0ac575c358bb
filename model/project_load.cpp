// Reading a project stream. The format grew by appending: a reader for revision N
// reads every section of the lower revisions in the same order, then its own.

#include "model/project.h"
#include "wire/stream_reads.h"
#include "spectral/camera_kinds.h"

#include <QRegularExpression>
#include <QtDebug>
#include <cmath>

using namespace streamreads;

namespace {

QString readTag(QDataStream& in)
{
    return value<QString>(in);
}

bool isTag(const QString& read, const char* tag)
{
    return read == QLatin1String(tag);
}

// The revision named by the magic "ZELK01" … "ZELK17", or 0.
int revisionOf(const QString& magic)
{
    static const QRegularExpression form(QStringLiteral("^ZELK(0[1-9]|1[0-7])$"));
    const QRegularExpressionMatch m = form.match(magic);
    return m.hasMatch() ? m.captured(1).toInt() : 0;
}

QVector<quint8> asFlags(const QVector<bool>& flags)
{
    QVector<quint8> out(flags.size());
    for (int i = 0; i < flags.size(); ++i)
        out[i] = flags[i] ? 1 : 0;
    return out;
}

// Early revisions stored data sets under the names of rotated copies of an image; they
// belong to the image they were rotated from.
QString sourceImageKey(const QString& key, const std::vector<std::unique_ptr<ZelkImage>>& images)
{
    auto isImage = [&](const QString& name) {
        for (const auto& image : images)
            if (image->cubeName == name)
                return true;
        return false;
    };
    QString result = key;
    static const QRegularExpression rotated(QStringLiteral("^(.*)_rot[\\d]+$"));
    static const QRegularExpression rotatedCrop(
        QStringLiteral("^(.*)_rot[\\d]+(_cropped_c[\\d]+_r[\\d]+_w[\\d]+_h[\\d]+)$"));
    QRegularExpressionMatch m = rotated.match(key);
    if (m.hasMatch() && isImage(m.captured(1)))
        result = m.captured(1);
    m = rotatedCrop.match(key);
    if (m.hasMatch() && isImage(m.captured(1)))
        result = m.captured(1) + m.captured(2);
    return result;
}

// A loop over a stored count stops once an iteration has started on a failed stream:
// every later one would read the same nothing again.
bool failed(QDataStream& in)
{
    return in.status() != QDataStream::Ok;
}

// More bands than any spectrometer delivers.
constexpr int MaxBands = 1 << 16;

} // namespace

class ZelkProjectReader {
public:
    ZelkProjectReader(ZelkProject& p, QDataStream& in, int revision) : p(p), in(in), v(revision) {}

    int run();

private:
    int readImages();
    void readDataSets();
    int readClassifier();
    void readPreprocessing();
    int readRegression();
    int readSegmenter();
    void deriveSegmenter();
    int readVisualisations();
    int readObjectReport();
    int readCache();
    int close();

    ZelkProject& p;
    QDataStream& in;
    const int v;
    int classifierVersion = -1;
};

int ZelkProject::load(QDataStream& in)
{
    revision = revisionOf(value<QString>(in));
    if (revision == 0) {
        loadStatus = 2;
        return -1;
    }
    return ZelkProjectReader(*this, in, revision).run();
}

int ZelkProjectReader::run()
{
    p.projectType = value<int>(in);
    p.headerString = value<QString>(in);
    read(in, p.classNames);
    read(in, p.classColors);
    p.classIncluded = QVector<bool>(p.classNames.size(), true);

    const int imageCount = value<int>(in);
    for (int i = 0; i < imageCount && !failed(in); ++i)
        if (const int r = readImages())
            return r;
    readDataSets();

    p.savedFloat = value<float>(in);
    p.savedInt = value<int>(in);
    p.statsFlag = 0;
    for (const QString& name : QStringList(p.classNames))
        p.updateClassStats(name);

    if (v >= 2) {
        QVector<bool> selection;
        read(in, selection);
        p.bandSelection = selection;
    } else if (p.bandCount >= 0) {
        p.bandSelection = QVector<bool>(p.bandCount, true);
    }
    p.rebuildSelectedBands();
    Q_EMIT p.bandSelectionLoaded(p.bandSelection ? &*p.bandSelection : nullptr);

    if (v >= 3) {
        if (isTag(readTag(in), "preview+current Bands")) {
            p.previewRed = value<int>(in);
            p.previewGreen = value<int>(in);
            p.previewBlue = value<int>(in);
            p.currentBand = value<int>(in);
        }
        if (isTag(readTag(in), "ZelkClassifier"))
            if (const int r = readClassifier())
                return r;
    }
    if (p.classForeground.size() != p.classNames.size())
        p.classForeground = QVector<bool>(p.classNames.size(), false);
    p.imagesTest = QVector<bool>(int(p.images.size()), false);
    p.imagesAux = p.imagesTest;

    if (v >= 4 && isTag(readTag(in), "ZelkClassForeground"))
        read(in, p.classForeground);
    if (v >= 5) {
        if (isTag(readTag(in), "ZelkPointAnnotationProjectData"))
            p.pointAnnotationData = value<int>(in);
        if (isTag(readTag(in), "ZelkImagesTest"))
            read(in, p.imagesTest);
        if (isTag(readTag(in), "maxValidValue")) {
            p.useMaxValidValue = value<bool>(in);
            p.maxValidValue = value<float>(in);
            Q_EMIT p.maxValidValueUpdated();
        }
    }
    p.preprocEnabled = false;
    p.preprocDerivative = 0;
    p.preprocWindow = 0;
    if (v >= 6) {
        readPreprocessing();
        if (const int r = readRegression())
            return r;
    }

    if (v >= 9) {
        if (const int r = readSegmenter())
            return r;
    } else if (p.classifier) {
        deriveSegmenter();
    }
    if (!p.classifier)
        p.segmenter.reset();
    else if (!p.segmenter) {
        p.segmenter = std::make_unique<ZelkSegmenter>();
        p.segmenter->objMask = qint32(ObjectMask::EachDecision);
    }
    p.trainingAlg = 0;

    if (v >= 10) {
        if (isTag(readTag(in), "ZelkTrainingAlg"))
            p.trainingAlg = value<int>(in);
        if (isTag(readTag(in), "ZelkClassIncluded")) {
            read(in, p.classIncluded);
            if (p.classIncluded.size() != p.classNames.size())
                return -1005;
        }
    }
    if (v >= 11)
        if (const int r = readVisualisations())
            return r;
    if (v >= 12 && isTag(readTag(in), "RegVarList:1"))
        read(in, p.regVarList);
    if (p.regVarList.isEmpty())
        p.addRegVar(QStringLiteral("var1"));
    if (v >= 13)
        if (const int r = readObjectReport())
            return r;
    if (v >= 14) {
        if (!isTag(readTag(in), "RegRadius"))
            return -1;
        p.regRadius = value<int>(in);
    }
    p.acqSettings.clear();
    if (v >= 15) {
        if (!isTag(readTag(in), "AcqSettings"))
            return -1;
        read(in, p.acqSettings);
        p.regMin = p.acqSettings.value(QStringLiteral("RegMin")).toDouble();
        p.regMax = p.acqSettings.value(QStringLiteral("RegMax")).toDouble();
    }
    p.regCache.clear();
    if (v >= 16) {
        if (const int r = readCache())
            return r;
        if (!isTag(readTag(in), "AcqType"))
            return -1;
        p.acqType = value<int>(in);
    }
    return close();
}

int ZelkProjectReader::readImages()
{
    std::unique_ptr<ZelkImage> image = makeImage(p.projectType);
    if (!image)
        return -1; // no camera of that type
    image->imageType = p.projectType;
    QObject::connect(image.get(), &ZelkImage::progressChanged, &p, &ZelkProject::setProgress);
    QObject::connect(image.get(), &ZelkImage::displayMessage, &p, &ZelkProject::displayMessage);
    if (const int r = image->load(in))
        return r;
    // The band count sizes the band selection and the class statistics: a count that no
    // camera has marks a damaged file, not one to allocate for.
    if (image->bandCount < 0 || image->bandCount > MaxBands)
        return -1;
    if (p.images.empty()) {
        p.bandCount = image->bandCount;
        p.bandSelection = QVector<bool>(qMax(0, p.bandCount), true);
        Q_EMIT p.bandDetailsLoaded(p.bandCount, image->wavelengths ? &*image->wavelengths : nullptr);
    }
    p.images.push_back(std::move(image));
    return 0;
}

void ZelkProjectReader::readDataSets()
{
    const int count = value<int>(in);
    for (int i = 0; i < count; ++i) {
        const bool startedFailed = failed(in);
        QString key = value<QString>(in);
        if (v < 5)
            key = sourceImageKey(key, p.images);
        auto set = std::make_unique<ZelkDataSet>();
        set->load(in);
        // Counts from a damaged file may pass the range of the sum: it wraps, defined.
        p.totalSampleCount = int(quint32(p.totalSampleCount) + quint32(set->sampleCount));
        p.dataSets[key] = std::move(set);
        if (startedFailed)
            break;
    }
}

int ZelkProjectReader::readClassifier()
{
    p.classifier = std::make_unique<ZelkClassifier>(&p);
    ZelkClassifier& c = *p.classifier;
    c.device = p.device;
    static const QRegularExpression form(QStringLiteral("^ZelkClassifier:([1-4])$"));
    const QRegularExpressionMatch m = form.match(readTag(in));
    if (m.hasMatch())
        classifierVersion = m.captured(1).toInt();
    if (!m.hasMatch() || c.load(in, classifierVersion) != 0) {
        p.classifier.reset();
        return -1;
    }
    if (!c.selectedBands) {
        c.selectedBands = p.selectedBands.value_or(QVector<int>());
        c.selectedBandCount = p.selectedBandCount;
    }
    p.buildClassifierColours();
    c.prepareDevice(); // a model that cannot run is refused when an acquisition starts
    QObject::connect(&c, &ZelkClassifier::displayMessage, &p, &ZelkProject::displayMessage);
    QObject::connect(&c, &ZelkClassifier::displayMemInfo, &p, &ZelkProject::displayMemInfo);
    return 0;
}

void ZelkProjectReader::readPreprocessing()
{
    if (!isTag(readTag(in), "ZelkClassifierPreprocessing"))
        return;
    p.preprocEnabled = value<bool>(in);
    p.preprocDerivative = value<int>(in);
    p.preprocWindow = value<int>(in);
    if (!p.classifier)
        return;
    ZelkClassifier& c = *p.classifier;
    c.prepFilter.reset();
    if (!p.preprocEnabled)
        return;
    auto filter = std::make_unique<ZelkAFPipelineM7>();
    if (filter->buildFilter(c.inputBands, p.preprocDerivative, p.preprocWindow) == 0)
        c.prepFilter = std::move(filter);
}

int ZelkProjectReader::readRegression()
{
    // Rows 16 to 18 drop what they replace first; a tag of neither form leaves no object.
    const QString dataTag = readTag(in);
    p.regData.reset();
    if (isTag(dataTag, "ZelkRegData")) {
        p.regData = std::make_unique<ZelkDataSet>();
        if (p.regData->load(in) != 0)
            return -1001;
    }
    if (v >= 7) {
        const QString tag = readTag(in);
        p.regressor.reset();
        if (isTag(tag, "ZelkRegressor")) {
            p.regressor = std::make_unique<ZelkRegressor>();
            p.regressor->device = p.device;
            if (const int r = p.regressor->load(in))
                return r;
            if (p.regData)
                p.regressor->setRegData(p.regData.get());
            p.regressor->prepareDevice();
            p.regOutputVersion = -1;
            qDebug("\n RegOutput invalidated");
        }
    }
    if (v >= 8) {
        const QString tag = readTag(in);
        if (p.regressor)
            p.regressor->regTestData = nullptr; // it is only ever read through the project
        p.regTestData.reset();
        if (isTag(tag, "ZelkRegTestData")) {
            p.regTestData = std::make_unique<ZelkDataSet>();
            if (p.regTestData->load(in) != 0)
                return -1003;
            if (p.regressor) {
                if (p.regData)
                    p.regressor->setRegData(p.regData.get());
                p.regressor->setRegTestData(p.regTestData.get());
            }
        }
    }
    return 0;
}

int ZelkProjectReader::readSegmenter()
{
    const QString tag = readTag(in);
    p.segmenter.reset();
    if (!isTag(tag, "ZelkSegmenter"))
        return 0;
    p.segmenter = std::make_unique<ZelkSegmenter>();
    if (p.segmenter->load(in) != 0)
        return -1004;
    p.buildSegmenterColours();
    return 0;
}

// Revisions before segmenters were stored: objects are formed from the classifier's
// decisions, the first decision of a class not marked as foreground being background.
void ZelkProjectReader::deriveSegmenter()
{
    const ZelkClassifier& c = *p.classifier;
    auto segmenter = std::make_unique<ZelkSegmenter>();
    segmenter->objMask = qint32(ObjectMask::EachDecision);
    for (int d = 0; d < c.decisionCount(); ++d) {
        const QString name = c.decisionName(d);
        const int at = p.classNames.indexOf(name);
        const bool foreground = at >= 0 && at < p.classForeground.size() && p.classForeground[at];
        if (!foreground) {
            segmenter->backgroundDecName = name;
            break;
        }
    }
    segmenter->setForeground(c.classNames, false, p.classNames, asFlags(p.classForeground));
    p.segmenter = std::move(segmenter);
    p.buildSegmenterColours();
}

int ZelkProjectReader::readVisualisations()
{
    if (!isTag(readTag(in), "Visualization:1"))
        return -1;
    p.visNames.clear();
    read(in, p.visNames);
    QVector<unsigned int> greys(256);
    for (int i = 0; i < 256; ++i)
        greys[i] = qRgb(i, i, i);
    for (int i = 0; i < p.visNames.size(); ++i) {
        auto alg = std::make_unique<ZelkVisAlg>();
        alg->colourTable = greys;
        if (alg->load(in) != 0)
            return -1;
        p.visAlgs.push_back(std::move(alg));
    }
    return 0;
}

int ZelkProjectReader::readObjectReport()
{
    if (!isTag(readTag(in), "objRep") || !isTag(readTag(in), "objRepLocation"))
        return -1;
    p.objRepLocation = value<int>(in);
    if (!isTag(readTag(in), "objRepWhat"))
        return -1;
    p.objRepWhat = value<int>(in);
    if (!isTag(readTag(in), "objRepTemplateImageInd"))
        return -1;
    p.objRepTemplateImageInd = value<int>(in);
    if (!isTag(readTag(in), "objRepNames"))
        return -1;
    read(in, p.objRepNames);
    if (!isTag(readTag(in), "objRepList"))
        return -1;
    p.objRepList.clear();
    for (int i = 0; i < p.objRepNames.size(); ++i) {
        auto item = std::make_unique<ZelkObjRepItem>();
        if (item->load(in) != 0)
            return -1;
        p.objRepList.push_back(std::move(item));
    }
    return 0;
}

int ZelkProjectReader::readCache()
{
    if (!isTag(readTag(in), "RegCache:1"))
        return -1;
    if (isTag(readTag(in), "keys")) {
        QStringList keys;
        read(in, keys);
        if (!isTag(readTag(in), "objects"))
            return -1;
        for (const QString& key : keys) {
            const QString tag = readTag(in);
            if (isTag(tag, "NULL")) {
                p.regCache.insert(key, nullptr);
            } else if (isTag(tag, "ZelkDataSet")) {
                auto set = std::make_unique<ZelkDataSet>();
                if (set->load(in) != 0)
                    return -1;
                p.regCache.insert(key, set.release(), 1);
            }
        }
    }
    if (p.classifier)
        p.trainingRound = p.classifier->trainingRound;
    return 0;
}

int ZelkProjectReader::close()
{
    if (p.previewRed == -1 || p.previewGreen == -1 || p.previewBlue == -1) {
        const float bands = float(p.bandCount);
        p.previewRed = int(std::floor(bands * 0.25f));
        p.previewGreen = int(std::floor(bands * 0.5f));
        p.previewBlue = int(std::floor(bands * 0.75f));
    }
    Q_EMIT p.previewBandsSet(p.previewRed, p.previewGreen, p.previewBlue);
    if (classifierVersion == 1 && p.classifier && p.classifier->inputBands != p.selectedBandCount)
        return -7;
    return 0;
}
