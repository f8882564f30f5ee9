// A text in a JSON payload is asked for as each of the types, as those who handle a
// request do, and taken and wrapped by the name that it carries.
#include "fuzz/fuzz_support.h"
#include "fuzz/fuzzed_types.h"

namespace zel::fuzz {

namespace {

using serialization::IDataHolder;

// The document, copies of it while it is unwrapped, and the value.
constexpr memory_limit limit{512};

std::shared_ptr<IDataHolder> json_holder(const std::uint8_t* data, std::size_t size) {
    const auto holder =
        serialization::get_bin_serialization_module()->CreateData(serialization::json_data_t::name);
    holder->GetData()->SetSerializedData(data, size);
    return holder;
}

// The document, or what its name is wrapped around.
struct unwrapped {
    bool has_name = false;
    std::string type_name;
    Json::Value value;
};

unwrapped unwrap(const Json::Value& document) {
    unwrapped result;
    result.has_name = serialization::get_json_conversion_module()->UnwrapDocument(
        document, result.type_name, result.value, 0);
    if (!result.has_name)
        result.value = document;
    return result;
}

template <class T>
void check_as(const std::shared_ptr<const IDataHolder>& holder, const unwrapped& content,
              std::size_t size) {
    T scratch{};
    const T* found = nullptr;
    const auto failure =
        failure_of(limit.of(size), [&] { found = serialization::GetDataValue(holder, scratch); });
    if (content.has_name && content.type_name != kept_type_name<T>()) {
        require(failure.empty() && !found, "a document of another type is none of this type");
        return;
    }
    T expected{};
    const auto expected_failure =
        failure_of(limit.of(size), [&] { serialization::FromJson(content.value, expected); });
    require(failure == expected_failure, "wrapped or not, the same document fails alike");
    if (failure.empty())
        require(found == &scratch && scratch == expected, "and gives the same value");
    else
        require(!found && scratch == T{}, "a failure leaves the scratch as it was");
}

// By name and without the type, as a bridge to another process does.
void check_by_name(const Json::Value& document, const unwrapped& content, std::size_t size) {
    const auto module = serialization::get_json_conversion_module();
    require(module->WrapDocument(content.type_name, content.value) == document,
            "wrapping undoes unwrapping");
    std::shared_ptr<IDataHolder> holder;
    if (!failure_of(limit.of(size),
                    [&] { holder = module->CreateFromJson(content.type_name, content.value); })
             .empty() ||
        !holder)
        return;
    require(holder->GetData()->GetTypeName() == content.type_name, "a name gives its type");
    Json::Value value;
    if (failure_of(limit.of(size), [&] { value = module->ToJson(holder); }).empty())
        require(module->ToJson(module->CreateFromJson(content.type_name, value)) == value,
                "a value's JSON form stays");
}

void check(const std::uint8_t* data, std::size_t size) {
    const auto holder = json_holder(data, size);
    const auto& json = dynamic_cast<const serialization::json_data_t&>(*holder->GetData());
    if (!failure_of(limit.of(size), [&] { json.Value(); }).empty())
        return;
    const unwrapped content = unwrap(json.Value());
    for_each_type([&]<class T>(std::type_identity<T>) { check_as<T>(holder, content, size); });
    if (content.has_name)
        check_by_name(json.Value(), content, size);
}

} // namespace

} // namespace zel::fuzz

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    zel::fuzz::for_each_type(
        []<class T>(std::type_identity<T>) { zel::serialization::register_data_type<T>(); });
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    zel::fuzz::check(data, size);
    return 0;
}
