#include "interchange/dxf/DXFEntity.h"

#include <cmath>

void DXFGroup::clear() {
    for (std::size_t i = 0; i < xdataStart_; ++i) {
        const int code = items_[i].code;
        if (code >= 0 && code < indexedCodes) {
            firstOf_[code] = 0;
        }
    }
    items_.clear();
    xdataStart_ = 0;
    inXdata_ = false;
}

void DXFGroup::add(const DXFItem& item) {
    inXdata_ = inXdata_ || item.code == 1001;
    items_.push_back(item);
    if (!inXdata_) {
        xdataStart_ = items_.size();
        const int code = item.code;
        if (code >= 0 && code < indexedCodes && firstOf_[code] == 0 && items_.size() <= 0xFFFF) {
            firstOf_[code] = static_cast<std::uint16_t>(items_.size());
        }
    }
}

const DXFItem* DXFGroup::find(int code) const {
    if (code >= 0 && code < indexedCodes) {
        const std::uint16_t at = firstOf_[code];
        if (at != 0 || items_.size() < 0xFFFF) {
            return at ? &items_[at - 1] : nullptr;
        }
    }
    for (std::size_t i = 0; i < xdataStart_; ++i) {
        if (items_[i].code == code) {
            return &items_[i];
        }
    }
    return nullptr;
}

double DXFGroup::getDouble(int code, double fallback) const {
    const DXFItem* item = find(code);
    return item ? item->asDouble() : fallback;
}

long DXFGroup::getInt(int code, long fallback) const {
    const DXFItem* item = find(code);
    return item ? item->asInt() : fallback;
}

std::string_view DXFGroup::getText(int code) const {
    const DXFItem* item = find(code);
    return item ? item->trimmed() : std::string_view();
}

Point<3> DXFGroup::getPoint(int code, const Point<3>& fallback) const {
    return {getDouble(code, fallback[0]), getDouble(code + 10, fallback[1]),
            getDouble(code + 20, fallback[2])};
}

Vector<3> DXFGroup::extrusion() const {
    const Vector<3> n(getDouble(210, 0), getDouble(220, 0), getDouble(230, 1));
    const double len = n.length();
    return len > 1e-12 && std::isfinite(len) ? n / len : Vector<3>(0, 0, 1);
}

std::vector<std::string_view> DXFGroup::xdataTexts(std::string_view app) const {
    std::vector<std::string_view> out;
    bool inApp = false;
    for (std::size_t i = xdataStart_; i < items_.size(); ++i) {
        const DXFItem& item = items_[i];
        if (item.code == 1001) {
            inApp = item.trimmed() == app;
        } else if (inApp && item.code == 1000) {
            out.push_back(item.trimmed());
        }
    }
    return out;
}

bool DXFEntity::read(DXFStream& stream) {
    DXFItem item;
    do {
        if (!stream.read(item)) {
            clear();
            return false;
        }
    } while (item.code == 999);
    if (item.code != 0) {
        stream.fail(L"Bad DXF group", item.line);
    }
    readRest(item, stream);
    return true;
}

void DXFEntity::readRest(const DXFItem& head, DXFStream& stream) {
    clear();
    add(head);
    DXFItem item;
    while (stream.readCode(item)) {
        if (item.code == 999) {
            stream.skipValue(item);
            continue;
        }
        stream.readValue(item);
        if (item.code == 0) {
            stream.unread(item);
            break;
        }
        add(item);
    }
}

void DXFEntity::skipRest(DXFStream& stream) {
    DXFItem item;
    while (stream.readCode(item)) {
        if (item.code == 0) {
            stream.readValue(item);
            stream.unread(item);
            return;
        }
        stream.skipValue(item);
    }
}

std::string_view DXFEntity::layer() const {
    const std::string_view l = getText(8);
    return l.empty() ? std::string_view("0") : l;
}
