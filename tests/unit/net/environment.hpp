#pragma once

#include <cstdlib>
#include <string>

namespace net_test {

/// Sets an environment variable until destroyed; every test has a process of its own.
class Variable {
public:
    Variable(const char* name, const std::string& value) : name_(name) { ::setenv(name, value.c_str(), 1); }
    Variable(const Variable&) = delete;
    Variable& operator=(const Variable&) = delete;
    ~Variable() { ::unsetenv(name_); }

private:
    const char* name_;
};

} // namespace net_test
