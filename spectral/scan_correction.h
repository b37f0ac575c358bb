#pragma once
// Correction of a whole scan by reference scans of the same camera: each reference is
// reduced over its lines to one value per column and band, and the scan then becomes
// (x - dark) * gain, float BIP, processed in blocks of lines.

#include "spectral/spectral_cube.h"

#include <QVector>
#include <functional>

namespace scancorrection {

enum class Reduction { Max, Min, Mean };

// Lines per block of the application: the progress is reported after each.
constexpr int BlockLines = 100;

// One value per column and band of a reference, at index band * columns + column. A uint16
// reference of several lines is reduced as asked; a float reference is used as it stands
// for Max and Min and must then have one line. False when that cannot be done.
bool level(const ZelkSpectralCube& reference, Reduction how, QVector<float>* out);

using Progress = std::function<void(const QString& text, int percent)>;

// Replaces the samples of a uint16 or float scan of any layout with (x - dark) * gain,
// or |x - dark| * gain with `absolute`, as float BIP. `dark` and `gain` are indexed like
// level(). Progress: "Importing cube..." at 0, the share of lines done after each block,
// "Done." at 100. False, with the scan untouched, when the scan does not fit.
bool apply(ZelkSpectralCube& scan, const QVector<float>& dark, const QVector<float>& gain, bool absolute, const Progress& progress);

} // namespace scancorrection
