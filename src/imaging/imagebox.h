#pragma once
#include <QImage>
#include <memory>

// A decoded bitmap as the memory caches hold it, with the long side it was made for.
struct ImageBox {
    QImage image;
    int target = 0;        // long side asked for when it was made
    bool rotated = true;   // the file's orientation is already applied
};
using ImageBoxPtr = std::shared_ptr<const ImageBox>;
