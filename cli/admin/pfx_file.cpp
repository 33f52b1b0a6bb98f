#include "pfx_file.hpp"

#include "failure.hpp"

namespace klunortredi::admin {

namespace {

namespace ossl = csp::ossl;
using cli::ExitCode;
using cli::Failure;
using csp::Bytes;

// A safe may hold safes; nobody nests them.
constexpr int deepestNesting = 8;

void freeBags(STACK_OF(PKCS12_SAFEBAG) * bags) {
    sk_PKCS12_SAFEBAG_pop_free(bags, PKCS12_SAFEBAG_free);
}
void freeSafes(STACK_OF(PKCS7) * safes) {
    sk_PKCS7_pop_free(safes, PKCS7_free);
}
using Bags = std::unique_ptr<STACK_OF(PKCS12_SAFEBAG), ossl::Deleter<freeBags>>;
using Safes = std::unique_ptr<STACK_OF(PKCS7), ossl::Deleter<freeSafes>>;

constexpr const char* cannotRead = "cannot read the PKCS#12 file";

[[noreturn]] void refuse(const std::string& why) {
    throw Failure(ExitCode::input, cannotRead, why);
}

/// Thrown where a wrong password shows in a file without a MAC.
struct Undecryptable {};

std::string friendlyName(PKCS12_SAFEBAG* bag) {
    char* const name = PKCS12_get_friendlyname(bag);
    std::string copy = name == nullptr ? "" : name;
    OPENSSL_free(name);
    return copy;
}

Bytes localKeyId(const PKCS12_SAFEBAG* bag) {
    const ASN1_TYPE* const value = PKCS12_SAFEBAG_get0_attr(bag, NID_localKeyID);
    if (value == nullptr || ASN1_TYPE_get(value) != V_ASN1_OCTET_STRING) {
        return {};
    }
    const ASN1_OCTET_STRING* const id = value->value.octet_string;
    const unsigned char* const data = ASN1_STRING_get0_data(id);
    return {data, data + ASN1_STRING_length(id)};
}

std::uint64_t sum(std::uint64_t a, std::uint64_t b) {
    return a > endlessWork - b ? endlessWork : a + b;
}

/// The work that the encrypted keys of these bags ask for.
std::uint64_t workOfKeys(const STACK_OF(PKCS12_SAFEBAG) * bags, int depth) {
    std::uint64_t work = 0;
    for (int i = 0; i < sk_PKCS12_SAFEBAG_num(bags); ++i) {
        const PKCS12_SAFEBAG* const bag = sk_PKCS12_SAFEBAG_value(bags, i);
        const int kind = PKCS12_SAFEBAG_get_nid(bag);
        if (kind == NID_pkcs8ShroudedKeyBag) {
            work = sum(work, workOf(encryptionOf(PKCS12_SAFEBAG_get0_pkcs8(bag))));
        } else if (kind == NID_safeContentsBag && depth < deepestNesting) {
            work = sum(work, workOfKeys(PKCS12_SAFEBAG_get0_safes(bag), depth + 1));
        }
    }
    return work;
}

/// The same of a safe, as far as it can be read without the password.
std::uint64_t visibleWorkOf(PKCS7* safe) {
    if (PKCS7_type_is_encrypted(safe)) {
        return workOf(safe->d.encrypted->enc_data->algorithm);
    }
    const Bags bags(PKCS7_type_is_data(safe) ? PKCS12_unpack_p7data(safe) : nullptr);
    return workOfKeys(bags.get(), 0);
}

/// Walks through the safes and collects.
class Unpacking {
public:
    Unpacking(Password password, WorkBudget& budget)
        : password_(password ? password->data() : nullptr), size_(password ? static_cast<int>(password->size()) : 0),
          budget_(budget) {}

    void safe(PKCS7* safe) {
        if (PKCS7_type_is_data(safe)) {
            const Bags bags(PKCS12_unpack_p7data(safe));
            if (!bags) {
                refuse("a part of it is not well-formed");
            }
            walk(bags.get(), 0);
        } else if (PKCS7_type_is_encrypted(safe)) {
            budget_.take(workOf(safe->d.encrypted->enc_data->algorithm));
            const Bags bags(PKCS12_unpack_p7encdata(safe, password_, size_));
            if (!bags) {
                throw Undecryptable();
            }
            budget_.require(workOfKeys(bags.get(), 0));
            walk(bags.get(), 0);
        } else {
            refuse("a part of it is encrypted for a certificate, not with a password");
        }
    }

