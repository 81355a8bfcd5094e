#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace Resources {

// The roles of a resource's four files; the file name ends in 10 * group + role.
enum class FileRole { Network = 1, Weights = 2, ClassTable = 3, Details = 4 };

std::string resourceFileName(int group, FileRole role);

// Joins a folder and a file name with one "/" (the folder may end in one).
std::string joinPath(const std::string& folder, const std::string& name);

// Text files larger than this are not resource files; reading them would only
// exhaust memory.
inline constexpr std::size_t kMaxTextFileBytes = 16u << 20;

// Reads a whole regular file and deciphers it in place. The buffer is one byte
// longer than the file and ends in a zero byte. Nothing when the file cannot
// be opened or read completely, is not a regular file, or exceeds maxBytes.
std::optional<std::vector<std::uint8_t>> readDecipheredFile(const std::string& path, std::size_t maxBytes);

// The deciphered text of a small resource file up to its first zero byte;
// empty when the file cannot be read.
std::string readDecipheredText(const std::string& path);

}  // namespace Resources
