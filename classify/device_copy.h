#pragma once
// Copies of pipeline elements for the device a model runs on. Each array is restaged
// to the shape that the element's own counts state; an element whose arrays do not
// hold exactly that many values, or values of another type, has no copy (null), since
// its counts could not be trusted by a kernel.

#include "classify/pipeline_elements.h"

#include <memory>
#include <optional>

std::unique_ptr<ZelkAFPipelineM1> deviceCopy(const ZelkAFPipelineM1& element, unsigned device);
std::unique_ptr<ZelkAFPipelineM2> deviceCopy(const ZelkAFPipelineM2& element, unsigned device);
std::unique_ptr<ZelkAFPipelineM5> deviceCopy(const ZelkAFPipelineM5& element, unsigned device);
std::unique_ptr<ZelkAFPipelineM7> deviceCopy(const ZelkAFPipelineM7& element, unsigned device);
// Also null for an untrained element, which then holds -44001 and "-44001: Model not
// trained" in errorCode and errorText.
std::unique_ptr<ZelkAFPipelineM12> deviceCopy(ZelkAFPipelineM12& element, unsigned device);

// `array` with the dimensions `dims`; nothing when the element counts differ or the
// type is not `type`.
std::optional<HostArray> restaged(const HostArray& array, const HostArray::Dims& dims, compute::ElementType type = compute::ElementType::F32);
