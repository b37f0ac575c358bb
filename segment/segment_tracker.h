#pragma once
// The running state of one acquisition under a segment definition: the label rows, the
// table of open objects and the finished records. Line-scan rows come one at a time
// (trackDecisions and its kin, segment_tracker.cpp); snapshot images are labelled whole
// (labelCube, snapshot_labels.cpp). The entry of the table of open objects and the
// zero-filled tables that hold the run state come first.

#include "segment/object_record.h"
#include "segment/segment_definition.h"

#include <sys/mman.h>
#include <unistd.h>

#include <QtGlobal>
#include <cstdint>
#include <cstdlib>
#include <new>
#include <type_traits>
#include <utility>
#include <vector>

// One entry of the tracker's table of open objects; the index of an entry is its label.
struct OpenObject {
    // 1 open, -1 finished and reported, -2 rejected by size, 0 never used or cleared.
    // An entry whose state is below 1 is free for a new label.
    qint32 state;
    // 0 on a live root; on a merged-away entry the label it was merged into.
    qint32 root;
    qint32 decision;      // code of the pixel that created the label
    qint32 pixelCount;
    qint32 firstLine;
    qint32 lastLine;
    qint32 minColumn;
    qint32 maxColumn;
    qint32 lineOffsetSum; // sum of (pixel line - firstLine at the time the pixel came in)
    qint32 columnSum;
    qint32 classCounts[ObjectClassSlots]; // per decision code, 'All foreground' mode only
};

static_assert(sizeof(OpenObject) == 31 * sizeof(qint32), "an open object is 31 integers");

// A fixed-size table that starts all zero. The label and object tables of a run are
// megabytes large, and a run uses few of their entries: a large table is mapped
// straight from the system, whose fresh pages read as zero and cost nothing until they
// are touched, so that preparing a run does not pay for entries it never reaches. An
// inaccessible page follows the last entry, so that an index past the end faults at
// once. Small tables come from calloc.
template <typename T>
class ZeroedTable {
    static_assert(std::is_trivially_copyable_v<T>, "entries must be valid as zero bytes");
    static constexpr size_t MappedFrom = size_t(64) << 10; // bytes

public:
    ZeroedTable() = default;
    explicit ZeroedTable(size_t n) : size_(n)
    {
        if (n == 0)
            return;
        if (n > SIZE_MAX / 2 / sizeof(T))
            throw std::bad_alloc();
        const size_t bytes = n * sizeof(T);
        if (bytes < MappedFrom) {
            data_ = static_cast<T*>(std::calloc(n, sizeof(T)));
            if (!data_)
                throw std::bad_alloc();
            return;
        }
        const size_t page = size_t(sysconf(_SC_PAGESIZE));
        const size_t usable = (bytes + page - 1) / page * page;
        mapped_ = usable + page;
        base_ = mmap(nullptr, mapped_, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
        if (base_ == MAP_FAILED || mprotect(base_, usable, PROT_READ | PROT_WRITE) != 0) {
            if (base_ != MAP_FAILED)
                munmap(base_, mapped_);
            base_ = nullptr;
            throw std::bad_alloc();
        }
        // The entries end where the inaccessible page begins.
        data_ = reinterpret_cast<T*>(static_cast<char*>(base_) + (usable - bytes));
    }
    ZeroedTable(ZeroedTable&& other) noexcept { swap(other); }
    ZeroedTable& operator=(ZeroedTable&& other) noexcept
    {
        ZeroedTable(std::move(other)).swap(*this);
        return *this;
    }
    ~ZeroedTable()
    {
        if (base_)
            munmap(base_, mapped_);
        else
            std::free(data_);
    }

    T* data() { return data_; }
    const T* data() const { return data_; }
    size_t size() const { return size_; }
    bool empty() const { return size_ == 0; }
    T& operator[](size_t i) { return data_[i]; }
    const T& operator[](size_t i) const { return data_[i]; }

private:
    void swap(ZeroedTable& other) noexcept
    {
        std::swap(data_, other.data_);
        std::swap(size_, other.size_);
        std::swap(base_, other.base_);
        std::swap(mapped_, other.mapped_);
    }

    T* data_ = nullptr;
    size_t size_ = 0;
    void* base_ = nullptr; // the mapping of a large table, else null
    size_t mapped_ = 0;
};

class ZelkSegmentTracker {
public:
    explicit ZelkSegmentTracker(const ZelkSegmentDefinition& definition) : definition_(definition) {}
    ZelkSegmentTracker(const ZelkSegmentTracker&) = delete;
    ZelkSegmentTracker& operator=(const ZelkSegmentTracker&) = delete;

