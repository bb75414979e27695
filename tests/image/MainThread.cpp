// The tile free list works on the main thread only: record the thread that runs the tests
// before any test starts another. (Done from a test environment, not a static initialiser:
// the core's record of the main thread is itself set up during static initialisation.)
#include "core/ThreadName.h"

#include <gtest/gtest.h>

namespace {

class MainThreadEnvironment : public testing::Environment {
public:
    void SetUp() override { TQL::setMainThread(); }
};

const testing::Environment* const environment =
    testing::AddGlobalTestEnvironment(new MainThreadEnvironment);

} // namespace
