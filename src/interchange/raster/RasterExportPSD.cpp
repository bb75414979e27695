#include "interchange/raster/RasterExport.h"

#include "core/StringUtils.h"

#include <algorithm>
#include <cstring>
#include <lcms2.h>

void packBits(const std::uint8_t* data, std::size_t count, std::vector<std::uint8_t>& out) {
    std::size_t i = 0;
    while (i < count) {
        // A run of 2 or more equal bytes (up to 128) is a repeat; else literals up to the
        // next run of 3 (a run of 2 inside literals costs as much as the literals).
        std::size_t run = 1;
        while (i + run < count && run < 128 && data[i + run] == data[i]) {
            ++run;
        }
        if (run >= 2) {
            out.push_back(std::uint8_t(257 - run)); // -(run - 1)
            out.push_back(data[i]);
            i += run;
            continue;
        }
        std::size_t literal = 1;
        while (i + literal < count && literal < 128) {
            if (i + literal + 2 < count && data[i + literal] == data[i + literal + 1] &&
                data[i + literal] == data[i + literal + 2]) {
                break;
            }
            ++literal;
        }
        out.push_back(std::uint8_t(literal - 1));
        out.insert(out.end(), data + i, data + i + literal);
        i += literal;
    }
}

namespace {

class BigEndian {
public:
    std::vector<std::uint8_t> bytes;
    void u8(std::uint32_t v) { bytes.push_back(std::uint8_t(v)); }
    void u16(std::uint32_t v) { u8(v >> 8), u8(v); }
    void u32(std::uint32_t v) { u16(v >> 16), u16(v & 0xFFFF); }
    void text(const char* s) { bytes.insert(bytes.end(), s, s + std::strlen(s)); }
    void patch32(std::size_t at, std::uint32_t v) {
        bytes[at] = std::uint8_t(v >> 24), bytes[at + 1] = std::uint8_t(v >> 16);
        bytes[at + 2] = std::uint8_t(v >> 8), bytes[at + 3] = std::uint8_t(v);
    }
    void padTo(std::size_t from, std::size_t multiple) {
        while ((bytes.size() - from) % multiple != 0) {
            u8(0);
        }
    }
};

/// The sRGB profile as bytes, from Little CMS.
std::vector<std::uint8_t> srgbProfile() {
    std::vector<std::uint8_t> data;
    cmsHPROFILE profile = cmsCreate_sRGBProfile();
    if (!profile) {
        return data;
    }
    cmsUInt32Number size = 0;
    if (cmsSaveProfileToMem(profile, nullptr, &size) && size > 0) {
        data.resize(size);
        if (!cmsSaveProfileToMem(profile, data.data(), &size)) {
            data.clear();
        }
    }
    cmsCloseProfile(profile);
    return data;
}

/// 16.16 fixed point.
std::uint32_t fixed(double v) {
    return std::uint32_t(std::clamp(v, 0.0, 32767.0) * 65536 + 0.5);
}

/// One channel of a layer picture (0 red, 1 green, 2 blue, -1 alpha), coded.
std::vector<std::uint8_t> layerChannel(const Raster& r, int channel, bool compress) {
    BigEndian out;
    out.u16(compress ? 1 : 0);
    std::vector<std::uint8_t> plane(std::size_t(r.width));
    std::vector<std::uint8_t> coded;
    std::vector<std::uint16_t> counts;
    for (std::int32_t y = 0; y < r.height; ++y) {
        if (channel < 0) {
            if (r.hasAlpha()) {
                std::memcpy(plane.data(), r.alphaRow(y), plane.size());
            } else {
                std::fill(plane.begin(), plane.end(), 255);
            }
        } else {
            const std::uint8_t* in = r.row(y) + (2 - channel);
            for (std::int32_t x = 0; x < r.width; ++x) {
                plane[x] = in[std::size_t(x) * 3];
            }
        }
        if (compress) {
            const std::size_t before = coded.size();
            packBits(plane.data(), plane.size(), coded);
            counts.push_back(std::uint16_t(coded.size() - before));
        } else {
            coded.insert(coded.end(), plane.begin(), plane.end());
        }
    }
    for (std::uint16_t c : counts) {
        out.u16(c);
    }
    out.bytes.insert(out.bytes.end(), coded.begin(), coded.end());
    return out.bytes;
}

/// Appends a tagged block "8BIM" key with its data, padded to an even length.
void taggedBlock(BigEndian& out, const char* key, const BigEndian& data) {
    out.text("8BIM");
    out.text(key);
    const std::size_t length = (data.bytes.size() + 1) & ~std::size_t(1);
    out.u32(std::uint32_t(length));
    out.bytes.insert(out.bytes.end(), data.bytes.begin(), data.bytes.end());
    if (length != data.bytes.size()) {
        out.u8(0);
    }
}

/// The record and channel data of one layer, as the file holds them.
struct LayerBlock {
    BigEndian record;
    std::vector<std::vector<std::uint8_t>> channels;
};

LayerBlock makeLayer(const PsdLayer& layer, bool compress) {
    LayerBlock block;
    BigEndian& r = block.record;
    const bool group = layer.kind != PsdLayer::Kind::pixels;
    const Raster* picture = group ? nullptr : layer.picture.get();
    if (picture) {
        r.u32(std::uint32_t(layer.bounds.lo().y));
        r.u32(std::uint32_t(layer.bounds.lo().x));
        r.u32(std::uint32_t(layer.bounds.lo().y + picture->height));
        r.u32(std::uint32_t(layer.bounds.lo().x + picture->width));
    } else {
        r.u32(0), r.u32(0), r.u32(0), r.u32(0);
    }
    static constexpr int ids[4] = {-1, 0, 1, 2};
    r.u16(4);
    for (int id : ids) {
        std::vector<std::uint8_t> data;
        if (picture) {
            data = layerChannel(*picture, id, compress);
        } else {
            data = {0, 0}; // raw, no rows
        }
        r.u16(std::uint32_t(std::uint16_t(std::int16_t(id))));
        r.u32(std::uint32_t(data.size()));
        block.channels.push_back(std::move(data));
    }
    r.text("8BIM");
    r.text("norm");
    r.u8(layer.opacity);
    r.u8(0); // clipping
    // Flags: bit 1 hidden; bits 3 and 4 mark a group record as having no pixels of its own.
    std::uint32_t flags = layer.visible ? 0 : 2;
    if (layer.kind == PsdLayer::Kind::groupEnd) {
        flags = 0x18 | 2;
    } else if (group) {
        flags |= 0x18;
    }
    r.u8(flags);
    r.u8(0);
    // Extra data.
    const std::size_t extraAt = r.bytes.size();
    r.u32(0);
    r.u32(0); // no layer mask
    r.u32(0); // no blending ranges
    const std::wstring name =
        layer.kind == PsdLayer::Kind::groupEnd ? std::wstring(L"</Layer group>") : layer.name;
    std::string pascal = utf8(name);
    // The Pascal name is in the legacy 8-bit form; the full name goes in "luni".
    for (char& c : pascal) {
        if (static_cast<unsigned char>(c) >= 0x80) {
            c = '_';
        }
    }
    pascal.resize(std::min<std::size_t>(pascal.size(), 255));
    const std::size_t nameAt = r.bytes.size();
    r.u8(std::uint32_t(pascal.size()));
    r.text(pascal.c_str());
    r.padTo(nameAt, 4);

    BigEndian unicode;
    unicode.u32(std::uint32_t(name.size()));
    for (wchar_t c : name) {
        if (c > 0xFFFF) {
            const std::uint32_t v = std::uint32_t(c) - 0x10000;
            unicode.u16(0xD800 + (v >> 10));
            unicode.u16(0xDC00 + (v & 0x3FF));
        } else {
            unicode.u16(std::uint32_t(c));
        }
    }
    taggedBlock(r, "luni", unicode);
    BigEndian id;
    id.u32(std::uint32_t(layer.id));
    taggedBlock(r, "lyid", id);
    if (group) {
        BigEndian section;
        section.u32(layer.kind == PsdLayer::Kind::groupEnd ? 3 : layer.open ? 1 : 2);
        taggedBlock(r, "lsct", section);
    }
    r.patch32(extraAt, std::uint32_t(r.bytes.size() - extraAt - 4));
    return block;
}

} // namespace

