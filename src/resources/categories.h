#pragma once

#include <string>
#include <vector>

#include "resources/resource_utils.h"

namespace Resources {

// The scannable categories: "<identifier>\t<name>" for every category of every
// group 0 resource, in registry and class-table order.
std::vector<std::string> categoryLines(const ResourceUtils& registry);

// Stores the number of records of all groups in the registry's record count.
void countRecords(ResourceUtils& registry);

}  // namespace Resources
