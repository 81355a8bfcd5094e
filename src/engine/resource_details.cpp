#include "engine/resource_details.h"

#include <algorithm>

namespace Nubex {

namespace {

std::shared_ptr<ResourceDetails> makeDetails(const Resources::ResourceInfo& record) {
    auto details = std::make_shared<ResourceDetails>();
    details->identifier = record.identifier;
    details->backgroundIndex = record.backgroundIndex;
    details->folder = record.folder;
    details->version = record.version;
    details->name = record.name;
    for (const auto& category : record.categories) details->categoryNames.push_back(category.name);
    details->group = record.group;
    details->enabled = record.enabled;
    return details;
}

}  // namespace

void refreshResourceDetails(ResourceDetailsTable& table, const std::vector<Resources::ResourceInfo>& records) {
    table.erase(std::remove_if(table.begin(), table.end(), [](const auto& entry) { return !entry->initialised(); }),
                table.end());
    for (const auto& record : records) {
        const auto found = std::find_if(table.begin(), table.end(),
                                        [&record](const auto& entry) { return entry->identifier == record.identifier; });
        if (found != table.end()) {
            if ((*found)->version == record.version) continue;
            if (!(*found)->initialised()) table.erase(found);
        }
        table.push_back(makeDetails(record));
    }
}

std::shared_ptr<ResourceDetails> findResourceDetails(const ResourceDetailsTable& table, std::uint32_t identifier) {
    for (const auto& entry : table) {
        if (entry->identifier == identifier) return entry;
    }
    return nullptr;
}

}  // namespace Nubex
