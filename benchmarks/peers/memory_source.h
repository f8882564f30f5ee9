// Bytes in memory as a standard stream reads them, without a copy.
#pragma once

#include <streambuf>
#include <string>

namespace zel::benchmarks {

class memory_source : public std::streambuf {
public:
    explicit memory_source(const std::string& bytes) {
        char* const first = const_cast<char*>(bytes.data()); // only read from
        setg(first, first, first + bytes.size());
    }
};

} // namespace zel::benchmarks
