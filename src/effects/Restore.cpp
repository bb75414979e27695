#include "effects/Restore.h"

#include "image/TileBitmap.h"
#include "image/ZmapDocument.h"
#include "pipeline/Span.h"

#include <algorithm>

void Restore::run(Span& span, int first, int last) {
    if (first >= last) {
        return;
    }
    std::copy(span.sourceColour + first, span.sourceColour + last, span.colour + first);
    if ((span.flags & spanNeedsDepth) && span.depth && span.document) {
        TileHandle hold;
        std::int32_t tile = -1;
        for (int i = first; i < last; ++i) {
            span.depth[i] = span.document->originalZAtCached(span.x + i, span.y, hold, tile);
        }
    }
}

void Restore::commit(Span& span, int first, int last) {
    if (first >= last || !span.document) {
        return;
    }
    ZmapDocument& document = *span.document;
    // A span lies in one tile, so its pixels are one run in each channel's tile row.
    TileHandle zHold;
    TileHandle matHold;
    std::uint32_t* z = nullptr;
    MaterialId* mat = nullptr;
    int at = first; // the pixel z and mat point at
    bool found = false;
    TileHandle readHold;
    std::int32_t readTile = -1;
    TileHandle matReadHold;
    std::int32_t matReadTile = -1;
    for (int i = first; i < last; ++i) {
        if (!(span.alpha[i] > 0.5f)) {
            continue;
        }
        const std::int32_t x = span.x + i;
        if (!found) {
            found = true;
            at = i;
            z = document.zWrite(x, span.y, zHold);
            mat = document.matWrite(x, span.y, matHold);
        }
        if (z) {
            z[i - at] = document.originalZAtCached(x, span.y, readHold, readTile);
        }
        if (mat) {
            mat[i - at] = document.originalMatAtCached(x, span.y, matReadHold, matReadTile);
        }
    }
}
