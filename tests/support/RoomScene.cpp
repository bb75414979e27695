#include "support/RoomScene.h"

#include "core/Angle.h"
#include "image/ZmapDocument.h"
#include "views/cameras/ViewProj.h"

#include <cmath>

namespace test {

ViewParams roomRecord(std::uint32_t viewCode, const Point<3>& eye, double azimuth, double altitude,
                      const Point<3>& windowLo, const Point<3>& windowHi, double nearDepth,
                      double farDepth) {
    ViewParams v;
    v.viewCode = viewCode;
    v.eye = eye;
    const double az = Angle::degrees(azimuth).radians();
    const double al = Angle::degrees(altitude).radians();
    const Vector<3> Z(std::cos(al) * std::cos(az), std::cos(al) * std::sin(az), std::sin(al));
    const Vector<3> X(std::sin(az), -std::cos(az), 0);
    v.xAxis = X;
    v.yAxis = cross(X, Z);
    v.zAxis = Z;
    v.windowLo = windowLo;
    v.windowHi = windowHi;
    v.nearDepth = nearDepth;
    v.farDepth = farDepth;
    return v;
}

RoomScene RoomScene::make(View view, std::int32_t width, std::int32_t height) {
    RoomScene room;
    room.scene.add(Plane(), floorMaterial);
    const Extent<3> walls(Point<3>(-100, -100, 0), Point<3>(100, 100, 3));
    room.scene.add(Plane(Vector<3>(0, -1, 0), Point<3>(0, 14, 0)), wallMaterial, walls);
    room.scene.add(Plane(Vector<3>(-1, 0.2, 0), Point<3>(6, 0, 0)), sideMaterial, walls);
    room.scene.addBox(Extent<3>(Point<3>(-3.5, 4, 0), Point<3>(-0.5, 7.5, 0.6)), boxMaterial);

    ViewParams record;
    switch (view) {
    case View::perspective:
        record = roomRecord(ViewParams::perspectiveCode, {0.3, 0, 1.6}, 85, -12, {-1, 0.75, 1},
                            {1, -0.75, 1}, 0.1, 100);
        break;
    case View::parallel:
        record =
            roomRecord(ViewParams::parallelCode, {0, 2, 9}, 75, -38, {-9, 6, 0}, {9, -6, 0}, 1, 60);
        break;
    case View::cubic:
        record = roomRecord(ViewParams::cubicCode, {0.3, 8, 1.6}, 80, 0, {-1, 1, 1}, {1, -1, 1},
                            0.1, 100);
        break;
    }
    room.document = makeTestDocument(width, height);
    room.document->setViewParams(record);
    room.scene.render(*room.document);
    const wchar_t* names[] = {L"Floor", L"Wall", L"Side", L"Box"};
    for (MaterialId id = 1; id <= 4; ++id) {
        room.document->setMaterial(id, names[id - 1], ColourPOD{}, false);
    }
    const ViewProj& proj = *room.document->viewProj();
    room.pieces.resize(static_cast<std::size_t>(width) * height);
    for (std::int32_t y = 0; y < height; ++y) {
        for (std::int32_t x = 0; x < width; ++x) {
            double code = 0;
            room.pieces[static_cast<std::size_t>(y) * width + x] =
                room.scene.trace(proj, x, y, code);
        }
    }
    return room;
}

} // namespace test
