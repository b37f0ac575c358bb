// A mosaic camera: one colour picture holds a grid of tiles, each the scene through other
// filters and shifted a little. The tiles are registered against the first one by
// cross-correlation in the frequency domain, and the image becomes the largest window
// that every tile can supply.

#include "spectral/image_family.h"

#include <QImageReader>
#include <algorithm>
#include <complex>
#include <fftw3.h>
#include <limits>
#include <memory>
#include <vector>

namespace {

struct FftwFree {
    void operator()(void* p) const { fftwf_free(p); }
};
using ComplexBuffer = std::unique_ptr<fftwf_complex[], FftwFree>;

ComplexBuffer complexBuffer(qint64 n)
{
    return ComplexBuffer(static_cast<fftwf_complex*>(fftwf_malloc(sizeof(fftwf_complex) * size_t(std::max<qint64>(n, 1)))));
}

// A 2-D transform of `rows` by `columns` values in place; forward or backward, unscaled.
// Planning is not thread-safe in FFTW: the library plans only here, on the caller's thread.
void transform(fftwf_complex* data, int rows, int columns, int sign)
{
    fftwf_plan plan = fftwf_plan_dft_2d(rows, columns, data, data, sign, FFTW_ESTIMATE);
    fftwf_execute(plan);
    fftwf_destroy_plan(plan);
}

// The spectrum of a tile: its colour planes summed, the mean taken off.
void tileSpectrum(const QImage& mosaic, int x0, int y0, int tw, int th, fftwf_complex* out)
{
    double sum = 0;
    for (int y = 0; y < th; ++y) {
        const QRgb* row = reinterpret_cast<const QRgb*>(mosaic.constScanLine(y0 + y)) + x0;
        for (int x = 0; x < tw; ++x) {
            const float v = float(qRed(row[x]) + qGreen(row[x]) + qBlue(row[x]));
            out[qint64(y) * tw + x][0] = v;
            out[qint64(y) * tw + x][1] = 0.0f;
            sum += v;
        }
    }
    const float mean = float(sum / (qint64(tw) * th));
    for (qint64 i = 0; i < qint64(tw) * th; ++i)
        out[i][0] -= mean;
    transform(out, th, tw, FFTW_FORWARD);
}

} // namespace

ZelkImageAgrowing::ZelkImageAgrowing(const QString& name, QObject* parent)
    : ZelkImageFile(name, parent, 22, ".jpg")
{
}

int ZelkImageAgrowing::readMetaData(const QString& directory)
{
    // No source of camera types exists in this library.
    return readMetaData(directory, CameraTable());
}

int ZelkImageAgrowing::readMetaData(const QString& directory, const CameraTable& cameras)
{
    if (cameras.isEmpty()) {
        report(-1, QStringLiteral("No valid camera types found in zelk.ini"));
        return imageError;
    }
    const QString path = cubeFileName(directory);
    const QImage mosaic(path);
    if (mosaic.isNull()) {
        report(-1, QStringLiteral("Cannot load mosaic image %1").arg(path));
        return imageError;
    }
    return registerMosaic(mosaic, cameras);
}

