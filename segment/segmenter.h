#pragma once
// The object segmentation of a project. The definition says which decisions are
// foreground, which one is background, how small an object may be, how pixels are
// grouped and how an object's class is decided; compiling checks it against the
// classifier's decision list and fixes the codes used in place of names. The tracker
// half (tracker.cpp) turns a stream of decision rows into finished object records.

#include "segment/object_record.h"
#include "segment/object_rule.h"
#include "segment/open_object.h"
#include "segment/zeroed_table.h"

#include <QDataStream>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QVector>
#include <array>
#include <memory>
#include <vector>

// How the foreground pixels of a row or image form objects: the definition's objMask.
// Any other value forms no objects at all.
enum class ObjectMask : qint32 {
    EachDecision = 1,  // neighbours of the same decision form an object
    AllForeground = 2, // neighbouring foreground pixels of any decision form one, counted per class
};

class ZelkSegmenter : public QObject {
    Q_OBJECT
public:
    explicit ZelkSegmenter(QObject* parent = nullptr);
    ~ZelkSegmenter() override;

    // ---- Definition ------------------------------------------------------------

    // Replaces the class names and makes a new foreground vector of zeros: one flag per
    // name, plus one for the unknown decision when `useUnknown` is set.
    void setClasses(const QStringList& names, bool useUnknown);
    // Builds the class list from the classifier's `decisions` and the project's
    // foreground list (`names` with their `flags`, entry for entry), stores the flags and
    // compiles. Result as for compile().
    int setForeground(const QStringList& decisions, bool useUnknown, const QStringList& names,
                      const QVector<quint8>& flags);
    // Checks the definition; 0, or the negative code, also kept in lastErrorCode() with
    // its message in lastErrorText().
    int compile();
    // Takes sizes above 0 and ignores the rest.
    void setMinObjSize(int size);
    // Lowest code flagged 1, or -1 when there is none.
    int firstForeground() const;
    // Creates the run state for one acquisition: row buffers of `width` in streaming
    // mode, the label tables, the finished list and `valuesPerPixel` values per object.
    // 0, or -3600 when the definition is not compiled. With `streaming` off the segmenter
    // labels whole images (labelCube) instead of a stream of rows.
    int prepareSegmenter(bool streaming, int width, int valuesPerPixel);

    // Reads the definition behind its "ZelkSegmenter" tag. 0, or -1 when a required
    // item's tag is wrong. The names are left uncompiled: every decision index is -1.
    int load(QDataStream& in);

    // Field by field, for a definition read from a stream; each clears the compiled flag.
    void setClassNames(const QStringList& names);
    void setUseUnknown(bool useUnknown);
    void setForegroundVec(std::unique_ptr<QVector<quint8>> flags); // null: no vector
    bool setForegroundFlag(int index, quint8 flag);                 // false outside the vector

    const QStringList& classNames() const { return classNames_; }
    int classNameCount() const { return classNameCount_; }
    bool useUnknown() const { return useUnknown_; }
    const QVector<quint8>* foregroundVec() const { return foregroundVec_.get(); }
    bool isCompiled() const { return compiled_; }
    ObjectMask mask() const { return ObjectMask(objMask); }
    int lastErrorCode() const { return lastErrorCode_; }
    const QString& lastErrorText() const { return lastErrorText_; }
    int backgroundIndex() const { return backgroundIndex_; }
    int defaultIndex() const { return defaultIndex_; }
    // The compiled foreground flags, one entry for each of the 256 byte codes (codes
    // beyond the vector are background). Null until a compile has succeeded.
    const quint8* foregroundTable() const { return tableReady_ ? foregroundLut_.data() : nullptr; }

    qint32 objDecOutput = 1; // kept as read; nothing here acts on it
    qint32 objMask = 1;      // an ObjectMask, kept as read
    qint32 minObjSize = 50;  // smallest object in pixels
    qint32 objDecType = 1;   // 1: majority of pixels; 2: rules
    QString backgroundDecName;
    QString ruleDefDecName;  // decision when no rule fires
    ZelkSegmentRule rule1;
    bool rule2Enabled = false;
    ZelkSegmentRule rule2;
    qint32 objSep = 1;       // kept as read; nothing here acts on it
    QVector<int> colourTable; // display colours of the decisions, built by the project

    // ---- Tracker ---------------------------------------------------------------

    const int labelCapacity = 100000;     // labels, open objects and rows of value sums
    const int objectListCapacity = 50000; // finished objects of one pass
    const int finishPeriod = 20;          // a finishing pass runs on lines divisible by this

    // One row of `width` decision bytes. The row must stay intact until the next call
    // has returned. 0, or -1 when a table is full or the segmenter is not prepared.
    int trackDecisions(const quint8* decisions);     // objects of equal decision code
    int trackForeground(const quint8* decisions);    // objects of equal foreground flag
    int trackValue(const quint8* decisions, const float* values);  // one value per pixel
    int trackValues(const quint8* decisions, const float* values); // valuesPerPixel per pixel, pixel-major
    // Closes the objects that ended at least two lines before the current one. 0, or -1
    // when the finished list became full.
    int finishDecisions();

    // Records of the last pass; reset by the next row.
    int objectCount() const { return objectCount_; }
    const qint32* object(int i) const;
    // Mean values of the objects of the last pass, valuesPerPixel() floats per object,
    // in the order of the records. Null before the first preparation.
    const float* objectMeans() const { return objectMeans_.empty() ? nullptr : objectMeans_.data(); }

    // ---- Whole images ----------------------------------------------------------

