// The surface texture tool over a 4096 x 4096 scene of a wall and a floor (every pixel read
// through its depth and filtered by its footprint) beside cv::warpPerspective of the same
// texture to the same size, both on one thread. Prints the ratio at the end. The tool's own
// work (raster points and footprints, no sampling) is timed apart as well.

#include "image/RgbBitmap.h"
#include "image/ZmapDocument.h"
#include "texture/MipMap.h"
#include "texture/RasterTexture.h"
#include "texture/TextureToolPlane.h"
#include "views/cameras/ViewParams.h"
#include "views/cameras/ViewProj.h"

#include <benchmark/benchmark.h>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include <cmath>
#include <cstdio>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace {

constexpr int side = 4096;
constexpr int textureSide = 1024;

class BenchDocument : public ZmapDocument {
public:
    void setChanged(bool) override {}
};

/// A floor (z = 0, material 1) and a wall (y = 8, material 2) seen from 1.6 above the floor,
/// looking along +y and 15 degrees down.
std::unique_ptr<BenchDocument> makeScene() {
    auto document = std::make_unique<BenchDocument>();
    if (document->setSize(side, side) != status::ok) {
        return nullptr;
    }
    document->rgb = TQL::makeHandle<RgbBitmap>(*document);
    if (document->allocateChannels() != status::ok) {
        return nullptr;
    }
    ViewParams v;
    v.viewCode = ViewParams::perspectiveCode;
    v.eye = Point<3>(0, 0, 1.6);
    const double al = -15 * 3.141592653589793 / 180;
    const Vector<3> Z(0, std::cos(al), std::sin(al));
    const Vector<3> X(1, 0, 0);
    v.xAxis = X;
    v.yAxis = cross(X, Z);
    v.zAxis = Z;
    v.windowLo = Point<3>(-1, 1, 1);
    v.windowHi = Point<3>(1, -1, 1);
    v.nearDepth = 0.1;
    v.farDepth = 200;
    document->setViewParams(v);
    const ViewProj& view = *document->viewProj();
    const Plane planes[2] = {Plane(Vector<3>(0, 0, -1), Point<3>(0, 0, 0)),
                             Plane(Vector<3>(0, 1, 0), Point<3>(0, 8, 0))};
    TileHandle zHold;
    TileHandle matHold;
    const double far = 2147483648.0;
    for (int y = 0; y < side; ++y) {
        for (int x = 0; x < side; ++x) {
            const Point<3> a = view.worldFromPixel(x, y, 0);
            const Point<3> b = view.worldFromPixel(x, y, static_cast<std::uint32_t>(far));
            double best = -1;
            MaterialId material = 0;
            for (int k = 0; k < 2; ++k) {
                const double da = planes[k].distanceTo(a);
                const double db = planes[k].distanceTo(b);
                const double c = da != db ? da / (da - db) * far : -1;
                if (c >= 0 && c <= depth::codeSpan && (best < 0 || c < best)) {
                    best = c;
                    material = static_cast<MaterialId>(k + 1);
                }
            }
            if (best >= 0) {
                *document->zWrite(x, y, zHold) = static_cast<std::uint32_t>(std::lround(best));
                *document->matWrite(x, y, matHold) = material;
            }
        }
    }
    return document;
}

struct Fixture {
    std::unique_ptr<BenchDocument> document = makeScene();
    std::vector<std::uint8_t> rgb;
    cv::Mat bgr;
    TQL::Handle<tex::RasterTexture> texture;
    Fixture()
        : rgb(std::size_t(textureSide) * textureSide * 3), bgr(textureSide, textureSide, CV_8UC3) {
        for (int y = 0; y < textureSide; ++y) {
            for (int x = 0; x < textureSide; ++x) {
                const std::size_t i = (std::size_t(y) * textureSide + x) * 3;
                rgb[i] = std::uint8_t(x ^ y);
                rgb[i + 1] = std::uint8_t(x * 3 + y);
                rgb[i + 2] = std::uint8_t((x / 32 + y / 32) % 2 ? 230 : 20);
                bgr.at<cv::Vec3b>(y, x) = cv::Vec3b(rgb[i], rgb[i + 1], rgb[i + 2]);
            }
        }
        auto map =
            TQL::makeHandle<tex::MipMap>(textureSide, textureSide, rgb.data(), nullptr, true);
        texture = TQL::makeHandle<tex::RasterTexture>(map, float(textureSide), float(textureSide));
    }
};

Fixture& fixture() {
    static Fixture f;
    return f;
}

std::map<std::string, double>& times() {
    static std::map<std::string, double> t;
    return t;
}

/// Every benchmark's placing: Tangent, 5 mm texels (the texture is 5.12 m wide).
tex::PlanePlacing tangentPlacing() {
    tex::PlanePlacing placing;
    placing.planeMode = tex::PlanePlacing::tangent;
    placing.pixelWidth = placing.pixelHeight = 5;
    return placing;
}

void BM_TextureToolPlane(benchmark::State& state) {
    Fixture& f = fixture();
    tex::TextureToolPlane tool(f.texture, tangentPlacing(), tex::TextureOutput{});
    tool.start(side / 2, side - 1, *f.document);
    std::vector<ColourPOD> colour(maxSpanLength);
    std::vector<float> alpha(maxSpanLength);
    std::vector<ColourPOD> base(maxSpanLength);
    Span span;
    span.document = f.document.get();
    span.colour = colour.data();
    span.alpha = alpha.data();
    span.baseColour = base.data();
    span.sourceColour = base.data();
    for (auto _ : state) {
        for (int y = 0; y < side; ++y) {
            for (int x0 = 0; x0 < side; x0 += maxSpanLength) {
                std::fill(alpha.begin(), alpha.end(), 1.0f);
                span.x = x0;
                span.y = y;
                span.length = maxSpanLength;
                tool.run(span, 0, maxSpanLength);
                benchmark::DoNotOptimize(colour.data());
            }
        }
    }
    state.counters["Mpixels/s"] = benchmark::Counter(double(side) * side / 1e6,
                                                     benchmark::Counter::kIsIterationInvariantRate);
}