int ZelkImageAgrowing::registerMosaic(const QImage& picture, const CameraTable& cameras)
{
    if (cameras.isEmpty()) {
        report(-1, QStringLiteral("No valid camera types found in zelk.ini"));
        return imageError;
    }
    const int W = picture.width(), H = picture.height();
    bool found = false;
    for (auto it = cameras.constBegin(); it != cameras.constEnd(); ++it) {
        if (!it.value().mosaicSizes.contains(QSize(W, H)))
            continue;
        // The last matching type in key order stands.
        Q_EMIT displayMessage(QStringLiteral("Using camera type %1").arg(it.key()));
        camera = it.value();
        found = true;
    }
    if (!found) {
        report(-1, QStringLiteral("Unable to detect camera type"));
        return imageError;
    }
    const int rows = camera.tileRows, cols = camera.tileCols;
    if (rows <= 0 || cols <= 0 || W / cols < 1 || H / rows < 1) {
        report(-1, QStringLiteral("Camera type has no tiles of at least one pixel (%1 x %2 tiles on %3 x %4)").arg(cols).arg(rows).arg(W).arg(H));
        return imageError;
    }
    const QImage mosaic = picture.convertToFormat(QImage::Format_RGB32);
    const int tw = W / cols, th = H / rows;
    const qint64 n = qint64(tw) * th;
    ComplexBuffer reference = complexBuffer(n), tile = complexBuffer(n);
    if (!reference || !tile) {
        report(-1, QStringLiteral("Cannot allocate memory"));
        return imageError;
    }

    tileOrigins.clear();
    int minX = 0, minY = 0;
    for (int r = 0; r < rows; ++r)
        for (int c = 0; c < cols; ++c) {
            if (r == 0 && c == 0) {
                tileSpectrum(mosaic, 0, 0, tw, th, reference.get());
                for (qint64 i = 0; i < n; ++i)
                    reference[i][1] = -reference[i][1]; // conjugate
                tileOrigins.append(QPoint(0, 0));
                continue;
            }
            tileSpectrum(mosaic, c * tw, r * th, tw, th, tile.get());
            for (qint64 i = 0; i < n; ++i) {
                const std::complex<float> p = std::complex<float>(tile[i][0], tile[i][1]) *
                                              std::complex<float>(reference[i][0], reference[i][1]);
                tile[i][0] = p.real();
                tile[i][1] = p.imag();
            }
            transform(tile.get(), th, tw, FFTW_BACKWARD);
            // The first maximum with the rows running fastest, as a column-major search finds it.
            float best = -1.0f;
            int bx = 0, by = 0;
            for (int x = 0; x < tw; ++x)
                for (int y = 0; y < th; ++y) {
                    const fftwf_complex& v = tile[qint64(y) * tw + x];
                    const float magnitude = std::abs(std::complex<float>(v[0], v[1]));
                    if (magnitude > best) {
                        best = magnitude;
                        bx = x;
                        by = y;
                    }
                }
            if (bx > tw / 2)
                bx -= tw;
            if (by > th / 2)
                by -= th;
            const QPoint origin(bx + c * tw, by + r * th);
            tileOrigins.append(origin);
            minX = std::min(minX, origin.x());
            minY = std::min(minY, origin.y());
        }
    if (minX < 0 || minY < 0)
        for (QPoint& p : tileOrigins)
            p -= QPoint(minX, minY);

    // The largest window that every tile can supply.
    width = W;
    height = H;
    for (int r = 0; r < rows; ++r)
        for (int c = 0; c < cols; ++c) {
            const QPoint& o = tileOrigins[r * cols + c];
            const int nextX = c + 1 < cols ? tileOrigins[r * cols + c + 1].x() : W;
            const int nextY = r + 1 < rows ? tileOrigins[(r + 1) * cols + c].y() : H;
            width = std::min(width, nextX - o.x());
            height = std::min(height, nextY - o.y());
        }
    imageInt1 = width;
    imageInt2 = height;
    bandCount = camera.wavelengths.size();
    wavelengths = camera.wavelengths;
    Q_EMIT displayMessage(sizeReport());
    return 0;
}

std::unique_ptr<ZelkSpectralCube> ZelkImageAgrowing::loadCube(const QString& directory)
{
    const QString path = cubeFileName(directory);
    const QImage picture(path);
    if (picture.isNull()) {
        report(-1, QStringLiteral("Cannot load mosaic image %1").arg(path));
        return nullptr;
    }
    const QImage mosaic = picture.convertToFormat(QImage::Format_RGB32);
    const int bands = camera.subImages.size();
    const int w = cropped ? cropWidth : width, h = cropped ? cropHeight : height;
    // Every window must lie inside the mosaic.
    for (const ZelkAgrowingSubImage& s : camera.subImages) {
        const QPoint o = tileOrigins.value(s.tile, QPoint(-1, -1));
        if (s.tile < 0 || s.tile >= tileOrigins.size() || s.channel < 0 || s.channel > 2 || o.x() < 0 || o.y() < 0 ||
            qint64(o.x()) + w > mosaic.width() || qint64(o.y()) + h > mosaic.height()) {
            report(-1, QStringLiteral("Tile %1 does not hold a window of %2 x %3 in the mosaic").arg(s.tile).arg(w).arg(h));
            return nullptr;
        }
    }
    if (bands == 0 || w <= 0 || h <= 0) {
        report(-1, QStringLiteral("The camera type has no bands for the mosaic %1").arg(path));
        return nullptr;
    }
    auto cube = std::make_unique<ZelkSpectralCube>(DataUInt8, LayoutBIP);
    cube->columns = w;
    cube->lines = h;
    cube->bands = bands;
    const qint64 count = cube->sampleCount();
    std::unique_ptr<char[]> buffer(new (std::nothrow) char[size_t(count)]);
    if (!buffer) {
        report(-1, QStringLiteral("Cannot allocate memory"));
        return nullptr;
    }
    auto* out = reinterpret_cast<quint8*>(buffer.get());
    for (int b = 0; b < bands; ++b) {
        const ZelkAgrowingSubImage& s = camera.subImages[b];
        const QPoint o = tileOrigins[s.tile];
        for (int y = 0; y < h; ++y) {
            const QRgb* row = reinterpret_cast<const QRgb*>(mosaic.constScanLine(o.y() + y)) + o.x();
            for (int x = 0; x < w; ++x) {
                const QRgb p = row[x];
                out[(qint64(y) * w + x) * bands + b] = quint8(s.channel == 0 ? qRed(p) : s.channel == 1 ? qGreen(p) : qBlue(p));
            }
        }
    }
    cube->setData(std::move(buffer), count);
    if (!cropToRegion(*cube))
        return nullptr;
    return cube;
}
