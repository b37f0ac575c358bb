#pragma once
// What a model file says about segmentation: which decisions are foreground, which one
// is background, how small an object may be, how pixels are grouped and how an
// object's class is decided. Compiling checks it against the classifier's decision list
// and fixes the codes used in place of names.

#include "segment/object_record.h"

#include <QDataStream>
#include <QString>
#include <QStringList>
#include <QVector>
#include <QtGlobal>
#include <array>
#include <memory>

// How the foreground pixels of a row or image form objects: the definition's objMask.
// Any other value forms no objects at all.
enum class ObjectMask : qint32 {
    EachDecision = 1,  // neighbours of the same decision form an object
    AllForeground = 2, // neighbouring foreground pixels of any decision form one, counted per class
};

// One of the two threshold rules that decide a finished object's class when the
// definition decides by rules (objDecType 2): over the object's count or fraction of
// pixels of the rule's decision, or over its mean value.
struct ZelkSegmentRule {
    enum Kind : qint32 { Count = 1, Fraction = 2, MeanValue = 3 };

    QString decName;        // decision the rule assigns; "Unknown" names the unknown decision
    qint32 decIndex = -1;   // its code, set by a successful compile
    qint32 kind = 0;        // one of Kind; any other value never fires
    qint32 thresholdInt = 0;
    float thresholdFloat = 0;
};

class ZelkSegmentDefinition {
public:
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
    // Class counters an object keeps: names plus the unknown decision, at most
    // ObjectClassSlots.
    int classSlots() const { return classSlots_; }

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

protected:
    // Keeps `code` and its message as the last error; returns the code.
    int fail(int code);

private:
    void clearCompiled();

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
    int classSlots_ = 0;
};
