#include "interchange/raster/RasterExport.h"

#include "core/StringUtils.h"

#include <algorithm>
#include <csetjmp>
#include <jpeglib.h>

namespace {

struct JpegWriteError {
    jpeg_error_mgr manager;
    std::jmp_buf jump;
    char message[JMSG_LENGTH_MAX];
};

void onError(j_common_ptr info) {
    auto* e = reinterpret_cast<JpegWriteError*>(info->err);
    (*info->err->format_message)(info, e->message);
    std::longjmp(e->jump, 1);
}

} // namespace

/// The work between setjmp and the end; holds nothing with a destructor, since a libjpeg
/// error leaves it by longjmp.
struct RasterExportJPEG::Job {
    RasterExportJPEG* self;
    jpeg_compress_struct* info;
    std::FILE* file;
    Rows* rows;
    const ExportOptions* options;
    double resolutionX;
    double resolutionY;
    Status result;
};

[[gnu::noinline]] void RasterExportJPEG::body(Job& j) {
    jpeg_compress_struct& info = *j.info;
    const ExportOptions& options = *j.options;
    jpeg_stdio_dest(&info, j.file);
    info.image_width = JDIMENSION(j.rows->width());
    info.image_height = JDIMENSION(j.rows->height());
    info.input_components = 3;
    info.in_color_space = JCS_EXT_BGR;
    jpeg_set_defaults(&info);
    jpeg_set_quality(&info, std::clamp(options.quality, 0, 100), TRUE);
    // Chroma sampling: code 1 none (4:4:4), 3 across only (4:2:2), 2 both ways (4:2:0).
    info.comp_info[0].h_samp_factor = options.sampling == 1 ? 1 : 2;
    info.comp_info[0].v_samp_factor = options.sampling == 2 ? 2 : 1;
    if (options.progressive) {
        jpeg_simple_progression(&info);
    }
    info.optimize_coding = options.optimiseCoding ? TRUE : FALSE;
    info.dct_method = options.accurateDct ? JDCT_ISLOW : JDCT_IFAST;
    // JFIF density in dots per centimetre.
    info.density_unit = 2;
    info.X_density = UINT16(std::clamp(j.resolutionX / 100 + 0.5, 1.0, 65535.0));
    info.Y_density = UINT16(std::clamp(j.resolutionY / 100 + 0.5, 1.0, 65535.0));
    jpeg_start_compress(&info, TRUE);
    const std::int32_t h = j.rows->height();
    for (std::int32_t y = 0; y < h; ++y) {
        if (j.self->reportRow(options, y, h)) {
            j.result = status::stopped;
            return;
        }
        JSAMPROW row = const_cast<JSAMPROW>(j.rows->row(y));
        jpeg_write_scanlines(&info, &row, 1);
    }
    jpeg_finish_compress(&info);
}

namespace {
bool runGuarded(RasterExportJPEG::Job& j, JpegWriteError& error,
                void (*body)(RasterExportJPEG::Job&)) {
    if (setjmp(error.jump) != 0) {
        return false;
    }
    body(j);
    return true;
}
} // namespace

Status RasterExportJPEG::writeFile(std::FILE* file, const std::string&, Rows& rows,
                                   double resolutionX, double resolutionY,
                                   const ExportOptions& options) {
    jpeg_compress_struct info;
    JpegWriteError error{};
    info.err = jpeg_std_error(&error.manager);
    error.manager.error_exit = onError;
    jpeg_create_compress(&info);
    Job job{this, &info, file, &rows, &options, resolutionX, resolutionY, status::ok};
    if (!runGuarded(job, error, &RasterExportJPEG::body)) {
        job.result = status::damaged;
        errorText_ = getWCS(error.message);
    }
    jpeg_destroy_compress(&info);
    if (job.result == status::ok && std::ferror(file)) {
        job.result = status::writeFailed;
    }
    return job.result;
}