    PfxContents contents;

private:
    void walk(const STACK_OF(PKCS12_SAFEBAG) * bags, int depth) {
        for (int i = 0; i < sk_PKCS12_SAFEBAG_num(bags); ++i) {
            take(sk_PKCS12_SAFEBAG_value(bags, i), depth);
        }
    }

    void take(PKCS12_SAFEBAG* bag, int depth) {
        switch (PKCS12_SAFEBAG_get_nid(bag)) {
        case NID_keyBag:
            return add(contents.keys, ossl::Pkcs8(copy(PKCS12_SAFEBAG_get0_p8inf(bag))), bag);
        case NID_pkcs8ShroudedKeyBag:
            budget_.take(workOf(encryptionOf(PKCS12_SAFEBAG_get0_pkcs8(bag))));
            return add(contents.keys, ossl::Pkcs8(PKCS12_decrypt_skey(bag, password_, size_)), bag);
        case NID_certBag:
            if (PKCS12_SAFEBAG_get_bag_nid(bag) == NID_x509Certificate) {
                add(contents.certificates, ossl::X509Ptr(PKCS12_SAFEBAG_get1_cert(bag)), bag);
            }
            return;
        case NID_safeContentsBag:
            if (depth == deepestNesting) {
                refuse("its parts are nested too deep");
            }
            return walk(PKCS12_SAFEBAG_get0_safes(bag), depth + 1);
        default: // CRLs and secrets are nothing to a key container
            return;
        }
    }

    template <class Object>
    static void add(std::vector<Bag<Object>>& to, Object object, PKCS12_SAFEBAG* bag) {
        if (!object) {
            throw Undecryptable();
        }
        to.push_back({std::move(object), friendlyName(bag), localKeyId(bag)});
    }

    static PKCS8_PRIV_KEY_INFO* copy(const PKCS8_PRIV_KEY_INFO* key) {
        return static_cast<PKCS8_PRIV_KEY_INFO*>(ASN1_item_dup(ASN1_ITEM_rptr(PKCS8_PRIV_KEY_INFO), key));
    }

    const char* password_;
    int size_;
    WorkBudget& budget_;
};

/// Why OpenSSL could not decrypt, in its own words.
std::string reason() {
    const char* const text = ERR_reason_error_string(ERR_peek_error());
    return text == nullptr ? "" : std::string(" (") + text + ")";
}

} // namespace

std::optional<PfxFile> PfxFile::parse(std::string_view octets) {
    const ossl::ErrorMark mark;
    const auto* const start = reinterpret_cast<const unsigned char*>(octets.data()); // NOLINT(*-reinterpret-cast)
    const unsigned char* next = start;
    Handle file(d2i_PKCS12(nullptr, &next, static_cast<long>(octets.size())));
    if (!file || next != start + octets.size()) {
        return std::nullopt;
    }
    return PfxFile(std::move(file));
}

std::uint64_t PfxFile::visibleWork() const {
    const ossl::ErrorMark mark;
    std::uint64_t work = PKCS12_mac_present(file_.get()) == 1 ? workOfMac(file_.get()) : 0;
    const Safes safes(PKCS12_unpack_authsafes(file_.get()));
    for (int i = 0; i < sk_PKCS7_num(safes.get()); ++i) {
        work = sum(work, visibleWorkOf(sk_PKCS7_value(safes.get(), i)));
    }
    return work;
}

std::optional<PfxContents> PfxFile::open(Password password, WorkBudget& budget) const {
    budget.require(visibleWork());
    const bool checked = PKCS12_mac_present(file_.get()) == 1;
    if (checked && !macMatches(file_.get(), password, budget)) {
        return std::nullopt;
    }
    const ossl::ErrorMark mark;
    const Safes safes(PKCS12_unpack_authsafes(file_.get()));
    if (!safes) {
        refuse("it is not well-formed, or protected by a signature instead of a password");
    }
    Unpacking unpacking(password, budget);
    try {
        for (int i = 0; i < sk_PKCS7_num(safes.get()); ++i) {
            unpacking.safe(sk_PKCS7_value(safes.get(), i));
        }
    } catch (const Undecryptable&) {
        if (!checked) {
            return std::nullopt;
        }
        refuse("a part of it cannot be decrypted" + reason());
    }
    return std::move(unpacking.contents);
}

} // namespace klunortredi::admin
