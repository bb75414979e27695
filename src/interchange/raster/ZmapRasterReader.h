#pragma once

#include "core/Status.h"

#include <string>

class Raster;

/// Reads the colour channel of a Zmap file (.zmp, .zmq) into a raster, through the Zmap
/// reader: the depth, materials and camera are left behind. Results are the Zmap reader's
/// (-2 damaged, -7 an unknown version, -10 out of memory or too large).
class ZmapRasterReader {
public:
    [[nodiscard]] static Status read(const std::wstring& path, Raster& raster, std::wstring& error);
};
