#include "compute/opencl/opencl_classifier.h"

#include <algorithm>
#include <clblast_c.h>
#include <numeric>
#include <vector>

namespace compute::opencl {

const char* OpenClClassifier::programSource()
{
    return R"CLC(
// Staging: item i writes element i of the spectra block, B by n (one spectrum a
// column) or n by B (one band a column), from the samples of `inBands` bands.
#define STAGE(NAME, T)                                                                         \
__kernel void NAME(__global const T* in, __global float* out, __global const int* bands,      \
                   __global const float* dark, __global const float* gain, int correction,    \
                   int width, int n, int inBands, int B, int bandsByPixels)                   \
{                                                                                              \
    const size_t i = get_global_id(0);                                                         \
    size_t b, p;                                                                               \
    if (bandsByPixels) {                                                                       \
        b = i % (size_t)B;                                                                     \
        p = i / (size_t)B;                                                                     \
    } else {                                                                                   \
        p = i % (size_t)n;                                                                     \
        b = i / (size_t)n;                                                                     \
    }                                                                                          \
    const size_t band = (size_t)bands[b];                                                      \
    float v = (float)in[bandsByPixels ? p * (size_t)inBands + band : band * (size_t)n + p];   \
    if (correction > 0) {                                                                      \
        const size_t c = b * (size_t)width + p;                                                \
        v -= dark[c];                                                                          \
        if (correction > 1)                                                                    \
            v *= gain[c];                                                                      \
    }                                                                                          \
    out[i] = v;                                                                                \
}
STAGE(stage_u16, ushort)
STAGE(stage_f32, float)

// Adds the shifted offset to each pixel's features and keeps its squared norm.
__kernel void features(__global float* z, __global const float* offset, __global float* zz, int F)
{
    const size_t p = get_global_id(0);
    __global float* column = z + p * (size_t)F;
    float sum = 0.0f;
    for (int f = 0; f < F; ++f) {
        const float v = column[f] + offset[f];
        column[f] = v;
        sum += v * v;
    }
    zz[p] = sum;
}

// a = -2 zᵀc on entry; the unit exp(g · ‖z − c‖²) on exit. Rounding can make a tiny
// distance negative: it is clamped to 0.
__kernel void units(__global float* a, __global const float* norms, __global const float* gammas,
                    __global const float* zz, int K)
{
    const size_t k = get_global_id(0), p = get_global_id(1);
    const size_t i = p * (size_t)K + k;
    a[i] = exp(gammas[k] * fmax(a[i] + norms[k] + zz[p], 0.0f));
}

// Bias, class weights, the first largest score, and rejection below the winner's own
// threshold. `weights` is (K + 1) by C with the bias in row 0.
__kernel void decide(__global const float* s, __global const float* weights, int K, int C,
                     __global const float* row, __global const float* thresholds, int rejects,
                     __global uchar* out, int first)
{
    const size_t p = get_global_id(0);
    __global const float* scores = s + p * (size_t)C;
    int best = 0;
    float top = (scores[0] + weights[0]) * row[0];
    for (int c = 1; c < C; ++c) {
        const float v = (scores[c] + weights[(size_t)c * (size_t)(K + 1)]) * row[c];
        if (v > top) {
            top = v;
            best = c;
        }
    }
    if (rejects && top < thresholds[best])
        best = C;
    out[(size_t)first + p] = (uchar)best;
}
)CLC";
}

std::unique_ptr<OpenClClassifier> OpenClClassifier::create(cl_context context, cl_device_id device, cl_program program,
                                                           const ClassifierModel& model, QString* error)
{
    std::unique_ptr<OpenClClassifier> kernel(new OpenClClassifier(model));
    if (kernel->init(context, device, program))
        return kernel;
    if (error)
        *error = kernel->error_;
    return nullptr;
}

OpenClClassifier::OpenClClassifier(const ClassifierModel& model)
    : model_(model)
    , classRow_(model.classes, 1.0f)
{
}

