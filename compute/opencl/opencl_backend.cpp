#include "compute/opencl/opencl_backend.h"
#include "compute/device.h"
#include "compute/opencl/cl_object.h"
#include "compute/opencl/opencl_classifier.h"
#include "compute/opencl/opencl_frame.h"
#include "compute/opencl/opencl_regression.h"
#include "compute/opencl/opencl_resampler.h"

#include <QByteArray>
#include <algorithm>
#include <iterator>
#include <mutex>

namespace compute {

using namespace opencl;

namespace {

template <typename Object, typename Info, typename Query>
QString infoText(Query query, Object object, Info what)
{
    size_t size = 0;
    if (query(object, what, 0, nullptr, &size) != CL_SUCCESS || size == 0)
        return {};
    QByteArray text(int(size), '\0');
    if (query(object, what, size, text.data(), nullptr) != CL_SUCCESS)
        return {};
    return QString::fromLatin1(text.constData()).simplified();
}

template <typename T>
T deviceValue(cl_device_id device, cl_device_info what)
{
    T value{};
    return clGetDeviceInfo(device, what, sizeof value, &value, nullptr) == CL_SUCCESS ? value : T{};
}

} // namespace

struct OpenClDevices::Device {
    cl_platform_id platform = nullptr;
    cl_device_id id = nullptr;
    QString name;

    // Made on first use, under the lock.
    std::mutex mutex;
    Context context;
    Program program;

    // The context and the built program; false with `failure` set.
    bool prepare(QString& failure);
};

bool OpenClDevices::Device::prepare(QString& failure)
{
    const std::lock_guard<std::mutex> lock(mutex);
    cl_int code = CL_SUCCESS;
    if (!context) {
        const cl_context_properties properties[] = {CL_CONTEXT_PLATFORM, cl_context_properties(platform), 0};
        context.reset(clCreateContext(properties, 1, &id, nullptr, nullptr, &code));
        if (code != CL_SUCCESS) {
            context.reset();
            failure = QStringLiteral("creating a context: %1").arg(errorText(code));
            return false;
        }
    }
    if (program)
        return true;
    const char* sources[] = {OpenClClassifier::programSource(), OpenClRegression::programSource(),
                             OpenClResampler::programSource()};
    Program made(clCreateProgramWithSource(context.get(), cl_uint(std::size(sources)), sources, nullptr, &code));
    if (code != CL_SUCCESS) {
        failure = QStringLiteral("creating the program: %1").arg(errorText(code));
        return false;
    }
    code = clBuildProgram(made.get(), 1, &id, "", nullptr, nullptr);
    if (code != CL_SUCCESS) {
        size_t size = 0;
        QByteArray log;
        if (clGetProgramBuildInfo(made.get(), id, CL_PROGRAM_BUILD_LOG, 0, nullptr, &size) == CL_SUCCESS && size > 0) {
            log.resize(int(size));
            clGetProgramBuildInfo(made.get(), id, CL_PROGRAM_BUILD_LOG, size, log.data(), nullptr);
        }
        failure = QStringLiteral("building the program: %1 %2").arg(errorText(code), QString::fromLatin1(log.constData()).left(2000));
        return false;
    }
    program = std::move(made);
    return true;
}

OpenClDevices::OpenClDevices()
{
    // Without an installable client driver, or with none registered, there is simply
    // no platform.
    cl_uint count = 0;
    if (clGetPlatformIDs(0, nullptr, &count) != CL_SUCCESS || count == 0)
        return;
    std::vector<cl_platform_id> platforms(count);
    if (clGetPlatformIDs(count, platforms.data(), nullptr) != CL_SUCCESS)
        return;
    // The loader's order can follow the order of files in a directory; names do not change.
    std::vector<std::pair<QString, cl_platform_id>> named;
    for (cl_platform_id p : platforms)
        named.emplace_back(infoText(clGetPlatformInfo, p, CL_PLATFORM_NAME), p);
    std::stable_sort(named.begin(), named.end(), [](const auto& a, const auto& b) { return a.first < b.first; });

    for (const auto& [platformName, platform] : named) {
        cl_uint n = 0;
        if (clGetDeviceIDs(platform, CL_DEVICE_TYPE_ALL, 0, nullptr, &n) != CL_SUCCESS || n == 0)
            continue;
        std::vector<cl_device_id> ids(n);
        if (clGetDeviceIDs(platform, CL_DEVICE_TYPE_ALL, n, ids.data(), nullptr) != CL_SUCCESS)
            continue;
        for (cl_device_id id : ids) {
            // A device that cannot build programs cannot run the kernels.
            if (!deviceValue<cl_bool>(id, CL_DEVICE_AVAILABLE) || !deviceValue<cl_bool>(id, CL_DEVICE_COMPILER_AVAILABLE))
                continue;
            auto d = std::make_unique<Device>();
            d->platform = platform;
            d->id = id;
            d->name = QLatin1Char(' ') + infoText(clGetDeviceInfo, id, CL_DEVICE_NAME) + QStringLiteral(", ") + platformName;
            devices_.push_back(std::move(d));
        }
    }
}

OpenClDevices::~OpenClDevices() = default;

QStringList OpenClDevices::names() const
{
    QStringList names;
    for (const auto& d : devices_)
        names << d->name;
    return names;
}

std::shared_ptr<Backend> OpenClDevices::open(int index, QString* error)
{
    if (index < 0 || index >= count()) {
        if (error)
            *error = QStringLiteral("no OpenCL device %1").arg(index);
        return nullptr;
    }
    return std::make_shared<OpenClBackend>(*devices_[size_t(index)], index);
}

int OpenClBackend::device() const
{
    return makeDevice(BackendOpenCl, index_);
}

// Each kernel type copies its consistent model to the device.
template <typename Kernel, typename Model>
std::unique_ptr<Kernel> OpenClBackend::make(const Model& model, QString* error)
{
    QString failure;
    std::unique_ptr<Kernel> kernel;
    if (!model.consistent())
        failure = QStringLiteral("the model's arrays do not have the sizes its counts give");
    else if (device_.prepare(failure))
        kernel = Kernel::create(device_.context.get(), device_.id, device_.program.get(), model, &failure);
    if (!kernel && error)
        *error = failure;
    return kernel;
}

std::unique_ptr<ClassifierKernel> OpenClBackend::prepareClassifier(const ClassifierModel& model, QString* error)
{
    return make<OpenClClassifier>(model, error);
}

std::unique_ptr<RegressionKernel> OpenClBackend::prepareRegression(const LinearMap& map, QString* error)
{
    return make<OpenClRegression>(map, error);
}

std::unique_ptr<ResampleKernel> OpenClBackend::prepareResampler(const ResampleMap& map, QString* error)
{
    return make<OpenClResampler>(map, error);
}

std::unique_ptr<StagedFrame> OpenClBackend::prepareFrame(int pixels, int bands, QString* error)
{
    QString failure;
    std::unique_ptr<StagedFrame> frame;
    if (pixels <= 0 || bands <= 0)
        failure = QStringLiteral("frames of %1 pixels and %2 bands").arg(pixels).arg(bands);
    else if (device_.prepare(failure))
        frame = OpenClFrame::create(device_.context.get(), device_.id, device_.program.get(), pixels, bands, &failure);
    if (!frame && error)
        *error = failure;
    return frame;
}

} // namespace compute
