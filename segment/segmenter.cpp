#include "segment/segmenter.h"

int ZelkSegmenter::prepareSegmenter(bool streaming, int width, int valuesPerPixel)
{
    if (!isCompiled())
        return fail(-3600);
    return prepare(streaming, width, valuesPerPixel);
}
