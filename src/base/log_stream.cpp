#include "base/log_stream.h"

#include <iostream>

#include "base/platform.h"

namespace slog {

LogStream::LogStream(std::string prefix, std::ostream& stream)
    : prefix_(std::move(prefix)), stream_(&stream) {}

namespace {

// Console output never takes the host down: a closed or broken console
// neither raises SIGPIPE nor leaves the host's stream in a failed state.
template <typename Write>
void writeQuietly(std::ostream& stream, Write write) {
    const Base::platform::QuietBrokenPipe quiet;
    const auto state = stream.rdstate();
    write();
    stream.clear(state);
}

}  // namespace

void LogStream::write(const char* text, std::size_t length) {
    std::lock_guard<std::mutex> lock(mutex_);
    writeQuietly(*stream_, [&] {
        if (atLineStart_) *stream_ << "[ " << prefix_ << " ] ";
        stream_->write(text, static_cast<std::streamsize>(length));
    });
    atLineStart_ = false;
}

LogStream& LogStream::operator<<(const char* text) {
    if (text == nullptr) text = "(null)";
    write(text, std::char_traits<char>::length(text));
    return *this;
}

LogStream& LogStream::operator<<(const std::string& text) {
    write(text.data(), text.size());
    return *this;
}

LogStream& LogStream::operator<<(std::ostream& (*manipulator)(std::ostream&)) {
    std::lock_guard<std::mutex> lock(mutex_);
    atLineStart_ = true;
    writeQuietly(*stream_, [&] { manipulator(*stream_); });
    return *this;
}

void consoleLine(const std::string& line) {
    static std::mutex consoleMutex;
    std::lock_guard<std::mutex> lock(consoleMutex);
    writeQuietly(std::cout, [&] { std::cout << line << std::endl; });
}

}  // namespace slog
