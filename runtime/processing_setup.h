#pragma once
// The processing set-up of a project (its processingSetup), which the model load derives
// from the project's parts and a correction load again, and the frame path each set-up
// selects. An acquisition takes its frame path once, when it starts.

#include "model/project.h"

// The values 1 to 3 are what a correction load sets and 5 to 7 what a model load sets,
// for the same parts; 1 and 5, 2 and 6, 3 and 7 run the same frame path, which reads
// whether references are loaded for itself, so the value tells only which load set it.
enum class ProcessingSetup : int {
    None = 0,                  // nothing set, or resampling without all three parts: refused
    CorrectedClassifier = 1,   // references loaded for a classifier: classifier path
    CorrectedSegmenter = 2,    // references loaded for a classifier with segmenter: classifier path
    CorrectedRegressor = 3,    // references loaded for a regressor: regression path
    UnusedCorrected = 4,       // set by nothing: refused
    Classifier = 5,            // a classifier: classifier path
    Segmenter = 6,             // a classifier with segmenter: classifier path
    Regressor = 7,             // a regressor: regression path
    UnusedUncorrected = 8,     // set by nothing: refused
    Resampling = 9,            // classifier, segmenter and regressor on resampled frames: resampling path
};

// The variants of zelk_ProcessFrame.
enum class FramePath { Refused, Classifier, Regression, Resampling };

// The frame path of a set-up; values beyond the table are refused.
inline FramePath framePathOf(int processingSetup)
{
    switch (ProcessingSetup(processingSetup)) {
    case ProcessingSetup::CorrectedClassifier:
    case ProcessingSetup::CorrectedSegmenter:
    case ProcessingSetup::Classifier:
    case ProcessingSetup::Segmenter:
        return FramePath::Classifier;
    case ProcessingSetup::CorrectedRegressor:
    case ProcessingSetup::Regressor:
        return FramePath::Regression;
    case ProcessingSetup::Resampling:
        return FramePath::Resampling;
    default:
        return FramePath::Refused;
    }
}

// The set-up that a model load (corrected false) or a correction load (true) gives the
// project's parts, the regressor outranking the segmenter, and that the classifier.
// Resampling is not considered.
inline ProcessingSetup setupOfParts(const ZelkProject& p, bool corrected)
{
    if (p.regressor)
        return corrected ? ProcessingSetup::CorrectedRegressor : ProcessingSetup::Regressor;
    if (p.segmenter)
        return corrected ? ProcessingSetup::CorrectedSegmenter : ProcessingSetup::Segmenter;
    if (p.classifier)
        return corrected ? ProcessingSetup::CorrectedClassifier : ProcessingSetup::Classifier;
    return ProcessingSetup::None;
}
