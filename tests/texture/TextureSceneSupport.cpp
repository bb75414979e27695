#include "TextureSceneSupport.h"

#include "support/RoomScene.h"
#include "texture/MipMap.h"
#include "views/cameras/ViewParams.h"

#include <algorithm>
#include <fstream>

namespace textest {

std::unique_ptr<test::TestDocument> renderScene(const test::SyntheticScene& scene,
                                                std::int32_t width, std::int32_t height,
                                                const Point<3>& eye, double azimuth,
                                                double altitude) {
    const double aspect = static_cast<double>(height) / width;
    const ViewParams record = test::roomRecord(ViewParams::perspectiveCode, eye, azimuth, altitude,
                                               {-1, aspect, 1}, {1, -aspect, 1}, 0.1, 200);
    auto document = test::makeTestDocument(width, height);
    document->setViewParams(record);
    scene.render(*document);
    return document;
}

TQL::Handle<tex::RasterTexture> checker(std::int32_t width, std::int32_t height,
                                        std::int32_t square) {
    std::vector<std::uint8_t> rgb(static_cast<std::size_t>(width) * height * 3);
    for (std::int32_t y = 0; y < height; ++y) {
        for (std::int32_t x = 0; x < width; ++x) {
            const std::uint8_t v = ((x / square + y / square) % 2) ? 255 : 0;
            std::fill_n(rgb.begin() + (static_cast<std::ptrdiff_t>(y) * width + x) * 3, 3, v);
        }
    }
    auto map = TQL::makeHandle<tex::MipMap>(width, height, rgb.data(), nullptr, true);
    return TQL::makeHandle<tex::RasterTexture>(map, static_cast<float>(width),
                                               static_cast<float>(height));
}

void writeGreyBmp(const std::string& path, std::int32_t width, std::int32_t height,
                  std::uint8_t (*grey)(std::int32_t x, std::int32_t y)) {
    const std::int32_t stride = (width * 3 + 3) / 4 * 4;
    std::vector<std::uint8_t> file(54 + static_cast<std::size_t>(stride) * height, 0);
    auto put32 = [&file](std::size_t at, std::uint32_t v) {
        for (int i = 0; i < 4; ++i) {
            file[at + i] = static_cast<std::uint8_t>(v >> (8 * i));
        }
    };
    file[0] = 'B';
    file[1] = 'M';
    put32(2, static_cast<std::uint32_t>(file.size()));
    put32(10, 54);
    put32(14, 40);
    put32(18, static_cast<std::uint32_t>(width));
    put32(22, static_cast<std::uint32_t>(height));
    file[26] = 1;
    file[28] = 24;
    for (std::int32_t row = 0; row < height; ++row) {
        // Rows are stored from the bottom.
        const std::int32_t y = height - 1 - row;
        for (std::int32_t x = 0; x < width; ++x) {
            std::fill_n(file.begin() + 54 + row * stride + x * 3, 3, grey(x, y));
        }
    }
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char*>(file.data()),
               static_cast<std::streamsize>(file.size()));
}

Painted paintAll(TextureTool& tool, test::TestDocument& document) {
    Painted out;
    const std::int32_t w = document.width();
    const std::int32_t h = document.height();
    out.width = w;
    out.colour.assign(static_cast<std::size_t>(w) * h, ColourPOD{128, 128, 128});
    out.alpha.assign(static_cast<std::size_t>(w) * h, 1.0f);
    std::vector<ColourPOD> base(maxSpanLength, ColourPOD{128, 128, 128});
    std::vector<std::uint32_t> depth(maxSpanLength);
    for (std::int32_t y = 0; y < h; ++y) {
        for (std::int32_t x0 = 0; x0 < w; x0 += maxSpanLength) {
            const std::int32_t n = std::min(maxSpanLength, w - x0);
            for (std::int32_t i = 0; i < n; ++i) {
                depth[static_cast<std::size_t>(i)] = document.zAt(x0 + i, y);
            }
            const std::size_t at = static_cast<std::size_t>(y) * w + x0;
            Span span;
            span.document = &document;
            span.x = x0;
            span.y = y;
            span.length = n;
            span.colour = out.colour.data() + at;
            span.alpha = out.alpha.data() + at;
            span.baseColour = base.data();
            span.sourceColour = base.data();
            span.baseDepth = depth.data();
            tool.run(span, 0, n);
        }
    }
    return out;
}

} // namespace textest
