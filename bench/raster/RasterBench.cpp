// Raster import and export of a 4096 x 4096 rendered picture, beside the format libraries
// doing the same work in the same run:
//  - reading PNG, JPEG and TIFF files through RasterImport::read, beside libpng,
//    libjpeg-turbo and libtiff decoding the same file into one flat buffer;
//  - writing PNG, JPEG and TIFF through RasterExport from the document's tiles, beside the
//    library writing the same pixels from a flat buffer with the same settings;
//  - writing PSD (our own writer) beside a memcpy of the picture's bytes.
// A table at the end gives the speeds in MB/s of raw pixel bytes (3 a pixel) and the ratios
// ours / library (above 1, ours is faster), by the clock and by processor time.

#include "file/DummyZmapDocument.h"
#include "image/TileRowWriter.h"
#include "interchange/raster/RasterExport.h"
#include "interchange/raster/RasterImport.h"

#include "BenchSummary.h"

#include <benchmark/benchmark.h>
#include <jpeglib.h>
#include <png.h>
#include <tiffio.h>

#include <algorithm>
#include <cmath>
#include <csetjmp>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

constexpr std::int32_t side = 4096;
constexpr double resolution = 3780; // pixels a metre (96 dpi)
constexpr int jpegQuality = 90;
constexpr std::uint64_t pictureBytes = std::uint64_t{side} * side * 3;

/// Small deterministic noise (a linear congruential generator).
struct Lcg {
    std::uint32_t state = 12345;
    std::uint32_t next() {
        state = state * 69069 + 1;
        return state >> 16;
    }
};

/// The picture: a room seen in perspective (floor with tiles, ceiling, back and side
/// walls), shaded with distance, with a little noise: what a renderer makes. Held twice:
/// as a document's colour channel (what the exporters read) and as one flat buffer of red,
/// green, blue rows (what the libraries are given).
struct Scene {
    std::unique_ptr<DummyZmapDocument> doc;
    std::vector<std::uint8_t> rgb;

    Scene();
};

Scene::Scene() : doc(std::make_unique<DummyZmapDocument>()), rgb(pictureBytes) {
    if (doc->setSize(side, side) != status::ok) {
        std::abort();
    }
    doc->rgb = TQL::makeHandle<RgbBitmap>(*doc);
    if (doc->allocateChannels() != status::ok) {
        std::abort();
    }
    // A pinhole camera at eye height looking along +y with a 90 degree field of view.
    const double eyeZ = 1.6;
    const double focal = side / 2.0;
    Lcg noise;
    TileRowWriter writer(*doc->rgb);
    std::vector<std::uint8_t> bgr(std::size_t{side} * 3);
    for (std::int32_t y = 0; y < side; ++y) {
        std::uint8_t* out = &rgb[std::size_t(y) * side * 3];
        for (std::int32_t x = 0; x < side; ++x) {
            const double dx = (x + 0.5 - side / 2.0) / focal;
            const double dz = -(y + 0.5 - side / 2.0) / focal;
            // The nearest surface along the ray (eye + t * (dx, 1, dz)).
            double t = 12.0; // back wall, y = 12
            int surface = 0;
            if (dz < 0 && eyeZ / -dz < t) {
                t = eyeZ / -dz, surface = 1; // floor, z = 0
            }
            if (dz > 0 && (3.0 - eyeZ) / dz < t) {
                t = (3.0 - eyeZ) / dz, surface = 2; // ceiling, z = 3
            }
            if (dx > 0 && 5.0 / dx < t) {
                t = 5.0 / dx, surface = 3; // right wall, x = 5
            }
            if (dx < 0 && 4.0 / -dx < t) {
                t = 4.0 / -dx, surface = 4; // left wall, x = -4
            }
            static const double colours[5][3] = {
                {200, 190, 180}, {170, 140, 90}, {235, 235, 230}, {210, 170, 120}, {180, 200, 190}};
            double c[3] = {colours[surface][0], colours[surface][1], colours[surface][2]};
            if (surface == 1) {
                // Floor tiles of 60 cm with dark joints.
                const double u = t * dx + 100.0;
                const double v = t;
                const double fu = u / 0.6 - std::floor(u / 0.6);
                const double fv = v / 0.6 - std::floor(v / 0.6);
                const bool joint = fu < 0.02 || fv < 0.02;
                const bool odd = (int(u / 0.6) + int(v / 0.6)) % 2 != 0;
                const double k = joint ? 0.5 : odd ? 0.9 : 1.0;
                for (double& v2 : c) {
                    v2 *= k;
                }
            }
            const double distance = t * std::sqrt(dx * dx + 1 + dz * dz);
            const double shade = 1.0 - 0.6 * std::min(distance / 16.0, 1.0);
            for (int i = 0; i < 3; ++i) {
                const int v = int(c[i] * shade) + int(noise.next() % 5) - 2;
                out[x * 3 + i] = std::uint8_t(std::clamp(v, 0, 255));
            }
            bgr[std::size_t(x) * 3] = out[x * 3 + 2];
            bgr[std::size_t(x) * 3 + 1] = out[x * 3 + 1];
            bgr[std::size_t(x) * 3 + 2] = out[x * 3];
        }
        writer.writeRow(0, y, bgr.data(), side);
    }
    doc->commitOriginals();
}

