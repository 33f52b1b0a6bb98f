#include "service.hpp"

#include <dlfcn.h>

#include <memory>

namespace conformance {

namespace {

std::unique_ptr<Api>& opened() {
    static std::unique_ptr<Api> instance;
    return instance;
}

} // namespace

Api::Api(const std::vector<std::string>& libraries) {
    for (const std::string& path : libraries) {
        void* const library = dlopen(path.c_str(), RTLD_LAZY);
        if (library == nullptr) {
            throw std::runtime_error(dlerror()); // NOLINT(concurrency-mt-unsafe): glibc keeps it per thread
        }
        libraries_.push_back(library);
    }
#define CONFORMANCE_RESOLVE(reach, qualifier, result, member, pointer, symbol, parameters, arguments)                  \
    pointer##_ = reinterpret_cast<decltype(pointer##_)>(find(symbol));
    KLUNORTREDI_ENTRY_POINTS(CONFORMANCE_RESOLVE)
#undef CONFORMANCE_RESOLVE
}

void* Api::find(const std::string& symbol) const {
    for (void* const library : libraries_) {
        for (const std::string& spelling : {symbol, symbol + "A"}) {
            if (void* const address = dlsym(library, spelling.c_str())) {
                return address;
            }
        }
    }
    return nullptr;
}

void openService(const std::vector<std::string>& libraries) {
    opened() = std::make_unique<Api>(libraries);
}

const Api& api() {
    if (!opened()) {
        throw std::logic_error("no service has been opened");
    }
    return *opened();
}

} // namespace conformance
