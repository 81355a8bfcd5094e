#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "resources/resource_info.h"
#include "detectors/scan_job.h"

namespace Scan {

// What a scan's category list asks for.
struct CategoryRequest {
    std::vector<std::int32_t> accepted;           // in order of acceptance
    std::unordered_map<std::int32_t, std::size_t> positions;  // of each accepted identifier
    std::vector<std::uint32_t> groups;            // detector groups, first appearance
    std::vector<std::uint32_t> resourcesToLoad;   // members of each group's resource set
    std::vector<Detectors::ScanJob> jobs;                    // one per group that has a resource set
};

// Splits the list at commas, trims and converts each token like atoi, and
// resolves it through the category index and the resource sets. Problems are
// appended to errorText ("\tInvalid Category: ", "\tDuplicate Category: ",
// "\tResource not found for category: " followed by the token).
// The first category index entry with an identifier, or nothing.
using CategoryLookup = std::function<std::optional<Resources::CategoryIndexEntry>(std::int32_t)>;

// Linear in the length of the list when the lookup takes constant time.
CategoryRequest parseCategoryList(const char* categories, const CategoryLookup& findCategory,
                                  const std::vector<Resources::ResourceSet>& sets, std::string& errorText);

// The same over a plain category index (first entry wins).
CategoryRequest parseCategoryList(const char* categories, const std::vector<Resources::CategoryIndexEntry>& index,
                                  const std::vector<Resources::ResourceSet>& sets, std::string& errorText);

}  // namespace Scan
