#include "compute/opencl/opencl_classifier.h"
#include "compute/opencl/opencl_frame.h"

#include <algorithm>
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
    const bool ready = kernel->init(context, device, program);
    return readyOrNull(std::move(kernel), ready, error);
}

OpenClClassifier::OpenClClassifier(const ClassifierModel& model)
    : model_(model)
    , classRow_(model.classes, 1.0f)
{
}

bool OpenClClassifier::init(cl_context context, cl_device_id device, cl_program program)
{
    if (!open(context, device, program))
        return false;
    const struct {
        Kernel* kernel;
        const char* name;
    } kernels[] = {{&stageU16_, "stage_u16"}, {&stageF32_, "stage_f32"}, {&features_, "features"}, {&units_, "units"}, {&decide_, "decide"}};
    for (const auto& k : kernels)
        if (!makeKernel(*k.kernel, k.name))
            return false;

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
    // it is held so that it is not allocated anew for every block.
    for (const size_t count : {chunk, pixels % chunk}) {
        if (count == 0)
            continue;
        if (!makeRoomForGemm(false, F, count, B, 0, B, B, F) || !makeRoomForGemm(true, F, count, B, 0, B, pixels, F) ||
            !makeRoomForGemm(false, K, count, F, 0, F, F, K) || !makeRoomForGemm(false, C, count, K, 1, K + 1, K, C))
            return false;
    }
    gemmTempCheckedFor_ = n;
    return true;
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
    return download(decisions_, decisions, size_t(n));
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
    return fitBlock(block.pixels, rawBytes) && upload(raw_, block.data, rawBytes) &&
           stageAndRun(raw_.get(), block.type, block.layout, block.pixels, block.bands, decisions);
}

bool OpenClClassifier::classifyFrame(const StagedFrame& frame, quint8* decisions)
{
    const auto* onDevice = dynamic_cast<const OpenClFrame*>(&frame);
    if (!onDevice)
        return ClassifierKernel::classifyFrame(frame, decisions);
    traffic_ = {};
    if (!stageReady_) {
        error_ = QStringLiteral("the input stage did not reach the device");
        return false;
    }
    const SampleBlock shape{onDevice->values(), SampleType::F32, SpectraLayout::PixelsByBands, frame.pixels(), frame.bands()};
    if (!decisions || !stage_.fits(shape, model_.bands))
        return false;
    return fitBlock(frame.pixels(), 0) &&
           stageAndRun(onDevice->values(), SampleType::F32, shape.layout, frame.pixels(), frame.bands(), decisions);
}

bool OpenClClassifier::stageAndRun(cl_mem raw, SampleType type, SpectraLayout layout, int n, int inBands, quint8* decisions)
{
    const cl_int correction = correction_, width = stage_.width, pixels = n, in = inBands, B = model_.bands;
    const cl_int bandsByPixels = layout == SpectraLayout::BandsByPixels ? 1 : 0;
    return launch(type == SampleType::U16 ? stageU16_ : stageF32_, "running the staging kernel", size_t(n) * size_t(B), 1, raw,
                  spectra_.get(), bands_.get(), dark_.get(), gain_.get(), correction, width, pixels, in, B, bandsByPixels) &&
           run(layout, n, decisions);
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
