#include "benchmarks/peers/memory_source.h"
#include "benchmarks/peers/payload_cases.h"

#include <cereal/archives/binary.hpp>
#include <cereal/types/string.hpp>
#include <cereal/types/vector.hpp>
#include <sstream>

namespace zel::benchmarks {

template <class Archive>
void serialize(Archive& archive, entry& one) {
    archive(one.path, one.description, one.number);
}

namespace {

std::string write(const entries& all) {
    std::ostringstream bytes;
    cereal::BinaryOutputArchive archive(bytes);
    archive(all);
    return std::move(bytes).str();
}

entries read(const std::string& bytes) {
    memory_source source(bytes);
    std::istream stream(&source);
    cereal::BinaryInputArchive archive(stream);
    entries all;
    archive(all);
    return all;
}

const bool registered = (register_payload_cases<write, read>("cereal"), true);

} // namespace

} // namespace zel::benchmarks
