#include "interchange/raster/RasterExport.h"

#include "core/StringUtils.h"

#include <csetjmp>
#include <png.h>

namespace {

struct PngWriteContext {
    std::jmp_buf jump;
    std::string message;
};

void onError(png_structp png, png_const_charp message) {
    auto* c = static_cast<PngWriteContext*>(png_get_error_ptr(png));
    c->message = message;
    std::longjmp(c->jump, 1);
}
void onWarning(png_structp, png_const_charp) {}

} // namespace

/// The work between setjmp and the end; holds nothing with a destructor, since a libpng
/// error leaves it by longjmp.
struct RasterExportPNG::Job {
    RasterExportPNG* self;
    png_structp png;
    png_infop info;
    std::FILE* file;
    Rows* rows;
    const ExportOptions* options;
    png_text* chunks;
    int count;
    double resolutionX;
    double resolutionY;
    Status result;
};

[[gnu::noinline]] void RasterExportPNG::body(Job& j) {
    png_init_io(j.png, j.file);
    png_set_compression_level(j.png, 9);
    const auto w = static_cast<png_uint_32>(j.rows->width());
    const auto h = static_cast<png_uint_32>(j.rows->height());
    png_set_IHDR(j.png, j.info, w, h, 8, PNG_COLOR_TYPE_RGB, PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    if (j.count > 0) {
        png_set_text(j.png, j.info, j.chunks, j.count);
    }
    png_set_pHYs(j.png, j.info, png_uint_32(j.resolutionX + 0.5), png_uint_32(j.resolutionY + 0.5),
                 PNG_RESOLUTION_METER);
    png_write_info(j.png, j.info);
    png_set_bgr(j.png);
    for (png_uint_32 y = 0; y < h; ++y) {
        if (j.self->reportRow(*j.options, std::int32_t(y), std::int32_t(h))) {
            j.result = status::stopped;
            return;
        }
        png_write_row(j.png, const_cast<png_bytep>(j.rows->row(std::int32_t(y))));
    }
    png_write_end(j.png, j.info);
}

namespace {
bool runGuarded(RasterExportPNG::Job& j, PngWriteContext& context,
                void (*body)(RasterExportPNG::Job&)) {
    if (setjmp(context.jump) != 0) {
        return false;
    }
    body(j);
    return true;
}
} // namespace

Status RasterExportPNG::writeFile(std::FILE* file, const std::string&, Rows& rows,
                                  double resolutionX, double resolutionY,
                                  const ExportOptions& options) {
    PngWriteContext context;
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, &context, onError, onWarning);
    png_infop info = png ? png_create_info_struct(png) : nullptr;
    if (!info) {
        png_destroy_write_struct(&png, nullptr);
        return status::outOfMemory;
    }
    const std::string texts[3] = {utf8(options.title), utf8(options.author),
                                  utf8(options.copyright)};
    const char* const keys[3] = {"Title", "Author", "Copyright"};
    png_text chunks[3];
    int count = 0;
    for (int i = 0; i < 3; ++i) {
        if (!texts[i].empty()) {
            chunks[count] = png_text{};
            chunks[count].compression = PNG_TEXT_COMPRESSION_NONE;
            chunks[count].key = const_cast<char*>(keys[i]);
            chunks[count].text = const_cast<char*>(texts[i].c_str());
            chunks[count].text_length = texts[i].size();
            ++count;
        }
    }
    Job job{this,   png,   info,        file,        &rows,     &options,
            chunks, count, resolutionX, resolutionY, status::ok};
    if (!runGuarded(job, context, &RasterExportPNG::body)) {
        job.result = status::damaged;
        errorText_ = getWCS(context.message);
    }
    png_destroy_write_struct(&png, &info);
    if (job.result == status::ok && std::ferror(file)) {
        job.result = status::writeFailed;
    }
    return job.result;
}
