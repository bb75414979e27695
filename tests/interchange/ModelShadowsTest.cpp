// The shadow bits of a flat surface asked of the trees alone must be those of the full test,
// which also checks the surface's normal against every light.

#include "RenderTestSupport.h"

#include "core/Angle.h"
#include "effects/LightSet.h"
#include "interchange/render/ModelShadows.h"
#include "interchange/render/TriangleClipper.h"

#include <gtest/gtest.h>

#include <random>

namespace {

TEST(ModelShadows, AFlatSurfaceFacingItsLightsAnswersAsTheFullTest) {
    // The floor and box under two shadow-casting suns from either side, a light that casts
    // no shadow between them, and an ambient light: every face is turned away from some
    // sun, and each sun throws the box's shadow on the floor.
    const auto model = test::floorAndBox();
    auto lights = TQL::makeHandle<LightSet>();
    lights->add(TQL::makeHandle<AmbientLight>(Point<3>(0.2, 0.2, 0.2), Point<3>(0.1, 0.1, 0.1)));
    lights->add(
        QuorvaleParallelLight::sun(Angle::degrees(225), Angle::degrees(40), {0.5, 0.5, 0.5}, true));
    lights->add(
        QuorvaleParallelLight::sun(Angle::degrees(0), Angle::degrees(70), {0.3, 0.3, 0.3}, false));
    lights->add(
        QuorvaleParallelLight::sun(Angle::degrees(60), Angle::degrees(30), {0.4, 0.4, 0.4}, true));
    const auto camera = test::pixelCamera(64, 64);
    const TriangleClipper clipper(*camera, camera->depthCoder(), 64, 64, SectionBox{},
                                  model->bounds());
    const ModelShadows shadows(*model, *lights, clipper, 1e-6);
    ASSERT_EQ(shadows.allBits(), 0b1010u);

    std::mt19937 random(5);
    std::uniform_real_distribution<double> share(0, 1);
    ModelShadows::Hints facingHints{}, fullHints{};
    std::uint32_t owner = 0;
    std::size_t blockedBy[2] = {0, 0}, tried = 0;
    for (const MeshModel::Mesh& mesh : model->meshes()) {
        for (const MeshModel::Triangle& t : mesh.triangles) {
            const Point<3> c[3] = {mesh.points[mesh.vertices[t.vertex[0]].point],
                                   mesh.points[mesh.vertices[t.vertex[1]].point],
                                   mesh.points[mesh.vertices[t.vertex[2]].point]};
            // Either side of a face may be the one seen.
            for (const Vector<3>& face : {t.plane.normal(), -t.plane.normal()}) {
                const std::uint32_t known = shadows.turnedAway(face);
                for (int i = 0; i < 200; ++i) {
                    double u = share(random), v = share(random);
                    if (u + v > 1) {
                        u = 1 - u;
                        v = 1 - v;
                    }
                    const Point<3> p = c[0] + (c[1] - c[0]) * u + (c[2] - c[0]) * v;
                    const std::uint32_t full = shadows.blockedAt(p, face, owner, 0, fullHints);
                    ASSERT_EQ(shadows.blockedFacing(p, owner, known, facingHints), full)
                        << "triangle " << owner << " at " << p.x() << ", " << p.y() << ", "
                        << p.z();
                    blockedBy[0] += (full & ~known & 0b10u) != 0;
                    blockedBy[1] += (full & ~known & 0b1000u) != 0;
                    ++tried;
                }
            }
            ++owner;
        }
    }
    // Both suns' trees were asked and found blockers, and not everywhere.
    EXPECT_GT(blockedBy[0], 0u);
    EXPECT_GT(blockedBy[1], 0u);
    EXPECT_LT(blockedBy[0] + blockedBy[1], tried);
}

} // namespace
