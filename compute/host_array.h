#pragma once
// A typed array in host memory with up to four dimensions, column-major, as model
// files store it. Device copies are made from it when a model is prepared.

#include <QVector>
#include <array>
#include <cstdint>

namespace compute {

// Element types numbered as model files number them.
enum class ElementType : int { F32 = 0, S32 = 5, U8 = 7 };

// The value vector holds exactly elements() entries; readers check that before they
// construct one.
class HostArray {
public:
    using Dims = std::array<qint64, 4>;

    HostArray() = default;
    HostArray(const Dims& dims, QVector<float> values) : type_(ElementType::F32), dims_(dims), f32_(std::move(values)) {}
    HostArray(const Dims& dims, QVector<qint32> values) : type_(ElementType::S32), dims_(dims), s32_(std::move(values)) {}
    HostArray(const Dims& dims, QVector<quint8> values) : type_(ElementType::U8), dims_(dims), u8_(std::move(values)) {}

    ElementType type() const { return type_; }
    const Dims& dims() const { return dims_; }
    qint64 dim(int i) const { return dims_[i]; }
    // Product of the dimensions; 0 for the empty array, whose other dimensions may be
    // as large as a file had them, too large to multiply.
    qint64 elements() const
    {
        for (qint64 d : dims_)
            if (d == 0)
                return 0;
        return dims_[0] * dims_[1] * dims_[2] * dims_[3];
    }
    bool isEmpty() const { return elements() == 0; }

    const QVector<float>& f32() const { return f32_; }
    const QVector<qint32>& s32() const { return s32_; }
    const QVector<quint8>& u8() const { return u8_; }

private:
    ElementType type_ = ElementType::F32;
    Dims dims_{0, 0, 0, 0};
    QVector<float> f32_;
    QVector<qint32> s32_;
    QVector<quint8> u8_;
};

} // namespace compute