    const int labelCapacity = 100000;     // labels, open objects and rows of value sums
    const int objectListCapacity = 50000; // finished objects of one pass
    const int finishPeriod = 20;          // a finishing pass runs on lines divisible by this

    // Creates the run state for one acquisition: row buffers of `width` in streaming
    // mode, the label tables, the finished list and `valuesPerPixel` values per object.
    // 0, or -3600 when the definition is not compiled, or -1 when the tables can't be
    // had. With `streaming` off the tracker labels whole images (labelCube) instead of a
    // stream of rows.
    int prepare(bool streaming, int width, int valuesPerPixel);

    // One row of `width` decision bytes. The row must stay intact until the next call
    // has returned. 0, or -1 when a table is full or the tracker is not prepared.
    int trackDecisions(const quint8* decisions);     // objects of equal decision code
    int trackForeground(const quint8* decisions);    // objects of equal foreground flag
    int trackValue(const quint8* decisions, const float* values);  // one value per pixel
    int trackValues(const quint8* decisions, const float* values); // valuesPerPixel per pixel, pixel-major
    // Closes the objects that ended at least two lines before the current one. 0, or -1
    // when the finished list became full.
    int finishDecisions();

    // Records of the last pass; reset by the next row.
    int objectCount() const { return objectCount_; }
    const qint32* object(int i) const;
    // Mean values of the objects of the last pass, valuesPerPixel() floats per object,
    // in the order of the records. Null before the first preparation.
    const float* objectMeans() const { return objectMeans_.empty() ? nullptr : objectMeans_.data(); }

    static constexpr int labellingError = -213; // what a failed image labelling returns

    // Labels a whole image of `width` by `height` decision bytes, row after row, with the
    // row kernel of objects of equal decision code (labelCube) or of equal foreground flag
    // (labelCubeForeground), and then closes every object in one pass: objectCount() and
    // object(i) give the records in the order of the objects' first pixels, with lines
    // counted from the image's first row. Needs a tracker prepared with streaming off.
    //
    // `objectMap` (width x height, row by row) receives the raw label of every foreground
    // pixel; background entries are left as the caller filled them. labelCubeForeground
    // also writes each pixel's foreground flag into `classObjectMap`, of the same shape.
    //
    // 0, or labellingError when a table runs full (more label starts than the label
    // table holds, or a full finished list) or when the arguments can't be labelled (no
    // buffers, a negative width, an unprepared tracker). After a full table the counters
    // stay where they were, and only resetAfterCube() or a new preparation restarts them.
    int labelCube(const quint8* decisions, qint32* objectMap, int width, int height);
    int labelCubeForeground(const quint8* decisions, qint32* objectMap, qint32* classObjectMap, int width,
                            int height);
    // Readies the tracker for the next image once its records have been taken: object
    // numbers, labels and lines start again from the beginning. The accepted pixel count
    // keeps running. Does nothing to a tracker that is not prepared for images.
    void resetAfterCube();
    // For each label of the last image, the number of the object it ended in (0 for a
    // label of an object rejected by size, except that object's first label, whose entry
    // is left as it was). Null before the first preparation.
    const qint32* objectNumberMap() const { return objectNumberMap_.empty() ? nullptr : objectNumberMap_.data(); }
    // Merges in an image relabel by walking the members of the absorbed label rather than
    // by a scan of the whole label table; both leave the same state. Tests compare the two.
    void setPlainRelabel(bool on) { plainRelabel_ = on; }

