#include "spectral/camera_kinds.h"
#include "spectral/image_family.h"

namespace {

template <class Image>
std::unique_ptr<ZelkImage> image(QObject* parent)
{
    return std::make_unique<Image>(QString(), parent);
}

using A = Acquisition;
using F = CallFamily;
using T = InputType;
using L = InputLayout;
using C = CubeForm;
using R = CorrectionLoader;

// Line-scan cameras take float reflectance, or their 16-bit counts where they come with
// references that the library can load; the snapshot cameras' cube forms fix their
// samples. Type 19's rows follow.
//  type, image class, call family, samples, samples with references, layout, cube form,
//  references
const CameraKind kinds[] = {
    // No camera: a project that no stream filled, or of a type the library does not know.
    {ProjectType::None,        nullptr,                     F::LineScan,      T::Float,       T::Undefined,   L::BIL,       C::None,      R::CaptureFolder},
    {ProjectType::Specim,      image<ZelkImageSpecim>,      F::LineScan,      T::Float,       T::UInt16,      L::BIL,       C::None,      R::CaptureFolder},
    {ProjectType::Hyspex,      image<ZelkImageHyspex>,      F::LineScan,      T::Float,       T::UInt16,      L::BIL,       C::None,      R::CaptureFolder},
    {ProjectType::Imec,        image<ZelkImageIMEC>,        F::Snapshot,      T::Float,       T::Undefined,   L::BIP,       C::Float,     R::CaptureFolder},
    {ProjectType::Cubert,      image<ZelkImageCubert>,      F::Snapshot,      T::UInt16,      T::Undefined,   L::Undefined, C::None,      R::CaptureFolder},
    {ProjectType::Matlab,      image<ZelkImageMatlab>,      F::LineScan,      T::Float,       T::Undefined,   L::BIL,       C::None,      R::CaptureFolder},
    {ProjectType::TiffStack,   image<ZelkImageTiffStack>,   F::LineScan,      T::Float,       T::Undefined,   L::BIL,       C::None,      R::CaptureFolder},
    {ProjectType::SpecImIQ,    image<ZelkImageSpecImIQ>,    F::Snapshot,      T::Float,       T::Undefined,   L::Undefined, C::None,      R::CaptureFolder},
    {ProjectType::Senop,       image<ZelkImageSENOP>,       F::Snapshot,      T::Float,       T::UInt16,      L::BSQ,       C::BigEndian, R::CaptureFolder},
    // Its cube form reads 16-bit counts while it reports float samples: its cubes pass
    // only on a handle whose sample type an earlier project fixed at 16 bits.
    {ProjectType::CubertEnvi,  image<ZelkImageCubertENVI>,  F::Snapshot,      T::Float,       T::Undefined,   L::Undefined, C::UInt16,    R::CaptureFolder},
    {ProjectType::Headwall,    image<ZelkImageHeadwall>,    F::LineScan,      T::Float,       T::UInt16,      L::BIL,       C::None,      R::ReferencePair},
    {ProjectType::CubertTiff,  image<ZelkImageCubertTiff>,  F::Snapshot,      T::UInt16,      T::Undefined,   L::BIP,       C::UInt16,    R::CaptureFolder},
    {ProjectType::Spectrocam,  image<ZelkImageSpectrocam>,  F::LineScan,      T::Float,       T::Undefined,   L::BIL,       C::None,      R::CaptureFolder},
    // Type 13 has a class of its own, yet its projects are read as ENVI images.
    {ProjectType::Corning,     image<ZelkImageENVI>,        F::LineScan,      T::Float,       T::Undefined,   L::BIP,       C::None,      R::CaptureFolder},
    {ProjectType::Envi,        image<ZelkImageENVI>,        F::LineScan,      T::Float,       T::Undefined,   L::BIL,       C::None,      R::CaptureFolder},
    {ProjectType::Silios,      image<ZelkImageSilios>,      F::LineScan,      T::Float,       T::Undefined,   L::BIL,       C::None,      R::CaptureFolder},
    {ProjectType::Innospec,    image<ZelkImageInnospec>,    F::LineScan,      T::Float,       T::Undefined,   L::BIL,       C::None,      R::CaptureFolder},
    {ProjectType::Resonon,     image<ZelkImageResonon>,     F::LineScan,      T::Float,       T::Undefined,   L::BIL,       C::None,      R::CaptureFolder},
    {ProjectType::Unispectral, image<ZelkImageUnispectral>, F::LineScan,      T::Float,       T::Undefined,   L::BIL,       C::None,      R::CaptureFolder},
    {ProjectType::CubertCU3,   image<ZelkImageCubertCU3>,   F::LineScan,      T::Float,       T::Undefined,   L::BIL,       C::None,      R::CaptureFolder},
    {ProjectType::SiliosEnvi,  image<ZelkImageSiliosENVI>,  F::LineScan,      T::Float,       T::Undefined,   L::BIL,       C::None,      R::CaptureFolder},
    {ProjectType::Agrowing,    image<ZelkImageAgrowing>,    F::LineScan,      T::Float,       T::Undefined,   L::BIL,       C::None,      R::CaptureFolder},

    // Type 19: the acquisition type decides, and references make no difference.
    {ProjectType::Tessaron,    image<ZelkImageTessaron>,    F::RefusesToLoad, T::Undefined,   T::Undefined,   L::Undefined, C::None,      R::CorrectionScan, A::Unknown},
    {ProjectType::Tessaron,    image<ZelkImageTessaron>,    F::Snapshot,      T::UInt16,      T::UInt16,      L::BIP,       C::UInt16,    R::CorrectionScan, A::SnapshotCounts},
    {ProjectType::Tessaron,    image<ZelkImageTessaron>,    F::Snapshot,      T::Float,       T::Float,       L::BIP,       C::Float,     R::CorrectionScan, A::SnapshotFloat},
    {ProjectType::Tessaron,    image<ZelkImageTessaron>,    F::AsBefore,      T::Unsupported, T::Unsupported, L::Undefined, C::None,      R::CorrectionScan, A::Unassigned},
    {ProjectType::Tessaron,    image<ZelkImageTessaron>,    F::LineScan,      T::UInt16,      T::UInt16,      L::BIL,       C::None,      R::CorrectionScan, A::LineScan},
    {ProjectType::Tessaron,    image<ZelkImageTessaron>,    F::Snapshot,      T::UInt16,      T::UInt16,      L::BSQ,       C::None,      R::CorrectionScan, A::SnapshotBands},
};

// The acquisition types that the library tells apart; the line-scan modes are one.
Acquisition acquisitionOf(int acqType)
{
    switch (acqType) {
    case -1: return A::Unknown;
    case 0: return A::SnapshotCounts;
    case 1: return A::SnapshotFloat;
    case 3: case 4: case 5: case 6: case 8: case 9: case 10: case 11: return A::LineScan;
    case 7: return A::SnapshotBands;
    default: return A::Unassigned;
    }
}

} // namespace

const CameraKind& cameraKind(int projectType, int acqType)
{
    const ProjectType type = projectType >= 1 && projectType <= 22 ? ProjectType(projectType) : ProjectType::None;
    const Acquisition acquisition = type == ProjectType::Tessaron ? acquisitionOf(acqType) : A::Unassigned;
    for (const CameraKind& k : kinds)
        if (k.type == type && k.acquisition == acquisition)
            return k;
    return kinds[0];
}

std::unique_ptr<ZelkImage> makeImage(int projectType, QObject* parent)
{
    // Every row of a type reads its images with the same class.
    const ImageMaker make = cameraKind(projectType, 0).image;
    return make ? make(parent) : nullptr;
}
