#pragma once
// A project's record of one scan: name, size, wavelengths, crop and labels. Each
// camera format is a subclass that knows where its files are and how its meta-data
// reads; the base holds what all of them share.

#include "spectral/spectral_cube.h"

#include <QByteArray>
#include <QImage>
#include <QObject>
#include <QStringList>
#include <QVector>
#include <memory>
#include <optional>

class EnviHeader;
class QDataStream;


// A labelled point of an image with up to ten values (unused ones are NaN).
struct ZelkPointAnnotation {
    QString name;
    int x = 0;
    int y = 0;
    QVector<float> values;
};

class ZelkImage : public QObject {
    Q_OBJECT
public:
    explicit ZelkImage(const QString& cubeName = QString(), QObject* parent = nullptr);
    ~ZelkImage() override;

    // Reads the element an image is stored as in a project: 0, or -1 for a version word
    // outside the known range.
    virtual int load(QDataStream& in);
    // Size and wavelengths from the files next to the scan: 0 or -1.
    virtual int readMetaData(const QString& directory);
    // A picture of the scan; null when the format has none.
    virtual QImage loadPreview(const QString& directory);
    // The path of the scan's data file; empty when the format names none.
    virtual QString cubeFileName(const QString& directory) const;
    // The scan itself, owned by the caller; null when it cannot be loaded.
    virtual std::unique_ptr<ZelkSpectralCube> loadCube(const QString& directory);
    // The label mask as an 8-bit indexed image of the image's size; marks the labels as
    // taken out until setLabelImage() stores them back.
    virtual QImage labelImage();
    virtual void setLabelImage(const QImage& image);
    // Makes the image the region w by h at (x, y) of what it shows now, cutting labels and
    // annotations to it: 0, or -1 for a window that does not lie inside.
    virtual int crop(int x, int y, int w, int h);
    // Back to the whole scan, labels and annotations moved back into place.
    virtual void uncrop();

    int imageInt3 = 0;
    bool cropped = false;
    int cropA = 0, cropB = 0, cropC = 0, cropD = 0; // x, y, width, height of the region
    int cropWidth = 0, cropHeight = 0;              // size before cropping
    int imageType = 0;
    float imageFactor = 1.0f;
    int imageInt1 = 0, imageInt2 = 0; // displayed width and height
    int width = 0, height = 0, bandCount = 0;
    QByteArray imageBlob; // label mask as a "ZBA01" stream
    std::optional<QVector<double>> wavelengths;
    float imageFloat = -1.0f;
    int defaultBands[3] = {-1, -1, -1};

    std::optional<QList<ZelkPointAnnotation>> pointAnnotations;
    int objectLabelCount = 0;
    QVector<int> objectLabelTable; // six integers per object
    std::optional<QStringList> objectLabelNotes;
    std::optional<QStringList> objectLabelNames;
    int annState = 0;
    QByteArray imageBlob2;

    int fullCubeBytes = -1, storedCubeBytes = -1;
    int imageError = 0;
    QString imageErrorMsg;
    bool labelsTaken = false;
    // Set by a loader when the scan arrived as reflectance (float) rather than counts.
    bool externallyCorrected = false;
    int labelReads = 0; // run-time counter that a load clears
    QString cubeName;

Q_SIGNALS:
    void progressChanged(QString text, int value);
    void displayMessage(QString text);

protected:
    // Stores the code and "%1: %2" with the message, and emits the message.
    void report(int code, const QString& message);
    // Stores the code and "%1: %2" with the message, without displaying anything.
    int setError(int code, const QString& message);

    // How a class reads an ENVI header beside its scan.
    enum class EnviRule {
        Plain,            // "default bands" taken when the list has exactly three entries
        RequiredDefaults, // "default bands" read as a list of three
        Strict,           // as Plain, and the sizes must be positive, "data type" present
        NoDefaults,       // as Plain, without "default bands"
    };
    // Size, wavelengths and default bands from `header` (read from `path`). 0, or -1 with
    // the reason displayed. `wavelengthsRead` tells whether the file had the list.
    int readEnviFields(const EnviHeader& header, const QString& path, EnviRule rule, bool* wavelengthsRead = nullptr);
    // The text with which a successful meta-data read announces the image.
    QString sizeReport() const;
    // Crops a freshly loaded cube to the image's region when the image is one and the cube
    // is still larger. False, with the reason displayed, when the region does not fit.
    bool cropToRegion(ZelkSpectralCube& cube);
    // Reads the tail that a subclass stores behind the common head.
    virtual void loadTail(QDataStream&) {}
    // "<directory>/<cubeName><suffix>".
    QString besideScan(const QString& directory, const QString& suffix) const;
};
