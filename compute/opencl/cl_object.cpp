#include "compute/opencl/cl_object.h"

namespace compute::opencl {

QString errorText(cl_int code)
{
    const char* name = nullptr;
    switch (code) {
    case CL_DEVICE_NOT_FOUND: name = "CL_DEVICE_NOT_FOUND"; break;
    case CL_DEVICE_NOT_AVAILABLE: name = "CL_DEVICE_NOT_AVAILABLE"; break;
    case CL_COMPILER_NOT_AVAILABLE: name = "CL_COMPILER_NOT_AVAILABLE"; break;
    case CL_MEM_OBJECT_ALLOCATION_FAILURE: name = "CL_MEM_OBJECT_ALLOCATION_FAILURE"; break;
    case CL_OUT_OF_RESOURCES: name = "CL_OUT_OF_RESOURCES"; break;
    case CL_OUT_OF_HOST_MEMORY: name = "CL_OUT_OF_HOST_MEMORY"; break;
    case CL_BUILD_PROGRAM_FAILURE: name = "CL_BUILD_PROGRAM_FAILURE"; break;
    case CL_INVALID_VALUE: name = "CL_INVALID_VALUE"; break;
    case CL_INVALID_PLATFORM: name = "CL_INVALID_PLATFORM"; break;
    case CL_INVALID_DEVICE: name = "CL_INVALID_DEVICE"; break;
    case CL_INVALID_CONTEXT: name = "CL_INVALID_CONTEXT"; break;
    case CL_INVALID_COMMAND_QUEUE: name = "CL_INVALID_COMMAND_QUEUE"; break;
    case CL_INVALID_MEM_OBJECT: name = "CL_INVALID_MEM_OBJECT"; break;
    case CL_INVALID_BUFFER_SIZE: name = "CL_INVALID_BUFFER_SIZE"; break;
    case CL_INVALID_PROGRAM_EXECUTABLE: name = "CL_INVALID_PROGRAM_EXECUTABLE"; break;
    case CL_INVALID_KERNEL_NAME: name = "CL_INVALID_KERNEL_NAME"; break;
    case CL_INVALID_KERNEL_ARGS: name = "CL_INVALID_KERNEL_ARGS"; break;
    case CL_INVALID_ARG_INDEX: name = "CL_INVALID_ARG_INDEX"; break;
    case CL_INVALID_ARG_SIZE: name = "CL_INVALID_ARG_SIZE"; break;
    case CL_INVALID_WORK_DIMENSION: name = "CL_INVALID_WORK_DIMENSION"; break;
    case CL_INVALID_WORK_GROUP_SIZE: name = "CL_INVALID_WORK_GROUP_SIZE"; break;
    case CL_INVALID_GLOBAL_WORK_SIZE: name = "CL_INVALID_GLOBAL_WORK_SIZE"; break;
    case CL_INVALID_OPERATION: name = "CL_INVALID_OPERATION"; break;
    case -1001: name = "CL_PLATFORM_NOT_FOUND_KHR"; break;
    default: break;
    }
    return name ? QStringLiteral("%1 (%2)").arg(QLatin1String(name)).arg(code) : QStringLiteral("OpenCL error %1").arg(code);
}

} // namespace compute::opencl
