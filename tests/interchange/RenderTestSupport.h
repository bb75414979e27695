#pragma once

#include "core/Point.h"
#include "image/Buffer.h"
#include "interchange/render/SmoothModelImp.h"
#include "views/cameras/ParallelCamera.h"

#include <cstdint>
#include <vector>

namespace test {

/// Keeps every row a renderer hands over.
class RecordingBuffer : public Buffer {
public:
    RecordingBuffer(std::int32_t width, std::int32_t height);

    void putRow(std::int32_t row, const double* depths, const std::uint32_t* covered,
                const std::uint8_t* colours, const MaterialId* materials) override;
    bool hasDepth() const override { return true; }
    void finish() override { ++finished; }

    std::size_t at(std::int32_t x, std::int32_t y) const {
        return static_cast<std::size_t>(y) * static_cast<std::size_t>(width) + x;
    }
    bool covered(std::int32_t x, std::int32_t y) const { return flags[at(x, y)] != 0; }
    ColourPOD colour(std::int32_t x, std::int32_t y) const { return colours[at(x, y)]; }

    std::int32_t width, height;
    std::vector<std::uint32_t> codes;
    std::vector<std::uint32_t> flags;
    std::vector<ColourPOD> colours;
    std::vector<std::uint8_t> alphas;
    std::vector<MaterialId> materials;
    std::vector<std::int32_t> rowsPut;
    int finished = 0;
};

/// A camera looking straight down at the plane z = 0 with one pixel a model unit: the
/// pixel centre (x, y) is the model point (x, height - y) (pixelToModel), so shapes can be
/// given in pixel coordinates. Depths run from z = 10 (code 0) to z = -10.
TQL::Handle<ParallelCamera> pixelCamera(std::int32_t width, std::int32_t height);
Point<3> pixelToModel(double x, double y, std::int32_t height, double z = 0);

/// A model of a square floor [-5, 5]^2 at z = 0 (material "Floor") and a box [-1, 1]^2 x
/// [0, 2] standing on it (material "Box", its bottom left out), as flat polygons.
TQL::Handle<SmoothModelImp> floorAndBox();

} // namespace test
