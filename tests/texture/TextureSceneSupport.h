#pragma once

// Small scenes, rasters and a painter for the texture tools' tests.

#include "core/Plane.h"
#include "pipeline/PipelineTool.h"
#include "support/SyntheticScene.h"
#include "support/TestDocument.h"
#include "texture/RasterTexture.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace textest {

/// A scene rendered into a new document through a perspective view from `eye`, looking
/// along the compass bearing `azimuth` (degrees from +x toward +y) and `altitude` degrees up,
/// with a window of +-1 across and +-height/width down. Millimetres per unit: 1000.
std::unique_ptr<test::TestDocument> renderScene(const test::SyntheticScene& scene,
                                                std::int32_t width, std::int32_t height,
                                                const Point<3>& eye, double azimuth,
                                                double altitude);

/// A grey checker raster of `side` x `side` texels (side a multiple of 2 * square), black
/// and white squares of `square` texels, tiled.
TQL::Handle<tex::RasterTexture> checker(std::int32_t width, std::int32_t height,
                                        std::int32_t square);

/// Writes a width x height 24-bit BMP of the greys grey(x, y) (row 0 at the top).
void writeGreyBmp(const std::string& path, std::int32_t width, std::int32_t height,
                  std::uint8_t (*grey)(std::int32_t x, std::int32_t y));

/// The result of running a texture stage over every pixel of a document at full coverage.
struct Painted {
    std::int32_t width = 0;
    std::vector<ColourPOD> colour;
    std::vector<float> alpha;
    const ColourPOD& at(std::int32_t x, std::int32_t y) const {
        return colour[static_cast<std::size_t>(y) * width + x];
    }
    int grey(std::int32_t x, std::int32_t y) const { return at(x, y).g; }
};

/// Runs `tool` on every row of `document` (the working colour starting mid grey), rows cut
/// into spans of at most 256 pixels.
Painted paintAll(TextureTool& tool, test::TestDocument& document);

} // namespace textest
