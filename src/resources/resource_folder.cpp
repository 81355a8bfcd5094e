#include "resources/resource_folder.h"

#include <vector>

#include "base/platform.h"
#include "resources/resource_file.h"
#include "resources/resource_info.h"

namespace Resources {

bool holdsGroupFiles(const std::string& folder, int group) {
    if (group < 0 || group >= kGroupCount) return false;
    std::vector<Base::platform::DirectoryEntry> entries;
    int errorNumber = 0;
    if (!Base::platform::listDirectory(folder, entries, errorNumber)) return false;
    const std::string names[] = {resourceFileName(group, FileRole::Network), resourceFileName(group, FileRole::Weights),
                                 resourceFileName(group, FileRole::ClassTable),
                                 resourceFileName(group, FileRole::Details)};
    int count = 0;
    for (const auto& entry : entries) {
        if (entry.isDirectory) continue;
        for (const auto& name : names) count += entry.name == name ? 1 : 0;
    }
    return count == 4;
}

std::optional<DetailsLine> readFolderDetails(const std::string& folder, int group) {
    if (!holdsGroupFiles(folder, group)) return std::nullopt;
    return parseDetailsLine(readDecipheredText(joinPath(folder, resourceFileName(group, FileRole::Details))));
}

ClassTable readFolderClassTable(const std::string& folder, int group) {
    return parseClassTable(readDecipheredText(joinPath(folder, resourceFileName(group, FileRole::ClassTable))));
}

}  // namespace Resources
