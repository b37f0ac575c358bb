// Memory over long runs: after a warm-up, many frames with regression and segmentation
// on, and many lives of a handle, leave the memory in use where it was.

#include "soak_run.h"
#include "test_handle.h"

#include <gtest/gtest.h>

#if defined(__SANITIZE_ADDRESS__)
// The sanitizer's runtime has it; GCC ships no header that declares it.
extern "C" size_t __sanitizer_get_current_allocated_bytes();
#endif

namespace {

// Under AddressSanitizer freed blocks wait in a quarantine of up to 256 MB, so the
// resident size rises by design; the sanitizer's count of live heap bytes stands in.
qint64 memoryInUse()
{
#if defined(__SANITIZE_ADDRESS__)
    return qint64(__sanitizer_get_current_allocated_bytes());
#else
    return soak::residentBytes();
#endif
}

} // namespace

TEST(Soak, FramesAndHandleLivesKeepTheirMemory)
{
    QTemporaryDir dir;
    const QByteArray model = soak::writeModel(dir).toLocal8Bit();
    soak::Run run;
    std::vector<soak::Sample> samples;

    TestHandle h;
    ASSERT_EQ(zelk_LoadModel(h, model.constData()), 0);
    ASSERT_EQ(zelk_SetSegmentation(h, 1), 0);
    ASSERT_EQ(zelk_StartAcquisition(h), 0);
    soak::feed(h, 20000, 500, [&](qint64 done) { samples.push_back({done, memoryInUse()}); }, &run);
    ASSERT_EQ(zelk_StopAcquisition(h), 0);
    EXPECT_EQ(run.failures, 0) << zelk_GetErrorMsg(h);
    EXPECT_GT(run.objects, 1000); // the belt is busy: objects finish in every pass
    const qint64 frameRise = soak::rise(samples, 2000);
    EXPECT_GE(frameRise, 0);
    EXPECT_LT(frameRise, 256 << 10) << "bytes gained between frame 2500 and 20000";

    samples.clear();
    for (int c = 1; c <= 50; ++c) {
        soak::cycle(model, &run);
        samples.push_back({c, memoryInUse()});
    }
    EXPECT_EQ(run.failures, 0);
    const qint64 cycleRise = soak::rise(samples, 10);
    EXPECT_GE(cycleRise, 0);
    EXPECT_LT(cycleRise, 2 << 20) << "bytes gained between cycle 11 and 50";
}
