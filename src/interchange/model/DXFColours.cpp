#include "interchange/model/DXFColours.h"

#include <cstdlib>
#include <cwchar>

namespace {

std::uint8_t byte(double v) {
    return static_cast<std::uint8_t>(v);
}

/// Hue in degrees, saturation 1 or 0.5, value 0 to 255, truncated to bytes.
ColourPOD fromHsv(double hue, double saturation, double value) {
    const int sector = static_cast<int>(hue / 60) % 6;
    const double f = hue / 60 - static_cast<int>(hue / 60);
    const double p = value * (1 - saturation);
    const double q = value * (1 - saturation * f);
    const double t = value * (1 - saturation * (1 - f));
    double r = 0, g = 0, b = 0;
    switch (sector) {
    case 0:
        r = value;
        g = t;
        b = p;
        break;
    case 1:
        r = q;
        g = value;
        b = p;
        break;
    case 2:
        r = p;
        g = value;
        b = t;
        break;
    case 3:
        r = p;
        g = q;
        b = value;
        break;
    case 4:
        r = t;
        g = p;
        b = value;
        break;
    default:
        r = value;
        g = p;
        b = q;
        break;
    }
    return ColourPOD{byte(b), byte(g), byte(r)};
}

} // namespace

ColourPOD dxfColour(int index) {
    static const ColourPOD basic[10] = {
        defaultModelColour, {0, 0, 255},   {0, 255, 255}, {0, 255, 0},     {255, 255, 0},
        {255, 0, 0},        {255, 0, 255}, sevenOnPaper,  {128, 128, 128}, {192, 192, 192},
    };
    static const std::uint8_t greys[6] = {51, 80, 105, 130, 190, 255};
    static const double values[5] = {255, 165, 127, 76, 38};
    if (index < 1 || index > 255) {
        return defaultModelColour;
    }
    if (index < 10) {
        return basic[index];
    }
    if (index >= 250) {
        const std::uint8_t g = greys[index - 250];
        return ColourPOD{g, g, g};
    }
    const int group = (index - 10) / 10;
    const int step = (index - 10) % 10;
    return fromHsv(group * 15.0, step % 2 ? 0.5 : 1.0, values[step / 2]);
}

ColourPOD modelMaterialColour(const MeshModel::Material& material) {
    const auto it = material.attributes.find(L"colour");
    if (it == material.attributes.end()) {
        return defaultModelColour;
    }
    wchar_t* end = nullptr;
    const long number = std::wcstol(it->second.c_str(), &end, 10);
    if (end == it->second.c_str()) {
        return defaultModelColour;
    }
    return dxfColour(static_cast<int>(number));
}
