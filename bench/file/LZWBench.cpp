// Zmap tile codec against libtiff on the same 256 x 256 tiles, in the same run: encode
// (predictor, then LZW) and decode (LZW, then predictor), with libtiff working on an
// in-memory TIFF through TIFFClientOpen. A table at the end gives both speeds, their
// ratio and the compressed sizes.

#include "file/ImageErrorReporter.h"
#include "file/ZmapLZWDecoder.h"
#include "file/ZmapLZWEncoder.h"
#include "file/ZmapPredictor.h"

#include "BenchSummary.h"

#include <benchmark/benchmark.h>
#include <tiffio.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <map>
#include <string>
#include <vector>

namespace {

constexpr std::uint32_t tileSize = 256;

using Bytes = std::vector<std::uint8_t>;

/// One tile of realistic content and how it is stored.
struct BenchTile {
    std::string name;
    FilePixelType type;
    std::uint16_t samples;
    std::uint16_t bitsPerSample;
    bool predicted; // Zmap files never predict material ids
    Bytes pixels;

    std::size_t size() const { return pixels.size(); }
};

/// Small deterministic noise (a linear congruential generator).
struct Lcg {
    std::uint32_t state = 12345;
    std::uint32_t next() {
        state = state * 69069 + 1;
        return state >> 16;
    }
};

template <class T> void put(Bytes& out, std::size_t index, T value) {
    std::memcpy(&out[index * sizeof(T)], &value, sizeof(T));
}

/// Colour: a smooth shading in each channel, with a little noise.
BenchTile colourTile() {
    BenchTile t{"colour", FilePixelType::rgb24, 3, 8, true, Bytes(tileSize * tileSize * 3)};
    Lcg noise;
    for (std::uint32_t y = 0; y < tileSize; ++y) {
        for (std::uint32_t x = 0; x < tileSize; ++x) {
            const std::size_t p = (std::size_t{y} * tileSize + x) * 3;
            const double base[3] = {40 + 0.6 * x + 0.1 * y, 90 + 0.3 * y + 20 * std::sin(0.02 * x),
                                    200 - 0.25 * x - 0.2 * y};
            for (int s = 0; s < 3; ++s) {
                const int v = static_cast<int>(base[s]) + static_cast<int>(noise.next() % 5) - 2;
                t.pixels[p + static_cast<std::size_t>(s)] =
                    static_cast<std::uint8_t>(std::clamp(v, 0, 255));
            }
        }
    }
    return t;
}

/// Depth: the codes of a floor plane in perspective. 1/z is linear across the screen and
/// the code is linear in z between the near (0) and far (4294967294) depths.
BenchTile depthTile() {
    BenchTile t{"depth", FilePixelType::depth32, 1, 32, true, Bytes(tileSize * tileSize * 4)};
    const double nearZ = 1, farZ = 200;
    for (std::uint32_t y = 0; y < tileSize; ++y) {
        for (std::uint32_t x = 0; x < tileSize; ++x) {
            const double z = 1.0 / (0.004 + 0.00015 * y + 0.00002 * x);
            const double code = (z - nearZ) / (farZ - nearZ) * 4294967294.0;
            put<std::uint32_t>(t.pixels, std::size_t{y} * tileSize + x,
                               static_cast<std::uint32_t>(std::clamp(code, 0.0, 4294967294.0)));
        }
    }
    return t;
}

/// Material: 16-bit ids in blocks, like the walls, floor and furniture of a scene.
BenchTile materialTile() {
    BenchTile t{"material", FilePixelType::index16, 1, 16, false, Bytes(tileSize * tileSize * 2)};
    for (std::uint32_t y = 0; y < tileSize; ++y) {
        for (std::uint32_t x = 0; x < tileSize; ++x) {
            std::uint16_t id = static_cast<std::uint16_t>(1 + (x / 37 + 3 * (y / 23)) % 12);
            if (y > 180 && x + y / 2 > 200) {
                id = 14; // a slanted floor edge
            }
            put<std::uint16_t>(t.pixels, std::size_t{y} * tileSize + x, id);
        }
    }
    return t;
}

const std::vector<BenchTile>& tiles() {
    static const std::vector<BenchTile> all{colourTile(), depthTile(), materialTile()};
    return all;
}

/// Compressed sizes, by tile name, for the summary.
std::map<std::string, std::size_t> oursSize, libtiffSize;

// --- libtiff on a memory buffer ---------------------------------------------------------

struct MemoryFile {
    Bytes data;
    toff_t pos = 0;
};

tmsize_t memRead(thandle_t h, void* buf, tmsize_t size) {
    auto* f = static_cast<MemoryFile*>(h);
    const auto n = static_cast<tmsize_t>(std::min<toff_t>(
        static_cast<toff_t>(size), f->pos < f->data.size() ? f->data.size() - f->pos : 0));
    std::memcpy(buf, f->data.data() + f->pos, static_cast<std::size_t>(n));
    f->pos += static_cast<toff_t>(n);
    return n;
}

tmsize_t memWrite(thandle_t h, void* buf, tmsize_t size) {
    auto* f = static_cast<MemoryFile*>(h);
    const auto end = f->pos + static_cast<toff_t>(size);
    if (end > f->data.size()) {
        f->data.resize(end);
    }
    std::memcpy(f->data.data() + f->pos, buf, static_cast<std::size_t>(size));
    f->pos = end;
    return size;
}

toff_t memSeek(thandle_t h, toff_t off, int whence) {
    auto* f = static_cast<MemoryFile*>(h);
    const toff_t base = whence == SEEK_SET ? 0 : whence == SEEK_CUR ? f->pos : f->data.size();
    f->pos = base + off;
    return f->pos;
}

int memClose(thandle_t) {
    return 0;
}

toff_t memSize(thandle_t h) {
    return static_cast<MemoryFile*>(h)->data.size();
}

/// Reading maps the buffer, so libtiff decodes straight from it as we do.
int memMap(thandle_t h, void** base, toff_t* size) {
    auto* f = static_cast<MemoryFile*>(h);
    *base = f->data.data();
    *size = f->data.size();
    return 1;
}

void memUnmap(thandle_t, void*, toff_t) {}

TIFF* openMemory(MemoryFile& file, const char* mode) {
    file.pos = 0;
    return TIFFClientOpen("memory", mode, &file, memRead, memWrite, memSeek, memClose, memSize,
                          memMap, memUnmap);
}

void setTileFields(TIFF* tif, const BenchTile& t) {
    TIFFSetField(tif, TIFFTAG_IMAGEWIDTH, tileSize);
    TIFFSetField(tif, TIFFTAG_IMAGELENGTH, tileSize);
    TIFFSetField(tif, TIFFTAG_TILEWIDTH, tileSize);
    TIFFSetField(tif, TIFFTAG_TILELENGTH, tileSize);
    TIFFSetField(tif, TIFFTAG_BITSPERSAMPLE, t.bitsPerSample);
    TIFFSetField(tif, TIFFTAG_SAMPLESPERPIXEL, t.samples);
    TIFFSetField(tif, TIFFTAG_SAMPLEFORMAT, SAMPLEFORMAT_UINT);
    TIFFSetField(tif, TIFFTAG_PHOTOMETRIC,
                 t.samples == 3 ? PHOTOMETRIC_RGB : PHOTOMETRIC_MINISBLACK);
    TIFFSetField(tif, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
    TIFFSetField(tif, TIFFTAG_COMPRESSION, COMPRESSION_LZW);
    TIFFSetField(tif, TIFFTAG_PREDICTOR, t.predicted ? PREDICTOR_HORIZONTAL : PREDICTOR_NONE);
}

/// A one-tile TIFF in memory holding `t` as libtiff compresses it.
MemoryFile libtiffFile(const BenchTile& t) {
    MemoryFile file;
    TIFF* tif = openMemory(file, "w");
    setTileFields(tif, t);
    Bytes copy = t.pixels;
    TIFFWriteEncodedTile(tif, 0, copy.data(), static_cast<tmsize_t>(copy.size()));
    TIFFClose(tif);
    return file;
}

/// The byte count of the one tile of a TIFF in memory.
std::size_t compressedTileSize(MemoryFile& file) {
    TIFF* in = openMemory(file, "r");
    std::uint64_t* counts = nullptr;
    const bool found = TIFFGetField(in, TIFFTAG_TILEBYTECOUNTS, &counts) == 1 && counts;
    const std::size_t size = found ? static_cast<std::size_t>(counts[0]) : 0;
    TIFFClose(in);
    return size;
}

// --- The benchmarks ---------------------------------------------------------------------

/// Tile pixels in a buffer aligned for the predictor's 32-bit samples.
struct WorkBuffer {
    explicit WorkBuffer(std::size_t bytes) : words((bytes + 3) / 4) {}
    std::uint8_t* data() { return reinterpret_cast<std::uint8_t*>(words.data()); }
    std::vector<std::uint32_t> words;
};

void finishRun(benchmark::State& state, const BenchTile& t, std::size_t compressed) {
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * t.size()));
    state.counters["packed"] = static_cast<double>(compressed);
}

