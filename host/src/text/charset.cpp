#include "orvik/plugin/converter.hpp"

#include <iconv.h>

#include <array>
#include <bit>
#include <cerrno>
#include <stdexcept>

namespace orvik::plugin::converter {

namespace {

constexpr const char* utf8 = "UTF-8";
// Not WCHAR_T, whose converter lets numbers through that Unicode does not have.
constexpr const char* wide = std::endian::native == std::endian::little ? "UTF-32LE" : "UTF-32BE";
static_assert(sizeof(wchar_t) == sizeof(char32_t));
constexpr const char* windows1251 = "CP1251";

class Conversion {
public:
    Conversion(const char* to, const char* from) : handle_(iconv_open(to, from)) {
        if (handle_ == invalid()) {
            throw std::runtime_error(std::string("iconv cannot convert ") + from + " to " + to);
        }
    }
    Conversion(const Conversion&) = delete;
    Conversion& operator=(const Conversion&) = delete;
    ~Conversion() { iconv_close(handle_); }

    /// Octets in, octets out; strict.
    std::string operator()(const char* data, std::size_t size) {
        std::string out;
        std::array<char, 1024> buffer{};
        char* in = const_cast<char*>(data); // iconv's prototype; it only reads
        while (size != 0) {
            char* next = buffer.data();
            std::size_t room = buffer.size();
            const bool done = iconv(handle_, &in, &size, &next, &room) != static_cast<std::size_t>(-1);
            const int reason = errno;
            out.append(buffer.data(), next);
            if (!done && reason != E2BIG) {
                throw std::range_error("text has a character that is malformed or cannot be converted");
            }
        }
        return out;
    }

private:
    static iconv_t invalid() {
        return reinterpret_cast<iconv_t>(-1); // NOLINT(performance-no-int-to-ptr): how iconv_open says no
    }
    iconv_t handle_;
};

std::wstring toWide(boost::string_view text, const char* from) {
    const std::string octets = Conversion(wide, from)(text.data(), text.size());
    std::wstring out(octets.size() / sizeof(wchar_t), L'\0');
    octets.copy(reinterpret_cast<char*>(out.data()), octets.size());
    return out;
}

} // namespace

std::wstring utf8_to_utf16(boost::string_view text) {
    return toWide(text, utf8);
}

std::string utf16_to_utf8(boost::wstring_view text) {
    return Conversion(utf8, wide)(reinterpret_cast<const char*>(text.data()), text.size() * sizeof(wchar_t));
}

std::wstring cp1251_to_utf16(boost::string_view text) {
    return toWide(text, windows1251);
}

std::string cp1251_to_utf8(boost::string_view text) {
    return Conversion(utf8, windows1251)(text.data(), text.size());
}

} // namespace orvik::plugin::converter
