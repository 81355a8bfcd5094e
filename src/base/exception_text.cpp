#include "base/exception_text.h"

#include <exception>

namespace Base {

std::string currentExceptionText() {
    try {
        throw;
    } catch (const std::exception& error) {
        return error.what();
    } catch (...) {
        return kUnknownException;
    }
}

}  // namespace Base
