// The first byte says which type the others are read as. Whatever they are, a holder
// takes them, gives them back, and has either a value that keeps its meaning on every way
// or a failure that changed nothing.
#include "fuzz/fuzz_support.h"
#include "fuzz/fuzzed_types.h"

#include <span>

namespace zel::fuzz {

namespace {

using serialization::IData;
using serialization::SerializableData;
using bytes = std::span<const std::uint8_t>;

// The worst types: a record that holds much and needs few bytes, in a vector whose
// growth has the old elements, and the room for twice as many, beside them.
constexpr memory_limit limit{96};

template <class T>
std::shared_ptr<IData> holder_of(bytes content) {
    const auto holder =
        serialization::get_bin_serialization_module()->CreateData(kept_type_name<T>());
    require(holder && holder->GetData(), "a registered type has holders");
    holder->GetData()->SetSerializedData(content.data(), content.size());
    return holder->GetData();
}

std::vector<std::uint8_t> bytes_of(const IData& data) {
    const std::uint8_t* first = nullptr;
    std::size_t size = 0;
    data.GetSerializedData(&first, &size);
    require(first != nullptr, "bytes have an address");
    return {first, first + size};
}

template <class T>
void check_failure(const SerializableData<T>& data, bytes content, const std::string& failure) {
    require(std::ranges::equal(bytes_of(data), content), "a failure leaves the bytes");
    require(failure_of(limit.of(content.size()), [&] { data.Value(); }) == failure,
            "a failure repeats itself");
}

template <class T>
void check_bytes(const T& value) {
    const auto made = serialization::make_payload(value);
    const auto written = bytes_of(*made->GetData());
    const auto again = holder_of<T>(written);
    const auto& typed = dynamic_cast<const SerializableData<T>&>(*again);
    require(failure_of(limit.of(written.size()), [&] { typed.Value(); }).empty(),
            "what was written can be read");
    require(typed.Value() == value, "bytes keep the value");
    require(bytes_of(*again) == written, "reading leaves the bytes");
}

// Some values have no JSON form; of those that have one it is the same every time.
template <class T>
void check_json(const T& value) {
    Json::Value document;
    try {
        document = serialization::ToJson(value);
    } catch (const serialization::conversion_error&) {
        return;
    }
    T again{};
    serialization::FromJson(document, again);
    require(serialization::ToJson(again) == document, "a JSON form stays as it is");
}

template <class T>
void check(bytes content) {
    const auto data = holder_of<T>(content);
    const auto& typed = dynamic_cast<const SerializableData<T>&>(*data);
    const auto failure = failure_of(limit.of(content.size()), [&] { typed.Value(); });
    if (!failure.empty())
        return check_failure(typed, content, failure);
    require(std::ranges::equal(bytes_of(*data), content), "reading leaves the bytes");
    check_bytes(typed.Value());
    check_json(typed.Value());
}

} // namespace

} // namespace zel::fuzz

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    zel::fuzz::for_each_type(
        []<class T>(std::type_identity<T>) { zel::serialization::register_data_type<T>(); });
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0)
        return 0;
    const std::size_t wanted = data[0] % std::tuple_size_v<zel::fuzz::fuzzed_types>;
    std::size_t type = 0;
    zel::fuzz::for_each_type([&]<class T>(std::type_identity<T>) {
        if (type++ == wanted)
            zel::fuzz::check<T>({data + 1, size - 1});
    });
    return 0;
}
