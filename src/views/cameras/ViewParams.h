#pragma once

#include "core/Point.h"

#include <cstddef>
#include <cstdint>
#include <type_traits>

/// Depth codes: 32-bit unsigned, linear in the distance along the view axis (in a cube
/// panorama along the dominant axis of the pixel's face) from nearDepth at code 0 to
/// farDepth at code 4294967294. 4294967295 means no geometry at the pixel.
namespace depth {
inline constexpr std::uint32_t noDepth = 0xFFFFFFFFu;
inline constexpr std::uint32_t farCode = 0xFFFFFFFEu;
/// The number of code steps from nearDepth to farDepth.
inline constexpr double codeSpan = 4294967294.0;
} // namespace depth

/// The view record of a document: the camera that produced its depth codes. A plain
/// record of 248 bytes, copied whole, stored with the document and written to its file
/// field by field in little-endian order.
///
/// Layout (byte offsets):
///
///     0  projection   u32     4  viewCode    u32
///     8  eye          3 doubles
///    32  xAxis, 56 yAxis, 80 zAxis, 104 shear     3 doubles each
///   128  windowLo, 152 windowHi                   3 doubles each
///   176  nearDepth, 184 farDepth, 192 modelScale  doubles
///   200  unitCode     i32   204  reserved0 u32 (zero)
///   208  target       3 doubles
///   232  angle        double (degrees)
///   240  reserved1    2 x u32 (zero)
///
/// The view frame is X right, Y up, Z forward (the direction of view). The axes need not
/// be unit length: every user takes their unit vectors first.
struct ViewParams {
    /// Depth-code meaning of view codes.
    static constexpr std::uint32_t perspectiveCode = 0;
    static constexpr std::uint32_t parallelCode = 1;
    static constexpr std::uint32_t cubicCode = 3;

    /// The file's projection word, 0 or 1; kept so that a record read is written back
    /// unchanged.
    std::uint32_t projection = 0;
    /// 0 perspective, 1 parallel, 3 cubic panorama; anything else is an unknown view.
    std::uint32_t viewCode = perspectiveCode;
    /// The eye in world coordinates; for a parallel view the reference point of the view.
    Point<3> eye{0, 0, 1.6};
    Vector<3> xAxis{1, 0, 0};
    Vector<3> yAxis{0, 0, 1};
    Vector<3> zAxis{0, 1, 0};
    /// Parallel views only: the direction of projection in view-axis coordinates;
    /// (0, 0, 1) is an orthogonal view.
    Vector<3> shear{0, 0, 1};
    /// The image window in view-axis coordinates: windowLo belongs to pixel (0, 0),
    /// windowHi to pixel (width-1, height-1). Homogeneous (x/z, y/z) in a perspective view.
    Point<3> windowLo{-1, 1, 1};
    Point<3> windowHi{1, -1, 1};
    /// Distances along the view axis that depth codes 0 and 4294967294 stand for.
    double nearDepth = 0.1;
    double farDepth = 1000;
    /// World units to real units: one world unit is unitMillimetres(unitCode) times this
    /// many millimetres.
    double modelScale = 1;
    std::int32_t unitCode = 4;
    std::uint32_t reserved0 = 0;
    /// The point looked at, and the turn of a panorama, in degrees.
    Point<3> target{0, 1, 1.6};
    double angle = 0;
    std::uint32_t reserved1[2] = {0, 0};

    bool operator==(const ViewParams&) const = default;
};

static_assert(sizeof(ViewParams) == 248, "the view record is a fixed 248-byte record");
static_assert(std::is_trivially_copyable_v<ViewParams>);
static_assert(offsetof(ViewParams, eye) == 8 && offsetof(ViewParams, nearDepth) == 176 &&
              offsetof(ViewParams, unitCode) == 200 && offsetof(ViewParams, target) == 208 &&
              offsetof(ViewParams, angle) == 232);

/// Millimetres in one unit of the given length-unit code: 1 micrometre, 2 millimetre,
/// 3 centimetre, 4 metre, 5 kilometre, 6 thou, 7 inch, 8 foot; any other code counts as
/// millimetres.
double unitMillimetres(std::int32_t code);
