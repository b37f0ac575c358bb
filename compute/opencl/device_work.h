#pragma once
// A command queue on one device with the checked steps that every kernel of the OpenCL
// backend takes: device arrays, copies in both directions with their byte counts,
// launches of the backend's own kernels and matrix products. Each step returns false
// and keeps the reason when the device refuses it.

#include "compute/opencl/cl_object.h"

#include <QString>
#include <QtGlobal>
#include <memory>

namespace compute::opencl {

class DeviceWork {
public:
    // Bytes moved between host and device by one call of a kernel.
    struct Traffic {
        qint64 toDevice = 0;
        qint64 toHost = 0;
    };

    // The traffic of the last call.
    Traffic lastTraffic() const { return traffic_; }
    // What the last failed step ran into.
    QString lastError() const { return error_; }
    // Whether `other` works in the same context, so that each may read the other's buffers.
    bool sharesContextWith(const DeviceWork& other) const { return context_.get() == other.context_.get(); }

protected:
    // A device buffer with the bytes it holds room for.
    struct DeviceArray {
        Buffer buffer;
        size_t bytes = 0;
        cl_mem get() const { return buffer.get(); }
    };

    // The kernel object when its set-up succeeded; otherwise null, with the reason in
    // `error`. For the factories of the kernels.
    template <typename Work>
    static std::unique_ptr<Work> readyOrNull(std::unique_ptr<Work> work, bool ready, QString* error)
    {
        if (ready)
            return work;
        if (error)
            *error = work->error_;
        return nullptr;
    }

    // Keeps the context and the built program of the device and makes a queue.
    bool open(cl_context context, cl_device_id device, cl_program program);
    bool makeKernel(Kernel& kernel, const char* name);

    // False, with the error text set, when `code` is not CL_SUCCESS.
    bool check(cl_int code, const char* what);
    bool makeArray(DeviceArray& array, size_t bytes, const void* host = nullptr);
    // Replaces the array by a larger one when it holds fewer than `bytes`.
    bool grow(DeviceArray& array, size_t bytes);
    bool upload(const DeviceArray& array, const void* host, size_t bytes);
    // Waits for the queue and copies the first `bytes` of the array to the host.
    bool download(const DeviceArray& array, void* host, size_t bytes);
    template <typename... Args>
    bool launch(const Kernel& kernel, const char* name, size_t global0, size_t global1, const Args&... args)
    {
        cl_uint index = 0;
        cl_int code = CL_SUCCESS;
        ((code = code != CL_SUCCESS ? code : clSetKernelArg(kernel.get(), index++, sizeof(Args), &args)), ...);
        return check(code, name) && enqueue(kernel, name, global0, global1);
    }

    // C = alpha op(A) op(B), column-major, C being m by n. Products that pad their
    // operands use the temporary buffer, which makeRoomForGemm sized beforehand.
    bool sgemm(bool transA, bool transB, size_t m, size_t n, size_t k, float alpha, cl_mem a, size_t aOffset, size_t lda,
               cl_mem b, size_t bOffset, size_t ldb, cl_mem c, size_t ldc);
    // Grows the temporary buffer to what a product of that shape needs (A always
    // transposed, as all products of this backend have it).
    bool makeRoomForGemm(bool transB, size_t m, size_t n, size_t k, size_t aOffset, size_t lda, size_t ldb, size_t ldc);

    Context context_;
    Queue queue_;
    Program program_;
    Traffic traffic_;
    QString error_;

private:
    bool enqueue(const Kernel& kernel, const char* name, size_t global0, size_t global1);

    DeviceArray gemmTemp_;
};

} // namespace compute::opencl
