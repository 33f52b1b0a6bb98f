// The exported entry points of one thin library. The build gives its name and the suffix of its symbols.

#include "dispatch.hpp"

#define SERVICE_DOUBLE_EXPORT(reach, qualifier, result, member, pointer, symbol, parameters, arguments)                \
    extern "C" __attribute__((visibility("default")))                                                                  \
    result service_double_##member parameters __asm__(symbol SERVICE_DOUBLE_SUFFIX);                                   \
    extern "C" result service_double_##member parameters {                                                             \
        using namespace service_double;                                                                                \
        const Dispatch<result parameters> dispatch{SERVICE_DOUBLE_LIBRARY, Entry::member,    #member, #parameters,     \
                                                   &Answers::member,       &Defaults::member};                         \
        return dispatch arguments;                                                                                     \
    }
KLUNORTREDI_ENTRY_POINTS(SERVICE_DOUBLE_EXPORT)
