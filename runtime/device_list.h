#pragma once
#include "runtime/handle.h"

// Rebuilds `devices`: the CPU entries always, the CUDA entries when `listNVIDIA` is 1
// and the OpenCL entries when `listOpenCL` is 1, each family only where available.
// Returns 0, or -141 / -142 when the CUDA / OpenCL backend could not be switched to.
int buildDeviceList(QList<ZelkDevice>& devices, int listNVIDIA, int listOpenCL);
