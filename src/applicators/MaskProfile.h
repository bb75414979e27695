#pragma once

#include <memory>

/// The radial fall-off of a dab: coverage at a distance r from the centre, in units of the
/// radius (0 at the centre, 1 at the rim). A hardness picks the curve's exponent or plateau
/// through `hardnessFor`; `setLevel` lets pen pressure lower the peak or soften the curve
/// for one dab.
class MaskProfile {
public:
    /// The curves a brush can have ("ProfileType").
    enum Type : int { soft = 0, negInvSoft = 1, plateau = 2 };

    virtual ~MaskProfile() = default;
    virtual std::unique_ptr<MaskProfile> clone() const = 0;
    /// Sets the peak or the softness of the next dab from a level 0 to 1 (the pressure).
    virtual void setLevel(float level) = 0;
    /// Coverage at r (0 to 1; 0 at r >= 1).
    virtual float value(double r) const = 0;
    /// The exponent or plateau radius that hardness h (0 to 1) stands for.
    virtual double hardnessFor(double h) const = 0;

    /// A profile of a type from a hardness 0 to 1 (converted through hardnessFor); an
    /// unknown type gives the soft curve.
    static std::unique_ptr<MaskProfile> make(int type, double hardness);

    /// The hardness value the curve was built with (the result of hardnessFor).
    double hardness = 1.0;
    /// What `value` uses: an exponent or a plateau radius; starts as `hardness`.
    double shape = 1.0;
    float peak = 1.0f;
    bool levelChangesShape = true;
    bool levelChangesPeak = false;

protected:
    explicit MaskProfile(double h) : hardness(h), shape(h) {}

    /// `setLevel` of the two bells, which differ only in where their peak curve is read:
    /// the peak becomes bell(`peakAt`) ^ hardness for a level strictly between 0 and 1.
    void setBellLevel(double level, double peakAt);
};

/// ((cos(r pi) + 1) / 2) ^ shape: a bell that is flat at the centre.
class SoftMaskProfile : public MaskProfile {
public:
    /// `h` is already the exponent (use hardnessFor to convert a hardness).
    explicit SoftMaskProfile(double h) : MaskProfile(h) {}
    std::unique_ptr<MaskProfile> clone() const override;
    void setLevel(float level) override;
    float value(double r) const override;
    double hardnessFor(double h) const override;
};

/// The mirror of the soft curve: 1 - ((cos((1 - r) pi) + 1) / 2) ^ shape, steep at the
/// centre and flat at the rim.
class NegInvSoftMaskProfile : public MaskProfile {
public:
    explicit NegInvSoftMaskProfile(double h) : MaskProfile(h) {}
    std::unique_ptr<MaskProfile> clone() const override;
    void setLevel(float level) override;
    float value(double r) const override;
    double hardnessFor(double h) const override;
};

/// A flat top out to radius `shape`, then a straight ramp to 0 at the rim.
class PlateauMaskProfile : public MaskProfile {
public:
    /// `h` is the plateau radius (its absolute value is taken).
    explicit PlateauMaskProfile(double h);
    std::unique_ptr<MaskProfile> clone() const override;
    void setLevel(float level) override;
    float value(double r) const override;
    double hardnessFor(double h) const override;
};
