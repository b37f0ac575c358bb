#pragma once
// The packed device value: backend number in the high 16 bits, device index in the
// low 16 bits. 65536 is the CPU backend, device 0.

#include <QString>

namespace compute {

enum BackendNumber { BackendCpu = 1, BackendCuda = 2, BackendOpenCl = 4 };

constexpr int makeDevice(int backend, int index) { return (index & 65535) | (backend << 16); }
constexpr int deviceBackend(int device) { return device >> 16; }
constexpr int deviceIndex(int device) { return device & 65535; }
constexpr int defaultDevice = makeDevice(BackendCpu, 0);

} // namespace compute
