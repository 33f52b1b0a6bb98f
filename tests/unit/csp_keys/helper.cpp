// A process of its own for the tests: counts PIN attempts elsewhere, and dies half-way.
//
//   csp_keys_helper verify NAME PIN        judges a PIN; prints the error code, 0 for a right one
//   csp_keys_helper verify-poor NAME PIN   the same with 8 MiB of memory more than the process has
//   csp_keys_helper die-judging NAME PIN   dies as soon as the attempt is counted
//   csp_keys_helper die-requesting NAME    makes a container with a key and dies before it releases it
//   csp_keys_helper request NAME PIN       makes a container
//   csp_keys_helper change NAME OLD NEW    changes a PIN

#include "capi/constants.hpp"
#include "core/home.hpp"
#include "service.hpp"
#include "text/unicode.hpp"

#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#include <fstream>
#include <iostream>
#include <thread>

namespace {

using namespace csp_keys;

constexpr DWORD type = capi::PROV_GOST_2012_256;

void outcome(BOOL result) {
    std::cout << (result != 0 ? 0 : GetLastError()) << std::endl;
}

void dieWhenCounted(const std::string& name) {
    const auto tries = klunortredi::csp::dataDirectory() / "containers" / (name + ".80") / "tries";
    while (true) {
        std::ifstream file(tries);
        int failed = 0;
        int unjudged = 0;
        if (file >> failed >> unjudged && unjudged > 0) {
            std::raise(SIGKILL);
        }
    }
}

void limitMemory() {
    std::size_t pages = 0;
    std::ifstream("/proc/self/statm") >> pages;
    const rlim_t most = pages * static_cast<rlim_t>(sysconf(_SC_PAGESIZE)) + (8U << 20U);
    const rlimit limit{most, most};
    if (setrlimit(RLIMIT_AS, &limit) != 0) {
        throw std::runtime_error("no limit");
    }
}

int run(const std::vector<std::string>& words) {
    const std::string& command = words.at(0);
    const std::wstring name = klunortredi::csp::wideFromUtf8(words.at(1)).value();
    if (command == "verify" || command == "verify-poor" || command == "die-judging") {
        const Context context(type, name.c_str(), 0);
        if (command == "die-judging") {
            std::thread(dieWhenCounted, words.at(1)).detach();
        }
        if (command == "verify-poor") {
            limitMemory();
        }
        outcome(setPin(context.get(), words.at(2).c_str(), capi::PIN_VERIFY));
    } else if (command == "die-requesting") {
        const Context context(type, name.c_str(), capi::CRYPT_NEWKEYSET);
        unsigned long key = 0;
        CryptGenKey(context.get(), capi::AT_KEYEXCHANGE, 0, &key);
        std::raise(SIGKILL);
    } else if (command == "request") {
        makeContainer(type, name.c_str(), words.at(2).c_str());
    } else if (command == "change") {
        const Context context(type, name.c_str(), 0);
        setPin(context.get(), words.at(2).c_str(), capi::PIN_PRESENT);
        outcome(
            CryptSetProvParam(context.get(), capi::PP_PIN_NEW, reinterpret_cast<const BYTE*>(words.at(3).c_str()), 0));
    } else {
        return 2;
    }
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    try {
        return run({argv + 1, argv + argc});
    } catch (const std::exception& e) {
        std::cerr << e.what() << '\n';
        return 1;
    }
}
