#include "orvik/plugin/exception/exception.hpp"

#include <boost/exception/diagnostic_information.hpp>
#include <boost/exception/get_error_info.hpp>

namespace orvik::plugin::exception {

Exception::Exception(std::error_code code)
    : code_(code), error_(std::string(code.category().name()) + ": " + std::to_string(code.value())) {}

Exception::~Exception() = default;

const char* Exception::what() const noexcept {
    try {
        const std::string* message = boost::get_error_info<Message_>(*this);
        what_ = message != nullptr ? *message : code_.message();
        if (what_.empty()) {
            what_ = error();
        }
        if (const std::string* value = boost::get_error_info<Value_>(*this)) {
            what_ += ": " + *value;
        }
        return what_.c_str();
    } catch (...) {
        return "orvik::plugin::exception::Exception";
    }
}

const char* Exception::error() const {
    return error_.c_str();
}

std::string diagnostic() {
    return boost::current_exception_diagnostic_information();
}

} // namespace orvik::plugin::exception
