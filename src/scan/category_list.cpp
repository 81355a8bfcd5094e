#include "scan/category_list.h"

#include <algorithm>
#include <string_view>

#include "base/text_fields.h"


namespace Scan {

namespace {

template <typename T>
bool contains(const std::vector<T>& values, T value) {
    return std::find(values.begin(), values.end(), value) != values.end();
}

const Resources::ResourceSet* findSet(const std::vector<Resources::ResourceSet>& sets, std::uint32_t group) {
    for (const auto& set : sets) {
        if (set.holds(group)) return &set;
    }
    return nullptr;
}

void acceptCategory(const Resources::CategoryIndexEntry& entry, std::string_view token,
                    const std::vector<Resources::ResourceSet>& sets, CategoryRequest& request,
                    std::string& errorText) {
    request.positions.emplace(entry.categoryIdentifier, request.accepted.size());
    request.accepted.push_back(entry.categoryIdentifier);
    const std::uint32_t group = entry.resourceIdentifier;
    if (contains(request.groups, group)) {
        // A group without a resource set has no job to extend.
        for (auto& job : request.jobs) {
            if (job.group != group) continue;
            job.slots.push_back(entry.line);
            job.categories.push_back(entry.categoryIdentifier);
            break;
        }
        return;
    }
    request.groups.push_back(group);
    const Resources::ResourceSet* set = findSet(sets, group);
    if (set == nullptr) {
        errorText += "\tResource not found for category: ";
        errorText += token;
        return;
    }
    const auto members = set->members();
    request.resourcesToLoad.insert(request.resourcesToLoad.end(), members.begin(), members.end());
    Detectors::ScanJob job;
    job.group = group;
    job.slots.push_back(entry.line);
    job.categories.push_back(entry.categoryIdentifier);
    request.jobs.push_back(std::move(job));
}

}  // namespace

CategoryRequest parseCategoryList(const char* categories, const CategoryLookup& findCategory,
                                  const std::vector<Resources::ResourceSet>& sets, std::string& errorText) {
    CategoryRequest request;
    if (categories == nullptr) return request;
    for (const std::string_view rawToken : Base::split(categories, ',')) {
        const std::string_view token = Base::trim(rawToken);
        if (token.empty()) continue;
        const auto identifier = static_cast<std::int32_t>(Base::leadingInteger(token));
        const std::optional<Resources::CategoryIndexEntry> entry = findCategory(identifier);
        if (!entry) {
            errorText += "\tInvalid Category: ";
            errorText += token;
        } else if (request.positions.count(identifier) != 0) {
            errorText += "\tDuplicate Category: ";
            errorText += token;
        } else {
            acceptCategory(*entry, token, sets, request, errorText);
        }
    }
    return request;
}

CategoryRequest parseCategoryList(const char* categories, const std::vector<Resources::CategoryIndexEntry>& index,
                                  const std::vector<Resources::ResourceSet>& sets, std::string& errorText) {
    std::unordered_map<std::int32_t, Resources::CategoryIndexEntry> first;
    for (const auto& entry : index) first.emplace(entry.categoryIdentifier, entry);
    const CategoryLookup lookup = [&first](std::int32_t identifier) -> std::optional<Resources::CategoryIndexEntry> {
        const auto found = first.find(identifier);
        return found == first.end() ? std::nullopt : std::optional(found->second);
    };
    return parseCategoryList(categories, lookup, sets, errorText);
}

}  // namespace Scan
