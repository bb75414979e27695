#include "interchange/render/RenderBand.h"

#include "views/cameras/ViewParams.h"

#include <algorithm>

void RenderBand::allocate(std::int32_t w, std::int32_t rows, bool flagsKept) {
    width = w;
    keepFlags = flagsKept;
    // Room past the last pixel for a whole group of a row filled several pixels at a time.
    const std::size_t pixels =
        static_cast<std::size_t>(w) * static_cast<std::size_t>(rows) + groupRoom;
    codes.resize(pixels);
    colours.resize(pixels);
    materials.resize(pixels);
    flags.resize(flagsKept ? pixels : 0);
    workOf.resize(pixels);
}

void RenderBand::start(std::int32_t first, std::int32_t end) {
    top = first;
    bottom = end;
    const std::size_t pixels =
        static_cast<std::size_t>(width) * static_cast<std::size_t>(end - first);
    std::fill_n(codes.begin(), pixels, depth::noDepth);
    std::fill_n(colours.begin(), pixels, 0u);
    std::fill_n(materials.begin(), pixels, MaterialId(0));
    if (keepFlags) {
        std::fill_n(flags.begin(), pixels, 0u);
    }
    std::fill_n(workOf.begin(), pixels, noWork);
    works.clear();
    lightParts.clear();
}
