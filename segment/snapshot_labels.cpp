// Labelling of a whole image: the row kernels of the tracker run over the image's rows,
// with the rows of the caller's label image as their label rows, and one pass at the
// end closes every object. Labels are issued in order and never reused within an image.

#include "segment/segment_tracker.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>

int ZelkSegmentTracker::labelCube(const quint8* decisions, qint32* objectMap, int width, int height)
{
    return labelImage<Kernel::Decisions>(decisions, objectMap, nullptr, width, height);
}

int ZelkSegmentTracker::labelCubeForeground(const quint8* decisions, qint32* objectMap, qint32* classObjectMap,
                                       int width, int height)
{
    return labelImage<Kernel::Foreground>(decisions, objectMap, classObjectMap, width, height);
}

template <ZelkSegmentTracker::Kernel K>
int ZelkSegmentTracker::labelImage(const quint8* decisions, qint32* objectMap, qint32* classObjectMap, int width,
                              int height)
{
    constexpr bool byFlag = K == Kernel::Foreground;
    if (!prepared_ || streaming_ || !definition_.foregroundTable() || width < 0)
        return labellingError;
    if (height > 0 && width > 0) {
        if (!decisions || !objectMap || (byFlag && !classObjectMap))
            return labellingError;
        // A label image beyond the address space can't exist; its size is surely wrong.
        if (qint64(width) * height > qint64(PTRDIFF_MAX / sizeof(qint32)))
            return labellingError;
    }
    width_ = width;

    // The first row has no row above: it takes the kernel's first-line branch. Rows of an
    // earlier image that failed are not looked at again, as their buffers may be gone.
    labelRow_ = objectMap;
    flagRow_ = byFlag ? classObjectMap : nullptr;
    previousLabelRow_ = previousFlagRow_ = nullptr;
    decisionRow_ = previousDecisionRow_ = nullptr;
    auto clearRows = [this] {
        labelRow_ = previousLabelRow_ = flagRow_ = previousFlagRow_ = nullptr;
        decisionRow_ = previousDecisionRow_ = nullptr;
    };

    if (width == 0 && height > 0) {
        // Rows without pixels: the kernel would only count the lines.
        currentLine_ = qint32(quint32(currentLine_) + quint32(height));
        height = 0;
    }
    for (int y = 0; y < height; ++y) {
        const size_t offset = size_t(y) * size_t(width);
        labelRow_ = objectMap + offset;
        if (byFlag)
            flagRow_ = classObjectMap + offset;
        if (scanRow<K>(decisions + offset, nullptr) != 0) {
            clearRows();
            return labellingError;
        }
    }
    const int result = finishPass<K>();
    clearRows();
    return result == 0 ? 0 : labellingError;
}

// Closes every object of the image, in ascending label order, so that objects come in
// the order of their first pixels. Nothing is tested on lines, and labelMap keeps its
// entries. Every label notes the number of the object it ended in.
template <ZelkSegmentTracker::Kernel K>
int ZelkSegmentTracker::finishImage()
{
    const int last = std::min(highestLabel_, labelCapacity) - 1;
    for (int k = 1; k <= last; ++k) {
        const qint32 r = labelMap_[size_t(k)];
        if (r < 1 || r >= labelCapacity)
            continue;
        OpenObject& o = openObjects_[size_t(r)];
        if (o.state == -1) {
            // Closed through an earlier label of the same object: root holds its number.
            objectNumberMap_[size_t(k)] = o.root;
            continue;
        }
        if (o.state < 0) {
            objectNumberMap_[size_t(k)] = 0;
            continue;
        }
        if (o.pixelCount < definition_.minObjSize) {
            o.state = -2;
            continue;
        }
        // The list can still be full from an image that failed and was not reset.
        if (objectCount_ >= objectListCapacity)
            return -1;
        writeRecord<K>(o, r);
        // The count runs on over images and wraps like the 32-bit integer it is.
        acceptedPixels_ = qint32(quint32(acceptedPixels_) + quint32(o.pixelCount));
        o.root = nextObjectNumber_;
        objectNumberMap_[size_t(k)] = nextObjectNumber_;
        ++objectCount_;
        nextObjectNumber_ = qint32(quint32(nextObjectNumber_) + 1u);
        if (objectCount_ >= objectListCapacity)
            return -1; // written, but left open
        o.state = -1;
    }
    return 0;
}

template int ZelkSegmentTracker::finishImage<ZelkSegmentTracker::Kernel::Decisions>();
template int ZelkSegmentTracker::finishImage<ZelkSegmentTracker::Kernel::Foreground>();

void ZelkSegmentTracker::resetAfterCube()
{
    if (!prepared_ || streaming_)
        return;
    // Records of labels below highestLabel are free again; labelMap needs no clearing,
    // since every label writes its own entry when it is issued.
    const int below = std::min(highestLabel_, labelCapacity);
    for (int k = 0; k < below; ++k)
        openObjects_[size_t(k)].state = 0;
    nextLabel_ = 1;
    nextObjectNumber_ = 1;
    lastIssuedLabel_ = -1;
    highestLabel_ = 1;
    objectCount_ = 0;
    currentLine_ = 0;
    labelRow_ = previousLabelRow_ = flagRow_ = previousFlagRow_ = nullptr;
    decisionRow_ = previousDecisionRow_ = nullptr;
}