    static constexpr int labellingError = -213; // what a failed image labelling returns

    // Labels a whole image of `width` by `height` decision bytes, row after row, with the
    // row kernel of objects of equal decision code (labelCube) or of equal foreground flag
    // (labelCubeForeground), and then closes every object in one pass: objectCount() and
    // object(i) give the records in the order of the objects' first pixels, with lines
    // counted from the image's first row. Needs a segmenter prepared with streaming off.
    //
    // `objectMap` (width x height, row by row) receives the raw label of every foreground
    // pixel; background entries are left as the caller filled them. labelCubeForeground
    // also writes each pixel's foreground flag into `classObjectMap`, of the same shape.
    //
    // 0, or labellingError when a table runs full (more label starts than the label
    // table holds, or a full finished list) or when the arguments can't be labelled (no
    // buffers, a negative width, an unprepared segmenter). After a full table the counters
    // stay where they were, and only resetAfterCube() or a new preparation restarts them.
    int labelCube(const quint8* decisions, qint32* objectMap, int width, int height);
    int labelCubeForeground(const quint8* decisions, qint32* objectMap, qint32* classObjectMap, int width,
                            int height);
    // Readies the segmenter for the next image once its records have been taken: object
    // numbers, labels and lines start again from the beginning. The accepted pixel count
    // keeps running. Does nothing to a segmenter that is not prepared for images.
    void resetAfterCube();
    // For each label of the last image, the number of the object it ended in (0 for a
    // label of an object rejected by size, except that object's first label, whose entry
    // is left as it was). Null before the first preparation.
    const qint32* objectNumberMap() const { return objectNumberMap_.empty() ? nullptr : objectNumberMap_.data(); }
    // Merges in an image relabel by walking the members of the absorbed label rather than
    // by a scan of the whole label table; both leave the same state. Tests compare the two.
    void setPlainRelabel(bool on) { plainRelabel_ = on; }

    bool streaming() const { return streaming_; }
    int width() const { return width_; }
    int valuesPerPixel() const { return valuesPerPixel_; }
    int currentLine() const { return currentLine_; }
    int acceptedPixels() const { return acceptedPixels_; }

    // Issues labels by a scan from label 1 every time rather than from the lowest label
    // that can have become free; both issue the same labels. Tests compare the two.
    void setPlainLabelSearch(bool on) { plainLabelSearch_ = on; }

private:
    enum class Kernel { Decisions, Foreground, Value, Values };

    int fail(int code);
    void clearCompiled();

    template <Kernel K> int trackRow(const quint8* decisions, const float* values);
    template <Kernel K> int scanRow(const quint8* decisions, const float* values);
    template <Kernel K> int finishPass();
    template <Kernel K> int finishImage();
    template <Kernel K> void writeRecord(const OpenObject& o, qint32 label);
    template <Kernel K> int labelImage(const quint8* decisions, qint32* objectMap, qint32* classObjectMap,
                                       int width, int height);
    int issueLabel();
    int issueImageLabel();
    void appendMembers(qint32 root, qint32 absorbed);
    void relabelNewRun(qint32 x, qint32 lo);
    void relabelByScan(qint32 lo, qint32 hi, OpenObject*& touched);
    void relabelByMembers(qint32 lo, qint32 hi, OpenObject*& touched);
    void noteFreed(int label);
    bool rowsReady() const;

    // Definition.
    bool compiled_ = false;
    QStringList classNames_;
    int classNameCount_ = 0;
    bool useUnknown_ = false;
    std::unique_ptr<QVector<quint8>> foregroundVec_;
    int backgroundIndex_ = 0;
    int defaultIndex_ = 0;
    int lastErrorCode_ = 0;
    QString lastErrorText_;
    bool tableReady_ = false;
    std::array<quint8, 256> foregroundLut_{};
    int classSlots_ = 0; // class counters in use: names plus the unknown decision, at most 21

    // Run state.
    bool streaming_ = false;
    bool prepared_ = false;
    int width_ = 0;
    int valuesPerPixel_ = 0;
    std::vector<qint32> labelRows_[2];
    std::vector<qint32> flagRows_[2];
    qint32* labelRow_ = nullptr;
    qint32* previousLabelRow_ = nullptr;
    qint32* flagRow_ = nullptr;
    qint32* previousFlagRow_ = nullptr;
    const quint8* decisionRow_ = nullptr;
    const quint8* previousDecisionRow_ = nullptr; // null on the first line
    ZeroedTable<OpenObject> openObjects_;
    ZeroedTable<qint32> labelMap_;      // root label of each label; 0 once its object closed
    ZeroedTable<float> valueSums_;      // labelCapacity rows of valuesPerPixel
    ZeroedTable<qint32> objectNumberMap_;
    ZeroedTable<qint32> objectList_;    // objectListCapacity records
    ZeroedTable<float> objectMeans_;    // objectListCapacity rows of valuesPerPixel
    int currentLine_ = 0;
    int nextLabel_ = 1;
    int lastIssuedLabel_ = -1;
    int highestLabel_ = 1;
    int nextObjectNumber_ = 1;
    int objectCount_ = 0;
    int acceptedPixels_ = 0;

    int freeSearchStart_ = 1; // no label below this one can be taken (see issueLabel)
    bool plainLabelSearch_ = false;

    // Image mode: the labels that resolve to each root, as a list through memberNext_
    // (0 ends it) from the root itself to memberTail_[root]. Only labels issued in the
    // current image are linked.
    ZeroedTable<qint32> memberNext_;
    ZeroedTable<qint32> memberTail_;
    bool plainRelabel_ = false;
};