bool OpenClClassifier::check(cl_int code, const char* what)
{
    if (code == CL_SUCCESS)
        return true;
    error_ = QStringLiteral("%1: %2").arg(QLatin1String(what), errorText(code));
    return false;
}

bool OpenClClassifier::init(cl_context context, cl_device_id device, cl_program program)
{
    if (!check(clRetainContext(context), "keeping the context"))
        return false;
    context_.reset(context);
    if (!check(clRetainProgram(program), "keeping the program"))
        return false;
    program_.reset(program);

    cl_int code = CL_SUCCESS;
    queue_.reset(clCreateCommandQueue(context, device, 0, &code));
    if (!check(code, "creating a command queue"))
        return false;
    const struct {
        Kernel* kernel;
        const char* name;
    } kernels[] = {{&stageU16_, "stage_u16"}, {&stageF32_, "stage_f32"}, {&features_, "features"}, {&units_, "units"}, {&decide_, "decide"}};
    for (const auto& k : kernels) {
        k.kernel->reset(clCreateKernel(program, k.name, &code));
        if (!check(code, "creating a kernel"))
            return false;
    }

    const size_t F = size_t(model_.features), K = size_t(model_.units), C = size_t(model_.classes);
    const ShiftedCentres shifted = shiftCentres(model_);
    const std::vector<float> noThresholds(C, 0.0f);
    std::vector<cl_int> identity(size_t(model_.bands));
    std::iota(identity.begin(), identity.end(), 0);
    const bool made = makeArray(matrix_, size_t(model_.matrix.size()) * sizeof(float), model_.matrix.constData()) &&
                      makeArray(offset_, F * sizeof(float), shifted.offset.data()) &&
                      makeArray(centres_, F * K * sizeof(float), shifted.centres.data()) &&
                      makeArray(norms_, K * sizeof(float), shifted.norms.data()) &&
                      makeArray(gammas_, K * sizeof(float), model_.gammas.constData()) &&
                      makeArray(weights_, (K + 1) * C * sizeof(float), model_.weights.constData()) &&
                      makeArray(thresholds_, C * sizeof(float),
                                model_.rejects() ? model_.thresholds.constData() : noThresholds.data()) &&
                      makeArray(row_, C * sizeof(float), classRow_.constData()) &&
                      makeArray(bands_, identity.size() * sizeof(cl_int), identity.data());
    rowReady_ = stageReady_ = made;
    return made;
}

bool OpenClClassifier::makeArray(DeviceArray& array, size_t bytes, const void* host)
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

bool OpenClClassifier::grow(DeviceArray& array, size_t bytes)
{
    return bytes <= array.bytes || makeArray(array, bytes);
}

bool OpenClClassifier::upload(const DeviceArray& array, const void* host, size_t bytes)
{
    if (bytes == 0)
        return true;
    if (!check(clEnqueueWriteBuffer(queue_.get(), array.get(), CL_TRUE, 0, bytes, host, 0, nullptr, nullptr),
               "copying to the device"))
        return false;
    traffic_.toDevice += qint64(bytes);
    return true;
}

void OpenClClassifier::setClassRow(const QVector<float>& row)
{
    std::copy_n(row.constBegin(), std::min(row.size(), classRow_.size()), classRow_.begin());
    rowReady_ = upload(row_, classRow_.constData(), size_t(classRow_.size()) * sizeof(float));
}

void OpenClClassifier::inputStageChanged()
{
    const int B = model_.bands;
    QVector<cl_int> bands = stage_.bands;
    if (bands.size() != B) { // no choice of bands (or one that no block will fit)
        bands.resize(B);
        std::iota(bands.begin(), bands.end(), 0);
    }
    correction_ = stage_.dark.isEmpty() ? 0 : stage_.gain.isEmpty() ? 1 : 2;
    const size_t darkBytes = size_t(stage_.dark.size()) * sizeof(float);
    const size_t gainBytes = size_t(stage_.gain.size()) * sizeof(float);
    stageReady_ = upload(bands_, bands.constData(), size_t(B) * sizeof(cl_int)) && grow(dark_, darkBytes) &&
                  upload(dark_, stage_.dark.constData(), darkBytes) && grow(gain_, gainBytes) &&
                  upload(gain_, stage_.gain.constData(), gainBytes);
}

