// Export of the decision image as an indexed PNG, with the palette that acquisition
// start gave it, so that a caller can look at what the classifier saw.

#include "runtime/export.h"
#include "runtime/handle.h"

#include <cstring>

extern "C" ZELK_API int zelk_SaveImage(ZelkHandle* h, const char* fileName)
{
    return exported("zelk_SaveImage", h, [&] {
        if (!fileName)
            return fail(h, msg::NullFileName);
        QImage* image = h->ring.labels.get();
        if (!image)
            return fail(h, msg::NoDecisionImage);
        if (!h->input.lineScan) {
            // The decisions of the last cube go into the image first. An image or a
            // buffer smaller than the current cube size was made for another project.
            const int width = h->input.width, height = h->input.height;
            const bool fits = width >= 0 && height >= 0 && image->width() >= width && image->height() >= height
                              && h->cube.decisions.size() >= size_t(width) * size_t(height);
            if (h->cube.decisions.empty() || !fits)
                return fail(h, msg::ImageSave);
            for (int y = 0; y < height; ++y)
                std::memcpy(image->scanLine(y), h->cube.decisions.data() + size_t(y) * size_t(width), size_t(width));
        }
        // A file that cannot be written is not reported.
        image->save(QString::fromLatin1(fileName), "png", -1);
        return 0;
    });
}
