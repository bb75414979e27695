#pragma once

#include "core/Handle.h"
#include "texture/MipMap.h"

#include <cstdint>
#include <vector>

class Reporter;

namespace tex {

/// The filtered form of a cube image: six square faces side by side (faces 0 to 3 around
/// the horizon, 4 above, 5 below, laid out as a cube panorama is), each with its pyramid.
/// The faces share their edge pixels, and a filter tap or sample cell beyond a face's edge
/// is read from the neighbouring face by the face neighbour operations (FaceSize), so the
/// filtering runs on across edges without seams or darker borders.
class CubeMipMap : public TQL::Handlable {
public:
    /// `rgb` (may be null) and `alpha` (may be null: opaque) hold the strip of 6n x n
    /// pixels. Throws std::bad_alloc when memory runs out, TQL::TqlError for n < 1,
    /// Reporter::Abandoned when `progress` asks to stop.
    CubeMipMap(std::int32_t faceSize, const std::uint8_t* rgb, const float* alpha,
               Reporter* progress = nullptr);

    /// The face size of level 0, and of a level.
    std::int32_t faceSize() const { return faceSizes_[0]; }
    std::int32_t faceSize(int level) const {
        return faceSizes_.at(static_cast<std::size_t>(level));
    }
    std::int32_t levels() const { return static_cast<std::int32_t>(faceSizes_.size()); }
    bool hasColour() const { return hasColour_; }
    bool hasAlpha() const { return hasAlpha_; }
    /// The strip of a level (6 n_l x n_l).
    const Raster& level(int l) const { return *levels_.at(static_cast<std::size_t>(l)); }

    /// The strip pixel that face-local (x, y) of `face` at `level` stands for, carried onto
    /// the neighbouring face when it lies beyond an edge.
    void resolve(int level, int face, std::int32_t x, std::int32_t y, std::int32_t& sx,
                 std::int32_t& sy) const;

    /// `count` samples by direction (x, y, z), footprint in texels of level 0. Colour,
    /// alpha and rounding as MipMap::sample.
    void sample(std::uint8_t* rgb, float* alpha, const float* x, const float* y, const float* z,
                const float* footprint, int count) const;

    /// The face and the face-local pixel coordinates (pixel k centred at k, edges at 0 and
    /// n - 1) of a direction, as a cube image's camera maps it.
    static int faceOfDirection(double x, double y, double z, std::int32_t n, double& u, double& v);

private:
    void levelSums(int level, int face, double u, double v, double (&colour)[3], double& a) const;

    std::vector<std::int32_t> faceSizes_;
    std::vector<TQL::Handle<Raster>> levels_;
    bool hasColour_;
    bool hasAlpha_;
};

} // namespace tex
