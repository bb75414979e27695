// Zmap file writing and reading of a 4096 x 4096 document with colour, depth and material
// (LZW with horizontal differencing; material not differenced), against libtiff writing
// and reading the same three images as 256 x 256-tiled TIFF files with the same
// compression, in the same run and on the same file system. Ours runs with a thread per
// processor, as the program does, and with one thread; libtiff codes on one. A table at
// the end gives the speeds in MB/s of raw pixel bytes, their ratios (ours / libtiff) and
// the file sizes.

#include "core/StringUtils.h"
#include "file/DummyZmapDocument.h"
#include "file/QuorvaleZmapFile.h"
#include "image/TileRowWriter.h"
#include "views/cameras/ViewProj.h"

#include "BenchSummary.h"

#include <benchmark/benchmark.h>
#include <tiffio.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

constexpr std::int32_t side = 4096;
constexpr std::uint32_t libtiffTile = 256;
using Bytes = std::vector<std::uint8_t>;

/// One image as libtiff is given it: its tiles, in order, each whole (zero-padded).
struct TiledImage {
    const char* name;
    std::uint16_t samples;
    std::uint16_t bits;
    bool predicted;
    std::vector<Bytes> tiles;
};

/// The scene: a room seen in perspective, with a floor, a back wall and a side wall,
/// shaded with depth, in blocks of materials, with a little noise: what a renderer makes.
struct Scene {
    std::unique_ptr<DummyZmapDocument> doc;
    std::vector<TiledImage> images; ///< colour, depth, material
    std::uint64_t rawBytes = 0;

    Scene();
};

/// Small deterministic noise (a linear congruential generator).
struct Lcg {
    std::uint32_t state = 12345;
    std::uint32_t next() {
        state = state * 69069 + 1;
        return state >> 16;
    }
};

