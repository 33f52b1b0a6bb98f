// One octet of a message or its content changed: not every signer is valid any more, or the octet lies in a part that
// signatures do not cover and that has a name here. The messages come from openssl, the verdicts from the plug-in over
// the embedded service.

#include "crypto/wincrypt/certificate.hpp"
#include "crypto/wincrypt/tools_verify.hpp"
#include "support/openssl.hpp"
#include "support/temp_folder.hpp"

#include <boost/smart_ptr/make_shared.hpp>

#include <gmock/gmock.h>

#include <algorithm>
#include <cstdlib>
#include <map>
#include <sstream>
#include <stdexcept>

namespace {

using namespace orvik::plugin;
using wincrypt::tools::SignatureVerdict;
using wincrypt::tools::SignerVerdict;

/// Where a part of a message begins and ends.
struct Range {
    std::size_t begin = 0;
    std::size_t end = 0;
};

/// One DER element of a message.
struct Element {
    Range whole;
    Range content;
    unsigned char identifier = 0;
};

Element elementAt(const std::string& der, std::size_t at) {
    Element element{{at, 0}, {at + 2, 0}, static_cast<unsigned char>(der.at(at))};
    std::size_t length = static_cast<unsigned char>(der.at(at + 1));
    if (length > 0x80) {
        const std::size_t octets = length - 0x80;
        length = 0;
        for (std::size_t i = 0; i < octets; ++i) {
            length = length * 256 + static_cast<unsigned char>(der.at(element.content.begin++));
        }
    }
    element.whole.end = element.content.end = element.content.begin + length;
    return element;
}

std::vector<Element> children(const std::string& der, const Element& parent) {
    std::vector<Element> list;
    for (std::size_t at = parent.content.begin; at < parent.content.end; at = list.back().whole.end) {
        list.push_back(elementAt(der, at));
    }
    return list;
}

/// Parts that no signature of the message covers, with their names.
class Uncovered {
public:
    explicit Uncovered(const std::string& message) : der_(message) {
        const Element contentInfo = elementAt(der_, 0);
        const auto signedData = children(der_, children(der_, children(der_, contentInfo)[1])[0]);
        parts_.emplace_back("version of the SignedData", signedData[0].content);
        for (const Element& digest : children(der_, signedData[1])) {
            parameters("parameters of a digest algorithm", digest);
        }
        for (const Element& part : signedData) {
            if (part.identifier == 0xA0) {
                // A certificate is judged by its chain; of its octets the signature only needs name, serial and key.
                parts_.emplace_back("certificates", part.whole);
            }
        }
        for (const Element& signer : children(der_, signedData.back())) {
            const auto fields = children(der_, signer);
            parts_.emplace_back("version of the SignerInfo", fields[0].content);
            const bool attributes = fields[3].identifier == 0xA0;
            parameters("parameters of a digest algorithm", fields[2]);
            parameters("parameters of a signature algorithm", fields[attributes ? 4 : 3]);
        }
    }

    /// The name of the part that holds the octet; empty for one that a signature covers.
    [[nodiscard]] std::string at(std::size_t position) const {
        const auto part = std::ranges::find_if(
            parts_, [&](const auto& named) { return position >= named.second.begin && position < named.second.end; });
        return part == parts_.end() ? "" : part->first;
    }

private:
    void parameters(const char* name, const Element& algorithm) {
        const auto parts = children(der_, algorithm);
        if (parts.size() > 1) {
            parts_.emplace_back(name, parts[1].whole);
        }
    }