Status RasterExportPSD::writeFile(std::FILE* file, const std::string&, Rows& rows,
                                  double resolutionX, double resolutionY,
                                  const ExportOptions& options) {
    const std::int32_t w = rows.width();
    const std::int32_t h = rows.height();
    if (w > 30000 || h > 30000) {
        errorText_ = L"A PSD file holds at most 30000 pixels a side";
        return status::noConversion;
    }
    for (const PsdLayer& layer : options.layers) {
        if (layer.kind == PsdLayer::Kind::pixels &&
            (!layer.picture || layer.picture->width != layer.bounds.width() ||
             layer.picture->height != layer.bounds.height())) {
            errorText_ = L"A layer's picture doesn't fit its bounds: " + layer.name;
            return status::damaged;
        }
    }
    // Header and the empty colour mode section, in one write.
    BigEndian head;
    head.text("8BPS");
    head.u16(1);
    head.u32(0), head.u16(0);
    head.u16(3);
    head.u32(std::uint32_t(h));
    head.u32(std::uint32_t(w));
    head.u16(8);
    head.u16(3);
    head.u32(0);
    // Image resources, their length patched at the end.
    const std::size_t resourcesAt = head.bytes.size();
    head.u32(0);
    head.text("8BIM");
    head.u16(1005); // ResolutionInfo, in pixels per inch
    head.u16(0);
    head.u32(16);
    head.u32(fixed(resolutionX * 0.0254)), head.u16(1), head.u16(1);
    head.u32(fixed(resolutionY * 0.0254)), head.u16(1), head.u16(1);
    if (options.colourManaged) {
        const std::vector<std::uint8_t> profile = srgbProfile();
        if (!profile.empty()) {
            head.text("8BIM");
            head.u16(1039);
            head.u16(0);
            head.u32(std::uint32_t(profile.size()));
            head.bytes.insert(head.bytes.end(), profile.begin(), profile.end());
            head.padTo(0, 2);
        }
    }
    head.patch32(resourcesAt, std::uint32_t(head.bytes.size() - resourcesAt - 4));
    if (!put(file, head.bytes.data(), head.bytes.size())) {
        return lastError_;
    }

    // The layer and mask section: nothing but its zero length without layers. The file
    // holds layers bottom first, so the list (top first) is written backwards.
    if (options.layers.empty()) {
        const std::uint8_t zero[4] = {0, 0, 0, 0};
        if (!put(file, zero, 4)) {
            return lastError_;
        }
    } else {
        BigEndian layers;
        layers.u32(0); // section length
        layers.u32(0); // layer info length
        layers.u16(std::uint32_t(options.layers.size()));
        std::vector<LayerBlock> blocks;
        for (auto it = options.layers.rbegin(); it != options.layers.rend(); ++it) {
            blocks.push_back(makeLayer(*it, options.packBits));
            layers.bytes.insert(layers.bytes.end(), blocks.back().record.bytes.begin(),
                                blocks.back().record.bytes.end());
        }
        for (const LayerBlock& block : blocks) {
            for (const auto& channel : block.channels) {
                layers.bytes.insert(layers.bytes.end(), channel.begin(), channel.end());
            }
        }
        layers.padTo(8, 4);
        layers.patch32(4, std::uint32_t(layers.bytes.size() - 8));
        layers.u32(0); // no global layer mask
        layers.patch32(0, std::uint32_t(layers.bytes.size() - 4));
        if (!put(file, layers.bytes.data(), layers.bytes.size())) {
            return lastError_;
        }
    }

    // The composite, plane by plane: red, green, blue. With PackBits the table of row byte
    // counts comes first; it is written as zeros and patched once the rows are known.
    const std::uint8_t compression[2] = {0, std::uint8_t(options.packBits ? 1 : 0)};
    if (!put(file, compression, 2)) {
        return lastError_;
    }
    const long tableAt = std::ftell(file);
    std::vector<std::uint8_t> table;
    if (options.packBits) {
        table.assign(std::size_t(h) * 3 * 2, 0);
        if (!put(file, table.data(), table.size())) {
            return lastError_;
        }
    }
    std::vector<std::uint8_t> plane(static_cast<std::size_t>(w));
    std::vector<std::uint8_t> coded;
    for (int c = 0; c < 3; ++c) {
        for (std::int32_t y = 0; y < h; ++y) {
            if (reportRow(options, c * h + y, 3 * h)) {
                return lastError_;
            }
            const std::uint8_t* in = rows.row(y) + (2 - c);
            for (std::int32_t x = 0; x < w; ++x) {
                plane[x] = in[std::size_t(x) * 3];
            }
            if (!options.packBits) {
                if (!put(file, plane.data(), plane.size())) {
                    return lastError_;
                }
                continue;
            }
            coded.clear();
            packBits(plane.data(), plane.size(), coded);
            const std::size_t at = (std::size_t(c) * h + y) * 2;
            table[at] = std::uint8_t(coded.size() >> 8);
            table[at + 1] = std::uint8_t(coded.size());
            if (!put(file, coded.data(), coded.size())) {
                return lastError_;
            }
        }
    }
    if (options.packBits) {
        if (std::fseek(file, tableAt, SEEK_SET) != 0 || !put(file, table.data(), table.size()) ||
            std::fseek(file, 0, SEEK_END) != 0) {
            lastError_ = status::writeFailed;
            return lastError_;
        }
    }
    return status::ok;
}
