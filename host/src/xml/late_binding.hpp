#pragma once

/// Functions of a shared library that is opened at the first call of one of them. Programs that never read XML do not
/// pay for libxml2 and what it brings.

#include <atomic>

namespace orvik::plugin::xml::internal {

/// The address of a function or variable of libxml2; opens the library at the first call. Thread-safe. Throws
/// std::system_error when the library or the name is not there.
void* addressInLibxml(const char* name);

template <class Function>
class LateFunction;

/// Called like the function itself. Its first call may throw what addressInLibxml throws.
template <class Result, class... Arguments>
class LateFunction<Result(Arguments...)> {
public:
    constexpr explicit LateFunction(const char* name) : name_(name) {}

    Result operator()(Arguments... arguments) const {
        void* address = address_.load(std::memory_order_acquire);
        if (address == nullptr) {
            address = addressInLibxml(name_);
            address_.store(address, std::memory_order_release);
        }
        return reinterpret_cast<Result (*)(Arguments...)>(address)(arguments...);
    }

private:
    const char* name_;
    mutable std::atomic<void*> address_{nullptr};
};

/// The same for a variable that holds a pointer to a function.
template <class Pointer>
class LateFunctionVariable;

template <class Result, class... Arguments>
class LateFunctionVariable<Result (*)(Arguments...)> {
public:
    constexpr explicit LateFunctionVariable(const char* name) : name_(name) {}

    Result operator()(Arguments... arguments) const {
        return (*static_cast<Result (**)(Arguments...)>(addressInLibxml(name_)))(arguments...);
    }

private:
    const char* name_;
};

} // namespace orvik::plugin::xml::internal
