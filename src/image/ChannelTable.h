#pragma once

#include "core/Handle.h"
#include "image/TileBitmap.h"
#include "image/TileGeometry.h"

#include <cstdint>
#include <span>

class ZmapDocument;

/// What kind of bitmap a channel is.
enum class BitmapKind : std::uint8_t { rgb, rgbCache, depth, material, alpha, wetLayer };

/// One channel of a document: what it is, how it starts, who keeps it.
struct ChannelInfo {
    /// Its ChannelId; 0 for a channel that files and views don't name.
    std::uint32_t id;
    BitmapKind kind;
    /// The value of a pixel that was never written (a depth channel's no-depth value).
    std::uint32_t emptyValue;
    /// For a channel that starts as a shared copy of another (the originals): that one's id;
    /// 0 otherwise. Memory reports leave out the tiles the two share.
    std::uint32_t copyOf;
    /// Its number in memory reports (MemoryKind); noReport if it has none of its own.
    std::int32_t memoryKind;
    /// Written to a Zmap file and read back from one.
    bool saved;
    /// Snapshotted by every undo level.
    bool undone;
    /// Made by allocateChannels; the others are made by the tool that needs them.
    bool always;
    /// A work bitmap of the editor: scratch, made anew rather than carried through a crop.
    bool work;
    /// The document's handle to the channel, as a TileBitmap (null if missing).
    TQL::Handle<TileBitmap> (*get)(const ZmapDocument& document);
    /// Replaces the document's handle; a bitmap of another kind leaves it null.
    void (*set)(ZmapDocument& document, const TQL::Handle<TileBitmap>& bitmap);

    static constexpr std::int32_t noReport = 0x7fffffff;
};

/// The one list of a document's channels, in the order allocateChannels makes them: the
/// main colour, its original, depth, its original, material, its original, the cut-out
/// overlay, the water tool's planes, the editor's work bitmaps.
class ChannelTable {
public:
    static std::span<const ChannelInfo> all();
    /// The row of a ChannelId; null for an unknown id, 0 and the thumbnail.
    static const ChannelInfo* find(std::uint32_t id);
    /// An empty bitmap of the channel's kind and empty value, or, if `like` is given, of
    /// like's empty value (a depth channel made with another no-depth value). Throws
    /// std::bad_alloc.
    static TQL::Handle<TileBitmap> make(const ChannelInfo& channel, const ZmapDocument* document,
                                        const TileGeometry& geometry,
                                        const TileBitmap* like = nullptr);
    /// The position of a row in all().
    static std::size_t indexOf(const ChannelInfo& channel);
};
