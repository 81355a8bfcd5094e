#include "base/platform.h"

#include <dirent.h>
#include <pthread.h>
#include <signal.h>
#include <dlfcn.h>
#include <malloc.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace Base::platform {

namespace {

void classify(const std::string& directory, const dirent& item, DirectoryEntry& entry) {
    if (item.d_type == DT_DIR || item.d_type == DT_REG) {
        entry.isDirectory = item.d_type == DT_DIR;
        entry.isRegularFile = item.d_type == DT_REG;
        return;
    }
    // Links and file systems that do not report the type: ask for the status.
    struct stat status {};
    std::string path = directory;
    if (path.empty() || path.back() != kPathSeparator) path += kPathSeparator;
    path += entry.name;
    if (::stat(path.c_str(), &status) == 0) {
        entry.isDirectory = S_ISDIR(status.st_mode);
        entry.isRegularFile = S_ISREG(status.st_mode);
    }
}

}  // namespace

bool listDirectory(const std::string& directory, std::vector<DirectoryEntry>& entries, int& errorNumber) {
    entries.clear();
    DIR* handle = ::opendir(directory.c_str());
    if (handle == nullptr) {
        errorNumber = errno;
        return false;
    }
    while (const dirent* item = ::readdir(handle)) {
        if (std::strcmp(item->d_name, ".") == 0 || std::strcmp(item->d_name, "..") == 0) continue;
        DirectoryEntry entry;
        entry.name = item->d_name;
        classify(directory, *item, entry);
        entries.push_back(std::move(entry));
    }
    ::closedir(handle);
    // The system lists in no fixed order; name order keeps discovery repeatable.
    std::sort(entries.begin(), entries.end(),
              [](const DirectoryEntry& a, const DirectoryEntry& b) { return a.name < b.name; });
    return true;
}

std::optional<std::string> ownModulePath() {
    Dl_info info{};
    if (::dladdr(reinterpret_cast<const void*>(&ownModulePath), &info) == 0 || info.dli_fname == nullptr ||
        info.dli_fname[0] == '\0') {
        return std::nullopt;
    }
    return std::string(info.dli_fname);
}

int fileStatus(const std::string& path) {
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0 ? 0 : errno;
}

bool isRegularFile(const std::string& path) {
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode);
}

void releaseFreeMemory() {
#if defined(__GLIBC__)
    ::malloc_trim(0);
#endif
}

namespace {

bool brokenPipePending() {
    sigset_t pending;
    sigemptyset(&pending);
    return ::sigpending(&pending) == 0 && sigismember(&pending, SIGPIPE) == 1;
}

}  // namespace

QuietBrokenPipe::QuietBrokenPipe() {
    static_assert(sizeof(sigset_t) <= sizeof(savedMask_), "room for a signal mask");
    wasPending_ = brokenPipePending();
    sigset_t blocked;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGPIPE);
    ::pthread_sigmask(SIG_BLOCK, &blocked, reinterpret_cast<sigset_t*>(savedMask_));
}

QuietBrokenPipe::~QuietBrokenPipe() {
    // A SIGPIPE raised by our own write is taken off before the mask returns.
    if (!wasPending_ && brokenPipePending()) {
        sigset_t pipe;
        sigemptyset(&pipe);
        sigaddset(&pipe, SIGPIPE);
        const timespec noWait{0, 0};
        ::sigtimedwait(&pipe, nullptr, &noWait);
    }
    ::pthread_sigmask(SIG_SETMASK, reinterpret_cast<const sigset_t*>(savedMask_), nullptr);
}

}  // namespace Base::platform
