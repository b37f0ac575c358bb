#pragma once
// A white and dark reference pair that turns a scan in counts into reflectance:
// r = whiteLevel * (x - dark) / (white - dark). The pair is one spectrum (point), one
// line (frame) or a whole cube; deriveState() decides which from the references and the
// scan, and isValid() checks that the decision is usable.

#include "spectral/spectral_cube.h"

#include <QDateTime>
#include <QObject>
#include <QString>
#include <QVector>
#include <memory>

class ZelkCorrection : public QObject {
public:
    enum State { NotSet = -1, NoCorrection = 0, Point = 1, Frame = 2, Cube = 3 };
    enum Source { SourceUnknown = -1, SourceScanHeader = 1, SourceScanFiles = 2, SourceDirectoryFiles = 3 };

    explicit ZelkCorrection(QObject* parent = nullptr);
    ~ZelkCorrection() override;

    int state = NotSet;
    int source = SourceUnknown;
    float whiteLevel = DefaultWhiteLevel; // reflectance of the white target
    double whiteValue1 = -1.0;            // carried for the application that writes projects
    std::unique_ptr<ZelkSpectralCube> white;
    QString whiteInfo; // where the white reference came from, for display
    QDateTime whiteTime;
    float whiteValue2 = -1.0f;
    double darkValue1 = -1.0;
    int darkNumber = -1;
    std::unique_ptr<ZelkSpectralCube> dark;
    QString darkInfo;
    QDateTime darkTime;
    float darkValue2 = -1.0f;
    int lastError = 0;
    QString lastMessage; // "code: message" of the last validity check

    // Decides the state from the references and the scan's columns, lines and bands:
    // 0 when a state was set; -4206 for a band count that differs from the scan's; -1
    // for a single reference; the scan's columns or lines when the references' size
    // does not match, the state being left as it was.
    int deriveState(const ZelkSpectralCube& scan);

    // 0 when the state and the references agree (mode 1 is the only algorithm), else
    // -4201 ... -4204. The outcome is kept in lastError and lastMessage.
    int isValid(int mode);

    // Whether the references can be read the way the state applies them: 0, or -4305 when
    // a reference of a cube correction is not BIP and -4306 when one is neither uint16 nor
    // float, with the text in `message`.
    int checkReferences(QString* message) const;
    // The first `columns` by `lines` pixels of the references as the dark level and the
    // gain whiteLevel / (white - dark): band fastest, or with `pixelFastest` the pixel
    // index fastest. The references must be readable there (checkReferences, holdsSamples).
    void levels(int columns, int lines, bool pixelFastest, QVector<float>* dark, QVector<float>* gain) const;

    static constexpr float DefaultWhiteLevel = 0.95f;

private:
    int setLast(int code, const QString& message);
};

namespace correction {

// Describes where a reference file came from: "Loaded from <path>", a path of 30
// characters or more shortened to "..." and its last 30.
QString loadedFrom(const QString& path);

// level / (white - dark), value by value.
QVector<float> gainOf(const QVector<float>& white, const QVector<float>& dark, float level);

} // namespace correction
