#include "image/ChannelTable.h"

#include "image/ZmapDocument.h"

#include <cstring>
#include <type_traits>

namespace {

/// get and set of a document handle `expression` (of document `d`) for the table.
#define QUORVALE_CHANNEL_ACCESS(expression)                                                        \
    [](const ZmapDocument& d) -> TQL::Handle<TileBitmap> { return d.expression; },                 \
        [](ZmapDocument& d, const TQL::Handle<TileBitmap>& b) {                                    \
            d.expression =                                                                         \
                TQL::handleCast<std::remove_reference_t<decltype(d.expression)>::element_type>(b); \
        }

constexpr std::int32_t noReport = ChannelInfo::noReport;
constexpr std::uint32_t noDepth = 0xFFFFFFFFu;

// clang-format off
constexpr ChannelInfo table[] = {
//   id                   kind                  empty    copy of      memory report      saved  undone always work
    {channelRgb,          BitmapKind::rgb,      0,       0,           memoryRgb,         true,  true,  true,  false, QUORVALE_CHANNEL_ACCESS(rgb)},
    {channelOriginalRgb,  BitmapKind::rgb,      0,       channelRgb,  memoryOriginalRgb, true,  false, true,  false, QUORVALE_CHANNEL_ACCESS(originalRgb)},
    {channelZ,            BitmapKind::depth,    noDepth, 0,           memoryZ,           true,  true,  true,  false, QUORVALE_CHANNEL_ACCESS(z)},
    {channelOriginalZ,    BitmapKind::depth,    noDepth, channelZ,    memoryOriginalZ,   true,  false, true,  false, QUORVALE_CHANNEL_ACCESS(originalZ)},
    {channelMat,          BitmapKind::material, 0,       0,           memoryMat,         true,  true,  true,  false, QUORVALE_CHANNEL_ACCESS(mat)},
    {channelOriginalMat,  BitmapKind::material, 0,       channelMat,  memoryOriginalMat, true,  false, true,  false, QUORVALE_CHANNEL_ACCESS(originalMat)},
    {channelCutoutRgb,    BitmapKind::rgb,      0,       0,           memoryCutoutRgb,   false, false, true,  false, QUORVALE_CHANNEL_ACCESS(cutoutRgb)},
    {channelCutoutZ,      BitmapKind::depth,    0,       0,           memoryCutoutZ,     false, false, true,  false, QUORVALE_CHANNEL_ACCESS(cutoutZ)},
    {channelCutoutMat,    BitmapKind::material, 0,       0,           memoryCutoutMat,   false, false, true,  false, QUORVALE_CHANNEL_ACCESS(cutoutMat)},
    {channelCutoutAlpha,  BitmapKind::alpha,    0,       0,           memoryCutoutAlpha, false, false, true,  false, QUORVALE_CHANNEL_ACCESS(cutoutAlpha)},
    {channelShadowAlpha,  BitmapKind::alpha,    0,       0,           memoryShadowAlpha, false, false, true,  false, QUORVALE_CHANNEL_ACCESS(shadowAlpha)},
    {0,                   BitmapKind::wetLayer, 0,       0,           noReport,          false, true,  false, false, QUORVALE_CHANNEL_ACCESS(wetLayer)},
    {0,                   BitmapKind::rgb,      0,       channelRgb,  noReport,          false, false, false, false, QUORVALE_CHANNEL_ACCESS(wetColour)},
    {0,                   BitmapKind::alpha,    0,       0,           noReport,          false, false, true,  true,  QUORVALE_CHANNEL_ACCESS(editor.strokeAlpha)},
    {0,                   BitmapKind::alpha,    0,       0,           noReport,          false, false, true,  true,  QUORVALE_CHANNEL_ACCESS(editor.wetAlpha)},
    {0,                   BitmapKind::rgbCache, 0,       0,           noReport,          false, false, true,  true,  QUORVALE_CHANNEL_ACCESS(editor.wetCache)},
};
// clang-format on

#undef QUORVALE_CHANNEL_ACCESS

} // namespace

std::span<const ChannelInfo> ChannelTable::all() {
    return table;
}

const ChannelInfo* ChannelTable::find(std::uint32_t id) {
    if (id == 0) {
        return nullptr;
    }
    for (const ChannelInfo& channel : table) {
        if (channel.id == id) {
            return &channel;
        }
    }
    return nullptr;
}

std::size_t ChannelTable::indexOf(const ChannelInfo& channel) {
    return static_cast<std::size_t>(&channel - table);
}

TQL::Handle<TileBitmap> ChannelTable::make(const ChannelInfo& channel, const ZmapDocument* document,
                                           const TileGeometry& geometry, const TileBitmap* like) {
    switch (channel.kind) {
    case BitmapKind::rgb:
        return TQL::makeHandle<RgbBitmap>(document, geometry);
    case BitmapKind::rgbCache:
        return TQL::makeHandle<RgbCacheBitmap>(document, geometry);
    case BitmapKind::depth: {
        std::uint32_t noDepth = channel.emptyValue;
        if (like && like->bytesPerPixel() == sizeof noDepth) {
            std::memcpy(&noDepth, like->emptyValue(), sizeof noDepth);
        }
        return TQL::makeHandle<ZBitmap>(document, geometry, noDepth);
    }
    case BitmapKind::material:
        return TQL::makeHandle<MatBitmap>(document, geometry);
    case BitmapKind::alpha:
        return TQL::makeHandle<AlphaBitmap>(document, geometry);
    case BitmapKind::wetLayer:
        return TQL::makeHandle<WetLayerBitmap>(document, geometry);
    }
    return TQL::Handle<TileBitmap>();
}
