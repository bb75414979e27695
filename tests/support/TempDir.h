#pragma once

#include <string>
#include <vector>

namespace test {

/// A fresh directory under the system's temporary directory, removed with its contents
/// when the object goes.
class TempDir {
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const std::string& path() const { return path_; }
    /// `name` inside the directory.
    std::string file(const std::string& name) const { return path_ + "/" + name; }
    /// Names of the entries in the directory, sorted.
    std::vector<std::string> entries() const;

private:
    std::string path_;
};

} // namespace test
