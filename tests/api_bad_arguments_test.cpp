// Every exported call against null handles, null pointers and out-of-range numbers, in
// every state of a handle: each returns a code (or null) and the handle stays usable.

#include "model_files.h"
#include "test_handle.h"

#include <climits>
#include <cmath>
#include <functional>
#include <map>
#include <gtest/gtest.h>
#include <vector>

using namespace modelfiles;

namespace {

int ptr(const void* p)
{
    return p ? 0 : -1;
}

struct Call {
    const char* name;
    std::function<int(ZelkHandle*)> call;
    bool mustFail; // with these arguments, in any state
};

// Calls with arguments that no state accepts, and calls whose arguments some state may
// accept; neither may crash.
std::vector<Call> badCalls()
{
    unsigned char r, g, b;
    return {
        {"GetErrorCode", [](ZelkHandle* h) { return zelk_GetErrorCode(h) > 0 ? -1 : 0; }, false},
        {"GetErrorMsg", [](ZelkHandle* h) { return ptr(zelk_GetErrorMsg(h)); }, false},
        {"GetDeviceCount", [](ZelkHandle* h) { return zelk_GetDeviceCount(h); }, false},
        {"GetDeviceName", [](ZelkHandle* h) { return ptr(zelk_GetDeviceName(h, -1)); }, true},
        {"SetDevice", [](ZelkHandle* h) { return zelk_SetDevice(h, INT_MAX); }, true},
        {"RefreshDeviceList", [](ZelkHandle* h) { return zelk_RefreshDeviceList(h, 2, -1); }, true},
        {"SetDeviceFrameWidth", [](ZelkHandle* h) { return zelk_SetDeviceFrameWidth(h, -5); }, false},
        {"SetDeviceWavelengthCount", [](ZelkHandle* h) { return zelk_SetDeviceWavelengthCount(h, -1); }, false},
        {"AddDeviceWavelength", [](ZelkHandle* h) { return zelk_AddDeviceWavelength(h, NAN); }, false},
        {"SetDeviceWavelengthsFromENVIHeaderFile",
         [](ZelkHandle* h) { return zelk_SetDeviceWavelengthsFromENVIHeaderFile(h, nullptr); }, true},
        {"SetResamplingWavelengthsGrid", [](ZelkHandle* h) { return zelk_SetResamplingWavelengthsGrid(h, 0, -1, 10); }, true},
        {"SetResampling", [](ZelkHandle* h) { return zelk_SetResampling(h, 7); }, true},
        {"LoadModel", [](ZelkHandle* h) { return zelk_LoadModel(h, nullptr); }, true},
        {"GetInputWidth", [](ZelkHandle* h) { return zelk_GetInputWidth(h); }, false},
        {"GetInputHeight", [](ZelkHandle* h) { return zelk_GetInputHeight(h); }, false},
        {"GetInputBands", [](ZelkHandle* h) { return zelk_GetInputBands(h); }, false},
        {"GetInputDataType", [](ZelkHandle* h) { return zelk_GetInputDataType(h); }, false},
        {"GetInputDataLayout", [](ZelkHandle* h) { return zelk_GetInputDataLayout(h); }, false},
        {"GetMaskType", [](ZelkHandle* h) { return zelk_GetMaskType(h); }, false},
        {"SetInputWidth", [](ZelkHandle* h) { return zelk_SetInputWidth(h, -1); }, true},
        {"SetInputDataLayout", [](ZelkHandle* h) { return zelk_SetInputDataLayout(h, 9); }, true},
        {"SetCubeROI", [](ZelkHandle* h) { return zelk_SetCubeROI(h, 0, 0, 0, INT_MAX, 0); }, true},
        {"SetMinObjSize", [](ZelkHandle* h) { return zelk_SetMinObjSize(h, -1); }, true},
        {"ProcessFrame", [](ZelkHandle* h) { return zelk_ProcessFrame(h, nullptr); }, true},
        {"ProcessCube", [](ZelkHandle* h) { return zelk_ProcessCube(h, nullptr); }, true},
        {"GetObjCount", [](ZelkHandle* h) { return zelk_GetObjCount(h); }, false},
        {"GetObjDataInt", [](ZelkHandle* h) { return zelk_GetObjDataInt(h, -1, nullptr); }, true},
        {"GetObjDataClassSize", [](ZelkHandle* h) { return zelk_GetObjDataClassSize(h, INT_MAX, 99); }, true},
        {"GetObjDataClassFrac", [](ZelkHandle* h) { return int(zelk_GetObjDataClassFrac(h, 0, UINT_MAX)); }, true},
        {"GetObjDataRegOutput", [](ZelkHandle* h) { return zelk_GetObjDataRegOutput(h, -1, nullptr); }, true},
        {"GetFrameDecisions", [](ZelkHandle* h) { return ptr(zelk_GetFrameDecisions(h)); }, false},
        {"GetCubeDecisions", [](ZelkHandle* h) { return ptr(zelk_GetCubeDecisions(h)); }, false},
        {"GetFrameRegOutputVar", [](ZelkHandle* h) { return ptr(zelk_GetFrameRegOutputVar(h, -1, 1, 0)); }, true},
        {"GetDecCount", [](ZelkHandle* h) { return zelk_GetDecCount(h); }, false},
        {"GetDecName", [](ZelkHandle* h) { return ptr(zelk_GetDecName(h, INT_MAX)); }, true},
        {"GetDecColor", [=](ZelkHandle* h) mutable { return zelk_GetDecColor(h, -1, &r, &g, &b); }, true},
        {"GetRegVarCount", [](ZelkHandle* h) { return zelk_GetRegVarCount(h); }, false},
        {"GetRegVarName", [](ZelkHandle* h) { return ptr(zelk_GetRegVarName(h, -1)); }, true},
        {"LoadCorrection", [](ZelkHandle* h) { return zelk_LoadCorrection(h, nullptr, nullptr); }, true},
        {"SaveImage", [](ZelkHandle* h) { return zelk_SaveImage(h, nullptr); }, true},
        {"SetSegmentation", [](ZelkHandle* h) { return zelk_SetSegmentation(h, 0); }, false},
    };
}

} // namespace

