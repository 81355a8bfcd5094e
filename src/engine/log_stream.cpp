#include "engine/log_stream.h"

#include <iostream>

namespace slog {

LogStream::LogStream(std::string prefix, std::ostream& stream)
    : prefix_(std::move(prefix)), stream_(&stream) {}

void LogStream::write(const char* text, std::size_t length) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (atLineStart_) {
        *stream_ << "[ " << prefix_ << " ] ";
        atLineStart_ = false;
    }
    stream_->write(text, static_cast<std::streamsize>(length));
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
    manipulator(*stream_);
    return *this;
}

void consoleLine(const std::string& line) {
    static std::mutex consoleMutex;
    std::lock_guard<std::mutex> lock(consoleMutex);
    std::cout << line << std::endl;
}

}  // namespace slog
