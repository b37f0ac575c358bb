#include "model/processing_setup.h"
#include "model/project.h"

FramePath framePathOf(int processingSetup)
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

ProcessingSetup setupOfParts(const ZelkProject& p, bool corrected)
{
    if (p.regressor)
        return corrected ? ProcessingSetup::CorrectedRegressor : ProcessingSetup::Regressor;
    if (p.segmenter)
        return corrected ? ProcessingSetup::CorrectedSegmenter : ProcessingSetup::Segmenter;
    if (p.classifier)
        return corrected ? ProcessingSetup::CorrectedClassifier : ProcessingSetup::Classifier;
    return ProcessingSetup::None;
}
