// zelk info: what a model file holds. The model is loaded through the C interface like
// any other caller's; what that interface does not tell (the stream, the classifier's
// sizes, the rejection thresholds, the segmenter's definition) is read from the loaded
// project itself.

#include "cli.h"

#include "classify/classifier.h"
#include "classify/regressor.h"
#include "model/project.h"
#include "runtime/handle.h"
#include "segment/segmenter.h"

#include <cmath>
#include <cstdio>

namespace cli {
namespace {

constexpr const char* Command = "info";

void row(const char* label, const QString& text)
{
    std::printf("%-13s%s\n", label, qPrintable(text));
}

// "0-3, 7, 9-12": rising indices as runs.
QString ranges(const QVector<int>& values)
{
    QStringList parts;
    for (int i = 0; i < values.size();) {
        int j = i;
        while (j + 1 < values.size() && values[j + 1] == values[j] + 1)
            ++j;
        parts << (j > i ? QStringLiteral("%1-%2").arg(values[i]).arg(values[j]) : QString::number(values[i]));
        i = j + 1;
    }
    return parts.join(QStringLiteral(", "));
}

QString wavelengthText(const QVector<double>& w)
{
    if (w.isEmpty())
        return QStringLiteral("none stored");
    if (w.size() == 1)
        return QStringLiteral("%1 nm").arg(w[0], 0, 'f', 2);
    const double step = (w.last() - w.first()) / (w.size() - 1);
    bool even = true;
    for (int i = 1; i < w.size(); ++i)
        even = even && std::abs(w[i] - w[i - 1] - step) <= 1e-3 * std::abs(step) + 1e-6;
    QString text = QStringLiteral("%1 - %2 nm").arg(w.first(), 0, 'f', 2).arg(w.last(), 0, 'f', 2);
    if (even)
        return text + QStringLiteral(", every %1 nm").arg(step, 0, 'f', 3);
    QStringList all;
    for (double v : w)
        all << QString::number(v, 'f', 2);
    return text + QStringLiteral(": ") + all.join(QStringLiteral(", "));
}

QString typeName(int type)
{
    return type == DataUInt16 ? QStringLiteral("uint16") : type == DataFloat ? QStringLiteral("float") : QStringLiteral("type %1").arg(type);
}

QString layoutName(int layout)
{
    switch (layout) {
    case LayoutBIP: return QStringLiteral("BIP");
    case LayoutBIL: return QStringLiteral("BIL");
    case LayoutBSQ: return QStringLiteral("BSQ");
    default: return QStringLiteral("layout %1").arg(layout);
    }
}

QString ruleText(const ZelkSegmentRule& r)
{
    switch (r.kind) {
    case ZelkSegmentRule::Count: return QStringLiteral("%1 when more than %2 of its pixels are %1").arg(r.decName).arg(r.thresholdInt);
    case ZelkSegmentRule::Fraction:
        return QStringLiteral("%1 when more than a share of %2 of its pixels are %1").arg(r.decName).arg(double(r.thresholdFloat));
    case ZelkSegmentRule::MeanValue:
        return QStringLiteral("%1 when its mean regression output exceeds %2").arg(r.decName).arg(double(r.thresholdFloat));
    default: return QStringLiteral("%1 (kind %2, never fires)").arg(r.decName).arg(r.kind);
    }
}

void describeSegmenter(const ZelkProject& p, const Decisions& d)
{
    const ZelkSegmenter* s = p.segmenter.get();
    if (!s) {
        row("segmenter", QStringLiteral("none"));
        return;
    }
    QStringList foreground;
    const QVector<quint8>* flags = s->foregroundVec();
    for (int i = 0; flags && i < flags->size(); ++i)
        if ((*flags)[i])
            foreground << d.name(i);
    row("segmenter", s->mask() == ObjectMask::AllForeground  ? QStringLiteral("objects of all foreground decisions together (mask 2)")
                     : s->mask() == ObjectMask::EachDecision ? QStringLiteral("objects of each decision apart (mask 1)")
                                                             : QStringLiteral("mask %1, which forms no objects").arg(s->objMask));
    row("", QStringLiteral("foreground: %1; background: %2").arg(foreground.isEmpty() ? QStringLiteral("none") : foreground.join(QStringLiteral(", ")),
                                                                  s->backgroundDecName.isEmpty() ? QStringLiteral("none") : s->backgroundDecName));
    row("", QStringLiteral("smallest object %1 px; object decision: %2")
                .arg(s->minObjSize)
                .arg(s->objDecType == 1 ? QStringLiteral("the majority of its pixels")
                     : s->objDecType == 2 ? QStringLiteral("rules, %1 by default").arg(s->ruleDefDecName)
                                          : QStringLiteral("kind %1").arg(s->objDecType)));
    if (s->objDecType == 2) {
        row("", QStringLiteral("rule 1: %1").arg(ruleText(s->rule1)));
        if (s->rule2Enabled)
            row("", QStringLiteral("rule 2: %1").arg(ruleText(s->rule2)));
    }
}

void describeClassifier(const ZelkProject& p, int totalBands)
{
    const ZelkClassifier* c = p.classifier.get();
    if (!c) {
        row("classifier", QStringLiteral("none"));
        return;
    }
    const int features = c->projection ? c->projection->outputCount : 0;
    const int centres = c->network ? c->network->unitCount : 0;
    row("classifier", QStringLiteral("F %1 features, K %2 centres, C %3 classes; %4 of %5 bands (%6)")
                          .arg(features).arg(centres).arg(c->classCount())
                          .arg(c->bandIndex.size()).arg(c->totalBands > 0 ? c->totalBands : totalBands)
                          .arg(ranges(c->bandIndex)));
    const QVector<float> point = c->roc ? c->roc->classRow(c->classCount()) : QVector<float>();
    QStringList weights;
    for (float w : point)
        weights << QString::number(double(w), 'g', 4);
    row("", point.isEmpty() ? QStringLiteral("no operating point")
                            : QStringLiteral("operating point %1: class weights %2").arg(c->roc->currentPoint).arg(weights.join(QLatin1Char(' '))));
    if (!c->rejectEnabled) {
        row("rejection", QStringLiteral("off"));
        return;
    }
    QStringList thresholds;
    for (int i = 0; i < c->classCount(); ++i)
        thresholds << QStringLiteral("%1 %2").arg(c->classNames[i]).arg(i < c->rejectThresholds.size() ? double(c->rejectThresholds[i]) : 0.0, 0, 'g', 4);
    row("rejection", QStringLiteral("on, below the threshold of the winning class: %1").arg(thresholds.join(QStringLiteral(", "))));
}

void describeRegression(const ZelkProject& p, ZelkHandle* h)
{
    if (!p.regressor) {
        row("regression", QStringLiteral("none"));
        return;
    }
    QStringList names;
    const int count = zelk_GetRegVarCount(h);
    for (int v = 0; v < count; ++v)
        if (const char* name = zelk_GetRegVarName(h, v))
            names << QString::fromLocal8Bit(name);
    const ZelkRegressor& r = *p.regressor;
    QString chain;
    if (r.regModel)
        chain = QStringLiteral("; linear model of %1 inputs").arg(r.regModel->inputCount);
    row("regression", QStringLiteral("%1 variable%2: %3%4").arg(count).arg(count == 1 ? "" : "s").arg(names.join(QStringLiteral(", ")), chain));
}

} // namespace

int info(int argc, char** argv)
{
    Arguments args;
    if (!args.parse(Command, argc, argv, 2, {}))
        return BadUsage;
    if (args.positional.size() != 1) {
        fail(Command, QStringLiteral("needs one model: zelk info MODEL"));
        return BadUsage;
    }
    Session s;
    if (!s.loadModel(Command, args.positional[0]))
        return Failed;
    const bool snapshot = s.snapshot;
    const ZelkProject& p = *s.h->project;

    row("model", args.positional[0]);
    row("stream", QStringLiteral("revision %1%2").arg(p.revision).arg(p.headerString.isEmpty() ? QString() : QStringLiteral(", \"%1\"").arg(p.headerString)));
    row("camera", QStringLiteral("type %1%2, %3").arg(p.projectType)
                      .arg(ProjectType(p.projectType) == ProjectType::Tessaron ? QStringLiteral(" (acquisition type %1)").arg(p.acqType) : QString())
                      .arg(snapshot ? QStringLiteral("snapshot: one cube per call") : QStringLiteral("line-scan: one line per call")));
    const int width = zelk_GetInputWidth(s.h), height = zelk_GetInputHeight(s.h), bands = zelk_GetInputBands(s.h);
    const int type = zelk_GetInputDataType(s.h), layout = zelk_GetInputDataLayout(s.h);
    QString samples = type > 0 ? typeName(type) : QStringLiteral("no type without references");
    // These camera types take their 16-bit counts raw once references correct them.
    if (takesReferences(p.projectType, p.acqType) && !snapshot)
        samples += QStringLiteral(" (uint16 counts once references are loaded)");
    row("input", QStringLiteral("%1 x %2 pixels, %3 bands; %4, %5").arg(width).arg(height).arg(bands).arg(samples,
                     layout > 0 ? layoutName(layout) : QStringLiteral("no layout")));
    const ZelkImage* image = p.images.empty() ? nullptr : p.images.front().get();
    row("wavelengths", image && image->wavelengths ? wavelengthText(*image->wavelengths) : QStringLiteral("none stored"));

    Decisions d;
    if (d.read(s.h) && !d.names.isEmpty()) {
        for (int i = 0; i < d.names.size(); ++i)
            row(i == 0 ? "decisions" : "", QStringLiteral("%1  %2  #%3").arg(i, 3).arg(d.names[i], -20).arg(d.colours[i], 6, 16, QLatin1Char('0')));
    } else {
        row("decisions", QStringLiteral("none (no classifier)"));
    }
    describeClassifier(p, bands);
    describeSegmenter(p, d);
    describeRegression(p, s.h);
    return 0;
}

} // namespace cli
