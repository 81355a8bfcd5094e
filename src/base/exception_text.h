#pragma once

#include <string>

namespace Base {

// What a handler reports for an exception that is not of the standard family.
inline constexpr const char* kUnknownException = "Unknown/internal exception happened.";

// The text of the exception being handled: what() for a standard exception,
// else kUnknownException. Call only inside a catch block.
std::string currentExceptionText();

// Runs body. When it throws, report receives the exception's text and the
// result is false. Nothing escapes, not even from report.
template <typename Body, typename Report>
bool runReporting(Body&& body, Report&& report) noexcept {
    try {
        body();
        return true;
    } catch (...) {
        try {
            report(currentExceptionText());
        } catch (...) {
        }
        return false;
    }
}

}  // namespace Base