Scene::Scene() : doc(std::make_unique<DummyZmapDocument>()) {
    if (doc->setSize(side, side) != status::ok) {
        std::abort();
    }
    doc->rgb = TQL::makeHandle<RgbBitmap>(*doc);
    if (doc->allocateChannels() != status::ok) {
        std::abort();
    }
    ViewParams view;
    view.eye = Point<3>(0, 0, 1.6);
    view.nearDepth = 0.5;
    view.farDepth = 100;
    doc->setViewParams(view);
    const ViewProj& vp = *doc->viewProj();
    struct Wall {
        Plane plane;
        ColourPOD colour;
        std::uint16_t material;
    };
    const Wall walls[] = {
        {Plane(Vector<3>(0, 0, 1), Point<3>(0, 0, 0)), {90, 140, 170}, 1},    // floor
        {Plane(Vector<3>(0, -1, 0), Point<3>(0, 12, 0)), {200, 190, 180}, 5}, // back wall
        {Plane(Vector<3>(-1, 0, 0), Point<3>(5, 0, 0)), {120, 170, 210}, 9},  // side wall
    };
    std::vector<std::uint8_t> rgb(std::size_t{side} * side * 3);
    std::vector<std::uint32_t> depth(std::size_t{side} * side);
    std::vector<std::uint16_t> material(std::size_t{side} * side);
    Lcg noise;
    TileRowWriter rgbWriter(*doc->rgb), zWriter(*doc->z), matWriter(*doc->mat);
    std::vector<ColourPOD> rgbRow(side);
    for (std::int32_t y = 0; y < side; ++y) {
        for (std::int32_t x = 0; x < side; ++x) {
            // The nearest wall along the pixel's ray; depth codes are affine along it.
            const double span = 2147483648.0;
            const Point<3> a = vp.worldFromPixel(x, y, 0);
            const Point<3> b = vp.worldFromPixel(x, y, static_cast<std::uint32_t>(span));
            double best = 1e300;
            const Wall* hit = nullptr;
            for (const Wall& w : walls) {
                const double da = w.plane.distanceTo(a);
                const double db = w.plane.distanceTo(b);
                const double c = da == db ? -1 : da / (da - db) * span;
                if (c >= 0 && c <= 4294967294.0 && c < best) {
                    best = c;
                    hit = &w;
                }
            }
            const std::size_t i = std::size_t(y) * side + std::size_t(x);
            ColourPOD c{230, 200, 160}; // sky
            if (hit) {
                depth[i] = static_cast<std::uint32_t>(std::lround(best));
                // Blocks of materials: tiles of the floor, panels of the walls.
                material[i] = static_cast<std::uint16_t>(hit->material + (x / 300 + y / 170) % 4);
                const double shade = 1.0 - 0.6 * best / 4294967294.0;
                c = ColourPOD{static_cast<std::uint8_t>(hit->colour.b * shade),
                              static_cast<std::uint8_t>(hit->colour.g * shade),
                              static_cast<std::uint8_t>(hit->colour.r * shade)};
            } else {
                depth[i] = ZBitmap::noDepth;
            }
            for (std::uint8_t* v : {&c.b, &c.g, &c.r}) {
                *v = static_cast<std::uint8_t>(
                    std::clamp(int(*v) + int(noise.next() % 5) - 2, 0, 255));
            }
            rgbRow[std::size_t(x)] = c;
            rgb[i * 3] = c.r;
            rgb[i * 3 + 1] = c.g;
            rgb[i * 3 + 2] = c.b;
        }
        rgbWriter.writeRow(0, y, reinterpret_cast<const std::uint8_t*>(rgbRow.data()), side);
        zWriter.writeRow(0, y, reinterpret_cast<const std::uint8_t*>(&depth[std::size_t(y) * side]),
                         side);
        matWriter.writeRow(
            0, y, reinterpret_cast<const std::uint8_t*>(&material[std::size_t(y) * side]), side);
    }
    doc->commitOriginals();
    doc->compression = 5;
    for (std::uint16_t id = 1; id <= 12; ++id) {
        doc->addMaterial(L"Material", ColourPOD{static_cast<std::uint8_t>(id * 20), 100, 50},
                         false);
    }

    const auto cut = [](const void* flat, std::size_t bytes, TiledImage image) {
        const auto* p = static_cast<const std::uint8_t*>(flat);
        const std::size_t row = std::size_t{libtiffTile} * bytes;
        for (std::uint32_t ty = 0; ty < side; ty += libtiffTile) {
            for (std::uint32_t tx = 0; tx < side; tx += libtiffTile) {
                Bytes tile(row * libtiffTile);
                for (std::uint32_t r = 0; r < libtiffTile; ++r) {
                    std::memcpy(&tile[r * row], p + ((std::size_t{ty} + r) * side + tx) * bytes,
                                row);
                }
                image.tiles.push_back(std::move(tile));
            }
        }
        return image;
    };
    images.push_back(cut(rgb.data(), 3, {"colour", 3, 8, true, {}}));
    images.push_back(cut(depth.data(), 4, {"depth", 1, 32, true, {}}));
    images.push_back(cut(material.data(), 2, {"material", 1, 16, false, {}}));
    rawBytes = std::uint64_t{side} * side * (3 + 4 + 2);
}

const Scene& scene() {
    static const Scene s;
    return s;
}

/// Where the files go: a directory of this run, removed at the end.
const std::string& directory() {
    static const std::string dir = [] {
        std::string d = (std::filesystem::temp_directory_path() / "quorvale-bench-XXXXXX").string();
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

std::uint64_t oursSize = 0;
std::uint64_t libtiffSize = 0;

void finish(benchmark::State& state, std::uint64_t fileBytes) {
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * scene().rawBytes));
    state.counters["file_bytes"] = static_cast<double>(fileBytes);
}

bool writeOurs(unsigned threads = 0) {
    QuorvaleZmapFile file;
    file.setThreads(threads);
    Status status = -1;
    file.write(status, *scene().doc, utf8(path("scene.zmp")));
    oursSize = std::filesystem::file_size(path("scene.zmp"));
    return status == status::ok;
}

