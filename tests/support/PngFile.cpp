#include "support/PngFile.h"

#include <png.h>

#include <cstring>

namespace test {

bool readPng(const std::string& path, PngImage& image, std::string& error) {
    png_image png;
    std::memset(&png, 0, sizeof png);
    png.version = PNG_IMAGE_VERSION;
    if (!png_image_begin_read_from_file(&png, path.c_str())) {
        error = png.message;
        return false;
    }
    png.format = PNG_FORMAT_RGB;
    image.width = png.width;
    image.height = png.height;
    image.rgb.assign(PNG_IMAGE_SIZE(png), 0);
    if (!png_image_finish_read(&png, nullptr, image.rgb.data(), 0, nullptr)) {
        error = png.message;
        png_image_free(&png);
        return false;
    }
    return true;
}

} // namespace test
