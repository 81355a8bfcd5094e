#include "resources/resource_utils.h"

#include <stdexcept>

#include "base/log_stream.h"
#include "base/platform.h"
#include "resources/calibration.h"
#include "resources/resource_file.h"
#include "resources/resource_folder.h"

namespace Resources {

namespace {

bool isValidGroup(int group) { return group >= 0 && group < kGroupCount; }

}  // namespace

ResourceUtils::ResourceUtils(std::optional<std::string> defaultDirectory) {
    if (defaultDirectory) directories_.push_back(std::move(*defaultDirectory));
    try {
        scanAllGroups();
    } catch (const std::exception& error) {
        // Built while the library loads: nothing may escape from here.
        slog::err << error.what() << std::endl;
    }
}

std::size_t ResourceUtils::addDirectory(std::string directory) {
    if (directory.empty()) throw std::out_of_range("invalid string position");
    if (directory.back() != Base::platform::kPathSeparator) directory += Base::platform::kPathSeparator;
    bool known = false;
    for (const auto& existing : directories_) known = known || existing == directory;
    if (!known) directories_.push_back(std::move(directory));
    scanAllGroups();
    return sets_.size();
}

void ResourceUtils::scanAllGroups() {
    for (int group = 0; group < kGroupCount; ++group) scanGroup(group);
}

void ResourceUtils::scanGroup(int group) {
    if (!isValidGroup(group)) return;
    records_[group].clear();
    for (const auto& directory : directories_) scanDirectory(directory, group);
    if (group == 0) collectDisplayNames();
}

void ResourceUtils::collectDisplayNames() {
    displayNames_.clear();
    for (const auto& record : records_[0]) {
        for (const auto& category : record.categories) displayNames_[category.identifier] = category.name;
    }
}

void ResourceUtils::scanDirectory(const std::string& directory, int group) {
    std::vector<Base::platform::DirectoryEntry> entries;
    int errorNumber = 0;
    if (!Base::platform::listDirectory(directory, entries, errorNumber)) {
        slog::err << "Error # " << errorNumber << ". No resource could be loaded from the path." << std::endl;
        return;
    }
    for (const auto& entry : entries) {
        if (!entry.isDirectory) continue;
        ResourceInfo record;
        const std::string folder = joinPath(directory, entry.name);
        if (!readResource(folder, group, record)) continue;
        record.folder = folder;
        addRecord(std::move(record));
    }
}

void ResourceUtils::addRecord(ResourceInfo record) {
    auto& records = records_[record.group];
    for (const auto& known : records) {
        if (known.identifier == record.identifier && known.version == record.version) return;
    }
    for (auto it = records.begin(); it != records.end();) {
        if (it->identifier == record.identifier) {
            it = records.erase(it);
        } else {
            ++it;
        }
    }
    records.push_back(std::move(record));
}

// Reads the details line and class table of a folder. A resource already
// registered with the same identifier and version is returned as it is. Each
// newly read category enters the category index, and the resource enters the
// resource sets.
bool ResourceUtils::readResource(const std::string& folder, int group, ResourceInfo& record) {
    const auto details = readFolderDetails(folder, group);
    if (!details) return false;
    for (const auto& known : records_[group]) {
        if (known.identifier == details->identifier && known.version == details->version) {
            record = known;
            return true;
        }
    }
    record.identifier = details->identifier;
    record.name = details->name;
    record.version = details->version;
    record.enabled = details->enabled;
    record.group = group;

    const ClassTable table = readFolderClassTable(folder, group);
    record.backgroundIndex = table.backgroundIndex;
    record.categories.clear();
    record.categoryPositions.clear();
    for (const auto& category : table.categories) {
        record.categoryPositions.emplace(category.details.identifier, record.categories.size());
        record.categories.push_back(category.details);
        indexCategory({category.details.identifier, record.identifier, category.line});
    }
    if (record.categories.empty()) return false;
    enterResourceSet(record);
    return true;
}

void ResourceUtils::indexCategory(const CategoryIndexEntry& entry) {
    if (indexedCategories_.emplace(entry.categoryIdentifier, entry.resourceIdentifier, entry.line).second) {
        firstIndexEntry_.emplace(entry.categoryIdentifier, categoryIndex_.size());
        categoryIndex_.push_back(entry);
    }
}

void ResourceUtils::enterResourceSet(const ResourceInfo& record) {
    const std::string_view key = firstWord(record.name);
    for (auto& set : sets_) {
        if (firstWord(set.key) == key) {
            set.identifiers[record.group] = record.identifier;
            return;
        }
    }
    ResourceSet set;
    set.key = record.name;
    set.identifiers[record.group] = record.identifier;
    sets_.push_back(std::move(set));
}

const ResourceInfo* ResourceUtils::findRecord(std::uint32_t identifier) const {
    for (const auto& records : records_) {
        for (const auto& record : records) {
            if (record.identifier == identifier) return &record;
        }
    }
    return nullptr;
}

bool ResourceUtils::findByIdentifier(std::uint32_t identifier, ResourceInfo& record) const {
    const ResourceInfo* found = findRecord(identifier);
    if (found != nullptr) record = *found;
    return found != nullptr;
}

void ResourceUtils::getRecords(std::vector<ResourceInfo>& records, std::uint32_t identifier) const {
    records.clear();
    if (identifier != kAllRecords) {
        if (const ResourceInfo* found = findRecord(identifier)) records.push_back(*found);
        return;
    }
    for (const auto& group : records_) records.insert(records.end(), group.begin(), group.end());
}

float ResourceUtils::calibrateScore(std::uint32_t resourceIdentifier, std::size_t categoryPosition,
                                    float rawScore) const {
    const ResourceInfo* record = findRecord(resourceIdentifier);
    if (record == nullptr || categoryPosition >= record->categories.size()) return -1.0f;
    return calibrate(record->categories[categoryPosition], rawScore);
}

const CategoryIndexEntry* ResourceUtils::findCategory(std::int32_t categoryIdentifier) const {
    const auto found = firstIndexEntry_.find(categoryIdentifier);
    return found == firstIndexEntry_.end() ? nullptr : &categoryIndex_[found->second];
}

const std::string* ResourceUtils::displayName(std::int32_t categoryIdentifier) const {
    const auto found = displayNames_.find(categoryIdentifier);
    return found == displayNames_.end() ? nullptr : &found->second;
}

}  // namespace Resources