const Scene& scene() {
    static const Scene s;
    return s;
}

/// Where the files go: a directory of this run, removed at the end.
const std::string& directory() {
    static const std::string dir = [] {
        std::string d =
            (std::filesystem::temp_directory_path() / "quorvale-raster-XXXXXX").string();
        if (!mkdtemp(d.data())) {
            std::abort();
        }
        return d;
    }();
    return dir;
}

std::string path(const std::string& name) {
    return directory() + "/" + name;
}

std::wstring widePath(const std::string& name) {
    const std::string p = path(name);
    return std::wstring(p.begin(), p.end());
}

// ---- The libraries writing the flat buffer ------------------------------------------------

struct PngJump {
    std::jmp_buf jump;
};
[[noreturn]] void pngError(png_structp png, png_const_charp) {
    std::longjmp(static_cast<PngJump*>(png_get_error_ptr(png))->jump, 1);
}
void pngWarning(png_structp, png_const_charp) {}

/// IHDR 8-bit RGB, no interlace, level 9, pHYs: what RasterExportPNG writes.
bool libpngWrite(const std::string& file) {
    std::FILE* f = std::fopen(file.c_str(), "wb");
    if (!f) {
        return false;
    }
    PngJump j;
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, &j, pngError, pngWarning);
    png_infop info = png_create_info_struct(png);
    bool ok = false;
    if (setjmp(j.jump) == 0) {
        png_init_io(png, f);
        png_set_compression_level(png, 9);
        png_set_IHDR(png, info, side, side, 8, PNG_COLOR_TYPE_RGB, PNG_INTERLACE_NONE,
                     PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
        png_set_pHYs(png, info, png_uint_32(resolution), png_uint_32(resolution),
                     PNG_RESOLUTION_METER);
        png_write_info(png, info);
        for (std::int32_t y = 0; y < side; ++y) {
            png_write_row(png, &scene().rgb[std::size_t(y) * side * 3]);
        }
        png_write_end(png, info);
        ok = true;
    }
    png_destroy_write_struct(&png, &info);
    return std::fclose(f) == 0 && ok;
}

/// Quality 90, 4:2:0, the accurate DCT, baseline, density in dots a centimetre: the
/// exporter's defaults.
bool libjpegWrite(const std::string& file) {
    std::FILE* f = std::fopen(file.c_str(), "wb");
    if (!f) {
        return false;
    }
    jpeg_compress_struct info;
    jpeg_error_mgr error;
    info.err = jpeg_std_error(&error);
    jpeg_create_compress(&info);
    jpeg_stdio_dest(&info, f);
    info.image_width = side;
    info.image_height = side;
    info.input_components = 3;
    info.in_color_space = JCS_RGB;
    jpeg_set_defaults(&info);
    jpeg_set_quality(&info, jpegQuality, TRUE);
    info.comp_info[0].h_samp_factor = 2;
    info.comp_info[0].v_samp_factor = 2;
    info.dct_method = JDCT_ISLOW;
    info.density_unit = 2;
    info.X_density = info.Y_density = UINT16(resolution / 100 + 0.5);
    jpeg_start_compress(&info, TRUE);
    while (info.next_scanline < info.image_height) {
        JSAMPROW row =
            const_cast<JSAMPROW>(&scene().rgb[std::size_t(info.next_scanline) * side * 3]);
        jpeg_write_scanlines(&info, &row, 1);
    }
    jpeg_finish_compress(&info);
    jpeg_destroy_compress(&info);
    return std::fclose(f) == 0;
}

