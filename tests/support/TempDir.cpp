#include "support/TempDir.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>

namespace test {

TempDir::TempDir() {
    std::string pattern =
        (std::filesystem::temp_directory_path() / "quorvale-test-XXXXXX").string();
    if (!::mkdtemp(pattern.data())) {
        throw std::runtime_error("cannot make a temporary directory");
    }
    path_ = pattern;
}

TempDir::~TempDir() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

std::vector<std::string> TempDir::entries() const {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(path_)) {
        names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

} // namespace test