/// What the writer does with a tile: it builds the tile in a buffer of its own, where
/// the predictor works, then compresses it.
void encodeTile(ZmapEncoder& encoder, const ZmapPredictor& predictor, WorkBuffer& work,
                const BenchTile& t) {
    const auto size = static_cast<std::uint32_t>(t.size());
    std::memcpy(work.data(), t.pixels.data(), t.size());
    predictor.encodeRows(work.data(), tileSize, tileSize);
    encoder.start(size);
    encoder.encode(work.data(), size);
    encoder.finish();
}

void oursEncode(benchmark::State& state, const BenchTile& t) {
    RecordingErrorReporter reporter;
    Status status = 0;
    auto encoder = ZmapLZWEncoder::create(status, reporter);
    const auto predictor = makePredictor(t.type, false);
    WorkBuffer work(t.size());
    for (auto _ : state) {
        encodeTile(*encoder, *predictor, work, t);
        benchmark::DoNotOptimize(encoder->encodedData());
    }
    oursSize[t.name] = encoder->encodedSize();
    finishRun(state, t, encoder->encodedSize());
}

void libtiffEncode(benchmark::State& state, const BenchTile& t) {
    MemoryFile file;
    TIFF* tif = openMemory(file, "w");
    setTileFields(tif, t);
    Bytes pixels = t.pixels;
    for (auto _ : state) {
        // The same tile over and over: libtiff rewrites it in place, as it fits.
        TIFFWriteEncodedTile(tif, 0, pixels.data(), static_cast<tmsize_t>(pixels.size()));
    }
    TIFFClose(tif);
    libtiffSize[t.name] = compressedTileSize(file);
    if (pixels != t.pixels) {
        state.SkipWithError("libtiff changed the caller's pixels");
    }
    finishRun(state, t, libtiffSize[t.name]);
}

