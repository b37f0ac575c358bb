#pragma once
// A project's segmentation: its definition, as the model file gives it
// (segment_definition.h), together with the tracker that runs it over the rows or
// images of one acquisition (segment_tracker.h).

#include "segment/segment_definition.h"
#include "segment/segment_tracker.h"

class ZelkSegmenter : public ZelkSegmentDefinition, public ZelkSegmentTracker {
public:
    ZelkSegmenter() : ZelkSegmentTracker(static_cast<const ZelkSegmentDefinition&>(*this)) {}

    // Prepares the tracker (see ZelkSegmentTracker::prepare); a definition that is not
    // compiled is refused with -3600, which is also kept as the definition's last error.
    int prepareSegmenter(bool streaming, int width, int valuesPerPixel)
    {
        if (!isCompiled())
            return fail(-3600);
        return prepare(streaming, width, valuesPerPixel);
    }
};
