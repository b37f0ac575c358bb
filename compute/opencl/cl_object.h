#pragma once
// Owning handles for OpenCL objects, and readable OpenCL error codes.

#include <CL/cl.h>
#include <QString>
#include <utility>

namespace compute::opencl {

template <typename T, cl_int (*Release)(T)>
class ClObject {
public:
    ClObject() = default;
    explicit ClObject(T object) : object_(object) {}
    ~ClObject() { reset(); }
    ClObject(ClObject&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}
    ClObject& operator=(ClObject&& other) noexcept
    {
        if (this != &other)
            reset(std::exchange(other.object_, nullptr));
        return *this;
    }
    ClObject(const ClObject&) = delete;
    ClObject& operator=(const ClObject&) = delete;

    T get() const { return object_; }
    explicit operator bool() const { return object_ != nullptr; }
    void reset(T object = nullptr)
    {
        if (object_)
            Release(object_);
        object_ = object;
    }

private:
    T object_ = nullptr;
};

using Context = ClObject<cl_context, clReleaseContext>;
using Queue = ClObject<cl_command_queue, clReleaseCommandQueue>;
using Program = ClObject<cl_program, clReleaseProgram>;
using Kernel = ClObject<cl_kernel, clReleaseKernel>;
using Buffer = ClObject<cl_mem, clReleaseMemObject>;

// "CL_OUT_OF_RESOURCES (-5)", or the bare number for codes without a name here.
QString errorText(cl_int code);

} // namespace compute::opencl
