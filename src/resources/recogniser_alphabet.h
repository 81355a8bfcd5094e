#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace Resources {

// The symbols a text recognition network of the fixed form scores, in order:
// digits, lower-case letters and the blank "#" last. Its class dimension must
// have exactly this length.
inline constexpr std::string_view kAlphabet = "0123456789abcdefghijklmnopqrstuvwxyz#";
inline constexpr char kBlankSymbol = '#';

// The symbols of one recogniser: the fixed alphabet above, or the symbols the
// network declares (one code point each), after which comes the blank. The
// declared symbols are borrowed and must outlive the alphabet.
class RecogniserAlphabet {
public:
    RecogniserAlphabet() = default;
    explicit RecogniserAlphabet(const std::vector<std::string>& declared) : declared_(&declared) {}
    // The declared symbols, or the fixed alphabet when none are declared.
    static RecogniserAlphabet of(const std::vector<std::string>& declared) {
        return declared.empty() ? RecogniserAlphabet() : RecogniserAlphabet(declared);
    }

    bool isDeclared() const { return declared_ != nullptr; }
    // Classes per step: the symbols and the blank.
    std::size_t classCount() const { return isDeclared() ? declared_->size() + 1 : kAlphabet.size(); }
    // The blank is the last class; anything beyond counts as blank too.
    bool isBlank(std::size_t index) const { return index + 1 >= classCount(); }
    std::string_view symbol(std::size_t index) const {
        return isDeclared() ? std::string_view((*declared_)[index]) : kAlphabet.substr(index, 1);
    }

private:
    const std::vector<std::string>* declared_ = nullptr;
};

}  // namespace Resources
