#include "interchange/raster/ZmapRasterReader.h"

#include "file/DummyZmapDocument.h"
#include "file/QuorvaleZmapFile.h"
#include "interchange/raster/Raster.h"

#include <cstring>

Status ZmapRasterReader::read(const std::wstring& path, Raster& raster, std::wstring& error) {
    raster.clear();
    DummyZmapDocument document;
    QuorvaleZmapFile file;
    // A document no larger than a raster can hold: three bytes a colour pixel.
    file.setMaxPixels(maxRasterBytes() / 3);
    Status s = status::ok;
    file.read(s, path, document);
    if (s != status::ok && s != status::warning) {
        error = statusText(s);
        return s;
    }
    if (!document.rgb) {
        error = L"The Zmap file holds no colour image";
        return status::damaged;
    }
    if (const Status a = raster.allocate(document.width(), document.height(), false, error);
        a != status::ok) {
        return a;
    }
    const TileBitmap& rgb = *document.rgb;
    for (std::int32_t y = 0; y < raster.height; ++y) {
        std::uint8_t* out = raster.row(y);
        for (std::int32_t x = 0; x < raster.width;) {
            TileHandle hold;
            const std::uint8_t* run = nullptr;
            std::int32_t count = rgb.runForRead(x, y, hold, &run);
            if (count == 0) {
                // An empty tile: the rest of its row is black, as the raster already is.
                const TileGeometry& g = rgb.geometry();
                count = std::min(g.width - x, g.tileWidth - (x & g.xMask));
            } else {
                std::memcpy(out + std::size_t(x) * 3, run, std::size_t(count) * 3);
            }
            x += count;
        }
    }
    return status::ok;
}