/// LZW with horizontal differencing in strips of libtiff's default size: what
/// RasterExportTIF writes. Whole strips go straight from the flat buffer.
bool libtiffWrite(const std::string& file) {
    TIFF* tif = TIFFOpen(file.c_str(), "w");
    if (!tif) {
        return false;
    }
    TIFFSetField(tif, TIFFTAG_IMAGEWIDTH, side);
    TIFFSetField(tif, TIFFTAG_IMAGELENGTH, side);
    TIFFSetField(tif, TIFFTAG_BITSPERSAMPLE, 8);
    TIFFSetField(tif, TIFFTAG_SAMPLESPERPIXEL, 3);
    TIFFSetField(tif, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_RGB);
    TIFFSetField(tif, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
    TIFFSetField(tif, TIFFTAG_ORIENTATION, ORIENTATION_TOPLEFT);
    TIFFSetField(tif, TIFFTAG_COMPRESSION, COMPRESSION_LZW);
    TIFFSetField(tif, TIFFTAG_PREDICTOR, PREDICTOR_HORIZONTAL);
    const std::uint32_t stripRows = TIFFDefaultStripSize(tif, 0);
    TIFFSetField(tif, TIFFTAG_ROWSPERSTRIP, stripRows);
    TIFFSetField(tif, TIFFTAG_RESOLUTIONUNIT, RESUNIT_CENTIMETER);
    TIFFSetField(tif, TIFFTAG_XRESOLUTION, float(resolution / 100));
    TIFFSetField(tif, TIFFTAG_YRESOLUTION, float(resolution / 100));
    bool ok = true;
    for (std::uint32_t top = 0, strip = 0; top < std::uint32_t(side) && ok;
         top += stripRows, ++strip) {
        const std::uint32_t rows = std::min<std::uint32_t>(stripRows, side - top);
        // libtiff predicts in a copy of its own and leaves the caller's rows alone.
        ok = TIFFWriteEncodedStrip(
                 tif, strip, const_cast<std::uint8_t*>(&scene().rgb[std::size_t(top) * side * 3]),
                 tmsize_t(std::size_t(rows) * side * 3)) >= 0;
    }
    ok = TIFFWriteDirectory(tif) && ok;
    TIFFClose(tif);
    return ok;
}

// ---- The libraries reading a file into a flat buffer -------------------------------------

bool libpngRead(const std::string& file, std::vector<std::uint8_t>& out) {
    std::FILE* f = std::fopen(file.c_str(), "rb");
    if (!f) {
        return false;
    }
    PngJump j;
    png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, &j, pngError, pngWarning);
    png_infop info = png_create_info_struct(png);
    std::vector<png_bytep> rows;
    bool ok = false;
    if (setjmp(j.jump) == 0) {
        png_init_io(png, f);
        png_read_info(png, info);
        const png_uint_32 w = png_get_image_width(png, info);
        const png_uint_32 h = png_get_image_height(png, info);
        out.resize(std::size_t(w) * h * 3);
        rows.resize(h);
        for (png_uint_32 y = 0; y < h; ++y) {
            rows[y] = &out[std::size_t(y) * w * 3];
        }
        png_read_image(png, rows.data());
        png_read_end(png, nullptr);
        ok = true;
    }
    png_destroy_read_struct(&png, &info, nullptr);
    std::fclose(f);
    return ok;
}

bool libjpegRead(const std::string& file, std::vector<std::uint8_t>& out) {
    std::FILE* f = std::fopen(file.c_str(), "rb");
    if (!f) {
        return false;
    }
    jpeg_decompress_struct info;
    jpeg_error_mgr error;
    info.err = jpeg_std_error(&error);
    jpeg_create_decompress(&info);
    jpeg_stdio_src(&info, f);
    jpeg_read_header(&info, TRUE);
    info.out_color_space = JCS_RGB;
    jpeg_start_decompress(&info);
    const std::size_t stride = std::size_t(info.output_width) * 3;
    out.resize(stride * info.output_height);
    while (info.output_scanline < info.output_height) {
        JSAMPROW row = &out[stride * info.output_scanline];
        jpeg_read_scanlines(&info, &row, 1);
    }
    jpeg_finish_decompress(&info);
    jpeg_destroy_decompress(&info);
    std::fclose(f);
    return true;
}

