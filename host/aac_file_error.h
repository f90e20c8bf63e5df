// A file that cannot be read, written, or taken for AAC. The message begins with its name.
#pragma once

#include <stdexcept>

namespace velto::host {

class AacFileError : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

} // namespace velto::host