/// The argument is the number of threads; 0 for one per processor.
void oursWrite(benchmark::State& state) {
    for (auto _ : state) {
        if (!writeOurs(static_cast<unsigned>(state.range(0)))) {
            state.SkipWithError("write failed");
            return;
        }
    }
    finish(state, oursSize);
}

void oursRead(benchmark::State& state) {
    const Scene& s = scene();
    if (oursSize == 0 && !writeOurs()) {
        state.SkipWithError("write failed");
        return;
    }
    for (auto _ : state) {
        DummyZmapDocument doc;
        QuorvaleZmapFile file;
        file.setThreads(static_cast<unsigned>(state.range(0)));
        Status status = -1;
        file.read(status, utf8(path("scene.zmp")), doc);
        if (status != status::ok || doc.zAt(1000, 3000) != s.doc->zAt(1000, 3000) ||
            doc.rgbAt(2000, 100) != s.doc->rgbAt(2000, 100)) {
            state.SkipWithError("read failed");
            return;
        }
    }
    finish(state, std::filesystem::file_size(path("scene.zmp")));
}

std::string libtiffName(const TiledImage& image) {
    return std::string("libtiff-") + image.name + ".tif";
}

/// A TIFF file for `image` in tiles of `tileSize`, LZW, differenced as ours are.
TIFF* createLibtiffFile(const std::string& file, const TiledImage& image, std::uint32_t tileSize) {
    TIFF* tif = TIFFOpen(file.c_str(), "w");
    TIFFSetField(tif, TIFFTAG_IMAGEWIDTH, side);
    TIFFSetField(tif, TIFFTAG_IMAGELENGTH, side);
    TIFFSetField(tif, TIFFTAG_TILEWIDTH, tileSize);
    TIFFSetField(tif, TIFFTAG_TILELENGTH, tileSize);
    TIFFSetField(tif, TIFFTAG_BITSPERSAMPLE, image.bits);
    TIFFSetField(tif, TIFFTAG_SAMPLESPERPIXEL, image.samples);
    TIFFSetField(tif, TIFFTAG_PHOTOMETRIC,
                 image.samples == 3 ? PHOTOMETRIC_RGB : PHOTOMETRIC_MINISBLACK);
    TIFFSetField(tif, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
    TIFFSetField(tif, TIFFTAG_COMPRESSION, COMPRESSION_LZW);
    TIFFSetField(tif, TIFFTAG_PREDICTOR, image.predicted ? PREDICTOR_HORIZONTAL : PREDICTOR_NONE);
    return tif;
}

void writeLibtiff() {
    for (const TiledImage& image : scene().images) {
        TIFF* tif = createLibtiffFile(path(libtiffName(image)), image, libtiffTile);
        for (std::size_t t = 0; t < image.tiles.size(); ++t) {
            // libtiff predicts in a copy of its own and leaves the caller's tile alone.
            TIFFWriteEncodedTile(tif, static_cast<std::uint32_t>(t),
                                 const_cast<std::uint8_t*>(image.tiles[t].data()),
                                 static_cast<tmsize_t>(image.tiles[t].size()));
        }
        TIFFClose(tif);
    }
    libtiffSize = 0;
    for (const TiledImage& image : scene().images) {
        libtiffSize += std::filesystem::file_size(path(libtiffName(image)));
    }
}

/// Sums of the tile byte counts of the first `directories` directories of a TIFF file.
std::vector<std::uint64_t> tileBytes(const std::string& file, int directories) {
    std::vector<std::uint64_t> sums;
    TIFF* tif = TIFFOpen(file.c_str(), "r");
    for (int d = 0; tif && d < directories && TIFFSetDirectory(tif, static_cast<tdir_t>(d)); ++d) {
        std::uint64_t* counts = nullptr;
        std::uint64_t sum = 0;
        if (TIFFGetField(tif, TIFFTAG_TILEBYTECOUNTS, &counts) && counts) {
            for (ttile_t t = 0; t < TIFFNumberOfTiles(tif); ++t) {
                sum += counts[t];
            }
        }
        sums.push_back(sum);
    }
    if (tif) {
        TIFFClose(tif);
    }
    return sums;
}

/// Compressed bytes of each image as libtiff stores it in tiles of the document's own size
/// (128 x 128 at this image size), to set our sizes beside libtiff's on equal tiles.
std::vector<std::uint64_t> libtiffBytesOnDocumentTiles() {
    const Scene& s = scene();
    const TileGeometry& g = s.doc->geometry();
    std::vector<std::uint64_t> sums;
    const TileBitmap* channels[] = {s.doc->rgb.get(), s.doc->z.get(), s.doc->mat.get()};
    for (std::size_t i = 0; i < s.images.size(); ++i) {
        const TiledImage& image = s.images[i];
        const std::string file = path("document-tiles.tif");
        TIFF* tif = createLibtiffFile(file, image, static_cast<std::uint32_t>(g.tileWidth));
        for (std::int32_t t = 0; t < g.tileCount(); ++t) {
            TileHandle hold;
            Bytes tile(
                static_cast<std::size_t>(channels[i]->tileForRead(t, hold) ? hold->size() : 0));
            if (hold) {
                std::memcpy(tile.data(), hold->pixels(), tile.size());
            }
            if (image.samples == 3) {
                for (std::size_t p = 0; p + 2 < tile.size(); p += 3) {
                    std::swap(tile[p], tile[p + 2]); // the store's blue, green, red
                }
            }
            TIFFWriteEncodedTile(tif, static_cast<std::uint32_t>(t), tile.data(),
                                 static_cast<tmsize_t>(tile.size()));
        }
        TIFFClose(tif);
        sums.push_back(tileBytes(file, 1)[0]);
    }
    return sums;
}

void libtiffWrite(benchmark::State& state) {
    for (auto _ : state) {
        writeLibtiff();
    }
    finish(state, libtiffSize);
}

void libtiffRead(benchmark::State& state) {
    const Scene& s = scene();
    if (libtiffSize == 0) {
        writeLibtiff();
    }
    bool same = true;
    for (auto _ : state) {
        // Every tile gets a buffer of its own, new and not cleared, as every tile of a
        // document read from a file does.
        std::vector<std::vector<std::unique_ptr<std::uint8_t[]>>> out(s.images.size());
        for (std::size_t i = 0; i < s.images.size(); ++i) {
            TIFF* tif = TIFFOpen(path(libtiffName(s.images[i])).c_str(), "r");
            if (!tif) {
                state.SkipWithError("no file to read");
                return;
            }
            const std::size_t size = s.images[i].tiles[0].size();
            for (std::size_t t = 0; t < s.images[i].tiles.size(); ++t) {
                out[i].emplace_back(new std::uint8_t[size]);
                TIFFReadEncodedTile(tif, static_cast<std::uint32_t>(t), out[i][t].get(),
                                    static_cast<tmsize_t>(size));
            }
            TIFFClose(tif);
        }
        state.PauseTiming();
        for (std::size_t i = 0; i < s.images.size() && same; ++i) {
            for (std::size_t t = 0; t < out[i].size() && same; t += 97) {
                same = std::memcmp(out[i][t].get(), s.images[i].tiles[t].data(),
                                   s.images[i].tiles[t].size()) == 0;
            }
        }
        state.ResumeTiming();
    }
    if (!same) {
        state.SkipWithError("libtiff read other pixels");
        return;
    }
    finish(state, libtiffSize);
}

} // namespace

