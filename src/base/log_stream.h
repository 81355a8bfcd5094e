#pragma once

#include <mutex>
#include <ostream>
#include <sstream>
#include <string>

namespace slog {

// A console stream whose every line opens with "[ PREFIX ] ". A line that is
// started and not ended is continued by the next write to the same stream.
// Writes are serialised, so pieces from different threads never tear.
class LogStream {
public:
    LogStream(std::string prefix, std::ostream& stream);

    LogStream& operator<<(const char* text);
    LogStream& operator<<(const std::string& text);
    LogStream& operator<<(std::ostream& (*manipulator)(std::ostream&));

    template <typename T>
    LogStream& operator<<(const T& value) {
        std::ostringstream text;
        text << value;
        return *this << text.str();
    }

private:
    void write(const char* text, std::size_t length);

    std::string prefix_;
    std::ostream* stream_;
    bool atLineStart_ = true;
    std::mutex mutex_;
};

extern LogStream info;
extern LogStream warn;
extern LogStream err;

// Writes one whole line, without prefix, to standard output (the exception
// reports of the workers).
void consoleLine(const std::string& line);

}  // namespace slog
