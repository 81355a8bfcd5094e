#include "support/temp_tree.h"

#include <atomic>
#include <unistd.h>

namespace testing_support {

TempTree::TempTree() {
    static std::atomic<int> counter{0};
    path_ = std::filesystem::temp_directory_path() /
            ("nubex-test-" + std::to_string(::getpid()) + "-" + std::to_string(counter++));
    std::filesystem::remove_all(path_);
    std::filesystem::create_directories(path_);
}

TempTree::~TempTree() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

void writeResource(const std::string& folder, int group, const std::string& detailsLine,
                   const std::string& classTable) {
    Resources::ResourceContents contents;
    contents.detailsLine = detailsLine;
    contents.classTable = classTable;
    contents.network = "<net/>";
    Resources::writeResourceFolder(folder, group, contents);
}

}  // namespace testing_support
