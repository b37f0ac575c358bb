#include "compute/opencl/device_work.h"

#include <clblast_c.h>

namespace compute::opencl {

bool DeviceWork::open(cl_context context, cl_device_id device, cl_program program)
{
    if (!check(clRetainContext(context), "keeping the context"))
        return false;
    context_.reset(context);
    if (!check(clRetainProgram(program), "keeping the program"))
        return false;
    program_.reset(program);
    cl_int code = CL_SUCCESS;
    queue_.reset(clCreateCommandQueue(context, device, 0, &code));
    return check(code, "creating a command queue");
}

bool DeviceWork::makeKernel(Kernel& kernel, const char* name)
{
    cl_int code = CL_SUCCESS;
    kernel.reset(clCreateKernel(program_.get(), name, &code));
    return check(code, "creating a kernel");
}

bool DeviceWork::check(cl_int code, const char* what)
{
    if (code == CL_SUCCESS)
        return true;
    error_ = QStringLiteral("%1: %2").arg(QLatin1String(what), errorText(code));
    return false;
}

bool DeviceWork::makeArray(DeviceArray& array, size_t bytes, const void* host)
{
    array.buffer.reset();
    array.bytes = 0;
    if (bytes == 0)
        return true;
    cl_int code = CL_SUCCESS;
    // The host data is only read: the buffer takes a copy at creation.
    const cl_mem_flags flags = CL_MEM_READ_WRITE | (host ? CL_MEM_COPY_HOST_PTR : 0);
    array.buffer.reset(clCreateBuffer(context_.get(), flags, bytes, const_cast<void*>(host), &code));
    if (!check(code, "allocating device memory"))
        return false;
    array.bytes = bytes;
    return true;
}

bool DeviceWork::grow(DeviceArray& array, size_t bytes)
{
    return bytes <= array.bytes || makeArray(array, bytes);
}

bool DeviceWork::upload(const DeviceArray& array, const void* host, size_t bytes)
{
    if (bytes == 0)
        return true;
    if (!check(clEnqueueWriteBuffer(queue_.get(), array.get(), CL_TRUE, 0, bytes, host, 0, nullptr, nullptr),
               "copying to the device"))
        return false;
    traffic_.toDevice += qint64(bytes);
    return true;
}

bool DeviceWork::download(const DeviceArray& array, void* host, size_t bytes)
{
    if (bytes == 0)
        return true;
    if (!check(clEnqueueReadBuffer(queue_.get(), array.get(), CL_TRUE, 0, bytes, host, 0, nullptr, nullptr),
               "copying back to the host"))
        return false;
    traffic_.toHost += qint64(bytes);
    return true;
}

bool DeviceWork::enqueue(const Kernel& kernel, const char* name, size_t global0, size_t global1)
{
    const size_t global[2] = {global0, global1};
    return check(clEnqueueNDRangeKernel(queue_.get(), kernel.get(), global1 > 1 ? 2 : 1, nullptr, global, nullptr, 0, nullptr,
                                        nullptr),
                 name);
}

bool DeviceWork::sgemm(bool transA, bool transB, size_t m, size_t n, size_t k, float alpha, cl_mem a, size_t aOffset, size_t lda,
                       cl_mem b, size_t bOffset, size_t ldb, cl_mem c, size_t ldc)
{
    cl_command_queue queue = queue_.get();
    const CLBlastStatusCode status = CLBlastSgemmWithTempBuffer(
        CLBlastLayoutColMajor, transA ? CLBlastTransposeYes : CLBlastTransposeNo, transB ? CLBlastTransposeYes : CLBlastTransposeNo,
        m, n, k, alpha, a, aOffset, lda, b, bOffset, ldb, 0.0f, c, 0, ldc, &queue, nullptr, gemmTemp_.get());
    if (status == CLBlastSuccess)
        return true;
    error_ = QStringLiteral("matrix product: CLBlast status %1").arg(int(status));
    return false;
}

bool DeviceWork::makeRoomForGemm(bool transB, size_t m, size_t n, size_t k, size_t aOffset, size_t lda, size_t ldb, size_t ldc)
{
    size_t bytes = 0;
    cl_command_queue queue = queue_.get();
    const CLBlastStatusCode status =
        CLBlastSGemmTempBufferSize(CLBlastLayoutColMajor, CLBlastTransposeYes, transB ? CLBlastTransposeYes : CLBlastTransposeNo, m, n,
                                   k, aOffset, lda, 0, ldb, 0, ldc, &queue, &bytes);
    if (status != CLBlastSuccess) {
        error_ = QStringLiteral("sizing the matrix products: CLBlast status %1").arg(int(status));
        return false;
    }
    return grow(gemmTemp_, bytes);
}

} // namespace compute::opencl
