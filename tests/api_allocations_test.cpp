// Everything a frame or cube needs is allocated when the acquisition starts: after
// that, frames, cubes and the reading of their results touch the heap no more. The
// test program counts with the wrapped allocator of counting_allocator.h, except in the
// sanitizer builds.

#include "soak_run.h"
#include "test_handle.h"

#include <gtest/gtest.h>

#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define ZELK_SANITIZED_HEAP
#endif
#endif
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define ZELK_SANITIZED_HEAP
#endif

#ifndef ZELK_SANITIZED_HEAP
#include "counting_allocator.h"

using namespace modelfiles;

TEST(Allocations, NoneForFramesOrCubesAfterTheStart)
{
    QTemporaryDir dir;
    {
        // Line-scan with regression and segmentation, every result read.
        TestHandle h;
        ASSERT_EQ(zelk_LoadModel(h, soak::writeModel(dir).toLocal8Bit().constData()), 0);
        ASSERT_EQ(zelk_SetSegmentation(h, 1), 0);
        ASSERT_EQ(zelk_StartAcquisition(h), 0);
        soak::Run run;
        soak::feed(h, 600, 0, {}, &run); // past the warm-up and the first finished objects
        const long long before = heapAllocations();
        soak::feed(h, 2000, 0, {}, &run);
        EXPECT_EQ(heapAllocations() - before, 0);
        EXPECT_EQ(run.failures, 0);
        EXPECT_GT(run.objects, 100);
    }
    {
        // A snapshot camera of 16-bit counts with objects.
        constexpr int Width = 40, Height = 30, Bands = 4;
        Project p = snapshotProject(11, 0, 1, Width, Height);
        p.bandSelection = QVector<bool>(Bands, true); // full-band cubes
        TestHandle h;
        ASSERT_EQ(zelk_LoadModel(h, writeModel(dir, p, FileKind::Zelk, "cube").toLocal8Bit().constData()), 0);
        ASSERT_EQ(zelk_SetInputDataLayout(h, 1), 0);
        ASSERT_EQ(zelk_SetSegmentation(h, 1), 0);
        ASSERT_EQ(zelk_StartAcquisition(h), 0) << zelk_GetErrorMsg(h);
        std::vector<quint16> cube(size_t(Width) * Height * Bands, 0);
        for (int i = 0; i < Width * Height; ++i)
            cube[size_t(i) * Bands + 1] = (i % Width) % 9 < 3 && (i / Width) % 7 < 4 ? 10 : 0;
        ASSERT_EQ(zelk_ProcessCube(h, cube.data()), 0) << zelk_GetErrorMsg(h);
        const long long before = heapAllocations();
        int objects = 0;
        for (int n = 0; n < 20; ++n) {
            ASSERT_EQ(zelk_ProcessCube(h, cube.data()), 0);
            objects += zelk_GetObjCount(h);
            int* record = nullptr;
            for (int k = 0; k < zelk_GetObjCount(h); ++k)
                zelk_GetObjDataInt(h, k, &record);
        }
        EXPECT_EQ(heapAllocations() - before, 0);
        EXPECT_GT(objects, 20);
    }
}
#endif
