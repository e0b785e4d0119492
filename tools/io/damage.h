#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

namespace trelvo {

// Bytes that cannot stand at this place of an input. what() is the cause, in words without any of
// these bytes; the offset is that of the first byte of the field, or frame, that could not be read.
class DamageError : public std::runtime_error {
public:
    DamageError(uint64_t offset, const std::string& cause)
        : std::runtime_error(cause), offset_(offset) {}

    [[nodiscard]] uint64_t Offset() const { return offset_; }

private:
    uint64_t offset_;
};

// An input that is something else than what was asked for. what() says what it is.
class OtherFormatError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Where the damage is and what it is, behind the name of the input.
[[nodiscard]] inline std::string Describe(const DamageError& error) {
    return "offset " + std::to_string(error.Offset()) + ": " + error.what();
}

}  // namespace trelvo
