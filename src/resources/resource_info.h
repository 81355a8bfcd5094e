#pragma once

#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

namespace Resources {

// One category as declared by a line of a resource's class table, with the
// piecewise-linear calibration from raw to published percentages: X holds the
// raw points, Y the published points, S the slopes (zero slopes left out).
struct CategoryDetails {
    std::int32_t identifier = 0;
    std::string name;
    std::vector<float> x;
    std::vector<float> y;
    std::vector<float> s;
};

// One resource as read from its folder.
struct ResourceInfo {
    std::uint32_t identifier = 0;
    std::uint32_t backgroundIndex = 0;
    std::string folder;
    std::int32_t group = 0;
    std::string version;
    std::string name;
    std::int32_t enabled = 1;
    std::vector<CategoryDetails> categories;
    // Position in categories of the first category with each identifier.
    std::unordered_map<std::int32_t, std::size_t> categoryPositions;
};

// Ties a category to the resource that scores it and to its class-table line.
struct CategoryIndexEntry {
    std::int32_t categoryIdentifier = 0;
    std::uint32_t resourceIdentifier = 0;
    std::int32_t line = 0;

    bool operator==(const CategoryIndexEntry&) const = default;
};

// The resources of one product, one per group, keyed by the first word of the
// name of the first resource seen. 0 marks an empty slot.
struct ResourceSet {
    std::string key;
    std::uint32_t identifiers[3] = {0, 0, 0};

    bool holds(std::uint32_t identifier) const {
        for (const auto member : identifiers) {
            if (member == identifier) return true;
        }
        return false;
    }
    // The non-zero identifiers, in group order.
    std::vector<std::uint32_t> members() const {
        std::vector<std::uint32_t> found;
        for (const auto member : identifiers) {
            if (member != 0) found.push_back(member);
        }
        return found;
    }
};

inline constexpr int kGroupCount = 3;

}  // namespace Resources
