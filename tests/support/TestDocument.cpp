#include "support/TestDocument.h"

#include <stdexcept>
#include <string>

namespace test {

std::unique_ptr<TestDocument> makeTestDocument(std::int32_t width, std::int32_t height) {
    auto document = std::make_unique<TestDocument>();
    Status s = document->setSize(width, height);
    if (s == status::ok) {
        document->rgb = TQL::makeHandle<RgbBitmap>(*document);
        s = document->allocateChannels();
    }
    if (s != status::ok) {
        throw std::runtime_error("test document " + std::to_string(width) + "x" +
                                 std::to_string(height) + " failed with status " +
                                 std::to_string(s));
    }
    return document;
}

} // namespace test
