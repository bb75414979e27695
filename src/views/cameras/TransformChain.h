#pragma once

#include "core/Transform.h"

#include <memory>

/// A chain of transforms built in the order a point meets them, for the cameras'
/// constructors.
class TransformChain {
public:
    explicit TransformChain(const Transform<3>& first) : t_(first.clone()) {}
    TransformChain& then(const Transform<3>& next) {
        t_ = t_->then(next);
        return *this;
    }
    TransformChain& translate(double x, double y, double z) {
        return then(UniformTransform<3>::translation(Vector<3>(x, y, z)));
    }
    TransformChain& scale(double x, double y, double z) {
        return then(NonUniformTransform<3>::scale(x, y, z));
    }
    const Transform<3>& get() const { return *t_; }

private:
    std::unique_ptr<Transform<3>> t_;
};
