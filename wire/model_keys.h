#pragma once
// The keys of the model files this library opens. A ".zelk" file is enciphered with
// one key; a ".zpl" file with either of two, tried in order.

#include <QtGlobal>

namespace modelkeys {

quint64 zelkKey();
quint64 zplKey();
quint64 zplSecondKey();

} // namespace modelkeys