bool libtiffRead(const std::string& file, std::vector<std::uint8_t>& out) {
    TIFF* tif = TIFFOpen(file.c_str(), "r");
    if (!tif) {
        return false;
    }
    std::uint32_t w = 0;
    std::uint32_t h = 0;
    std::uint32_t stripRows = 0;
    TIFFGetField(tif, TIFFTAG_IMAGEWIDTH, &w);
    TIFFGetField(tif, TIFFTAG_IMAGELENGTH, &h);
    TIFFGetFieldDefaulted(tif, TIFFTAG_ROWSPERSTRIP, &stripRows);
    out.resize(std::size_t(w) * h * 3);
    bool ok = stripRows > 0;
    for (std::uint32_t top = 0; top < h && ok; top += stripRows) {
        const std::uint32_t rows = std::min(stripRows, h - top);
        ok =
            TIFFReadEncodedStrip(tif, TIFFComputeStrip(tif, top, 0), &out[std::size_t(top) * w * 3],
                                 tmsize_t(std::size_t(rows) * w * 3)) >= 0;
    }
    TIFFClose(tif);
    return ok;
}

// ---- The runs --------------------------------------------------------------------------

struct Format {
    const char* name;
    const char* extension;
    bool (*libraryWrite)(const std::string&);
    bool (*libraryRead)(const std::string&, std::vector<std::uint8_t>&);
    bool lossless;
};

const Format formats[] = {
    {"png", ".png", libpngWrite, libpngRead, true},
    {"jpeg", ".jpg", libjpegWrite, libjpegRead, false},
    {"tiff", ".tif", libtiffWrite, libtiffRead, true},
};

std::string libraryFile(const Format& f) {
    return std::string("library") + f.extension;
}

void finish(benchmark::State& state, const std::string& file) {
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * pictureBytes));
    std::error_code error;
    state.counters["file_bytes"] = static_cast<double>(std::filesystem::file_size(file, error));
}

void libraryWriteRun(benchmark::State& state, const Format& f) {
    for (auto _ : state) {
        if (!f.libraryWrite(path(libraryFile(f)))) {
            state.SkipWithError("the library's write failed");
            return;
        }
    }
    finish(state, path(libraryFile(f)));
}

void oursWriteRun(benchmark::State& state, const std::string& extension) {
    const Scene& s = scene();
    const std::string file = std::string("ours") + extension;
    const ExportOptions options; // quality 90, 4:2:0, accurate DCT; PSD in PackBits
    for (auto _ : state) {
        TQL::Handle<RasterExport> exporter = RasterExport::create(widePath(file));
        if (!exporter || exporter->write(*s.doc, s.doc->geometry().bounds(), resolution, resolution,
                                         options) != status::ok) {
            state.SkipWithError("export failed");
            return;
        }
    }
    finish(state, path(file));
}

/// Our pixels must be the library's, blue, green, red for red, green, blue.
bool samePixels(const Raster& ours, const std::vector<std::uint8_t>& rgb) {
    if (ours.width != side || ours.height != side || rgb.size() != pictureBytes) {
        return false;
    }
    for (std::size_t i = 0; i < pictureBytes; i += 3) {
        if (ours.colour[i] != rgb[i + 2] || ours.colour[i + 1] != rgb[i + 1] ||
            ours.colour[i + 2] != rgb[i]) {
            return false;
        }
    }
    return true;
}

bool ensureLibraryFile(const Format& f) {
    return std::filesystem::exists(path(libraryFile(f))) || f.libraryWrite(path(libraryFile(f)));
}

void libraryReadRun(benchmark::State& state, const Format& f) {
    if (!ensureLibraryFile(f)) {
        state.SkipWithError("no file to read");
        return;
    }
    std::vector<std::uint8_t> out;
    for (auto _ : state) {
        // A fresh buffer each time, as a reader gives a fresh raster.
        std::vector<std::uint8_t>().swap(out);
        if (!f.libraryRead(path(libraryFile(f)), out)) {
            state.SkipWithError("the library's read failed");
            return;
        }
    }
    if (f.lossless && out != scene().rgb) {
        state.SkipWithError("the library read other pixels");
        return;
    }
    finish(state, path(libraryFile(f)));
}

