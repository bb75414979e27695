// quorvale-cli panorama: a rendered cube written as six faces and as an equirectangular
// picture; a flat document is refused and nothing is written.
#include "CliRunner.h"
#include "support/PngFile.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

namespace {

using cli_test::runCli;

const std::string house = QUORVALE_SOURCE_DATA_DIR "/samples/house.dxf";

TEST(PanoramaCommand, WritesSixFacesOrOneEquirectangularPicture) {
    const test::TempDir dir;
    ASSERT_EQ(runCli({"render", house, dir.file("p.zmq"), "--view", "cubic", "--size", "96x16",
                      "--no-shadows"})
                  .exitCode,
              0);
    const auto faces = runCli({"panorama", dir.file("p.zmq"), dir.file("cube.png"), "--faces"});
    ASSERT_EQ(faces.exitCode, 0) << faces.err;
    for (const char* name : {"front", "right", "back", "left", "up", "down"}) {
        test::PngImage png;
        std::string error;
        ASSERT_TRUE(test::readPng(dir.file(std::string("cube-") + name + ".png"), png, error))
            << name << ": " << error;
        EXPECT_EQ(png.width, 16u);
        EXPECT_EQ(png.height, 16u);
    }
    const auto sphere = runCli({"panorama", dir.file("p.zmq"), dir.file("sphere.png"),
                                "--equirectangular", "--width", "80"});
    ASSERT_EQ(sphere.exitCode, 0) << sphere.err;
    test::PngImage png;
    std::string error;
    ASSERT_TRUE(test::readPng(dir.file("sphere.png"), png, error)) << error;
    EXPECT_EQ(png.width, 80u);
    EXPECT_EQ(png.height, 40u);
}

TEST(PanoramaCommand, AFlatDocumentIsNotAFullCube) {
    const test::TempDir dir;
    ASSERT_EQ(runCli({"new", "--size", "96x16", dir.file("flat.zmp")}).exitCode, 0);
    const auto r = runCli({"panorama", dir.file("flat.zmp"), dir.file("out.png"), "--faces"});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_NE(r.err.find("Not a full cube image"), std::string::npos) << r.err;
    EXPECT_EQ(dir.entries(), std::vector<std::string>{"flat.zmp"});
    EXPECT_EQ(runCli({"panorama", dir.file("flat.zmp"), dir.file("o.png")}).exitCode, 2);
}

} // namespace
