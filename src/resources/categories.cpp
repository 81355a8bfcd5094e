#include "resources/categories.h"

namespace Resources {

void countRecords(ResourceUtils& registry) {
    std::size_t recordCount = 0;
    for (int group = 0; group < kGroupCount; ++group) recordCount += registry.groupRecords(group).size();
    registry.setRecordCount(static_cast<std::uint32_t>(recordCount));
}

std::vector<std::string> categoryLines(const ResourceUtils& registry) {
    std::vector<std::string> lines;
    for (const auto& record : registry.groupRecords(0)) {
        for (const auto& category : record.categories) {
            lines.push_back(std::to_string(category.identifier) + '\t' + category.name);
        }
    }
    return lines;
}

}  // namespace Resources
