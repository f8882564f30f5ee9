// What the fuzzers share: checks that end the program, so that libFuzzer keeps the
// input, and a measure of the memory that a reader takes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <exception>
#include <string>
#include <vector>

namespace zel::fuzz {

/// Ends the program with the text when the condition does not hold.
void require(bool holds, const char* promise);

/// Counts what this thread has allocated and not yet freed. One at a time.
class memory_meter {
public:
    memory_meter() noexcept;
    ~memory_meter();
    memory_meter(const memory_meter&) = delete;
    memory_meter& operator=(const memory_meter&) = delete;

    /// Bytes in use at most at one time.
    std::size_t peak() const noexcept;
};

/// What one byte of input may cost a reader at most, besides a fixed allowance for
/// exceptions, their texts and what is made on first use.
struct memory_limit {
    std::size_t bytes_per_byte;

    std::size_t of(std::size_t size) const noexcept { return 64 * 1024 + bytes_per_byte * size; }
};

/// Runs a reader and gives what it threw: empty when it took the input. The program ends
/// when the reader throws anything but a std::exception or takes more than its limit.
template <class Reader>
std::string failure_of(std::size_t most_bytes, Reader&& reader) {
    const memory_meter meter;
    std::string failure;
    try {
        reader();
    } catch (const std::exception& e) {
        failure = e.what();
        require(!failure.empty(), "a failure says what is wrong");
    }
    require(meter.peak() <= most_bytes, "memory stays within a multiple of the input");
    return failure;
}

} // namespace zel::fuzz
