#pragma once

#include "core/Extent.h"
#include "core/Handle.h"
#include "image/AlphaBitmap.h"
#include "image/RgbBitmap.h"
#include "image/UndoBuffer.h"

#include <vector>

class ZmapDocument;

/// The editing state that a document keeps for the tools: the work bitmaps of the stroke in
/// progress and the extents a pass has applied. A plain member of the document.
class DocumentEditor {
public:
    explicit DocumentEditor(ZmapDocument* owner) : document(owner) {}
    DocumentEditor(const DocumentEditor&) = delete;
    DocumentEditor& operator=(const DocumentEditor&) = delete;

    ZmapDocument* document;
    /// The extents that the current pass has applied, in order.
    std::vector<IExtent<2>> appliedExtents;
    /// Coverage laid so far by the stroke in progress, 0 to 1.
    TQL::Handle<AlphaBitmap> strokeAlpha;
    /// Coverage of the wet planes of a stroke.
    TQL::Handle<AlphaBitmap> wetAlpha;
    /// Colour of the wet planes of a stroke.
    TQL::Handle<RgbCacheBitmap> wetCache;
    /// The document's undo store; made by allocateChannels.
    TQL::Handle<UndoBuffer> undoBuffer;
};