TEST(BadArguments, NullHandlesGoToTheProcessWidePair)
{
    zelk_Release(nullptr);
    EXPECT_STREQ(zelk_GetVersion(), "5.1 (23-apr-2024)");
    for (const Call& c : badCalls()) {
        if (c.name == std::string("GetErrorCode") || c.name == std::string("GetErrorMsg"))
            continue;
        zelk_SetInputDataLayout(nullptr, 1); // a known -101 first
        EXPECT_LT(c.call(nullptr), 0) << c.name;
        const int code = zelk_GetErrorCode(nullptr);
        EXPECT_TRUE(code == -101 || (code == -302 && c.name == std::string("GetRegVarName"))) << c.name << " " << code;
    }
    EXPECT_EQ(zelk_StartAcquisition(nullptr), -101);
    EXPECT_EQ(zelk_StopAcquisition(nullptr), -101);
}

TEST(BadArguments, NullHandlesAreReportedUnderEachCallsName)
{
    // Deliberate: these calls report a null handle under another call's name.
    const std::map<std::string, std::string> knownAs = {
        {"GetObjDataInt", "GetObjCount"},
        {"GetObjDataClassFrac", "GetObjDataClassSize"},
        {"GetObjDataRegOutput", "GetObjDataRegOut"},
        {"GetInputDataLayout", "GetInputDataType"},
        {"SetInputDataLayout", "SetInputDataType"},
    };
    TestHandle h;
    for (const Call& c : badCalls()) {
        if (c.name == std::string("GetErrorCode") || c.name == std::string("GetErrorMsg"))
            continue;
        zelk_SetInputDataLayout(h, 9); // another code and text in the process-wide pair first
        ASSERT_EQ(zelk_GetErrorCode(nullptr), -136);
        c.call(nullptr);
        const auto alias = knownAs.find(c.name);
        const std::string name = alias == knownAs.end() ? c.name : alias->second;
        EXPECT_EQ(zelk_GetErrorCode(nullptr), -101) << c.name;
        EXPECT_EQ(zelk_GetErrorMsg(nullptr), "zelk_" + name + ": Passing NULL pointer.") << c.name;
    }
    EXPECT_EQ(zelk_StartAcquisition(nullptr), -101);
    EXPECT_STREQ(zelk_GetErrorMsg(nullptr), "zelk_StartAcquisition: Passing NULL pointer.");
    EXPECT_EQ(zelk_StopAcquisition(nullptr), -101);
    EXPECT_STREQ(zelk_GetErrorMsg(nullptr), "zelk_StopAcquisition: Passing NULL pointer.");
    EXPECT_EQ(zelk_SetMinObjSize(nullptr, 1), -1); // deliberate: -1, with -101 stored
    EXPECT_EQ(zelk_GetObjDataClassFrac(nullptr, 0, 0), -101.0f);
    EXPECT_EQ(zelk_GetDeviceName(nullptr, 0), nullptr);
}

TEST(BadArguments, EveryStateAnswersWithACodeAndStaysUsable)
{
    QTemporaryDir dir;
    const QString lineScan = writeModel(dir, lineScanProject(8), FileKind::Zelk, "line");
    Project snapshot = lineScanProject(8);
    snapshot.type = 3;
    const QString cube = writeModel(dir, snapshot, FileKind::Zelk, "cube");
    const std::vector<float> frame(8 * 4, 0.0f), cubeData(8 * 100 * 4, 0.0f);

    enum State { Fresh, Loaded, Acquiring, Stopped };
    for (const QString& model : {lineScan, cube})
        for (State state : {Fresh, Loaded, Acquiring, Stopped}) {
            SCOPED_TRACE(model.toStdString() + " state " + std::to_string(int(state)));
            TestHandle h;
            if (state != Fresh) {
                ASSERT_EQ(zelk_LoadModel(h, model.toLatin1()), 0);
                ASSERT_EQ(zelk_SetSegmentation(h, 1), 0);
            }
            if (state >= Acquiring)
                ASSERT_EQ(zelk_StartAcquisition(h), 0);
            if (state == Stopped)
                ASSERT_EQ(zelk_StopAcquisition(h), 0);
            for (const Call& c : badCalls()) {
                const int result = c.call(h);
                if (c.mustFail)
                    EXPECT_LT(result, 0) << c.name;
            }
            // What was set up still works.
            if (state == Acquiring) {
                const bool lines = model == lineScan;
                EXPECT_EQ(lines ? zelk_ProcessFrame(h, frame.data()) : zelk_ProcessCube(h, cubeData.data()), 0)
                    << zelk_GetErrorMsg(h);
                EXPECT_EQ(zelk_StopAcquisition(h), 0);
            }
            if (state != Fresh)
                EXPECT_EQ(zelk_GetDecCount(h), 2);
        }
}
