#include "DxfBuilder.h"

#include <cstdio>
#include <cstring>

DxfBuilder& DxfBuilder::text(int code, const std::string& value) {
    groups_.push_back({code, value});
    return *this;
}

DxfBuilder& DxfBuilder::real(int code, double value) {
    groups_.push_back({code, value});
    return *this;
}

DxfBuilder& DxfBuilder::int16(int code, int value) {
    groups_.push_back({code, static_cast<std::int16_t>(value)});
    return *this;
}

DxfBuilder& DxfBuilder::int32(int code, long value) {
    groups_.push_back({code, static_cast<std::int32_t>(value)});
    return *this;
}

DxfBuilder& DxfBuilder::point(int code, double x, double y, double z) {
    return real(code, x).real(code + 10, y).real(code + 20, z);
}

DxfBuilder& DxfBuilder::append(const DxfBuilder& other) {
    groups_.insert(groups_.end(), other.groups_.begin(), other.groups_.end());
    return *this;
}

DxfBuilder& DxfBuilder::polyline(const std::string& layer, int flags, int m, int n) {
    return text(0, "POLYLINE").text(8, layer).int16(70, flags).int16(71, m).int16(72, n);
}

DxfBuilder& DxfBuilder::vertex(const std::string& layer, double x, double y, double z, int flags) {
    return text(0, "VERTEX").text(8, layer).point(10, x, y, z).int16(70, flags);
}

DxfBuilder& DxfBuilder::faceRecord(const std::string& layer, const std::vector<int>& corners) {
    vertex(layer, 0, 0, 0, 128);
    for (std::size_t k = 0; k < corners.size(); ++k) {
        int16(71 + static_cast<int>(k), corners[k]);
    }
    return *this;
}

DxfBuilder& DxfBuilder::face3d(const std::string& layer,
                               const std::vector<std::vector<double>>& corners) {
    text(0, "3DFACE").text(8, layer);
    for (std::size_t i = 0; i < corners.size(); ++i) {
        point(10 + static_cast<int>(i), corners[i][0], corners[i][1], corners[i][2]);
    }
    return *this;
}

std::string DxfBuilder::ascii(bool crlf) const {
    const char* nl = crlf ? "\r\n" : "\n";
    std::string out;
    char buffer[64];
    for (const Group& g : groups_) {
        std::snprintf(buffer, sizeof buffer, "%3d", g.code);
        out += buffer;
        out += nl;
        if (const auto* s = std::get_if<std::string>(&g.value)) {
            out += *s;
        } else if (const auto* d = std::get_if<double>(&g.value)) {
            std::snprintf(buffer, sizeof buffer, "%.17g", *d);
            out += buffer;
        } else if (const auto* i = std::get_if<std::int16_t>(&g.value)) {
            std::snprintf(buffer, sizeof buffer, "%6d", *i);
            out += buffer;
        } else {
            std::snprintf(buffer, sizeof buffer, "%9d",
                          static_cast<int>(std::get<std::int32_t>(g.value)));
            out += buffer;
        }
        out += nl;
    }
    return out;
}

namespace {
void little(std::string& out, std::uint64_t v, int bytes) {
    for (int i = 0; i < bytes; ++i) {
        out.push_back(static_cast<char>((v >> (8 * i)) & 0xFF));
    }
}
} // namespace

std::string DxfBuilder::binary(bool twoByteCodes) const {
    std::string out("AutoCAD Binary DXF\r\n\x1a\0", 22);
    for (const Group& g : groups_) {
        if (twoByteCodes) {
            little(out, static_cast<std::uint16_t>(g.code), 2);
        } else if (g.code >= 255) {
            out.push_back(static_cast<char>(255));
            little(out, static_cast<std::uint16_t>(g.code), 2);
        } else {
            out.push_back(static_cast<char>(g.code));
        }
        if (const auto* s = std::get_if<std::string>(&g.value)) {
            out += *s;
            out.push_back('\0');
        } else if (const auto* d = std::get_if<double>(&g.value)) {
            std::uint64_t bits;
            std::memcpy(&bits, d, 8);
            little(out, bits, 8);
        } else if (const auto* i = std::get_if<std::int16_t>(&g.value)) {
            little(out, static_cast<std::uint16_t>(*i), 2);
        } else {
            little(out, static_cast<std::uint32_t>(std::get<std::int32_t>(g.value)), 4);
        }
    }
    return out;
}
