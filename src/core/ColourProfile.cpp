#include "core/ColourProfile.h"

#include "core/StringUtils.h"

#include <lcms2.h>
#include <vector>

namespace TQL {

Handle<ColourProfile> ColourProfile::create(ColourProfileId id) {
    cmsHPROFILE p = nullptr;
    switch (id) {
    case ColourProfileId::sRGB:
        p = cmsCreate_sRGBProfile();
        break;
    case ColourProfileId::linearGrey: {
        cmsToneCurve* linear = cmsBuildGamma(nullptr, 1.0);
        p = cmsCreateGrayProfile(cmsD50_xyY(), linear);
        cmsFreeToneCurve(linear);
        break;
    }
    }
    return p ? Handle<ColourProfile>(new ColourProfile(p)) : Handle<ColourProfile>();
}

Handle<ColourProfile> ColourProfile::createFromFile(const std::wstring& path) {
    cmsHPROFILE p = cmsOpenProfileFromFile(utf8(path).c_str(), "r");
    return p ? Handle<ColourProfile>(new ColourProfile(p)) : Handle<ColourProfile>();
}

Handle<ColourProfile> ColourProfile::createFromMemory(const void* data, std::size_t size) {
    if (!data || size == 0 || size > 0x7FFFFFFF) {
        return {};
    }
    cmsHPROFILE p = cmsOpenProfileFromMem(data, static_cast<cmsUInt32Number>(size));
    return p ? Handle<ColourProfile>(new ColourProfile(p)) : Handle<ColourProfile>();
}

std::wstring ColourProfile::description() const {
    const cmsUInt32Number n =
        cmsGetProfileInfo(profile_, cmsInfoDescription, "en", "US", nullptr, 0);
    if (n == 0) {
        return {};
    }
    std::vector<wchar_t> text(n / sizeof(wchar_t) + 1, 0);
    cmsGetProfileInfo(profile_, cmsInfoDescription, "en", "US", text.data(), n);
    return std::wstring(text.data());
}

ColourProfile::~ColourProfile() {
    cmsCloseProfile(profile_);
}

Handle<ColourTransform> ColourTransform::chain(RenderingIntent intent,
                                               const ColourProfile* const* profiles, int count) {
    cmsHPROFILE list[4];
    cmsUInt32Number intents[4];
    cmsBool bpc[4];
    cmsFloat64Number adaptation[4];
    for (int i = 0; i < count; ++i) {
        list[i] = profiles[i]->native();
        intents[i] = static_cast<cmsUInt32Number>(intent);
        bpc[i] = FALSE;
        adaptation[i] = 1.0;
    }
    cmsHTRANSFORM t =
        cmsCreateExtendedTransform(nullptr, static_cast<cmsUInt32Number>(count), list, bpc, intents,
                                   adaptation, nullptr, 0, TYPE_BGR_8, TYPE_BGR_8, 0);
    return t ? Handle<ColourTransform>(new ColourTransform(t)) : Handle<ColourTransform>();
}

Handle<ColourTransform> ColourTransform::create(RenderingIntent intent, const ColourProfile& from,
                                                const ColourProfile& to) {
    const ColourProfile* p[] = {&from, &to};
    return chain(intent, p, 2);
}

Handle<ColourTransform> ColourTransform::create(RenderingIntent intent, const ColourProfile& a,
                                                const ColourProfile& b, const ColourProfile& c) {
    const ColourProfile* p[] = {&a, &b, &c};
    return chain(intent, p, 3);
}

Handle<ColourTransform> ColourTransform::create(RenderingIntent intent, const ColourProfile& a,
                                                const ColourProfile& b, const ColourProfile& c,
                                                const ColourProfile& d) {
    const ColourProfile* p[] = {&a, &b, &c, &d};
    return chain(intent, p, 4);
}

void ColourTransform::apply(const ColourPOD* in, ColourPOD* out, std::size_t count) const {
    // lcms2 takes 32-bit pixel counts: feed large rows in pieces.
    constexpr std::size_t piece = 1u << 24;
    while (count > 0) {
        const std::size_t n = count < piece ? count : piece;
        cmsDoTransform(transform_, in, out, static_cast<cmsUInt32Number>(n));
        in += n;
        out += n;
        count -= n;
    }
}

ColourTransform::~ColourTransform() {
    cmsDeleteTransform(transform_);
}

} // namespace TQL
