#include "pipeline/Paint.h"

#include <cstring>

void Paint::run(Span& span, int first, int last) {
    if (last <= first) {
        return;
    }
    const auto count = static_cast<std::size_t>(last - first);
    if (span.flags & spanNeedsDepth) {
        std::memcpy(span.depth + first, span.baseDepth + first, count * sizeof(std::uint32_t));
    }
    std::memcpy(span.colour + first, span.sourceColour + first, count * sizeof(ColourPOD));
}
