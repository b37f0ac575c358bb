#pragma once
// A library handle for the length of a test.

#include "zelk.h"

struct TestHandle {
    ZelkHandle* h = zelk_Init(nullptr);
    TestHandle() = default;
    TestHandle(const TestHandle&) = delete;
    TestHandle& operator=(const TestHandle&) = delete;
    ~TestHandle() { zelk_Release(h); }
    operator ZelkHandle*() const { return h; }
};
