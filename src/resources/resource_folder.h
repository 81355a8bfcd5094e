#pragma once

#include <optional>
#include <string>

#include "resources/class_table.h"
#include "resources/details_line.h"

namespace Resources {

// True when the folder holds the four files of the group (exact,
// case-sensitive names); other files do no harm.
bool holdsGroupFiles(const std::string& folder, int group);

// The details line of a group's resource folder; nothing when the folder
// lacks one of the group's files or the line lacks a required field.
std::optional<DetailsLine> readFolderDetails(const std::string& folder, int group);

// The class table of a group's resource folder (empty when unreadable).
ClassTable readFolderClassTable(const std::string& folder, int group);

}  // namespace Resources
