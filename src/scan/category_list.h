#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "resources/resource_info.h"
#include "scan/scan_job.h"

namespace Scan {

// What a scan's category list asks for.
struct CategoryRequest {
    std::vector<std::int32_t> accepted;           // in order of acceptance
    std::vector<std::uint32_t> groups;            // detector groups, first appearance
    std::vector<std::uint32_t> resourcesToLoad;   // members of each group's resource set
    std::vector<ScanJob> jobs;                    // one per group that has a resource set
};

// Splits the list at commas, trims and converts each token like atoi, and
// resolves it through the category index and the resource sets. Problems are
// appended to errorText ("\tInvalid Category: ", "\tDuplicate Category: ",
// "\tResource not found for category: " followed by the token).
CategoryRequest parseCategoryList(const char* categories, const std::vector<Resources::CategoryIndexEntry>& index,
                                  const std::vector<Resources::ResourceSet>& sets, std::string& errorText);

}  // namespace Scan
