// The exceptions of this product.
//
// `error` is a failure that callers may meet and report; `fatal` is a broken
// invariant. Both carry the place where they were thrown and a number. Exceptions that
// steer a thread instead of reporting something, such as a cancelled wait, derive from
// `special_handling` and deliberately not from std::exception, so that code
// which catches failures lets them through.
#pragma once

#include <platform/export.h>

#include <exception>
#include <memory>
#include <string>

namespace zel::exceptions {

namespace detail {

class ZEL_EXPORT base : public std::exception {
public:
    // There is no move: it would leave an exception without its text.
    base(const base&) = default;
    base& operator=(const base&) = default;

    const char* what() const noexcept override { return message_->c_str(); }
    /// Code address right behind the throw.
    const void* address() const noexcept { return address_; }
    /// The system's error code where a call to the system failed, else -1.
    int number() const noexcept { return number_; }

protected:
    base(std::string message, const void* address, int number = -1)
        : message_(std::make_shared<const std::string>(std::move(message))), address_(address),
          number_(number) {}

private:
    std::shared_ptr<const std::string> message_; // shared, so that copying cannot throw
    const void* address_;
    int number_;
};

} // namespace detail

// Public constructors, those of derived classes too, are never inlined: their
// return address is the place of the throw.

class ZEL_EXPORT error : public detail::base {
public:
    [[gnu::noinline]] explicit error(std::string message)
        : base(std::move(message), __builtin_return_address(0)) {}
    [[gnu::noinline]] error(std::string message, int system_error)
        : base(std::move(message), __builtin_return_address(0), system_error) {}

protected:
    error(std::string message, const void* address) : base(std::move(message), address) {}
};

class ZEL_EXPORT fatal : public detail::base {
public:
    [[gnu::noinline]] explicit fatal(std::string message)
        : base(std::move(message), __builtin_return_address(0)) {}
};

class ZEL_EXPORT special_handling {
public:
    special_handling() = default;
    special_handling(const special_handling&) = default;
    special_handling& operator=(const special_handling&) = default;
    virtual ~special_handling() = default;
    /// The name under which the log shows the exception.
    virtual const char* type_name() const noexcept = 0;
};

/// What the log would call an exception in one word or one sentence.
inline std::string brief_text(const std::exception_ptr& failure) {
    try {
        std::rethrow_exception(failure);
    } catch (const std::exception& e) {
        const char* const text = e.what();
        return text ? text : "";
    } catch (const special_handling& e) {
        return std::string("Exception: ") + e.type_name();
    } catch (...) {
        return "Exception: Unknown";
    }
}

} // namespace zel::exceptions