bool OpenClClassifier::fitBlock(int n, size_t rawBytes)
{
    const size_t B = size_t(model_.bands), F = size_t(model_.features), K = size_t(model_.units), C = size_t(model_.classes);
    const size_t pixels = size_t(n), chunk = std::min<size_t>(pixels, ChunkPixels);
    if (!grow(spectra_, pixels * B * sizeof(float)) || !grow(decisions_, pixels) || !grow(raw_, rawBytes) ||
        !grow(z_, chunk * F * sizeof(float)) || !grow(zz_, chunk * sizeof(float)) || !grow(a_, chunk * K * sizeof(float)) ||
        !grow(s_, chunk * C * sizeof(float)))
        return false;
    if (n == gemmTempCheckedFor_)
        return true;

    // Some shapes make the matrix products pad their operands in a temporary buffer;
    // it is held here so that it is not allocated anew for every block.
    size_t temp = 0;
    cl_command_queue queue = queue_.get();
    auto need = [&](bool transB, size_t m, size_t count, size_t k, size_t aOffset, size_t lda, size_t ldb, size_t ldc) {
        size_t bytes = 0;
        const CLBlastStatusCode status = CLBlastSGemmTempBufferSize(
            CLBlastLayoutColMajor, CLBlastTransposeYes, transB ? CLBlastTransposeYes : CLBlastTransposeNo, m, count, k, aOffset,
            lda, 0, ldb, 0, ldc, &queue, &bytes);
        if (status != CLBlastSuccess) {
            error_ = QStringLiteral("sizing the matrix products: CLBlast status %1").arg(int(status));
            return false;
        }
        temp = std::max(temp, bytes);
        return true;
    };
    for (const size_t count : {chunk, pixels % chunk}) {
        if (count == 0)
            continue;
        if (!need(false, F, count, B, 0, B, B, F) || !need(true, F, count, B, 0, B, pixels, F) ||
            !need(false, K, count, F, 0, F, F, K) || !need(false, C, count, K, 1, K + 1, K, C))
            return false;
    }
    if (!grow(gemmTemp_, temp))
        return false;
    gemmTempCheckedFor_ = n;
    return true;
}

template <typename... Args>
bool OpenClClassifier::launch(const Kernel& kernel, const char* name, size_t global0, size_t global1, const Args&... args)
{
    cl_uint index = 0;
    cl_int code = CL_SUCCESS;
    ((code = code != CL_SUCCESS ? code : clSetKernelArg(kernel.get(), index++, sizeof(Args), &args)), ...);
    if (!check(code, name))
        return false;
    const size_t global[2] = {global0, global1};
    return check(clEnqueueNDRangeKernel(queue_.get(), kernel.get(), global1 > 1 ? 2 : 1, nullptr, global, nullptr, 0, nullptr, nullptr),
                 name);
}

bool OpenClClassifier::sgemm(bool transA, bool transB, size_t m, size_t n, size_t k, float alpha, cl_mem a, size_t aOffset,
                             size_t lda, cl_mem b, size_t bOffset, size_t ldb, cl_mem c, size_t ldc)
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

