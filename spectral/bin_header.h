#pragma once
// The meta-data tokens in front of the samples of a .trf cube file: "WR<n>:" and
// "DR<n>:" point at the white and dark reference spectra in the data section that
// follows the end token "::".

#include "spectral/spectral_cube.h"

#include <QByteArray>
#include <memory>

class ZelkBinHeader {
public:
    int errorCode = 0;
    QString errorText;

    // 0, -2701 for no buffer, -2702 without the end token.
    int init(const QByteArray& buffer);

    // A cube of one pixel holding `bands` floats, or null when the token is missing or
    // the spectrum lies outside the buffer. The white reference offset counts bytes,
    // the dark one floats.
    std::unique_ptr<ZelkSpectralCube> whiteReference(int bands) const { return spectrum("WR", 1, bands); }
    std::unique_ptr<ZelkSpectralCube> darkReference(int bands) const { return spectrum("DR", 4, bands); }

private:
    std::unique_ptr<ZelkSpectralCube> spectrum(const char* token, qint64 unit, int bands) const;
    int fail(int code, const QString& message);

    QByteArray buffer_;
    qint64 dataStart_ = -1;
};
