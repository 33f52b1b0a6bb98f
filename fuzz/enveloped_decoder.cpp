// The decoder of enveloped messages with keys at hand: how a message is cut into pieces, and whether the key comes
// before or after the content, never changes what comes of it; authenticated content that is refused gives nothing.
// Built with libFuzzer, and replayed by a test.

#include "capi/constants.hpp"
#include "core/error.hpp"
#include "exports/export.hpp"
#include "keys/provider_context.hpp"
#include "require.hpp"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

using klunortredi::csp::Bytes;
using klunortredi::csp::ByteView;
namespace api = klunortredi::csp::exports;

/// Recipients that are tried, at most: each costs an operation with a private key.
constexpr DWORD mostTried = 2;

/// Provider contexts with a key pair each: RSA, and GOST R 34.10-2012.
const std::vector<unsigned long>& recipients() {
    static const std::vector<unsigned long> contexts = [] {
        std::string home = "/tmp/klunortredi-fuzz.XXXXXX";
        if (std::getenv("KLUNORTREDI_HOME") == nullptr && mkdtemp(home.data()) != nullptr) {
            setenv("KLUNORTREDI_HOME", home.c_str(), 1);
        }
        std::vector<unsigned long> made;
        for (const DWORD type : {capi::PROV_RSA_AES, capi::PROV_GOST_2012_256}) {
            const std::wstring name = L"fuzz " + std::to_wstring(type) + L" " + std::to_wstring(getpid());
            made.push_back(klunortredi::csp::acquireContext(name, {}, type, capi::CRYPT_NEWKEYSET));
            klunortredi::csp::providerContext(made.back())->generateKey({capi::AT_KEYEXCHANGE, 0, false});
        }
        return made;
    }();
    return contexts;
}

/// What came of a message.
struct Result {
    DWORD error = 0;
    Bytes plaintext;
    DWORD recipients = 0;
    bool ended = false;
};

BOOL collect(const void* argument, BYTE* data, DWORD size, BOOL final) {
    auto& result = *static_cast<Result*>(const_cast<void*>(argument));
    result.plaintext.insert(result.plaintext.end(), data, data + size);
    result.ended = result.ended || final != 0;
    return 1;
}

DWORD number(void* message, DWORD type) {
    DWORD value = 0;
    DWORD size = sizeof value;
    return api::CryptMsgGetParam(message, type, 0, &value, &size) != 0 ? value : 0;
}

/// Asks for everything that can be asked for; only that it ends well counts.
void askForAll(void* message, DWORD count) {
    for (const DWORD type :
         {capi::CMSG_TYPE_PARAM, capi::CMSG_INNER_CONTENT_TYPE_PARAM, capi::CMSG_ENVELOPE_ALGORITHM_PARAM,
          capi::CMSG_RECIPIENT_INFO_PARAM, capi::CMSG_UNPROTECTED_ATTR_PARAM, capi::CMSG_CONTENT_PARAM}) {
        for (DWORD index = 0; index < std::min(count, DWORD{4}); ++index) {
            DWORD size = 0;
            if (api::CryptMsgGetParam(message, type, index, nullptr, &size) != 0) {
                Bytes value(size);
                require(api::CryptMsgGetParam(message, type, index, value.data(), &size) != 0,
                        "what is there once is there twice");
            }
        }
    }
}

/// The first key that opens the message; the code of the last refusal.
DWORD unlock(void* message, DWORD count) {
    DWORD error = capi::CRYPT_E_RECIPIENT_NOT_FOUND;
    for (DWORD index = 0; index < std::min(count, mostTried); ++index) {
        for (const unsigned long provider : recipients()) {
            const CMSG_CTRL_DECRYPT_PARA parameters{sizeof parameters, provider, capi::AT_KEYEXCHANGE, index};
            if (api::CryptMsgControl(message, 0, capi::CMSG_CTRL_DECRYPT, &parameters) != 0) {
                return 0;
            }
            error = api::GetLastError();
        }
    }
    return error;
}

struct Way {
    std::size_t piece;
    bool keyFirst;
};

Result decode(ByteView octets, const Way& way) {
    Result result;
    CMSG_STREAM_INFO stream{capi::CMSG_INDEFINITE_LENGTH, collect, &result};
    void* const message =
        api::CryptMsgOpenToDecode(capi::X509_AND_PKCS_7, 0, capi::CMSG_ENVELOPED, 0, nullptr, &stream);
    bool tried = false;
    bool fed = false;
    for (std::size_t at = 0; result.error == 0 && !fed; at += way.piece) {
        const ByteView piece = octets.subspan(at, std::min(way.piece, octets.size() - at));
        fed = at + piece.size() == octets.size();
        if (api::CryptMsgUpdate(message, piece.data(), static_cast<DWORD>(piece.size()), fed ? 1 : 0) == 0) {
            result.error = api::GetLastError();
            break;
        }
        if (way.keyFirst && !tried && !fed && number(message, capi::CMSG_RECIPIENT_COUNT_PARAM) != 0) {
            tried = unlock(message, number(message, capi::CMSG_RECIPIENT_COUNT_PARAM)) == 0;
            if (!tried) {
                break;
            }
        }
    }
    result.recipients = number(message, capi::CMSG_RECIPIENT_COUNT_PARAM);
    if (result.error == 0 && !tried) {
        result.error = fed ? unlock(message, result.recipients) : capi::CRYPT_E_RECIPIENT_NOT_FOUND;
    }
    askForAll(message, result.recipients);
    api::CryptMsgClose(message);
    return result;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const ByteView octets(data, size);
    const Result whole = decode(octets, {std::max<std::size_t>(size, 1), false});
    const Result pieces = decode(octets, {1 + size % 7, false});
    require(pieces.error == whole.error && pieces.recipients == whole.recipients, "pieces do not change the verdict");
    require(pieces.plaintext == whole.plaintext, "pieces do not change the plaintext");
    require(whole.ended == (whole.error == 0), "the end is reported when all is well, and only then");
    const Result early = decode(octets, {1 + size % 11, true});
    require(early.error != 0 || whole.error == 0, "an early key opens nothing that a late one does not");
    require(early.error != 0 || early.plaintext == whole.plaintext, "an early key does not change the plaintext");
    return 0;
}
