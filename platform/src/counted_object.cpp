#include <platform/counted_object.h>

#include <new>

namespace zel::platform::detail {

namespace {

// One block has the use, room for the shared pointer's own part, and the object. The
// use ends with the block, which goes with the last weak reference.
struct alignas(__STDCPP_DEFAULT_NEW_ALIGNMENT__) counted_block {
    counted_block(image_handle image, const char* kind, std::string_view name)
        : use(image, kind, name) {}

    static constexpr std::size_t owner_size = 64;

    image_use use;
    alignas(__STDCPP_DEFAULT_NEW_ALIGNMENT__) std::byte owner[owner_size];
};

counted_block& block_of(void* object) noexcept {
    return *(static_cast<counted_block*>(object) - 1);
}

// Gives out the room in the block, once.
template <class T>
class room_in_block {
public:
    using value_type = T;

    explicit room_in_block(void* object) noexcept : object_(object) {}
    template <class Other>
    room_in_block(const room_in_block<Other>& other) noexcept : object_(other.object()) {}

    T* allocate(std::size_t) noexcept {
        static_assert(sizeof(T) <= counted_block::owner_size);
        return reinterpret_cast<T*>(block_of(object_).owner);
    }
    void deallocate(T*, std::size_t) noexcept { release_counted(object_); }
    void* object() const noexcept { return object_; }

    friend bool operator==(const room_in_block&, const room_in_block&) = default;

private:
    void* object_;
};

} // namespace

void* allocate_counted(std::size_t size, image_handle image, const char* kind,
                       std::string_view name) {
    void* const memory = ::operator new(sizeof(counted_block) + size);
    try {
        return ::new (memory) counted_block(image, kind, name) + 1;
    } catch (...) {
        ::operator delete(memory);
        throw;
    }
}

void release_counted(void* object) noexcept {
    counted_block& block = block_of(object);
    block.~counted_block();
    ::operator delete(&block);
}

std::shared_ptr<void> share_counted(void* object, void (*destroy)(void*) noexcept) noexcept {
    return std::shared_ptr<void>(object, destroy, room_in_block<std::byte>(object));
}

} // namespace zel::platform::detail
