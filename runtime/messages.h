#pragma once
// Every code and text the runtime reports, grouped by subject. Callers match on these
// texts, so each stays exactly as it is, oddities included; those are marked
// "Deliberate". The log lines that a call leaves in the handle's text are here too.
//
// A text is reported after the name of the exported call that runs ("zelk_SetInputWidth:
// Width value must be positive", see report.h) unless it is Unnamed. Texts with values
// in them are functions.

#include "zelk.h"

#include <QString>

enum class Naming { Named, Unnamed };

struct Text {
    int code;
    QString text;
    Naming naming = Naming::Named;
};

// The names under which a call reports, when they are not simply its own.
struct ExportNames {
    const char* function; // named in an internal error
    const char* texts;    // named in the texts of its body
    const char* nullText; // named in the text of a null handle
};

namespace msg {

// ---- Calls that report under another call's name (deliberate: callers match on these).

constexpr ExportNames GetObjDataInt{"zelk_GetObjDataInt", "zelk_GetObjDataInt", "zelk_GetObjCount"};
constexpr ExportNames GetObjDataClassFrac{"zelk_GetObjDataClassFrac", "zelk_GetObjDataClassFrac", "zelk_GetObjDataClassSize"};
constexpr ExportNames GetObjDataRegOutput{"zelk_GetObjDataRegOutput", "zelk_GetObjDataRegOut", "zelk_GetObjDataRegOut"};
constexpr ExportNames GetInputDataLayout{"zelk_GetInputDataLayout", "zelk_GetInputDataLayout", "zelk_GetInputDataType"};
constexpr ExportNames SetInputDataLayout{"zelk_SetInputDataLayout", "zelk_SetInputDataLayout", "zelk_SetInputDataType"};
// zelk_GetInputDataLayout's missing project, and zelk_SetSegmentation's segmentation
// that cannot proceed, are reported under these names.
constexpr const char* GetInputDataTypeName = "zelk_GetInputDataType";
constexpr const char* StartAcquisitionName = "zelk_StartAcquisition";

// ---- Every call

inline const Text NullPointer{ZELK_E_NULL_POINTER, QStringLiteral("Passing NULL pointer.")};
inline const Text NullFileName{ZELK_E_NULL_POINTER, QStringLiteral("Passing NULL pointer to a filename.")};
inline const Text NoProject{ZELK_E_NO_PROJECT, QStringLiteral("Project not loaded.")};
inline const Text NoClassifier{ZELK_E_NO_CLASSIFIER, QStringLiteral("Classifier model not loaded.")};

inline Text internalError(const QString& reason)
{
    return {ZELK_E_INTERNAL, QStringLiteral("Internal error (%1)").arg(reason)};
}

// ---- Handle and devices

inline QString versionLine(const char* version)
{
    return QStringLiteral("Tessaron Zelk Runtime version %1").arg(QLatin1String(version));
}

inline QString selectedDevice(int index, const QString& name)
{
    return QStringLiteral("Selected device %1: ").arg(index) + name;
}

inline Text deviceIndex(int index)
{
    return {ZELK_E_NAME_INDEX, QStringLiteral("Device index out of bounds (%1)").arg(index)};
}

inline const Text DeviceWhileAcquiring{ZELK_E_ACQUIRING, QStringLiteral("Cannot set device when running acquisition. Stop acquisition first.")};
inline const Text DeviceSwitch{ZELK_E_DEVICE, QStringLiteral("Error switching to computation device")};
inline const Text DeviceFlags{ZELK_E_DEVICE_FLAGS, QStringLiteral("listNVIDIA and listOpenCL must be specified as 0 or 1 values")};
inline const Text OpenClBackend{ZELK_E_OPENCL, QStringLiteral("Error setting OpenCL backend")};
inline const Text CudaBackend{ZELK_E_CUDA, QStringLiteral("Error setting CUDA backend")};

// ---- Model

inline const Text LoadWhileAcquiring{ZELK_E_ACQUIRING, QStringLiteral("Cannot load model into running acquisition. Stop acquisition first.")};
inline const Text ModelOpen{ZELK_E_MODEL_OPEN, QStringLiteral("File cannot be opened")};
inline const Text ModelFormat{ZELK_E_MODEL_FORMAT, QStringLiteral("Wrong file format")};
inline const Text ModelRead{ZELK_E_MODEL_READ, QStringLiteral("Error loading model from file")};
inline const Text UnknownAcquisitionType{ZELK_E_MODEL_CONTENT, QStringLiteral("Cannot load the project: Unknown acquisition type"),
                                         Naming::Unnamed};

inline Text modelUndeciphered(int containerError)
{
    return {ZELK_E_MODEL_CONTENT, QStringLiteral("Internal error when loading model (%1)").arg(containerError)};
}

inline QString modelLoaded(const QString& fileName, bool lineScan)
{
    return QStringLiteral("Model loaded from '%1' (%2 API)").arg(fileName, lineScan ? QStringLiteral("line-scan") : QStringLiteral("snapshot"));
}

// ---- Input description

inline const Text UndefinedDataType{ZELK_E_TYPE_UNDEFINED, QStringLiteral("Undefined data type.")};
inline const Text UndefinedDataLayout{ZELK_E_LAYOUT_UNDEFINED, QStringLiteral("Undefined data layout.")};
inline const Text WidthNotPositive{ZELK_E_WIDTH, QStringLiteral("Width value must be positive")};

inline Text cameraUnsupported(int projectType, int acqType)
{
    return {ZELK_E_CAMERA_UNSUPPORTED, QStringLiteral("Project and acquisition type unsupported (%1,%2)").arg(projectType).arg(acqType)};
}

// Deliberate: "Unsuported", and reported in the process-wide pair; callers match on it.
inline Text layoutRequested(unsigned layout)
{
    return {ZELK_E_LAYOUT, QStringLiteral("Unsuported layout type requested (%1)").arg(layout)};
}

// Deliberate: the parenthesis stays open; callers match on it.
inline Text invalidRoi(int col, int row, int width, int height, int imageWidth, int imageHeight)
{
    return {ZELK_E_ROI, QStringLiteral("Invalid ROI specification (col=%1,row=%2,width=%3,height=%4 while imageWidth=%5, imageHeight=%6")
                            .arg(col).arg(row).arg(width).arg(height).arg(imageWidth).arg(imageHeight)};
}

// ---- Segmentation

// Deliberate: "segmetation"; callers match on it.
inline const Text NoSegmenter{ZELK_E_NO_SEGMENTER, QStringLiteral("Object segmetation not defined.")};
inline const Text ObjectSizeNotPositive{ZELK_E_OBJECT_SIZE, QStringLiteral("Wrong minimum object size (must be >0)")};
inline const Text CubeSegmentation{ZELK_E_CUBE_SEGMENTATION, QStringLiteral("Object segmentation error")};
inline const Text TooManyObjectsInFrame{ZELK_E_TOO_MANY_OBJECTS, QStringLiteral("Max number of objects per frame reached")};
inline const Text TooManyObjectsInCube{ZELK_E_TOO_MANY_OBJECTS, QStringLiteral("Max number of objects reached")};

inline Text segmentationCannotProceed(int segmenterCode, const QString& segmenterText)
{
    return {ZELK_E_SEGMENTATION, QStringLiteral("Object segmentation cannot proceed (%1:%2).").arg(segmenterCode).arg(segmenterText)};
}

// ---- Acquisition start and stop

inline const Text AlreadyAcquiring{ZELK_E_ACQUIRING, QStringLiteral("Acquisition already running.")};
inline const Text NotAcquiring{ZELK_E_NOT_ACQUIRING, QStringLiteral("Acquisition not running.")};
inline const Text TypeNotSet{ZELK_E_TYPE_NOT_SET, QStringLiteral("Input data type not set. Use zelk_SetInputDataType call to specify it")};
inline const Text LayoutNotSet{ZELK_E_LAYOUT_NOT_SET, QStringLiteral("Input data layout not set. Use zelk_SetInputDataLayout call to specify it")};

inline Text noDecisionImage(int width, int height)
{
    return {ZELK_E_INTERNAL, QStringLiteral("Cannot make a decision image of %1 x %2 pixels.").arg(width).arg(height)};
}

// The classifier's own reason, after the call's name.
inline Text classifierRefused(const QString& reason)
{
    return {ZELK_E_NO_CLASSIFIER, reason};
}

inline QString noRoomForCubes(qint64 pixels)
{
    return QStringLiteral("Classifier cannot run: the compute device has no room for cubes of %1 pixels").arg(pixels);
}

inline Text resamplingMisfit(int width, int bands)
{
    return {ZELK_E_RESAMPLING, QStringLiteral("Resampling does not fit the frames (%1 pixels of %2 bands).").arg(width).arg(bands)};
}

inline Text resamplingCannotStart(const QString& why)
{
    return {ZELK_E_RESAMPLING, QStringLiteral("Resampling cannot run (%1).").arg(why)};
}

// The reason when the project has no regressor.
inline const QString NoRegressionModel = QStringLiteral("no regression model");

inline Text regressionCannotRun(const QString& why)
{
    return {ZELK_E_REGRESSION, QStringLiteral("Regression model cannot run (%1).").arg(why)};
}

inline QString lineTimes(const char* stage, double msPerFrame, double totalMs, int frames, int warmupFrames)
{
    return QStringLiteral("Average %1 time: %2 ms/frame (%3 fps), total:%4, processed %5 frames, first %6 skipped for warm-up.\n")
        .arg(QLatin1String(stage)).arg(msPerFrame).arg(1000 / msPerFrame).arg(totalMs).arg(frames).arg(warmupFrames);
}

inline QString cubeTimes(double msPerCube, int cubes, int warmupCubes)
{
    return QStringLiteral("Average alg time: %1 ms/cube (%2 fps), processed %3 cubes, first %4 skipped for warm-up.\n")
        .arg(msPerCube).arg(1000 / msPerCube).arg(cubes).arg(warmupCubes);
}

// ---- Frames

// Deliberate: the code of "Acquisition not running"; callers match on it.
inline const Text UnsupportedProcessingSetup{ZELK_E_NOT_ACQUIRING, QStringLiteral("Unsupported processing setup.")};
inline const Text UnsupportedDataType{ZELK_E_DATA_FORMAT, QStringLiteral("Unsupported data type.")};
inline const Text BipCorrection{ZELK_E_BIP_CORRECTION, QStringLiteral("Correction not supported for the BIP frame layout type")};
inline const Text RegressionNeedsBil{ZELK_E_DATA_FORMAT, QStringLiteral("Regression needs frames in the BIL layout.")};
inline const Text FrameWidthChanged{ZELK_E_INTERNAL, QStringLiteral("Frame width changed during acquisition.")};
inline const Text NoRing{ZELK_E_INTERNAL, QStringLiteral("The decision image holds no ring of rows.")};
inline const Text SegmentationNotPrepared{ZELK_E_INTERNAL, QStringLiteral("Segmentation was not prepared for the regression outputs.")};
inline const Text ResamplerMisfit{ZELK_E_INTERNAL, QStringLiteral("The resampler does not fit the frames.")};
inline const Text ResamplingFailed{ZELK_E_INTERNAL, QStringLiteral("The compute device failed to resample the frame.")};

inline Text unsupportedFrameLayout(int layout)
{
    return {ZELK_E_DATA_FORMAT, QStringLiteral("Unsupported data layout (%1).").arg(layout)};
}

inline Text frameMisfit(int bands)
{
    return {ZELK_E_INTERNAL, QStringLiteral("Frame does not fit the classifier (%1 bands)").arg(bands)};
}

inline Text regressorMisfit(int bands)
{
    return {ZELK_E_INTERNAL, QStringLiteral("Frame does not fit the regressor (%1 bands)").arg(bands)};
}

inline Text framesNotPrepared(qint64 width, int bands)
{
    return {ZELK_E_INTERNAL, QStringLiteral("Frames of %1 pixels and %2 bands were not prepared at the start.").arg(width).arg(bands)};
}

inline Text resamplingCannotRun(const QString& why)
{
    return {ZELK_E_INTERNAL, QStringLiteral("Resampling cannot run (%1).").arg(why)};
}

// ---- Cubes

inline const Text LineScanCannotProcessCubes{ZELK_E_NOT_SNAPSHOT_PROJECT, QStringLiteral("Line-scan project type cannot process cubes")};
inline const Text RoiUnsupported{ZELK_E_ROI_UNSUPPORTED, QStringLiteral("ROI processing unsupported for this project type")};
inline const Text CubeSizeChanged{ZELK_E_INTERNAL, QStringLiteral("Cube size changed during acquisition.")};
inline const Text NoCameraImage{ZELK_E_INTERNAL, QStringLiteral("The project holds no image of its camera.")};

inline Text unsupportedCubeFormat(int dataType, int layout)
{
    return {ZELK_E_DATA_FORMAT, QStringLiteral("Unsupported data type (%1) or data layout (%2)").arg(dataType).arg(layout)};
}

inline Text unsupportedProjectType(int projectType)
{
    return {ZELK_E_PROJECT_TYPE, QStringLiteral("Unsupported project type (%1)").arg(projectType)};
}

inline Text cubeMisfit(int bands)
{
    return {ZELK_E_INTERNAL, QStringLiteral("Cube of %1 bands does not fit the classifier").arg(bands)};
}

inline Text roiOutsideCube(int col, int row, int width, int height, int cubeWidth, int cubeHeight)
{
    return {ZELK_E_INTERNAL, QStringLiteral("ROI (col=%1,row=%2,width=%3,height=%4) lies outside the cube of %5 x %6 pixels")
                                 .arg(col).arg(row).arg(width).arg(height).arg(cubeWidth).arg(cubeHeight)};
}

inline Text noMemoryForCube(qint64 samples)
{
    return {ZELK_E_INTERNAL, QStringLiteral("No memory for a cube of %1 samples.").arg(samples)};
}

// ---- Results

inline const Text NoDecisionImage{ZELK_E_NO_DECISION_IMAGE, QStringLiteral("Label image does not exist.")};
// Deliberate: "Internal error" with the code of an image that cannot be saved; callers match on it.
inline const Text ImageSave{ZELK_E_IMAGE_SAVE, QStringLiteral("Internal error")};
inline const Text NotAllForeground{ZELK_E_NOT_ALL_FOREGROUND, QStringLiteral("Segmentation not set to required 'All foreground' mode.")};
inline const Text NoObjectRegOutputs{ZELK_E_MASK_WITHOUT_SEGMENTATION,
                                     QStringLiteral("No regression outputs of objects (regression with segmentation needed)")};
inline const Text LineScanExpected{ZELK_E_LINE_SCAN_EXPECTED, QStringLiteral("Line-scan project type expected, got snapshot.")};
inline const Text SnapshotExpected{ZELK_E_SNAPSHOT_EXPECTED, QStringLiteral("Snapshot project type expected, got linescan")};
inline const Text VariableIndex{ZELK_E_VARIABLE_INDEX, QStringLiteral("Variable index out of bounds")};
inline const Text MaskWithoutSegmentation{ZELK_E_MASK_WITHOUT_SEGMENTATION, QStringLiteral("Masking cannot be used as segmentation is not enabled")};
inline const Text NoRegressionOutput{ZELK_E_NO_REGRESSION_OUTPUT, QStringLiteral("No regression output yet. Start the acquisition first.")};
inline const Text DecisionIndex{ZELK_E_DECISION_INDEX, QStringLiteral("Decision index out of bounds")};
// Deliberate: a model without a regressor reads as a null pointer, in the process-wide
// pair; callers match on it.
inline const Text NoRegressor{ZELK_E_NO_REGRESSOR, QStringLiteral("Passing NULL pointer.")};

inline Text objectIndex(int last, int index)
{
    return {ZELK_E_OBJECT_INDEX, QStringLiteral("Object index out of bounds (0..%1 got %2)").arg(last).arg(index)};
}

// Deliberate: shows the object index, not the class index; callers match on it.
inline Text classIndex(int objectIndex)
{
    return {ZELK_E_CLASS_INDEX, QStringLiteral("Class index out of bounds (0..20, got %1)").arg(objectIndex)};
}

inline Text variableIndex(int index)
{
    return {ZELK_E_NAME_INDEX, QStringLiteral("Variable index out of bounds (%1)").arg(index)};
}

// ---- Resampling

inline Text gridWithoutEnd(double first, double step, double last)
{
    return {ZELK_E_FAILED, QStringLiteral("The grid from %1 in steps of %2 to %3 has no end").arg(first).arg(step).arg(last)};
}

// ---- Correction

// References that cannot correct line-scan frames.
constexpr int NotForFrames = -133;

inline const Text CorrectionInfo{ZELK_E_CORRECTION_INFO, QStringLiteral("Invalid correction information")};
// The same text without the call's name, as the start and the loaders report it.
inline const Text CorrectionInfoUnnamed{ZELK_E_CORRECTION_INFO, QStringLiteral("Invalid correction information"), Naming::Unnamed};
inline const Text BothReferencesNeeded{ZELK_E_REFERENCE_PAIR, QStringLiteral("Both white and dark references need to be loaded."),
                                       Naming::Unnamed};
inline const Text ReferenceLayoutNotBil{ZELK_E_LAYOUT, QStringLiteral("Unsupported data layout for correction (BIL)"), Naming::Unnamed};
inline const Text ReferencesDiffer{ZELK_E_REFERENCE_SHAPE, QStringLiteral("Correction scans must have identical width and band count."),
                                   Naming::Unnamed};
inline const Text ScanMetadata{ZELK_E_SCAN_METADATA, QStringLiteral("Loading meta-data from the correction scan failed.")};
inline const Text BandCountsDiffer{ZELK_E_REFERENCE_SHAPE, QStringLiteral("Dark and White reference images have different band count.")};
// Deliberate: the code in front of the call's name; callers match on it.
inline const Text DarkReferenceUnreadable{ZELK_E_REFERENCE_READ, QStringLiteral("-131: zelk_LoadCorrection: Error loading dark reference data"),
                                          Naming::Unnamed};
inline const Text WhiteReferenceUnreadable{ZELK_E_REFERENCE_READ,
                                           QStringLiteral("-131: zelk_LoadCorrection: Error loading white reference data"), Naming::Unnamed};

inline Text referenceType(quint32 dataType)
{
    return {ZELK_E_LAYOUT, QStringLiteral("Unsupported data type for correction (%1)").arg(dataType), Naming::Unnamed};
}

inline Text referenceLinesForFrames(int lines)
{
    return {NotForFrames,
            QStringLiteral("A reference of %1 lines cannot correct frames (float references must have exactly one line)").arg(lines)};
}

inline Text whiteMissing(const QString& path)
{
    return {ZELK_E_REFERENCE_MISSING, QStringLiteral("White reference file not present ('%1')").arg(path), Naming::Unnamed};
}

inline Text darkMissing(const QString& path)
{
    return {ZELK_E_REFERENCE_MISSING, QStringLiteral("Dark reference file not present ('%1')").arg(path), Naming::Unnamed};
}

inline Text whiteUnloadable(const QString& path, const QString& details)
{
    return {ZELK_E_REFERENCE_READ, QStringLiteral("Cannot load white reference file ('%1'). Details: %2").arg(path, details), Naming::Unnamed};
}

inline Text darkUnloadable(const QString& path, const QString& details)
{
    return {ZELK_E_REFERENCE_READ, QStringLiteral("Cannot load dark reference file ('%1'). Details: %2").arg(path, details), Naming::Unnamed};
}

inline Text correctionScanUnloadable(const QString& name, const QString& details)
{
    return {ZELK_E_CORRECTION_SCAN, QStringLiteral("Cannot load correction scan %1: %2").arg(name, details)};
}

inline Text correctionUnloadable(const QString& name, int imageError, const QString& imageErrorText)
{
    return {ZELK_E_CORRECTION_SCAN, QStringLiteral("Error loading correction %1: %2:%3").arg(name, QString::number(imageError), imageErrorText)};
}

inline Text correctionNotValid(int check)
{
    return {ZELK_E_CORRECTION_INVALID, QStringLiteral("Correction not valid (%1)").arg(check), Naming::Unnamed};
}

inline Text correctionForFrames(const QString& kind)
{
    return {NotForFrames, QStringLiteral("A %1 correction cannot correct line-scan frames (references of one line expected)").arg(kind)};
}

// References the correction model refuses (a cube reference not BIP, a sample type it
// cannot read), with its code in front of its text, as callers know these. The texts
// live with the checks in spectral/correction.cpp.
inline Text referencesRefused(int code, const QString& text)
{
    return {code, QStringLiteral("%1: %2").arg(code).arg(text), Naming::Unnamed};
}

} // namespace msg
