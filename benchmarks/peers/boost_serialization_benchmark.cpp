#include "benchmarks/peers/memory_source.h"
#include "benchmarks/peers/payload_cases.h"

#include <boost/archive/binary_iarchive.hpp>
#include <boost/archive/binary_oarchive.hpp>
#include <boost/serialization/string.hpp>
#include <boost/serialization/vector.hpp>
#include <sstream>

namespace zel::benchmarks {

template <class Archive>
void serialize(Archive& archive, entry& one, unsigned) {
    archive& one.path& one.description& one.number;
}

namespace {

std::string write(const entries& all) {
    std::stringbuf bytes(std::ios::out);
    boost::archive::binary_oarchive archive(bytes, boost::archive::no_header);
    archive << all;
    return std::move(bytes).str();
}

entries read(const std::string& bytes) {
    memory_source source(bytes);
    boost::archive::binary_iarchive archive(source, boost::archive::no_header);
    entries all;
    archive >> all;
    return all;
}

const bool registered = (register_payload_cases<write, read>("boost_serialization"), true);

} // namespace

} // namespace zel::benchmarks