/// The tool's own share: the same pixels' raster points and footprints, without sampling.
void BM_TextureToolPlaneMapping(benchmark::State& state) {
    Fixture& f = fixture();
    tex::TextureToolPlane tool(f.texture, tangentPlacing(), tex::TextureOutput{});
    tool.start(side / 2, side - 1, *f.document);
    std::vector<float> u(maxSpanLength), v(maxSpanLength), footprint(maxSpanLength);
    for (auto _ : state) {
        for (int y = 0; y < side; ++y) {
            for (int x0 = 0; x0 < side; x0 += maxSpanLength) {
                tool.rowSamples(*f.document, x0, y, maxSpanLength, u.data(), v.data(),
                                footprint.data());
                benchmark::DoNotOptimize(footprint.data());
            }
        }
    }
    state.counters["Mpixels/s"] = benchmark::Counter(double(side) * side / 1e6,
                                                     benchmark::Counter::kIsIterationInvariantRate);
}

/// The sampler's share: the points and footprints the tool asks for (recorded once), sampled
/// in the same calls of one span each.
void BM_TextureToolPlaneSampling(benchmark::State& state) {
    Fixture& f = fixture();
    tex::TextureToolPlane tool(f.texture, tangentPlacing(), tex::TextureOutput{});
    tool.start(side / 2, side - 1, *f.document);
    const std::size_t pixels = std::size_t(side) * side;
    std::vector<float> u(pixels), v(pixels), footprint(pixels);
    for (int y = 0; y < side; ++y) {
        for (int x0 = 0; x0 < side; x0 += maxSpanLength) {
            const std::size_t at = std::size_t(y) * side + std::size_t(x0);
            tool.rowSamples(*f.document, x0, y, maxSpanLength, u.data() + at, v.data() + at,
                            footprint.data() + at);
        }
    }
    const tex::RasterTexture& texture = *f.texture;
    std::vector<std::uint8_t> rgb(std::size_t(maxSpanLength) * 3);
    std::vector<float> alpha(maxSpanLength);
    for (auto _ : state) {
        for (std::size_t at = 0; at < pixels; at += maxSpanLength) {
            texture.sample(rgb.data(), alpha.data(), u.data() + at, v.data() + at,
                           footprint.data() + at, maxSpanLength);
            benchmark::DoNotOptimize(rgb.data());
        }
    }
    state.counters["Mpixels/s"] = benchmark::Counter(double(side) * side / 1e6,
                                                     benchmark::Counter::kIsIterationInvariantRate);
}

void BM_WarpPerspective(benchmark::State& state) {
    Fixture& f = fixture();
    // A floor receding from the bottom of the picture to a horizon a quarter down it.
    const cv::Point2f from[4] = {{0, 0},
                                 {float(textureSide), 0},
                                 {float(textureSide), float(textureSide)},
                                 {0, float(textureSide)}};
    const cv::Point2f to[4] = {{side * 0.45f, side * 0.25f},
                               {side * 0.55f, side * 0.25f},
                               {side * 3.0f, float(side)},
                               {-side * 2.0f, float(side)}};
    const cv::Mat h = cv::getPerspectiveTransform(from, to);
    cv::Mat out(side, side, CV_8UC3);
    for (auto _ : state) {
        cv::warpPerspective(f.bgr, out, h, out.size(), cv::INTER_LINEAR, cv::BORDER_REFLECT_101);
        benchmark::DoNotOptimize(out.data);
    }
    state.counters["Mpixels/s"] = benchmark::Counter(double(side) * side / 1e6,
                                                     benchmark::Counter::kIsIterationInvariantRate);
}

class RateReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            // With repetitions the median stands for the benchmark (it comes after the
            // single runs); the other aggregates are no times of a run.
            if (run.run_type == Run::RT_Aggregate && run.aggregate_name != "median") {
                continue;
            }
            const std::string full = run.benchmark_name();
            times()[full.substr(0, full.find('/'))] = run.GetAdjustedRealTime();
        }
        ConsoleReporter::ReportRuns(runs);
    }
};

} // namespace

BENCHMARK(BM_TextureToolPlane)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2.0);
BENCHMARK(BM_TextureToolPlaneMapping)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2.0);
BENCHMARK(BM_TextureToolPlaneSampling)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2.0);
BENCHMARK(BM_WarpPerspective)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2.0);

int main(int argc, char** argv) {
    // Both on one thread: the texture stage runs on the thread of the stroke.
    cv::setNumThreads(1);
    benchmark::Initialize(&argc, argv);
    RateReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    auto& t = times();
    if (t.count("BM_TextureToolPlane") && t.count("BM_WarpPerspective") &&
        t["BM_TextureToolPlane"] > 0) {
        std::printf("BM_TextureToolPlane: %.3f of the speed of BM_WarpPerspective (real time)\n",
                    t["BM_WarpPerspective"] / t["BM_TextureToolPlane"]);
    }
    benchmark::Shutdown();
    return 0;
}
