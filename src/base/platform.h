#pragma once

// The few operating-system calls the engine makes, kept here so that another
// platform needs only this file pair.

#include <optional>
#include <string>
#include <vector>

namespace Base::platform {

struct DirectoryEntry {
    std::string name;
    bool isDirectory = false;
    bool isRegularFile = false;
};

// Lists a directory's entries in name order ("." and ".." left out). On failure returns
// false and sets errorNumber to the system error number.
bool listDirectory(const std::string& directory, std::vector<DirectoryEntry>& entries, int& errorNumber);

// Full path of the loaded engine module (the shared library, or the program
// it is linked into), or nothing when the system cannot tell.
std::optional<std::string> ownModulePath();

// Status of a file or folder: 0 when it exists, else the system error number.
int fileStatus(const std::string& path);

// True when the path names a regular file (links followed).
bool isRegularFile(const std::string& path);

// Gives the memory the allocator holds free back to the system where the C
// library can (glibc's malloc_trim); nothing elsewhere.
void releaseFreeMemory();

// While it lives, a write to a closed pipe on this thread fails with an error
// instead of raising SIGPIPE (which would end the host process).
class QuietBrokenPipe {
public:
    QuietBrokenPipe();
    ~QuietBrokenPipe();
    QuietBrokenPipe(const QuietBrokenPipe&) = delete;
    QuietBrokenPipe& operator=(const QuietBrokenPipe&) = delete;

private:
    unsigned char savedMask_[128];
    bool wasPending_ = false;
};

// The path separator that stored directories end with.
constexpr char kPathSeparator = '/';

}  // namespace Base::platform
