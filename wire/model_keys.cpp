#include "wire/model_keys.h"

namespace modelkeys {
namespace {

// Each key is kept as two halves XOR a mask and put together at run time through
// volatile reads, so the plain values do not stand in the library's image as
// constants. This hides them from a byte search only; it is not a protection.
struct Masked {
    quint32 high;
    quint32 low;
};

constexpr quint32 MaskHigh = 0x5A3C96E1;
constexpr quint32 MaskLow = 0xC3A5710F;

constexpr Masked mask(quint64 value)
{
    return {quint32(value >> 32) ^ MaskHigh, quint32(value) ^ MaskLow};
}

const volatile Masked Zelk = mask(0xB7F1C05E3A9D4462);
const volatile Masked Zpl = mask(0x9DE35A04C1F7286B);
const volatile Masked ZplSecond = mask(0xC8264FD7E05B13A9);

quint64 unmask(const volatile Masked& m)
{
    return (quint64(m.high ^ MaskHigh) << 32) | quint64(m.low ^ MaskLow);
}

} // namespace

quint64 zelkKey()
{
    return unmask(Zelk);
}

quint64 zplKey()
{
    return unmask(Zpl);
}

quint64 zplSecondKey()
{
    return unmask(ZplSecond);
}

} // namespace modelkeys