void oursDecode(benchmark::State& state, const BenchTile& t) {
    RecordingErrorReporter reporter;
    Status status = 0;
    auto encoder = ZmapLZWEncoder::create(status, reporter);
    auto decoder = ZmapLZWDecoder::create(status, reporter);
    const auto predictor = makePredictor(t.type, false);
    WorkBuffer work(t.size());
    const auto size = static_cast<std::uint32_t>(t.size());
    encodeTile(*encoder, *predictor, work, t);
    const Bytes compressed(encoder->encodedData(), encoder->encodedData() + encoder->encodedSize());
    for (auto _ : state) {
        decoder->start(compressed.data(), static_cast<std::uint32_t>(compressed.size()));
        decoder->decode(work.data(), size);
        predictor->decodeRows(work.data(), tileSize, tileSize);
        benchmark::DoNotOptimize(work.data());
    }
    if (std::memcmp(work.data(), t.pixels.data(), t.size()) != 0) {
        state.SkipWithError("decoded pixels differ");
    }
    finishRun(state, t, compressed.size());
}

void libtiffDecode(benchmark::State& state, const BenchTile& t) {
    MemoryFile file = libtiffFile(t);
    TIFF* tif = openMemory(file, "r");
    Bytes out(t.size());
    for (auto _ : state) {
        TIFFReadEncodedTile(tif, 0, out.data(), static_cast<tmsize_t>(out.size()));
        benchmark::DoNotOptimize(out.data());
    }
    TIFFClose(tif);
    if (out != t.pixels) {
        state.SkipWithError("libtiff decoded other pixels");
    }
    finishRun(state, t, compressedTileSize(file));
}

} // namespace

int main(int argc, char** argv) {
    TIFFSetWarningHandler(nullptr);
    for (const BenchTile& t : tiles()) {
        for (const char* work : {"encode", "decode"}) {
            const bool encode = std::string(work) == "encode";
            benchmark::RegisterBenchmark((std::string(work) + "/" + t.name + "/ours").c_str(),
                                         encode ? oursEncode : oursDecode, t);
            benchmark::RegisterBenchmark((std::string(work) + "/" + t.name + "/libtiff").c_str(),
                                         encode ? libtiffEncode : libtiffDecode, t);
        }
    }
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    bench::SummaryReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();

    std::printf("\n%-18s %12s %12s %8s %12s %12s %8s\n", "tile 256x256", "ours MB/s",
                "libtiff MB/s", "ratio", "ours bytes", "libtiff bytes", "size");
    for (const BenchTile& t : tiles()) {
        for (const char* work : {"encode", "decode"}) {
            const std::string key = std::string(work) + "/" + t.name;
            const double ours = reporter.speed(key + "/ours");
            const double theirs = reporter.speed(key + "/libtiff");
            if (ours == 0 && theirs == 0) {
                continue; // filtered out
            }
            const double a = static_cast<double>(oursSize[t.name]);
            const double b = static_cast<double>(libtiffSize[t.name]);
            std::printf("%-18s %12.1f %12.1f %8.2f %12.0f %12.0f %+7.2f%%\n", key.c_str(), ours,
                        theirs, theirs > 0 ? ours / theirs : 0.0, a, b,
                        b > 0 ? 100.0 * (a - b) / b : 0.0);
        }
    }
    return 0;
}
