#include "runtime/handle_probe.h"

#include "runtime/handle.h"
#include "segment/segmenter.h"

namespace handleprobe {

Correction correction(const ZelkHandle* h)
{
    return {h->correction.enabled, h->correction.darkRef, h->correction.gainRef};
}

PairScans pairScans(const ZelkHandle* h)
{
    return {h->correction.whiteScan != nullptr, h->correction.darkScan != nullptr};
}

int processingSetup(const ZelkHandle* h)
{
    return h->project ? h->project->processingSetup : -1;
}

Segmentation segmentation(const ZelkHandle* h)
{
    const bool lent = h->segmentation.segmenter && h->project && h->segmentation.segmenter == h->project->segmenter.get();
    return {h->segmentation.enabled, lent, h->segmentation.segmenter ? h->segmentation.segmenter->objectCount() : -1};
}

Run run(const ZelkHandle* h)
{
    return {h->ring.frameCount, h->ring.lastRow, h->ring.nextRow, h->segmentation.serial};
}

int selectedDevice(const ZelkHandle* h)
{
    return h->computeDevices.selected;
}

compute::Backend& backend(const ZelkHandle* h)
{
    return *h->computeDevices.opened;
}

Camera camera(const ZelkHandle* h)
{
    Camera c;
    c.frameWidth = h->resampling.deviceWidth;
    c.bandCount = h->resampling.deviceBands;
    if (h->resampling.deviceWavelengths)
        c.wavelengths = *h->resampling.deviceWavelengths;
    if (h->resampling.targetWavelengths)
        c.grid = *h->resampling.targetWavelengths;
    c.resampling = h->resampling.enabled;
    c.resamplerBands = h->resampling.resampler ? h->resampling.resampler->destBands : -1;
    return c;
}

int inputDataType(const ZelkHandle* h)
{
    return int(h->input.sampleType);
}

void forceInputDataType(ZelkHandle* h, int type)
{
    h->input.sampleType = InputType(type);
}

} // namespace handleprobe
