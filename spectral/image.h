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

    int imageInt3 = 0;
    bool cropped = false;
    int cropA = 0, cropB = 0, cropC = 0, cropD = 0; // x, y, width, height of the region
    int cropWidth = 0, cropHeight = 0;              // size before cropping
    int device = 65536;
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
    int labelReads = 0; // run-time counter that a load clears
    QString cubeName;

Q_SIGNALS:
    void progressChanged(QString text, int value);
    void displayMessage(QString text);

protected:
    // Stores the code and "%1: %2" with the message, and emits the message.
    void report(int code, const QString& message);
    // Reads the tail that a subclass stores behind the common head.
    virtual void loadTail(QDataStream&) {}
    // "<directory>/<cubeName><suffix>".
    QString besideScan(const QString& directory, const QString& suffix) const;
};
