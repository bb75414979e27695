#include "applicators/MaskProfile.h"

#include <cmath>
#include <numbers>

namespace {

constexpr double pi = std::numbers::pi;

/// (cos(t pi) + 1) / 2: 1 at t = 0, 0 at t = 1.
double bell(double t) {
    return (std::cos(t * pi) + 1.0) * 0.5;
}

} // namespace

std::unique_ptr<MaskProfile> MaskProfile::make(int type, double hardness) {
    switch (type) {
    case negInvSoft: {
        NegInvSoftMaskProfile probe(1.0);
        return std::make_unique<NegInvSoftMaskProfile>(probe.hardnessFor(hardness));
    }
    case plateau: {
        PlateauMaskProfile probe(1.0);
        return std::make_unique<PlateauMaskProfile>(probe.hardnessFor(hardness));
    }
    default: {
        SoftMaskProfile probe(1.0);
        return std::make_unique<SoftMaskProfile>(probe.hardnessFor(hardness));
    }
    }
}

// The soft bell.

std::unique_ptr<MaskProfile> SoftMaskProfile::clone() const {
    return std::make_unique<SoftMaskProfile>(*this);
}

void MaskProfile::setBellLevel(double v, double peakAt) {
    if (v <= 0) {
        if (levelChangesPeak) {
            peak = 0;
        }
        if (levelChangesShape) {
            shape = 1.0;
        }
    } else if (v >= 1) {
        peak = 1.0f;
        shape = hardness;
    } else {
        if (levelChangesPeak) {
            peak = static_cast<float>(std::pow(bell(peakAt), hardness));
        }
        if (levelChangesShape) {
            shape = 1.0 - (1.0 - hardness) * v;
        }
    }
}

void SoftMaskProfile::setLevel(float level) {
    setBellLevel(level, 1.0 - level);
}

float SoftMaskProfile::value(double r) const {
    if (r >= 1) {
        return 0;
    }
    if (r > 0) {
        return static_cast<float>(std::pow(bell(r), shape) * peak);
    }
    return peak;
}

double SoftMaskProfile::hardnessFor(double h) const {
    if (h <= 0.5) {
        return 1.0;
    }
    if (h >= 1) {
        return 0;
    }
    return std::log(h) / std::log(bell(h));
}

// The mirrored bell.

std::unique_ptr<MaskProfile> NegInvSoftMaskProfile::clone() const {
    return std::make_unique<NegInvSoftMaskProfile>(*this);
}

void NegInvSoftMaskProfile::setLevel(float level) {
    setBellLevel(level, level);
}

float NegInvSoftMaskProfile::value(double r) const {
    if (r >= 1) {
        return 0;
    }
    if (r > 0) {
        return static_cast<float>((1.0 - std::pow(bell(1.0 - r), shape)) * peak);
    }
    return peak;
}

double NegInvSoftMaskProfile::hardnessFor(double h) const {
    if (h >= 0.5) {
        return 1.0;
    }
    if (h <= 0) {
        return 0;
    }
    return std::log(1.0 - h) / std::log(bell(1.0 - h));
}

// The plateau.

PlateauMaskProfile::PlateauMaskProfile(double h) : MaskProfile(std::fabs(h)) {
    levelChangesPeak = false;
}

std::unique_ptr<MaskProfile> PlateauMaskProfile::clone() const {
    return std::make_unique<PlateauMaskProfile>(*this);
}

void PlateauMaskProfile::setLevel(float level) {
    const double v = level;
    if (v <= 0) {
        if (levelChangesPeak) {
            peak = 0;
        }
        if (levelChangesShape) {
            shape = 0;
        }
    } else if (v >= 1) {
        peak = 1.0f;
        shape = hardness;
    } else {
        peak = level;
        shape = v * hardness;
    }
}

float PlateauMaskProfile::value(double r) const {
    if (r >= 1) {
        return 0;
    }
    if (r > shape) {
        return static_cast<float>((1.0 - r) / (1.0 - shape) * peak);
    }
    return peak;
}

double PlateauMaskProfile::hardnessFor(double h) const {
    if (h <= 0.5) {
        return 1.0;
    }
    if (h >= 1) {
        return 0;
    }
    return 1.0 / h - 1.0;
}
