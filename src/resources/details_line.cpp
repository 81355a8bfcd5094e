#include "resources/details_line.h"

#include "base/text_fields.h"

namespace Resources {

using Base::leadingInteger;
using Base::split;
using Base::trim;

std::optional<DetailsLine> parseDetailsLine(std::string_view text) {
    const std::string_view line = text.substr(0, text.find('\n'));
    if (line.empty()) return std::nullopt;
    const auto fields = split(line, ',');
    if (fields.size() < 3) return std::nullopt;
    const std::string_view identifier = trim(fields[0]);
    const std::string_view name = trim(fields[1]);
    const std::string_view version = trim(fields[2]);
    if (identifier.empty() || name.empty() || version.empty()) return std::nullopt;

    DetailsLine details;
    details.identifier = leadingInteger(identifier);
    details.name = name;
    details.version = version;
    details.enabled = (fields.size() > 3 && trim(fields[3]) == "1") ? 0 : 1;
    return details;
}

std::string_view firstWord(std::string_view name) { return name.substr(0, name.find(' ')); }

}  // namespace Resources
