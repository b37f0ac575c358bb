#pragma once
// The cameras that projects are made for, and what the library does differently for
// each: one row per project type (per acquisition type for type 19) says which image
// class reads its scans, whether frames or cubes come in, in which sample type and
// layout, how a cube's memory is read and how its references load. Every rule that
// depends on the camera reads its row here.

#include "spectral/spectral_cube.h"

#include <memory>

class QObject;
class ZelkImage;

// The project type: the camera or file format that a project's images come from, as the
// stream stores it. 0 is a project that no stream has filled.
enum class ProjectType : int {
    None = 0,
    Specim = 1,
    Hyspex = 2,
    Imec = 3,
    Cubert = 4,
    Matlab = 5,
    TiffStack = 6,
    SpecImIQ = 7,
    Senop = 8,
    CubertEnvi = 9,
    Headwall = 10,
    CubertTiff = 11,
    Spectrocam = 12,
    Corning = 13, // its images are read as ENVI scans, although their class exists
    Envi = 14,
    Silios = 15,
    Innospec = 16,
    Resonon = 17,
    Unispectral = 18,
    Tessaron = 19, // line-scan or snapshot, as its acquisition type says
    CubertCU3 = 20,
    SiliosEnvi = 21,
    Agrowing = 22,
};

// How the camera of a type 19 project delivered its scans: the stream's "AcqType".
// Several stored values mean the same here: every line-scan mode hands in 16-bit
// counts band after band.
enum class Acquisition : int {
    Unknown = -1,        // not stored: such a project does not load
    SnapshotCounts = 0,  // cubes of 16-bit counts, pixel after pixel
    SnapshotFloat = 1,   // cubes of float values, pixel after pixel
    Unassigned = 2,      // no mode of the library, like any value not listed here
    LineScan = 3,        // 3 to 6 and 8 to 11: frames of 16-bit counts, band after band
    SnapshotBands = 7,   // cubes of 16-bit counts, band after band, which no cube form reads
};

// Which call family a project's handle answers to after the load.
enum class CallFamily {
    LineScan,      // one frame, a camera line, per zelk_ProcessFrame
    Snapshot,      // one cube per zelk_ProcessCube
    AsBefore,      // the family of the project loaded before stays, false on a fresh handle
    RefusesToLoad, // the project does not load
};

// The sample type that the camera hands in, in the cube's codes, or why there is none.
enum class InputType : int {
    Unsupported = -1, // the pair of project and acquisition type has no sample type
    Undefined = 0,    // the camera does not say
    UInt16 = DataUInt16,
    Float = DataFloat,
};

// The layout that the camera hands in, in the cube's codes.
enum class InputLayout : int {
    Undefined = 0,
    BIP = LayoutBIP,
    BIL = LayoutBIL,
    BSQ = LayoutBSQ,
};

// How zelk_ProcessCube reads a cube's memory.
enum class CubeForm {
    None,      // no cube form: the camera's cubes are refused
    Float,     // 32-bit float, pixel after pixel; a region of interest may be set
    UInt16,    // unsigned 16-bit, pixel after pixel
    BigEndian, // big-endian unsigned 16-bit, band after band, in the camera's band order
};

// Where zelk_LoadCorrection finds the white and dark references.
enum class CorrectionLoader {
    CaptureFolder,  // "WHITEREF_" and "DARKREF_" files in the capture folder of the named scan
    ReferencePair,  // "whiteReference" and "darkReference" in the directory
    CorrectionScan, // the references that the named scan's own image finds for it
};

using ImageMaker = std::unique_ptr<ZelkImage> (*)(QObject* parent);

struct CameraKind {
    ProjectType type;
    ImageMaker image; // the class of the project's images; null: the project holds none
    CallFamily family;
    InputType input;          // without references
    InputType correctedInput; // with references loaded
    InputLayout layout;       // of frames for a line-scan camera, of cubes for a snapshot one
    CubeForm cube;
    CorrectionLoader correction;
    Acquisition acquisition = Acquisition::Unassigned; // the row's own only for type 19
};

// The row of a project. A type outside 1 to 22 has the row of None; type 19 has a row
// per acquisition type, the line-scan modes sharing one.
const CameraKind& cameraKind(int projectType, int acqType);

// A new image of the class that a project type reads its images with; null outside 1
// to 22.
std::unique_ptr<ZelkImage> makeImage(int projectType, QObject* parent = nullptr);
