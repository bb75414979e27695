#include "RenderTestSupport.h"

#include "core/Quark.h"

namespace test {

RecordingBuffer::RecordingBuffer(std::int32_t w, std::int32_t h)
    : width(w), height(h), codes(static_cast<std::size_t>(w) * h, 0xFFFFFFFFu),
      flags(codes.size(), 0), colours(codes.size()), alphas(codes.size(), 0),
      materials(codes.size(), 0) {}

void RecordingBuffer::putRow(std::int32_t row, const double* depths, const std::uint32_t* covered,
                             const std::uint8_t* c, const MaterialId* m) {
    rowsPut.push_back(row);
    for (std::int32_t x = 0; x < width; ++x) {
        const std::size_t i = at(x, row);
        flags[i] = covered[x];
        if (covered[x]) {
            codes[i] = static_cast<std::uint32_t>(depths[x]);
            colours[i] = ColourPOD{c[4 * x], c[4 * x + 1], c[4 * x + 2]};
            alphas[i] = c[4 * x + 3];
            materials[i] = m ? m[x] : 0;
        }
    }
}

TQL::Handle<ParallelCamera> pixelCamera(std::int32_t width, std::int32_t height) {
    const Ray down(Point<3>::m_origin, Vector<3>(1, 0, 0), Vector<3>(0, 1, 0), Vector<3>(0, 0, -1));
    const double cx = width / 2.0;
    const double cy = height / 2.0;
    return TQL::makeHandle<ParallelCamera>(width, height, Point<3>(cx, cy, 20), down, width, height,
                                           Point<3>(cx, cy, 0), 10);
}

Point<3> pixelToModel(double x, double y, std::int32_t height, double z) {
    return Point<3>(x, height - y, z);
}

TQL::Handle<SmoothModelImp> floorAndBox() {
    auto model = TQL::makeHandle<SmoothModelImp>();
    const Quark floor = Quark::create(L"Floor");
    const Quark box = Quark::create(L"Box");
    const std::vector<Point<3>> ground = {{-5, -5, 0}, {5, -5, 0}, {5, 5, 0}, {-5, 5, 0}};
    model->addPolygon(floor, ground);
    auto p = [](int x, int y, int z) { return Point<3>(x ? 1 : -1, y ? 1 : -1, z ? 2 : 0); };
    const std::vector<std::vector<Point<3>>> faces = {
        {p(0, 0, 1), p(1, 0, 1), p(1, 1, 1), p(0, 1, 1)}, // top
        {p(0, 0, 0), p(1, 0, 0), p(1, 0, 1), p(0, 0, 1)}, // south
        {p(0, 1, 0), p(0, 1, 1), p(1, 1, 1), p(1, 1, 0)}, // north
        {p(0, 0, 0), p(0, 0, 1), p(0, 1, 1), p(0, 1, 0)}, // west
        {p(1, 0, 0), p(1, 1, 0), p(1, 1, 1), p(1, 0, 1)}, // east
    };
    for (const auto& f : faces) {
        model->addPolygon(box, f);
    }
    model->finish();
    return model;
}

} // namespace test
