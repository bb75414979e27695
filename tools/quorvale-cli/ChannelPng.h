#pragma once

#include "core/Status.h"

#include <cstdint>
#include <string>

class ZmapDocument;

namespace cli {

/// Writes what the document draws for channel `channel` (a ChannelId: the colour, or the
/// display conversion of depth or material) to a PNG file at `path`, a band of tile rows at
/// a time. Stops with status -11 on Ctrl+C. Doesn't throw.
Status writeChannelPng(const ZmapDocument& document, std::uint32_t channel,
                       const std::string& path);

} // namespace cli
