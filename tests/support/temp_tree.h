#pragma once

#include <filesystem>
#include <string>

#include "resources/resource_writer.h"

namespace testing_support {

// A fresh directory below the system's temporary folder, removed with its
// contents when the object goes.
class TempTree {
public:
    TempTree();
    ~TempTree();
    TempTree(const TempTree&) = delete;
    TempTree& operator=(const TempTree&) = delete;

    const std::filesystem::path& path() const { return path_; }
    std::string str() const { return path_.string(); }
    std::string operator/(const std::string& relative) const { return (path_ / relative).string(); }

private:
    std::filesystem::path path_;
};

// Writes a resource folder without a network: enough for the registry.
void writeResource(const std::string& folder, int group, const std::string& detailsLine,
                   const std::string& classTable);

}  // namespace testing_support