int main(int argc, char** argv) {
    TIFFSetWarningHandler(nullptr);
    // Wall time: files are written and read, and the two run alike on a loaded machine.
    // Ours with a thread per processor (the program's way) and with one thread.
    using Run = void (*)(benchmark::State&);
    const std::pair<const char*, Run> runs[] = {
        {"write/ours", oursWrite}, {"write/ours-1", oursWrite}, {"write/libtiff", libtiffWrite},
        {"read/ours", oursRead},   {"read/ours-1", oursRead},   {"read/libtiff", libtiffRead}};
    for (const auto& [name, run] : runs) {
        benchmark::internal::Benchmark* b =
            benchmark::RegisterBenchmark(name, run)
                ->Unit(benchmark::kMillisecond)
                ->UseRealTime()
                ->MeasureProcessCPUTime(); // the helper threads' time counts too
        if (std::string(name).find("/ours") != std::string::npos) {
            b->Arg(std::string(name).ends_with("-1") ? 1 : 0)->ArgName("threads");
        }
    }
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    scene(); // made before any timing
    bench::SummaryReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();

    // Speeds by the clock, and by processor time of the whole process (user and system),
    // which a busy machine disturbs less but which adds up the time of every thread.
    // Ratios are ours / libtiff: above 1, ours is faster.
    const auto cpuSpeed = [&](const std::string& name) {
        const double seconds = reporter.cpuSeconds(name);
        return seconds > 0 ? double(scene().rawBytes) / seconds / 1e6 : 0.0;
    };
    std::printf("\n%-22s %10s %12s %14s %14s %14s %10s\n", "4096x4096", "ours MB/s", "libtiff MB/s",
                "ours/libtiff", "ours CPU MB/s", "libtiff CPU", "CPU ratio");
    for (const char* work : {"write", "read"}) {
        const std::string theirs = std::string(work) + "/libtiff/process_time/real_time";
        const std::pair<const char*, const char*> variants[] = {
            {"/ours/threads:0/process_time/real_time", "all processors"},
            {"/ours-1/threads:1/process_time/real_time", "1 thread"}};
        for (const auto& [run, label] : variants) {
            const std::string ours = std::string(work) + run;
            const double a = reporter.speed(ours);
            const double b = reporter.speed(theirs);
            const double c = cpuSpeed(ours);
            const double d = cpuSpeed(theirs);
            const std::string row = std::string(work) + ", " + label;
            std::printf("%-22s %10.1f %12.1f %14.2f %14.1f %14.1f %10.2f\n", row.c_str(), a, b,
                        b > 0 ? a / b : 0.0, c, d, d > 0 ? c / d : 0.0);
        }
    }
    std::printf("threads on all processors: %u\n",
                std::max(1u, std::thread::hardware_concurrency()));
    std::printf(
        "file bytes: ours %llu (one file, with thumbnail), libtiff %llu (three files), "
        "%+.2f%%\n",
        static_cast<unsigned long long>(oursSize), static_cast<unsigned long long>(libtiffSize),
        libtiffSize ? 100.0 * (double(oursSize) - double(libtiffSize)) / double(libtiffSize) : 0.0);
    // Where the sizes come from: the compressed tiles of each image.
    if (oursSize != 0 && libtiffSize != 0) {
        const std::vector<std::uint64_t> ours = tileBytes(path("scene.zmp"), 4);
        const std::vector<std::uint64_t> equalTiles = libtiffBytesOnDocumentTiles();
        std::printf("\n%-10s %14s %16s %18s\n", "tile bytes", "ours (128)", "libtiff (256)",
                    "libtiff (128)");
        for (std::size_t i = 0; i < scene().images.size(); ++i) {
            const TiledImage& image = scene().images[i];
            // Our directories: colour, thumbnail, depth, material.
            const std::uint64_t a = ours.size() == 4 ? ours[i == 0 ? 0 : i + 1] : 0;
            const std::uint64_t b = tileBytes(path(libtiffName(image)), 1)[0];
            std::printf("%-10s %14llu %16llu %18llu\n", image.name,
                        static_cast<unsigned long long>(a), static_cast<unsigned long long>(b),
                        static_cast<unsigned long long>(equalTiles[i]));
        }
    }
    std::filesystem::remove_all(directory());
    return 0;
}
