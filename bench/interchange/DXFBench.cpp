// Reading a large DXF drawing (3DFACEs and polyface meshes, tens of MB) into a model,
// beside a plain pass that only splits the same file into lines.

#include "core/MappedFile.h"
#include "core/StringUtils.h"
#include "interchange/dxf/DXFReader.h"
#include "interchange/dxf/DXFStream.h"
#include "interchange/render/SmoothModelImp.h"

#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

namespace {

/// Writes the drawing once per process: a grid of boxes, each either six 3DFACEs or one
/// polyface mesh of eight vertices and six faces, spread over eight layers.
const std::string& drawingPath() {
    static const std::string path = [] {
        const std::string p =
            (std::filesystem::temp_directory_path() / "quorvale-bench-dxf.dxf").string();
        std::FILE* f = std::fopen(p.c_str(), "w");
        if (!f) {
            return std::string();
        }
        std::fprintf(f, "  0\nSECTION\n  2\nENTITIES\n");
        const int side = 170; // 28 900 boxes
        for (int i = 0; i < side; ++i) {
            for (int j = 0; j < side; ++j) {
                const double x = i * 1.5, y = j * 1.5, s = 1.0,
                             h = 0.5 + (i * 7 + j * 3) % 5 * 0.25;
                const double c[8][3] = {{x, y, 0}, {x + s, y, 0}, {x, y + s, 0}, {x + s, y + s, 0},
                                        {x, y, h}, {x + s, y, h}, {x, y + s, h}, {x + s, y + s, h}};
                const int q[6][4] = {{0, 2, 3, 1}, {4, 5, 7, 6}, {0, 1, 5, 4},
                                     {2, 6, 7, 3}, {0, 4, 6, 2}, {1, 3, 7, 5}};
                const int layer = (i + j) % 8;
                if ((i + j) % 2 == 0) {
                    for (const auto& face : q) {
                        std::fprintf(f, "  0\n3DFACE\n  8\nLayer%d\n", layer);
                        for (int k = 0; k < 4; ++k) {
                            const double* p3 = c[face[k]];
                            std::fprintf(f, " 1%d\n%.6f\n 2%d\n%.6f\n 3%d\n%.6f\n", k, p3[0], k,
                                         p3[1], k, p3[2]);
                        }
                    }
                } else {
                    std::fprintf(
                        f,
                        "  0\nPOLYLINE\n  8\nLayer%d\n 66\n     1\n 10\n0.0\n 20\n0.0\n 30\n0.0\n"
                        " 70\n    64\n 71\n     8\n 72\n     6\n",
                        layer);
                    for (const auto& p3 : c) {
                        std::fprintf(f,
                                     "  0\nVERTEX\n  8\nLayer%d\n 10\n%.6f\n 20\n%.6f\n 30\n%.6f\n "
                                     "70\n   192\n",
                                     layer, p3[0], p3[1], p3[2]);
                    }
                    for (const auto& face : q) {
                        std::fprintf(
                            f,
                            "  0\nVERTEX\n  8\nLayer%d\n 10\n0.0\n 20\n0.0\n 30\n0.0\n 70\n   128\n"
                            " 71\n%6d\n 72\n%6d\n 73\n%6d\n 74\n%6d\n",
                            layer, face[0] + 1, face[1] + 1, face[2] + 1, face[3] + 1);
                    }
                    std::fprintf(f, "  0\nSEQEND\n  8\nLayer%d\n", layer);
                }
            }
        }
        std::fprintf(f, "  0\nENDSEC\n  0\nEOF\n");
        std::fclose(f);
        return p;
    }();
    return path;
}

std::size_t fileBytes() {
    return static_cast<std::size_t>(std::filesystem::file_size(drawingPath()));
}

/// The anchor: read the file with std::getline and do nothing else.
std::size_t splitLines() {
    std::ifstream in(drawingPath());
    std::string line;
    std::size_t lines = 0;
    while (std::getline(in, line)) {
        ++lines;
    }
    return lines;
}

void BM_LineSplit(benchmark::State& state) {
    for (auto _ : state) {
        benchmark::DoNotOptimize(splitLines());
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * fileBytes()));
}
BENCHMARK(BM_LineSplit)->Unit(benchmark::kMillisecond);

/// Only the group stream: every group read, every number parsed.
void BM_DXFGroups(benchmark::State& state) {
    TQL::MappedFile file;
    if (file.open(getWCS(drawingPath())) != status::ok) {
        state.SkipWithError("cannot map the drawing");
        return;
    }
    for (auto _ : state) {
        DXFAsciiStream s(std::span<const unsigned char>(file.data(), file.size()), L"bench.dxf");
        DXFItem item;
        double sum = 0;
        while (s.read(item)) {
            if (item.datatype != DXFDatatype::Text) {
                sum += item.asDouble();
            }
        }
        benchmark::DoNotOptimize(sum);
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * fileBytes()));
}
BENCHMARK(BM_DXFGroups)->Unit(benchmark::kMillisecond);

/// The whole reading: file to finished model (meshes, shared points, normals).
/// Also reports its speed as a share of the line-splitting anchor's: one anchor pass runs
/// after each reading, outside the timed part, so that both see the same load on a busy
/// machine.
void BM_DXFRead(benchmark::State& state) {
    using Clock = std::chrono::steady_clock;
    std::size_t triangles = 0;
    double readSeconds = 0, anchorSeconds = 0;
    for (auto _ : state) {
        const auto t0 = Clock::now();
        auto model = TQL::makeHandle<SmoothModelImp>();
        std::wstring error;
        if (readDXF(getWCS(drawingPath()), *model, error) != status::ok) {
            state.SkipWithError(utf8(error).c_str());
            return;
        }
        triangles = model->triangleCount();
        model = nullptr;
        const auto t1 = Clock::now();
        state.PauseTiming();
        benchmark::DoNotOptimize(splitLines());
        const auto t2 = Clock::now();
        state.ResumeTiming();
        readSeconds += std::chrono::duration<double>(t1 - t0).count();
        anchorSeconds += std::chrono::duration<double>(t2 - t1).count();
    }
    const double bytes = static_cast<double>(fileBytes()) * state.iterations();
    state.SetBytesProcessed(static_cast<std::int64_t>(bytes));
    state.counters["triangles"] = static_cast<double>(triangles);
    state.counters["file_MB"] = static_cast<double>(fileBytes()) / 1e6;
    state.counters["MBps"] = bytes / readSeconds / 1e6;
    state.counters["anchor_MBps"] = bytes / anchorSeconds / 1e6;
    state.counters["ratio"] = anchorSeconds / readSeconds;
}
BENCHMARK(BM_DXFRead)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
