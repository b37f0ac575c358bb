#pragma once
// Host versions of the elements that the regression chain runs. A block holds one
// spectrum a column: rows are bands or features, columns are pixels. Each returns a
// new block, or an empty array when the block does not fit the element.
//
// Wide blocks are walked in column chunks (5000 columns for a matrix product, 20000 for
// a row selection): the chunks bound the memory that a device needs for one block, and
// the host versions keep the same boundaries so that both paths split alike.

#include "classify/pipeline_elements.h"

constexpr int ProductChunkColumns = 5000;
constexpr int SelectionChunkColumns = 20000;

HostArray applyLinear(const ZelkAFPipelineM1& element, const HostArray& block);
// Writes "s8 e" to the information log after each chunk.
HostArray applyFilter(const ZelkAFPipelineM7& element, const HostArray& block);
HostArray applySelection(const ZelkAFPipelineM10& element, const HostArray& block);
HostArray applyScaling(const ZelkAFPipelineM9& element, const HostArray& block);
