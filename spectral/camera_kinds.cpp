#include "spectral/camera_kinds.h"
#include "spectral/image_family.h"

namespace {

template <class Image>
std::unique_ptr<ZelkImage> make(QObject* parent)
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
const CameraKind kinds[] = {
    {ProjectType::None, A::Unassigned, nullptr, F::LineScan, T::Float, T::Undefined, L::BIL, C::None, R::CaptureFolder},
    {ProjectType::Specim, A::Unassigned, make<ZelkImageSpecim>, F::LineScan, T::Float, T::UInt16, L::BIL, C::None, R::CaptureFolder},
    {ProjectType::Hyspex, A::Unassigned, make<ZelkImageHyspex>, F::LineScan, T::Float, T::UInt16, L::BIL, C::None, R::CaptureFolder},
    {ProjectType::Imec, A::Unassigned, make<ZelkImageIMEC>, F::Snapshot, T::Float, T::Undefined, L::BIP, C::Float, R::CaptureFolder},
    {ProjectType::Cubert, A::Unassigned, make<ZelkImageCubert>, F::Snapshot, T::UInt16, T::Undefined, L::Undefined, C::None, R::CaptureFolder},
    {ProjectType::Matlab, A::Unassigned, make<ZelkImageMatlab>, F::LineScan, T::Float, T::Undefined, L::BIL, C::None, R::CaptureFolder},
    {ProjectType::TiffStack, A::Unassigned, make<ZelkImageTiffStack>, F::LineScan, T::Float, T::Undefined, L::BIL, C::None, R::CaptureFolder},
    {ProjectType::SpecImIQ, A::Unassigned, make<ZelkImageSpecImIQ>, F::Snapshot, T::Float, T::Undefined, L::Undefined, C::None, R::CaptureFolder},
    {ProjectType::Senop, A::Unassigned, make<ZelkImageSENOP>, F::Snapshot, T::Float, T::UInt16, L::BSQ, C::BigEndian, R::CaptureFolder},
    // Its cube form reads 16-bit counts while it reports float samples: its cubes pass
    // only on a handle whose sample type an earlier project fixed at 16 bits.
    {ProjectType::CubertEnvi, A::Unassigned, make<ZelkImageCubertENVI>, F::Snapshot, T::Float, T::Undefined, L::Undefined, C::UInt16, R::CaptureFolder},
    {ProjectType::Headwall, A::Unassigned, make<ZelkImageHeadwall>, F::LineScan, T::Float, T::UInt16, L::BIL, C::None, R::ReferencePair},
    {ProjectType::CubertTiff, A::Unassigned, make<ZelkImageCubertTiff>, F::Snapshot, T::UInt16, T::Undefined, L::BIP, C::UInt16, R::CaptureFolder},
    {ProjectType::Spectrocam, A::Unassigned, make<ZelkImageSpectrocam>, F::LineScan, T::Float, T::Undefined, L::BIL, C::None, R::CaptureFolder},
    {ProjectType::Corning, A::Unassigned, make<ZelkImageENVI>, F::LineScan, T::Float, T::Undefined, L::BIP, C::None, R::CaptureFolder},
    {ProjectType::Envi, A::Unassigned, make<ZelkImageENVI>, F::LineScan, T::Float, T::Undefined, L::BIL, C::None, R::CaptureFolder},
    {ProjectType::Silios, A::Unassigned, make<ZelkImageSilios>, F::LineScan, T::Float, T::Undefined, L::BIL, C::None, R::CaptureFolder},
    {ProjectType::Innospec, A::Unassigned, make<ZelkImageInnospec>, F::LineScan, T::Float, T::Undefined, L::BIL, C::None, R::CaptureFolder},
    {ProjectType::Resonon, A::Unassigned, make<ZelkImageResonon>, F::LineScan, T::Float, T::Undefined, L::BIL, C::None, R::CaptureFolder},
    {ProjectType::Unispectral, A::Unassigned, make<ZelkImageUnispectral>, F::LineScan, T::Float, T::Undefined, L::BIL, C::None, R::CaptureFolder},
    {ProjectType::CubertCU3, A::Unassigned, make<ZelkImageCubertCU3>, F::LineScan, T::Float, T::Undefined, L::BIL, C::None, R::CaptureFolder},
    {ProjectType::SiliosEnvi, A::Unassigned, make<ZelkImageSiliosENVI>, F::LineScan, T::Float, T::Undefined, L::BIL, C::None, R::CaptureFolder},
    {ProjectType::Agrowing, A::Unassigned, make<ZelkImageAgrowing>, F::LineScan, T::Float, T::Undefined, L::BIL, C::None, R::CaptureFolder},

    // Type 19: the acquisition type decides, and references make no difference.
    {ProjectType::Tessaron, A::Unknown, make<ZelkImageTessaron>, F::RefusesToLoad, T::Undefined, T::Undefined, L::Undefined, C::None, R::CorrectionScan},
    {ProjectType::Tessaron, A::SnapshotCounts, make<ZelkImageTessaron>, F::Snapshot, T::UInt16, T::UInt16, L::BIP, C::UInt16, R::CorrectionScan},
    {ProjectType::Tessaron, A::SnapshotFloat, make<ZelkImageTessaron>, F::Snapshot, T::Float, T::Float, L::BIP, C::Float, R::CorrectionScan},
    {ProjectType::Tessaron, A::Unassigned, make<ZelkImageTessaron>, F::AsBefore, T::Unsupported, T::Unsupported, L::Undefined, C::None, R::CorrectionScan},
    {ProjectType::Tessaron, A::LineScan, make<ZelkImageTessaron>, F::LineScan, T::UInt16, T::UInt16, L::BIL, C::None, R::CorrectionScan},
    {ProjectType::Tessaron, A::SnapshotBands, make<ZelkImageTessaron>, F::Snapshot, T::UInt16, T::UInt16, L::BSQ, C::None, R::CorrectionScan},
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
