#pragma once

#include <string>

#include "resources/resource_utils.h"

namespace Resources {

// One line per resource set with a registered main record (its group 0
// record, else group 1, else group 2):
//   name ",\t" version ["." later-group versions] ",\t" (category ",\t")* "\r\n"
std::string renderResourceListing(const ResourceUtils& registry);

}  // namespace Resources
