#pragma once

#include "image/ZmapDocument.h"

#include <cstdint>
#include <memory>

namespace test {

/// A document without a window: records what setChanged was told.
class TestDocument : public ZmapDocument {
public:
    void setChanged(bool changed) override {
        changedFlag = changed;
        ++setChangedCalls;
    }

    bool changedFlag = false;
    int setChangedCalls = 0;
};

/// A document of width x height whose colour channel exists and whose other channels are
/// allocated. Throws std::runtime_error if the size or the allocation fails.
std::unique_ptr<TestDocument> makeTestDocument(std::int32_t width, std::int32_t height);

} // namespace test
