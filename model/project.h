#pragma once
// The root of a loaded model: images, classes and colours, band selection, data sets,
// classifier, segmenter, regressor, object report and acquisition settings. The same
// record serves the desktop tool that trains projects, so it carries display members
// that the library keeps but does not act on.

#include "classify/classifier.h"
#include "classify/regressor.h"
#include "wire/data_set.h"
#include "model/report_elements.h"
#include "segment/segmenter.h"
#include "spectral/image.h"
#include "visual/color_map.h"

#include <QCache>
#include <QColor>
#include <QMap>
#include <QObject>
#include <QStringList>
#include <QVariant>
#include <QVector>
#include <memory>
#include <optional>
#include <vector>

class ZelkProject : public QObject {
    Q_OBJECT
public:
    explicit ZelkProject(int projectType = 0, QObject* parent = nullptr);
    ~ZelkProject() override;

    // Parses a project stream into this freshly made project: 0, or a negative code.
    // A failed read leaves the project half built; deleting it is always safe.
    int load(QDataStream& in);

    // Appends a regression variable: 0, or -1 when the list is full (10) or has it.
    int addRegVar(const QString& name);
    // The indices of the selected bands, rising, from bandSelection.
    void rebuildSelectedBands();
    // Colour tables of the decisions: the classes' colours by name, grey for the
    // unknown decision, random opaque colours up to the table's size.
    void buildClassifierColours();
    void buildSegmenterColours();
    // Mean, minimum and maximum spectrum of a class over the data sets, when the class
    // is one whose statistics are wanted; otherwise they are dropped.
    void updateClassStats(const QString& className);

    int revision = 0; // of the stream, from its magic; 0 before a load
    int projectType = 0; // a ProjectType (spectral/camera_kinds.h)
    int acqType = -1;    // an Acquisition, which only type 19 reads
    QString projectFile;
    QString headerString;
    int bandCount = -1;
    quint8 statsFlag = 0;
    int device = 65536;
    QString projectText;
    QStringList classNames{QStringLiteral("Unknown")};
    QVector<QColor> classColors{QColor(0, 0, 0, 0)};
    QVector<bool> classForeground{false};
    QVector<bool> classIncluded{false};
    QMap<QString, QVariant> statsClasses;
    std::vector<std::unique_ptr<ZelkImage>> images;
    QVector<unsigned int> greyTable;
    int previewRed = -1, previewGreen = -1, previewBlue = -1, currentBand = -1;
    QVector<bool> imagesTest, imagesAux;
    int savedInt = -1;
    int maxCacheSize = 3000;
    QCache<QString, ZelkSpectralCube> imageCache{3000};
    std::map<QString, std::unique_ptr<ZelkDataSet>> dataSets;
    int totalSampleCount = 0;
    std::map<QString, QVector<double>> classStats;
    float savedFloat = 0;
    int displayInt = 1;
    float displayFraction = 0.01f;
    bool useMaxValidValue = false;
    float maxValidValue = 0;
    int trainingAlg = 0;
    bool preprocEnabled = false;
    int preprocDerivative = 0, preprocWindow = 0;
    std::unique_ptr<ZelkClassifier> classifier;
    int trainingRound = 0;
    std::optional<QVector<bool>> bandSelection;
    int selectedBandCount = 0;
    std::optional<QVector<int>> selectedBands;
    std::unique_ptr<ZelkSegmenter> segmenter;
    int randomSeed = 42;
    int pointAnnotationData = 1;
    QStringList regVarList{QStringLiteral("var1")};
    QCache<QString, ZelkDataSet> regCache{3000};
    int regRadius = 0;
    std::unique_ptr<ZelkDataSet> regData, regTestData;
    double regMin = 0, regMax = 0;
    std::unique_ptr<ZelkRegressor> regressor;
    qint64 regOutputVersion = -1;
    QVector<unsigned int> overlayTable;
    int overlayAlpha = 255;
    int overlayZeroAlpha = 63;
    QStringList colorMapNames;
    std::vector<std::unique_ptr<ZelkColorMap>> colorMaps;
    QRgb markerColours[4] = {};
    QStringList visNames;
    std::vector<std::unique_ptr<ZelkVisAlg>> visAlgs;
    int objRepLocation = 0;
    int objRepWhat = 1;
    int objRepTemplateImageInd = -1;
    QStringList objRepNames;
    std::vector<std::unique_ptr<ZelkObjRepItem>> objRepList;
    QMap<QString, QVariant> acqSettings;
    int loadStatus = 0;
    int processingSetup = 0; // a ProcessingSetup (runtime/processing_setup.h), fixed by the runtime

Q_SIGNALS:
    void classColorChanged(QString className, QColor color);
    void classListUpdated(QStringList& classNames, QVector<QColor>& classColors);
    void imageAdded(QString imageCubeName);
    void displayMessage(QString text);
    void bandDetailsLoaded(int bands, QVector<double>* wavelengths);
    void previewBandsSet(int red, int green, int blue);
    void classStatsUpdated(QString className, QColor classColor, QVector<double>* mean, QVector<double>* minimum,
                           QVector<double>* maximum);
    void progressChanged(QString text, int value);
    void displayValueUpdated(double minValue, double maxValue);
    void displayValueUpdatedByAutoStretch(double minValue, double maxValue);
    void maxValidValueUpdated();
    void maxCacheSizeUpdated(int maxCacheSize);
    void MatlabVarNameSet(QString varName, QString wavelengthsVarName);
    void curopChanged(ZelkROC* roc);
    void bandSelectionLoaded(QVector<bool>* bandSelection);
    void setBatchProgress(QString text, int value);
    void displayMemInfo(QString infoString);

public Q_SLOTS:
    void setProgress(QString text, int value);
    void setAlpha(int alpha);
    void setMatlabVarName(QString varName);
    void setMatlabDataAndWavelengthVarNames(QString varName, QString wavelengthVarName);
    void setRandomSeed(int seed);
    void setBandAsSelected(int band, bool value);

private:
    // Fills `table` with the colours of `names` found among the classes, then the grey
    // of the unknown decision, then random opaque colours up to `size` entries.
    void buildColours(const QStringList& names, QVector<int>& table, int size);
};