bool OpenClClassifier::run(SpectraLayout layout, int n, quint8* decisions)
{
    if (!rowReady_) {
        error_ = QStringLiteral("the class weights did not reach the device");
        return false;
    }
    const size_t B = size_t(model_.bands), F = size_t(model_.features), K = size_t(model_.units), C = size_t(model_.classes);
    const cl_int f = model_.features, k = model_.units, c = model_.classes, rejects = model_.rejects() ? 1 : 0;
    const bool bandsByPixels = layout == SpectraLayout::BandsByPixels;
    for (int first = 0; first < n; first += ChunkPixels) {
        const size_t count = size_t(std::min(int(ChunkPixels), n - first));
        // Spectra of the chunk: B by count columns from pixel `first`, or count rows
        // of the n by B block.
        const size_t xOffset = bandsByPixels ? size_t(first) * B : size_t(first);
        const size_t ldx = bandsByPixels ? B : size_t(n);
        if (!sgemm(true, !bandsByPixels, F, count, B, 1.0f, matrix_.get(), 0, B, spectra_.get(), xOffset, ldx, z_.get(), F) ||
            !launch(features_, "running the features kernel", count, 1, z_.get(), offset_.get(), zz_.get(), f) ||
            !sgemm(true, false, K, count, F, -2.0f, centres_.get(), 0, F, z_.get(), 0, F, a_.get(), K) ||
            !launch(units_, "running the units kernel", K, count, a_.get(), norms_.get(), gammas_.get(), zz_.get(), k) ||
            !sgemm(true, false, C, count, K, 1.0f, weights_.get(), 1, K + 1, a_.get(), 0, K, s_.get(), C) ||
            !launch(decide_, "running the decision kernel", count, 1, s_.get(), weights_.get(), k, c, row_.get(),
                    thresholds_.get(), rejects, decisions_.get(), cl_int(first)))
            return false;
    }
    if (!check(clEnqueueReadBuffer(queue_.get(), decisions_.get(), CL_TRUE, 0, size_t(n), decisions, 0, nullptr, nullptr),
               "copying the decisions back"))
        return false;
    traffic_.toHost += n;
    return true;
}

bool OpenClClassifier::classify(const float* spectra, SpectraLayout layout, int n, quint8* decisions)
{
    traffic_ = {};
    if (n <= 0)
        return true;
    if (!spectra || !decisions) {
        error_ = QStringLiteral("no spectra or no room for the decisions");
        return false;
    }
    return fitBlock(n, 0) && upload(spectra_, spectra, size_t(n) * size_t(model_.bands) * sizeof(float)) &&
           run(layout, n, decisions);
}

bool OpenClClassifier::classifyStaged(const SampleBlock& block, quint8* decisions)
{
    traffic_ = {};
    if (!stageReady_) {
        error_ = QStringLiteral("the input stage did not reach the device");
        return false;
    }
    const size_t rawBytes = size_t(block.pixels) * size_t(block.bands) * (block.type == SampleType::U16 ? 2 : 4);
    if (!fitBlock(block.pixels, rawBytes) || !upload(raw_, block.data, rawBytes))
        return false;
    const cl_int correction = correction_, width = stage_.width, n = block.pixels, inBands = block.bands, B = model_.bands;
    const cl_int bandsByPixels = block.layout == SpectraLayout::BandsByPixels ? 1 : 0;
    return launch(block.type == SampleType::U16 ? stageU16_ : stageF32_, "running the staging kernel",
                  size_t(n) * size_t(B), 1, raw_.get(), spectra_.get(), bands_.get(), dark_.get(), gain_.get(), correction,
                  width, n, inBands, B, bandsByPixels) &&
           run(block.layout, block.pixels, decisions);
}

bool OpenClClassifier::reserve(int pixels)
{
    if (pixels <= 0)
        return pixels == 0;
    if (!fitBlock(pixels, 0))
        return false;
    const size_t bytes = size_t(pixels) * size_t(model_.bands) * sizeof(float);
    const float zero = 0.0f;
    std::vector<quint8> scratch(static_cast<size_t>(pixels));
    const bool ok = check(clEnqueueFillBuffer(queue_.get(), spectra_.get(), &zero, sizeof zero, 0, bytes, 0, nullptr, nullptr),
                          "clearing the spectra") &&
                    run(SpectraLayout::BandsByPixels, pixels, scratch.data()) &&
                    run(SpectraLayout::PixelsByBands, pixels, scratch.data());
    traffic_ = {};
    return ok;
}

} // namespace compute::opencl