void oursReadRun(benchmark::State& state, const Format& f) {
    if (!ensureLibraryFile(f)) {
        state.SkipWithError("no file to read");
        return;
    }
    TQL::Handle<Raster> raster;
    for (auto _ : state) {
        raster.reset();
        RasterImport import;
        if (import.read(widePath(libraryFile(f))) != status::ok) {
            state.SkipWithError("import failed");
            return;
        }
        raster = import.raster();
    }
    // The same pixels as the library decodes (for JPEG: the same decoder's output).
    std::vector<std::uint8_t> reference;
    if (!f.libraryRead(path(libraryFile(f)), reference) || !samePixels(*raster, reference)) {
        state.SkipWithError("import read other pixels than the library");
        return;
    }
    finish(state, path(libraryFile(f)));
}

void memcpyRun(benchmark::State& state) {
    // The target is touched before timing: this is the cost of moving the bytes alone.
    std::vector<std::uint8_t> target(pictureBytes, 1);
    for (auto _ : state) {
        std::memcpy(target.data(), scene().rgb.data(), pictureBytes);
        benchmark::DoNotOptimize(target.data());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * pictureBytes));
}

} // namespace

int main(int argc, char** argv) {
    TIFFSetWarningHandler(nullptr);
    const auto add = [](const std::string& name, auto run) {
        benchmark::RegisterBenchmark(name.c_str(), run)
            ->Unit(benchmark::kMillisecond)
            ->UseRealTime()
            ->MeasureProcessCPUTime();
    };
    for (const Format& f : formats) {
        const std::string library = f.libraryWrite == libpngWrite    ? "libpng"
                                    : f.libraryWrite == libjpegWrite ? "libjpeg"
                                                                     : "libtiff";
        add(std::string("read/") + f.name + "/ours",
            [&f](benchmark::State& state) { oursReadRun(state, f); });
        add(std::string("read/") + f.name + "/" + library,
            [&f](benchmark::State& state) { libraryReadRun(state, f); });
    }
    for (const Format& f : formats) {
        const std::string library = f.libraryWrite == libpngWrite    ? "libpng"
                                    : f.libraryWrite == libjpegWrite ? "libjpeg"
                                                                     : "libtiff";
        add(std::string("write/") + f.name + "/ours",
            [&f](benchmark::State& state) { oursWriteRun(state, f.extension); });
        add(std::string("write/") + f.name + "/" + library,
            [&f](benchmark::State& state) { libraryWriteRun(state, f); });
    }
    add("write/psd/ours", [](benchmark::State& state) { oursWriteRun(state, ".psd"); });
    add("write/psd/memcpy", memcpyRun);

    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    scene(); // made before any timing
    bench::SummaryReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();

    const auto cpuSpeed = [&](const std::string& name) {
        const double seconds = reporter.cpuSeconds(name);
        return seconds > 0 ? double(pictureBytes) / seconds / 1e6 : 0.0;
    };
    const char* const suffix = "/process_time/real_time";
    std::printf("\n%-12s %-9s %10s %12s %10s %12s %14s %10s\n", "4096x4096", "anchor", "ours MB/s",
                "anchor MB/s", "ratio", "ours CPU MB/s", "anchor CPU MB/s", "CPU ratio");
    const std::pair<const char*, const char*> rows[] = {
        {"read/png", "libpng"},  {"read/jpeg", "libjpeg"},  {"read/tiff", "libtiff"},
        {"write/png", "libpng"}, {"write/jpeg", "libjpeg"}, {"write/tiff", "libtiff"},
        {"write/psd", "memcpy"}};
    for (const auto& [work, anchor] : rows) {
        const std::string ours = std::string(work) + "/ours" + suffix;
        const std::string theirs = std::string(work) + "/" + anchor + suffix;
        const double a = reporter.speed(ours);
        const double b = reporter.speed(theirs);
        const double c = cpuSpeed(ours);
        const double d = cpuSpeed(theirs);
        std::printf("%-12s %-9s %10.1f %12.1f %10.2f %12.1f %14.1f %10.2f\n", work, anchor, a, b,
                    b > 0 ? a / b : 0.0, c, d, d > 0 ? c / d : 0.0);
    }
    std::filesystem::remove_all(directory());
    return 0;
}