    const std::string& der_;
    std::vector<std::pair<std::string, Range>> parts_;
};

struct Form {
    const char* name;
    std::vector<const char*> signers; ///< words of openssl -newkey
    bool detached;
    bool attributes;
    bool certificates; ///< in the message; else given from outside
};

void PrintTo(const Form& form, std::ostream* out) {
    *out << form.name;
}

const std::vector<Form> forms{
    {"Gost256Attached", {"gost2012_256"}, false, true, false},
    {"Gost256DetachedWithoutAttributes", {"gost2012_256"}, true, false, false},
    {"RsaAttached", {"rsa:2048"}, false, true, true},
    {"RsaDetached", {"rsa:2048"}, true, true, false},
    {"TwoSigners", {"gost2012_256", "rsa:2048"}, false, true, true},
};

constexpr const char* content = "pay one hundred to the bearer";

class Damage : public testing::TestWithParam<Form> {
protected:
    Damage() {
        ::setenv("KLUNORTREDI_HOME", (files_ / "home").c_str(), 1);
        files_.write("content", content);
        std::vector<std::string> words{"cms",      "-sign", "-binary", "-in",    "content",
                                       "-outform", "DER",   "-out",    "message"};
        for (std::size_t i = 0; i < GetParam().signers.size(); ++i) {
            const std::string name = "signer" + std::to_string(i);
            const std::string algorithm = GetParam().signers[i];
            std::vector<std::string> request{"req",         "-x509", "-nodes",      "-newkey", algorithm,    "-keyout",
                                             name + ".key", "-out",  name + ".pem", "-subj",   "/CN=" + name};
            if (algorithm.starts_with("gost")) {
                request.insert(request.end(), {"-pkeyopt", "paramset:A"});
            }
            openssl_.must(request);
            words.insert(words.end(), {"-signer", name + ".pem", "-inkey", name + ".key"});
        }
        const auto option = [&](bool wanted, const char* word) {
            if (wanted) {
                words.emplace_back(word);
            }
        };
        option(!GetParam().detached, "-nodetach");
        option(!GetParam().attributes, "-noattr");
        option(!GetParam().certificates, "-nocerts");
        openssl_.must(words);
        message_ = files_.read("message");
        if (!GetParam().certificates) {
            outside_ = boost::make_shared<wincrypt::Certificate>(files_.read("signer0.pem"));
        }
    }

    /// Whether the message is read, has as many signers as it was made with, and each is valid.
    [[nodiscard]] bool allValid(const std::string& message, const std::string& data = content) const {
        std::istringstream signature(message);
        std::istringstream detached(data);
        wincrypt::tools::VerifyHooks hooks;
        hooks.certificate = outside_;
        std::string read;
        hooks.content = [&](const unsigned char* octets, std::size_t size) {
            read.append(reinterpret_cast<const char*>(octets), size);
            return true;
        };
        boost::optional<std::istream&> given;
        if (GetParam().detached) {
            given = detached;
        }
        try {
            const std::vector<SignerVerdict> verdicts = wincrypt::tools::verifySigners(signature, given, hooks);
            const bool good = verdicts.size() == GetParam().signers.size() &&
                              std::ranges::all_of(verdicts, [](const SignerVerdict& signer) {
                                  return signer.verdict == SignatureVerdict::valid;
                              });
            EXPECT_TRUE(!good || GetParam().detached || read == content) << "valid with other content";
            return good;
        } catch (const std::exception&) {
            return false;
        }
    }

    test_support::TempFolder files_;
    test_support::Openssl openssl_{files_};
    std::string message_;
    boost::shared_ptr<crypto::ICertificate> outside_;
};

TEST_P(Damage, OfOneOctetOfTheMessageIsRefusedOrNamed) {
    ASSERT_TRUE(allValid(message_));
    const Uncovered uncovered(message_);
    std::map<std::string, int> passed;
    for (std::size_t i = 0; i < message_.size(); ++i) {
        // Of a certificate, every seventh octet will do: what is refused of it is not the message's doing.
        if (uncovered.at(i) == "certificates" && i % 7 != 0) {
            continue;
        }
        for (const int change : {0x01, 0xFF}) {
            std::string changed = message_;
            changed[i] = static_cast<char>(changed[i] ^ change);
            if (allValid(changed)) {
                ++passed[uncovered.at(i)];
                EXPECT_NE(uncovered.at(i), "") << "octet " << i << " of " << message_.size();
            }
        }
    }
    // If nothing ever passed, the names would be wrong, not the message safe.
    EXPECT_FALSE(passed.empty());
}

TEST_P(Damage, OfOneOctetOfTheContentIsRefused) {
    if (!GetParam().detached) {
        return; // the content is part of the message
    }
    const std::string good = content;
    for (std::size_t i = 0; i < good.size(); ++i) {
        std::string changed = good;
        changed[i] = static_cast<char>(changed[i] ^ 1);
        EXPECT_FALSE(allValid(message_, changed)) << i;
    }
    EXPECT_FALSE(allValid(message_, good + '\0'));
    EXPECT_FALSE(allValid(message_, good.substr(1)));
}

INSTANTIATE_TEST_SUITE_P(Forms, Damage, testing::ValuesIn(forms), [](const auto& form) { return form.param.name; });

} // namespace
