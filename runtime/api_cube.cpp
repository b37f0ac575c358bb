// One snapshot cube per call: the whole image, or its region of interest, classified in
// one kernel call, then labelled in one pass, with the records of every object in it.
// The project's camera decides how the cube's memory is read; nothing is corrected.

#include "runtime/acquisition.h"
#include "runtime/export.h"
#include "runtime/handle.h"
#include "spectral/camera_kinds.h"
#include "spectral/image_family.h"

#include <QElapsedTimer>
#include <QtEndian>
#include <algorithm>
#include <cstring>

namespace {

int unsupportedFormat(ZelkHandle* h)
{
    return fail(h, msg::unsupportedCubeFormat(int(h->input.sampleType), int(h->input.layout)));
}

bool classify(ZelkHandle* h, const compute::SampleBlock& block, quint8* decisions)
{
    return h->project->classifier->kernel->classifySamples(block, decisions);
}

int misfit(ZelkHandle* h)
{
    return fail(h, msg::cubeMisfit(h->input.bands));
}

// The whole input cube, one spectrum a pixel, as a block of samples of `type`.
compute::SampleBlock cubeBlock(const ZelkHandle* h, const void* cube, compute::SampleType type)
{
    compute::SampleBlock block;
    block.data = cube;
    block.type = type;
    block.layout = compute::SpectraLayout::BandsByPixels;
    block.bands = h->input.bands;
    block.pixels = h->input.width * h->input.height;
    return block;
}

// The float form. With a region of interest its pixels are gathered row by row into one
// block, classified in one call, and put back into a cube of the ROI's fill.
int classifyFloat(ZelkHandle* h, const void* cube)
{
    compute::SampleBlock block = cubeBlock(h, cube, compute::SampleType::F32);
    const int width = h->input.width, height = h->input.height;
    if (!h->roi.enabled)
        return classify(h, block, h->cube.decisions.data()) ? 0 : misfit(h);

    // The ROI was checked against the size of its time; the input size may have changed.
    const int col = h->roi.col, row = h->roi.row, w = h->roi.width, rows = h->roi.height;
    if (col < 0 || row < 0 || w < 1 || rows < 1 || w > width - col || rows > height - row)
        return fail(h, msg::roiOutsideCube(col, row, w, rows, width, height));
    const size_t bands = size_t(qMax(0, h->input.bands)), rowValues = size_t(w) * bands;
    if (h->roi.spectra.size() < rowValues * size_t(rows))
        h->roi.spectra.resize(rowValues * size_t(rows));
    const float* samples = static_cast<const float*>(cube);
    for (int i = 0; i < rows; ++i)
        std::memcpy(h->roi.spectra.data() + size_t(i) * rowValues,
                    samples + (size_t(row + i) * size_t(width) + size_t(col)) * bands, rowValues * sizeof(float));
    block.data = h->roi.spectra.data();
    block.pixels = w * rows;
    if (!classify(h, block, h->roi.decisions.data()))
        return misfit(h);

    std::fill(h->cube.decisions.begin(), h->cube.decisions.end(), h->roi.fill);
    for (int i = 0; i < rows; ++i)
        std::memcpy(h->cube.decisions.data() + size_t(row + i) * size_t(width) + size_t(col),
                    h->roi.decisions.data() + size_t(i) * size_t(w), size_t(w));
    return 0;
}

int classifyUInt16(ZelkHandle* h, const void* cube)
{
    return classify(h, cubeBlock(h, cube, compute::SampleType::U16), h->cube.decisions.data()) ? 0 : misfit(h);
}

// The big-endian form of the camera that stores its bands in a sequence order of its
// own, with a gain per band. The cube is swapped into host order, its bands are put in
// the stored order and multiplied by their gains, as the camera's scan loader does, so
// that the classifier sees the spectra it was trained on: an image without an order
// keeps the file's band order, and one without a gain for each band keeps the counts.
// The work buffers are made once and reused.
int classifyBigEndian(ZelkHandle* h, const void* cube)
{
    const auto* image = dynamic_cast<const ZelkImageSENOP*>(h->project->images.empty() ? nullptr : h->project->images.front().get());
    if (!image)
        return fail(h, msg::NoCameraImage);
    const int bands = h->input.bands;
    const qint64 plane = qint64(h->input.width) * h->input.height, n = plane * bands;
    if (bands < 1)
        return misfit(h);

    if (!h->cube.swapped)
        h->cube.swapped = std::make_unique<ZelkSpectralCube>(DataUInt16, LayoutBSQ);
    ZelkSpectralCube& swapped = *h->cube.swapped;
    swapped.columns = h->input.width;
    swapped.lines = h->input.height;
    swapped.bands = bands;
    if (swapped.dataBytes() < n * qint64(sizeof(quint16)) && swapped.allocate(n) != 0)
        return fail(h, msg::noMemoryForCube(n));
    quint16* counts = swapped.samples<quint16>();
    const uchar* raw = static_cast<const uchar*>(cube);
    for (qint64 i = 0; i < n; ++i)
        counts[i] = qFromBigEndian<quint16>(raw + 2 * i);

    if (!image->sequenceOrder.isEmpty()) {
        if (h->cube.reorderScratch.size() < size_t(plane))
            h->cube.reorderScratch.resize(size_t(plane));
        image->reorderBands(counts, plane, bands, h->cube.reorderScratch.data());
    }
    if (h->cube.gained.size() < size_t(n))
        h->cube.gained.resize(size_t(n));
    if (!image->applyGains(counts, plane, bands, h->cube.gained.data()))
        std::copy_n(counts, n, h->cube.gained.data());

    compute::SampleBlock block;
    block.data = h->cube.gained.data();
    block.type = compute::SampleType::F32;
    block.layout = compute::SpectraLayout::PixelsByBands;
    block.bands = bands;
    block.pixels = int(plane);
    return classify(h, block, h->cube.decisions.data()) ? 0 : misfit(h);
}

// Labels the decisions of the cube and copies the records of its objects, numbered from
// 1 in each cube. The label images start from zero for every cube: labelling writes
// only the foreground's labels.
int labelObjects(ZelkHandle* h)
{
    ZelkSegmenter& s = *h->segmentation.segmenter;
    const int width = h->input.width, height = h->input.height;
    int labelled = 0;
    switch (s.mask()) {
    case ObjectMask::EachDecision:
        std::fill(h->segmentation.objectMap.begin(), h->segmentation.objectMap.end(), 0);
        labelled = s.labelCube(h->cube.decisions.data(), h->segmentation.objectMap.data(), width, height);
        break;
    case ObjectMask::AllForeground:
        std::fill(h->segmentation.objectMap.begin(), h->segmentation.objectMap.end(), 0);
        std::fill(h->segmentation.classObjectMap.begin(), h->segmentation.classObjectMap.end(), 0);
        labelled = s.labelCubeForeground(h->cube.decisions.data(), h->segmentation.objectMap.data(), h->segmentation.classObjectMap.data(), width,
                                         height);
        break;
    }
    if (labelled != 0)
        return fail(h, msg::CubeSegmentation);
    h->segmentation.serial = 0;
    // Beyond the records the segmenter is left as it is: the next cube continues from it.
    if (const int reported = reportObjects(h, false, msg::TooManyObjectsInCube))
        return reported;
    s.resetAfterCube();
    return 0;
}

int processCube(ZelkHandle* h, const void* cube)
{
    if (!cube)
        return failGlobal(msg::NullPointer);
    if (h->input.lineScan)
        return fail(h, msg::LineScanCannotProcessCubes);
    if (!h->isAcquiring())
        return fail(h, msg::NotAcquiring);
    QElapsedTimer timer;
    timer.start();
    const ZelkProject& p = *h->project;
    const CubeForm form = cameraKind(p.projectType, p.acqType).cube;
    switch (form) {
    case CubeForm::Float:
        if (h->input.sampleType != InputType::Float || h->input.layout != InputLayout::BIP)
            return unsupportedFormat(h);
        break;
    case CubeForm::UInt16:
        if (h->roi.enabled)
            return fail(h, msg::RoiUnsupported);
        if (h->input.sampleType != InputType::UInt16 || h->input.layout != InputLayout::BIP)
            return unsupportedFormat(h);
        break;
    case CubeForm::BigEndian:
        if (h->roi.enabled)
            return fail(h, msg::RoiUnsupported);
        break;
    case CubeForm::None:
        return fail(h, msg::unsupportedProjectType(p.projectType));
    }

    // The buffers and the kernel were made at start for the size of that time; a width
    // set since does not fit them.
    const qint64 pixels = qint64(h->input.width) * h->input.height;
    const ZelkClassifier* c = p.classifier.get();
    if (!c || !c->kernel || h->input.width < 1 || h->input.height < 1 || qint64(h->cube.decisions.size()) != pixels
        || qint64(h->segmentation.objectMap.size()) != pixels)
        return fail(h, msg::CubeSizeChanged);

    int classified = 0;
    switch (form) {
    case CubeForm::Float: classified = classifyFloat(h, cube); break;
    case CubeForm::UInt16: classified = classifyUInt16(h, cube); break;
    case CubeForm::BigEndian: classified = classifyBigEndian(h, cube); break;
    case CubeForm::None: break;
    }
    if (classified != 0)
        return classified;

    h->segmentation.count = 0;
    if (h->segmentation.enabled && h->segmentation.segmenter)
        if (const int labelled = labelObjects(h))
            return labelled;
    h->accountTime(double(timer.nsecsElapsed()) / 1e6);
    return 0;
}

} // namespace

int prepareCubeKernel(ZelkHandle* h, ZelkClassifier& c)
{
    compute::InputStage stage;
    stage.width = h->input.width;
    // A cube of the classifier's band count holds its bands already; one of any other
    // count carries the camera's bands, of which the stage picks the classifier's.
    if (h->input.fullBandFrames && h->input.bands != c.selectedBandCount)
        stage.bands = c.bandIndex;
    if (prepareKernel(c, *h->computeDevices.opened, h->operatingPoint, std::move(stage)) != 0)
        return -1;
    const qint64 pixels = qint64(h->input.width) * h->input.height;
    if (!c.kernel->reserve(int(pixels))) {
        c.kernel.reset();
        c.lastError = msg::noRoomForCubes(pixels);
        return -1;
    }
    return 0;
}

extern "C" ZELK_API int zelk_ProcessCube(ZelkHandle* h, const void* cube)
{
    return exported("zelk_ProcessCube", h, [&] { return processCube(h, cube); });
}
