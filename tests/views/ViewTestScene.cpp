#include "views/ViewTestScene.h"

#include <cstring>
#include <lcms2.h>
#include <random>

namespace test {

std::unique_ptr<TestDocument> makeViewScene(std::int32_t width, std::int32_t height,
                                            std::uint32_t seed) {
    auto doc = makeTestDocument(width, height);
    std::mt19937 random(seed);
    const MaterialId wall = doc->addMaterial(L"Wall", ColourPOD{10, 200, 30}, false);
    doc->setMaterial(300, L"Far", ColourPOD{250, 5, 77}, false);
    TileHandle hold;
    for (std::int32_t y = 0; y < height; ++y) {
        for (std::int32_t x = 0; x < width; ++x) {
            const std::uint32_t r = random();
            *doc->rgbWrite(x, y, hold) =
                ColourPOD{static_cast<std::uint8_t>(r), static_cast<std::uint8_t>(r >> 8),
                          static_cast<std::uint8_t>(r >> 16)};
            const bool hole = x > width / 2 && y < height / 3;
            *doc->zWrite(x, y, hold) = hole ? 0xFFFFFFFFu : (r & 0xFFFF0000u) + std::uint32_t(x);
            *doc->matWrite(x, y, hold) = (x + y) % 3 == 0 ? 300 : (x % 7 == 0 ? wall : 0);
        }
    }
    // An overlay in a band crossing tile borders, half covered, with a shadow beside it.
    for (std::int32_t y = height / 4; y < height / 2; ++y) {
        for (std::int32_t x = width / 5; x < width * 3 / 5; ++x) {
            *doc->cutoutRgbWrite(x, y, hold) = ColourPOD{200, 100, 50};
            *doc->cutoutAlphaWrite(x, y, hold) = (x % 4) / 3.0f;
            *doc->cutoutZWrite(x, y, hold) = 1000u + std::uint32_t(y);
            *doc->cutoutMatWrite(x, y, hold) = x % 2 == 0 ? wall : 0;
            *doc->shadowAlphaWrite(x + width / 5, y, hold) = 0.5f;
        }
    }
    return doc;
}

TQL::Handle<TQL::ColourTransform> makeDisplayTransform() {
    cmsToneCurve* linear = cmsBuildGamma(nullptr, 1.0);
    cmsToneCurve* curves[3] = {linear, linear, linear};
    const cmsCIExyYTRIPLE primaries = {{0.64, 0.33, 1.0}, {0.30, 0.60, 1.0}, {0.15, 0.06, 1.0}};
    cmsHPROFILE profile = cmsCreateRGBProfile(cmsD50_xyY(), &primaries, curves);
    cmsFreeToneCurve(linear);
    cmsUInt32Number size = 0;
    cmsSaveProfileToMem(profile, nullptr, &size);
    std::vector<std::uint8_t> bytes(size);
    cmsSaveProfileToMem(profile, bytes.data(), &size);
    cmsCloseProfile(profile);
    const auto monitor = TQL::ColourProfile::createFromMemory(bytes.data(), bytes.size());
    const auto srgb = TQL::ColourProfile::create(TQL::ColourProfileId::sRGB);
    if (!monitor || !srgb) {
        return {};
    }
    return TQL::ColourTransform::create(TQL::RenderingIntent::perceptual, *srgb, *monitor);
}

void ImageTarget::DrawBits(std::int32_t x, std::int32_t y, std::int32_t w, std::int32_t h,
                           const std::uint8_t* rgb, std::int32_t stride) {
    for (std::int32_t row = 0; row < h; ++row) {
        std::memcpy(&pixels_[static_cast<std::size_t>(y + row) * width_ + x],
                    rgb + static_cast<std::ptrdiff_t>(row) * stride,
                    static_cast<std::size_t>(w) * 3);
    }
}

} // namespace test
