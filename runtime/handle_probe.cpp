#include "runtime/handle_probe.h"

#include "runtime/handle.h"
#include "segment/segmenter.h"

namespace handleprobe {

Correction correction(const ZelkHandle* h)
{
    return {h->correctionEnabled, h->darkRef, h->gainRef};
}

PairScans pairScans(const ZelkHandle* h)
{
    return {h->whiteScan != nullptr, h->darkScan != nullptr};
}

int processingSetup(const ZelkHandle* h)
{
    return h->project ? h->project->processingSetup : -1;
}

Segmentation segmentation(const ZelkHandle* h)
{
    const bool lent = h->segmenter && h->project && h->segmenter == h->project->segmenter.get();
    return {h->segmentationEnabled, lent, h->segmenter ? h->segmenter->objectCount() : -1};
}

Run run(const ZelkHandle* h)
{
    return {h->frameCount, h->ringLast, h->ringNext, h->objectSerial};
}

int selectedDevice(const ZelkHandle* h)
{
    return h->device;
}

compute::Backend& backend(const ZelkHandle* h)
{
    return *h->backend;
}

Camera camera(const ZelkHandle* h)
{
    Camera c;
    c.frameWidth = h->deviceFrameWidth;
    c.bandCount = h->deviceBandCount;
    if (h->deviceWavelengths)
        c.wavelengths = *h->deviceWavelengths;
    if (h->resamplingWavelengths)
        c.grid = *h->resamplingWavelengths;
    c.resampling = h->resamplingEnabled;
    c.resamplerBands = h->resampler ? h->resampler->destBands : -1;
    return c;
}

int inputDataType(const ZelkHandle* h)
{
    return h->inputDataType;
}

void forceInputDataType(ZelkHandle* h, int type)
{
    h->inputDataType = type;
}

} // namespace handleprobe
