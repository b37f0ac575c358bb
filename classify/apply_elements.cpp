#include "classify/apply_elements.h"

#include <QDebug>
#include <cblas.h>
#include <functional>

namespace {

bool isMatrix(const HostArray& a)
{
    return a.type() == compute::ElementType::F32 && a.dim(2) == 1 && a.dim(3) == 1 && a.f32().size() == a.elements();
}

// Calls `step(first, count)` for the column ranges of a block of `columns` columns:
// one range below `chunk` columns, chunks of `chunk` from there on.
void walkColumns(qint64 columns, int chunk, const std::function<void(qint64, qint64)>& step, bool chunkDone = false)
{
    if (columns < chunk) {
        step(0, columns);
        return;
    }
    for (qint64 first = 0; first < columns; first += chunk) {
        step(first, std::min<qint64>(chunk, columns - first));
        if (chunkDone)
            qInfo("s8 e");
    }
}

// result = matrixᵀ · block + offset, column range by column range.
HostArray linear(const HostArray& matrix, const HostArray& offset, const HostArray& block, bool logChunks)
{
    if (!isMatrix(matrix) || !isMatrix(offset) || !isMatrix(block))
        return {};
    const qint64 in = matrix.dim(0), out = matrix.dim(1), columns = block.dim(1);
    if (block.dim(0) != in || offset.elements() != out || out * columns > INT_MAX)
        return {};
    QVector<float> result(int(out * columns));
    const float* m = matrix.f32().constData();
    const float* b = block.f32().constData();
    const float* o = offset.f32().constData();
    float* r = result.data();
    walkColumns(columns, ProductChunkColumns, [&](qint64 first, qint64 count) {
        float* target = r + first * out;
        for (qint64 c = 0; c < count; ++c)
            std::copy(o, o + out, target + c * out);
        if (in > 0 && count > 0)
            cblas_sgemm(CblasColMajor, CblasTrans, CblasNoTrans, int(out), int(count), int(in), 1.0f, m, int(in),
                        b + first * in, int(in), 1.0f, target, int(out));
    }, logChunks);
    return HostArray({out, columns, 1, 1}, std::move(result));
}

} // namespace

HostArray applyLinear(const ZelkAFPipelineM1& element, const HostArray& block)
{
    return linear(element.matrix, element.offset, block, false);
}

HostArray applyFilter(const ZelkAFPipelineM7& element, const HostArray& block)
{
    return linear(element.matrix, element.offset, block, true);
}

HostArray applySelection(const ZelkAFPipelineM10& element, const HostArray& block)
{
    const HostArray& indices = element.indices;
    if (!isMatrix(block) || indices.type() != compute::ElementType::S32 || indices.s32().size() != indices.elements())
        return {};
    const qint64 rows = block.dim(0), columns = block.dim(1), selected = indices.elements();
    for (qint32 i : indices.s32())
        if (i < 0 || i >= rows)
            return {};
    if (selected * columns > INT_MAX)
        return {};
    QVector<float> result(int(selected * columns));
    const float* b = block.f32().constData();
    const qint32* index = indices.s32().constData();
    walkColumns(columns, SelectionChunkColumns, [&](qint64 first, qint64 count) {
        for (qint64 c = first; c < first + count; ++c)
            for (qint64 i = 0; i < selected; ++i)
                result[int(c * selected + i)] = b[c * rows + index[i]];
    });
    return HostArray({selected, columns, 1, 1}, std::move(result));
}

HostArray applyScaling(const ZelkAFPipelineM9& element, const HostArray& block)
{
    if (!isMatrix(block) || !isMatrix(element.mean) || !isMatrix(element.scale))
        return {};
    const qint64 rows = block.dim(0), columns = block.dim(1);
    if (element.mean.elements() != rows || element.scale.elements() != rows)
        return {};
    QVector<float> result(block.f32());
    const float* mean = element.mean.f32().constData();
    const float* scale = element.scale.f32().constData();
    for (qint64 c = 0; c < columns; ++c) {
        float* column = result.data() + c * rows;
        for (qint64 i = 0; i < rows; ++i)
            column[i] = (column[i] - mean[i]) * scale[i];
    }
    return HostArray({rows, columns, 1, 1}, std::move(result));
}
