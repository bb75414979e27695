#include "app/ToolboxKeys.h"

#include "styles/CToolStyle.h"

#include <algorithm>
#include <cstdio>
#include <cwchar>
#include <vector>

namespace toolboxkeys {

namespace {

const CToolStyle& section() {
    static const CToolStyle toolbox(L"Toolbox");
    return toolbox;
}

bool knownApplicator(int id) {
    static constexpr int known[] = {2001, 2002, 2003, 2004, 2005, 2006,
                                    2008, 2009, 2010, 2016, 2017};
    return std::find(std::begin(known), std::end(known), id) != std::end(known);
}

/// Effect ids 1 to 6 and their codes in "ToolState"; code 2 is paint with fog.
constexpr int effectCodes[] = {1, 3, 4, 5, 7, 8};

} // namespace

std::wstring toolStateText(const ToolboxState& s) {
    const int applicator = knownApplicator(s.currentApplicatorId) ? s.currentApplicatorId : 2001;
    const int effect =
        s.currentEffectId >= 1 && s.currentEffectId <= 6 ? effectCodes[s.currentEffectId - 1] : 1;
    wchar_t text[96];
    std::swprintf(text, std::size(text), L"%d,%d,%d,%d,%d,%d", applicator,
                  static_cast<int>(s.lockMask), effect, s.textureOn ? 1 : 0, s.grainOn ? 1 : 0,
                  static_cast<int>(s.blendMode));
    return text;
}

void applyToolState(const std::wstring& text, ToolboxState& s) {
    int parts[6] = {-1, -1, -1, -1, -1, -1};
    std::size_t at = 0;
    for (int i = 0; i < 6 && at <= text.size(); ++i) {
        const std::size_t comma = text.find(L',', at);
        const std::wstring part =
            text.substr(at, comma == std::wstring::npos ? std::wstring::npos : comma - at);
        wchar_t* end = nullptr;
        const long v = std::wcstol(part.c_str(), &end, 10);
        if (!part.empty() && end && *end == 0) {
            parts[i] = static_cast<int>(v);
        }
        if (comma == std::wstring::npos) {
            break;
        }
        at = comma + 1;
    }
    if (parts[0] >= 2001 && parts[0] <= 2017) {
        s.currentApplicatorId = static_cast<std::uint16_t>(parts[0]);
    }
    if (parts[1] != -1) {
        s.lockMask = static_cast<std::uint32_t>(std::clamp(parts[1], 0, 15));
    }
    if (parts[2] == 2) {
        s.currentEffectId = 1;
        s.fogOn = true;
    } else if (parts[2] != -1) {
        const int* code = std::find(std::begin(effectCodes), std::end(effectCodes), parts[2]);
        if (code != std::end(effectCodes)) {
            s.currentEffectId = static_cast<std::int32_t>(code - std::begin(effectCodes)) + 1;
        }
    }
    if (parts[3] != -1) {
        s.textureOn = parts[3] != 0;
    }
    if (parts[4] != -1) {
        s.grainOn = parts[4] != 0;
    }
    if (parts[5] != -1) {
        s.blendMode = parts[5] >= 0 && parts[5] <= 17 ? static_cast<std::uint32_t>(parts[5]) : 0;
    }
}

void read(ToolboxState& s) {
    const CToolStyle& t = section();
    applyToolState(t.getString(L"ToolState", std::wstring()), s);
    s.fogOn = t.getInt(L"Fog", s.fogOn ? 1 : 0) != 0;
    s.blendOpacity = std::clamp(t.getInt(L"Fad", s.blendOpacity), 1, 100);
    s.colourStrength = std::clamp(t.getInt(L"Res", s.colourStrength), 0, 100);
    s.textureOpacity = std::clamp(t.getInt(L"Tex", s.textureOpacity), 0, 100);
    const int colour =
        t.getInt(L"Col", (s.colour[0] << 16) | (s.colour[1] << 8) | s.colour[2]) & 0xFFFFFF;
    s.colour[0] = static_cast<std::uint8_t>(colour >> 16);
    s.colour[1] = static_cast<std::uint8_t>(colour >> 8);
    s.colour[2] = static_cast<std::uint8_t>(colour);
}

void write(const ToolboxState& s) {
    const CToolStyle& t = section();
    t.setString(L"ToolState", toolStateText(s));
    t.setInt(L"Fog", s.fogOn ? 1 : 0);
    t.setInt(L"Fad", s.blendOpacity);
    t.setInt(L"Res", s.colourStrength);
    t.setInt(L"Tex", s.textureOpacity);
    t.setInt(L"Col", (s.colour[0] << 16) | (s.colour[1] << 8) | s.colour[2]);
}

} // namespace toolboxkeys
