#include "resources/resource_listing.h"

namespace Resources {

namespace {

void appendSetLine(const ResourceInfo* const members[kGroupCount], std::string& listing) {
    int main = 0;
    while (main < kGroupCount && members[main] == nullptr) ++main;
    if (main == kGroupCount) return;
    const ResourceInfo& record = *members[main];
    listing += record.name;
    listing += ",\t";
    listing += record.version;
    for (int group = main + 1; group < kGroupCount; ++group) {
        if (members[group] != nullptr) {
            listing += '.';
            listing += members[group]->version;
        }
    }
    listing += ",\t";
    for (const auto& category : record.categories) {
        listing += category.name;
        listing += ",\t";
    }
    listing += "\r\n";
}

}  // namespace

std::string renderResourceListing(const ResourceUtils& registry) {
    std::string listing;
    for (const auto& set : registry.resourceSets()) {
        const ResourceInfo* members[kGroupCount] = {nullptr, nullptr, nullptr};
        for (int group = 0; group < kGroupCount; ++group) {
            if (set.identifiers[group] != 0) members[group] = registry.findRecord(set.identifiers[group]);
        }
        appendSetLine(members, listing);
    }
    return listing;
}

}  // namespace Resources
