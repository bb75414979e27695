#include "views/FaceDrawable.h"

#include <cstring>

void FaceDrawable::drawRow(std::int32_t y, std::uint8_t* out) const {
    std::memcpy(out, row(y), std::size_t(size()) * 3);
}