    bool streaming() const { return streaming_; }
    int width() const { return width_; }
    int valuesPerPixel() const { return valuesPerPixel_; }
    int currentLine() const { return currentLine_; }
    int acceptedPixels() const { return acceptedPixels_; }

    // Issues labels by a scan from label 1 every time rather than from the lowest label
    // that can have become free; both issue the same labels. Tests compare the two.
    void setPlainLabelSearch(bool on) { plainLabelSearch_ = on; }

private:
    enum class Kernel { Decisions, Foreground, Value, Values };
    struct Row;

    template <Kernel K> int trackRow(const quint8* decisions, const float* values);
    template <Kernel K> int scanRow(const quint8* decisions, const float* values);
    template <Kernel K> Row beginRow(const quint8* decisions, const float* values);
    template <Kernel K> bool scanFirstPixel(Row& row);
    template <Kernel K> bool scanPixel(Row& row, int c);
    template <Kernel K> bool startObject(Row& row, int c, int d);
    template <Kernel K> OpenObject& joinObject(Row& row, qint32 r, int c, int d);
    template <Kernel K> void mergeObjects(Row& row, int c, int d, qint32 a, qint32 b);
    template <Kernel K> int endRow();
    template <Kernel K> int finishPass();
    template <Kernel K> int finishImage();
    template <Kernel K> void writeRecord(const OpenObject& o, qint32 label);
    template <Kernel K> int labelImage(const quint8* decisions, qint32* objectMap, qint32* classObjectMap,
                                       int width, int height);
    int issueLabel();
    int issueImageLabel();
    void appendMembers(qint32 root, qint32 absorbed);
    void relabelNewRun(qint32 x, qint32 lo);
    void relabelByScan(qint32 lo, qint32 hi, OpenObject*& touched);
    void relabelByMembers(qint32 lo, qint32 hi, OpenObject*& touched);
    void noteFreed(int label);
    bool rowsReady() const;

    const ZelkSegmentDefinition& definition_;

    bool streaming_ = false;
    bool prepared_ = false;
    int width_ = 0;
    int valuesPerPixel_ = 0;
    std::vector<qint32> labelRows_[2];
    std::vector<qint32> flagRows_[2];
    qint32* labelRow_ = nullptr;
    qint32* previousLabelRow_ = nullptr;
    qint32* flagRow_ = nullptr;
    qint32* previousFlagRow_ = nullptr;
    const quint8* decisionRow_ = nullptr;
    const quint8* previousDecisionRow_ = nullptr; // null on the first line
    ZeroedTable<OpenObject> openObjects_;
    ZeroedTable<qint32> labelMap_;      // root label of each label; 0 once its object closed
    ZeroedTable<float> valueSums_;      // labelCapacity rows of valuesPerPixel
    ZeroedTable<qint32> objectNumberMap_;
    ZeroedTable<qint32> objectList_;    // objectListCapacity records
    ZeroedTable<float> objectMeans_;    // objectListCapacity rows of valuesPerPixel
    int currentLine_ = 0;
    int nextLabel_ = 1;
    int lastIssuedLabel_ = -1;
    int highestLabel_ = 1;
    int nextObjectNumber_ = 1;
    int objectCount_ = 0;
    int acceptedPixels_ = 0;

    int freeSearchStart_ = 1; // no label below this one can be taken (see issueLabel)
    bool plainLabelSearch_ = false;

    // Image mode: the labels that resolve to each root, as a list through memberNext_
    // (0 ends it) from the root itself to memberTail_[root]. Only labels issued in the
    // current image are linked.
    ZeroedTable<qint32> memberNext_;
    ZeroedTable<qint32> memberTail_;
    bool plainRelabel_ = false;
};
