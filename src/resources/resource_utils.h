#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <tuple>
#include <unordered_map>
#include <vector>

#include "resources/resource_info.h"

namespace Resources {

// The registry of resources: the resource directories, the records read from
// their folders (one list per group), the resource sets that tie the records
// of one product together, and the category index.
class ResourceUtils {
public:
    static constexpr std::uint32_t kAllRecords = 0xFFFFFFFFu;

    // Adds the default directory when there is one, then scans groups 0, 1, 2.
    explicit ResourceUtils(std::optional<std::string> defaultDirectory);

    // Appends "/" when missing, adds the directory unless it is known, and
    // rescans every group. Returns the number of resource sets. An empty path
    // throws std::out_of_range("invalid string position").
    std::size_t addDirectory(std::string directory);

    // Re-reads one group from every directory. Of two folders with the same
    // identifier, the one found later wins unless both have the same version.
    void scanGroup(int group);
    void scanAllGroups();

    // Reads one resource folder as a resource of the group (see the .cpp).
    bool readResource(const std::string& folder, int group, ResourceInfo& record);

    // First record with the identifier, searching group 0, then 1, then 2.
    bool findByIdentifier(std::uint32_t identifier, ResourceInfo& record) const;
    const ResourceInfo* findRecord(std::uint32_t identifier) const;

    // kAllRecords: every record, group 0 first; otherwise the found record alone.
    void getRecords(std::vector<ResourceInfo>& records, std::uint32_t identifier) const;
    const std::vector<ResourceInfo>& groupRecords(int group) const { return records_[group]; }

    // Maps a raw percentage through the calibration of the category at the
    // given position of the resource's category list; -1 when there is none.
    float calibrateScore(std::uint32_t resourceIdentifier, std::size_t categoryPosition, float rawScore) const;

    const std::vector<std::string>& directories() const { return directories_; }
    const std::vector<ResourceSet>& resourceSets() const { return sets_; }
    const std::vector<CategoryIndexEntry>& categoryIndex() const { return categoryIndex_; }
    // The first index entry with the identifier, or null.
    const CategoryIndexEntry* findCategory(std::int32_t categoryIdentifier) const;
    // The name GetNubexCategories lists for the identifier (the last group 0
    // category line that declares it), or null.
    const std::string* displayName(std::int32_t categoryIdentifier) const;

    // Written by every category listing (the number of records of all
    // groups) and read by nothing: kept as the registry's record of it.
    std::uint32_t recordCount() const { return recordCount_; }
    void setRecordCount(std::uint32_t count) { recordCount_ = count; }

private:
    void scanDirectory(const std::string& directory, int group);
    void addRecord(ResourceInfo record);
    void enterResourceSet(const ResourceInfo& record);
    void indexCategory(const CategoryIndexEntry& entry);
    void collectDisplayNames();

    std::vector<std::string> directories_;
    std::uint32_t recordCount_ = 0;
    std::vector<ResourceInfo> records_[kGroupCount];
    std::vector<ResourceSet> sets_;
    // Rescans read the same class tables again; the index keeps each entry once.
    std::vector<CategoryIndexEntry> categoryIndex_;
    std::set<std::tuple<std::int32_t, std::uint32_t, std::int32_t>> indexedCategories_;
    // Lookups by identifier, so that long category lists cost linear time.
    std::unordered_map<std::int32_t, std::size_t> firstIndexEntry_;
    std::unordered_map<std::int32_t, std::string> displayNames_;
};

}  // namespace Resources
