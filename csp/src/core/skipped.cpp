#include "core/skipped.hpp"

#include "capi/constants.hpp"
#include "core/immortal.hpp"
#include "core/warning.hpp"

#include <algorithm>
#include <map>
#include <mutex>

namespace klunortredi::csp {

namespace {

/// A folder full of junk must not fill the memory of a process that never asks.
constexpr std::size_t mostRemembered = 1000;

struct List {
    std::mutex mutex;
    std::map<std::string, DWORD> codes; ///< by path
};

List& list() {
    static Immortal<List> instance;
    return *instance;
}

std::string withoutControls(std::string text) {
    constexpr unsigned char firstPrintable = 0x20;
    constexpr unsigned char erase = 0x7F;
    std::ranges::replace_if(
        text, [](unsigned char octet) { return octet < firstPrintable || octet == erase; }, '?');
    return text;
}

} // namespace

void noteSkipped(const std::filesystem::path& file, DWORD code) noexcept {
    try {
        const char* const why = code == capi::ERROR_INVALID_DATA ? "not a certificate or CRL" : "cannot be read";
        warn(std::string(why) + ", skipped (" + std::to_string(code) + "): " + file.string());
        const std::lock_guard lock(list().mutex);
        if (list().codes.size() < mostRemembered || list().codes.contains(file.string())) {
            list().codes[file.string()] = code;
        }
    } catch (const std::exception&) { // out of memory: a remark is never worth a failure
        return;
    }
}

std::string skippedText() {
    const std::lock_guard lock(list().mutex);
    std::string text;
    for (const auto& [file, code] : list().codes) {
        text += std::to_string(code) + ' ' + withoutControls(file) + '\n';
    }
    return text;
}

void forgetSkipped() {
    const std::lock_guard lock(list().mutex);
    list().codes.clear();
}

} // namespace klunortredi::csp
