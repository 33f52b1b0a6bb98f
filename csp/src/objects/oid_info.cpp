#include "objects/oid_info.hpp"

#include "capi/constants.hpp"
#include "crypto/algorithms.hpp"

#include <algorithm>
#include <array>
#include <deque>
#include <string>
#include <utility>
#include <vector>

namespace klunortredi::csp {

namespace {

using namespace capi;

struct NamedOid {
    DWORD group;
    std::string_view oid;
    std::wstring_view name;
};

/// Display names. Algorithms get their numbers from crypto/algorithms.hpp; the rest is known by name only. Name
/// attributes come under the keys of RFC 4514 and of the CryptoAPI, those of the Russian registers (FSB order 795)
/// under their Latin abbreviations.
constexpr std::array namedOids{
    NamedOid{CRYPT_HASH_ALG_OID_GROUP_ID, "1.2.643.7.1.1.2.2", L"ГОСТ Р 34.11-2012 256 бит"},
    NamedOid{CRYPT_HASH_ALG_OID_GROUP_ID, "1.2.643.7.1.1.2.3", L"ГОСТ Р 34.11-2012 512 бит"},
    NamedOid{CRYPT_HASH_ALG_OID_GROUP_ID, "1.2.643.2.2.9", L"ГОСТ Р 34.11-94"},
    NamedOid{CRYPT_HASH_ALG_OID_GROUP_ID, "1.3.14.3.2.26", L"sha1"},
    NamedOid{CRYPT_HASH_ALG_OID_GROUP_ID, "2.16.840.1.101.3.4.2.1", L"sha256"},
    NamedOid{CRYPT_HASH_ALG_OID_GROUP_ID, "2.16.840.1.101.3.4.2.2", L"sha384"},
    NamedOid{CRYPT_HASH_ALG_OID_GROUP_ID, "2.16.840.1.101.3.4.2.3", L"sha512"},
    NamedOid{CRYPT_HASH_ALG_OID_GROUP_ID, "2.16.840.1.101.3.4.2.4", L"sha224"},
    NamedOid{CRYPT_PUBKEY_ALG_OID_GROUP_ID, "1.2.643.7.1.1.1.1", L"ГОСТ Р 34.10-2012 256 бит"},
    NamedOid{CRYPT_PUBKEY_ALG_OID_GROUP_ID, "1.2.643.7.1.1.1.2", L"ГОСТ Р 34.10-2012 512 бит"},
    NamedOid{CRYPT_PUBKEY_ALG_OID_GROUP_ID, "1.2.643.2.2.19", L"ГОСТ Р 34.10-2001"},
    NamedOid{CRYPT_PUBKEY_ALG_OID_GROUP_ID, "1.2.643.7.1.1.6.1", L"ГОСТ Р 34.10-2012 256 бит DH"},
    NamedOid{CRYPT_PUBKEY_ALG_OID_GROUP_ID, "1.2.643.7.1.1.6.2", L"ГОСТ Р 34.10-2012 512 бит DH"},
    NamedOid{CRYPT_PUBKEY_ALG_OID_GROUP_ID, "1.2.643.2.2.98", L"ГОСТ Р 34.10-2001 DH"},
    NamedOid{CRYPT_PUBKEY_ALG_OID_GROUP_ID, "1.2.840.113549.1.1.1", L"RSA"},
    NamedOid{CRYPT_SIGN_ALG_OID_GROUP_ID, "1.2.643.7.1.1.3.2", L"ГОСТ Р 34.11-2012/34.10-2012 256 бит"},
    NamedOid{CRYPT_SIGN_ALG_OID_GROUP_ID, "1.2.643.7.1.1.3.3", L"ГОСТ Р 34.11-2012/34.10-2012 512 бит"},
    NamedOid{CRYPT_SIGN_ALG_OID_GROUP_ID, "1.2.643.2.2.3", L"ГОСТ Р 34.11-94/34.10-2001"},
    NamedOid{CRYPT_SIGN_ALG_OID_GROUP_ID, "1.2.840.113549.1.1.5", L"sha1RSA"},
    NamedOid{CRYPT_SIGN_ALG_OID_GROUP_ID, "1.2.840.113549.1.1.11", L"sha256RSA"},
    NamedOid{CRYPT_SIGN_ALG_OID_GROUP_ID, "1.2.840.113549.1.1.12", L"sha384RSA"},
    NamedOid{CRYPT_SIGN_ALG_OID_GROUP_ID, "1.2.840.113549.1.1.13", L"sha512RSA"},
    NamedOid{CRYPT_SIGN_ALG_OID_GROUP_ID, "1.2.840.113549.1.1.14", L"sha224RSA"},

    NamedOid{CRYPT_RDN_ATTR_OID_GROUP_ID, "2.5.4.3", L"CN"},
    NamedOid{CRYPT_RDN_ATTR_OID_GROUP_ID, "2.5.4.4", L"SN"},
    NamedOid{CRYPT_RDN_ATTR_OID_GROUP_ID, "2.5.4.5", L"SERIALNUMBER"},
    NamedOid{CRYPT_RDN_ATTR_OID_GROUP_ID, "2.5.4.6", L"C"},
    NamedOid{CRYPT_RDN_ATTR_OID_GROUP_ID, "2.5.4.7", L"L"},
    NamedOid{CRYPT_RDN_ATTR_OID_GROUP_ID, "2.5.4.8", L"S"},
    NamedOid{CRYPT_RDN_ATTR_OID_GROUP_ID, "2.5.4.9", L"STREET"},
    NamedOid{CRYPT_RDN_ATTR_OID_GROUP_ID, "2.5.4.10", L"O"},
    NamedOid{CRYPT_RDN_ATTR_OID_GROUP_ID, "2.5.4.11", L"OU"},
    NamedOid{CRYPT_RDN_ATTR_OID_GROUP_ID, "2.5.4.12", L"T"},
    NamedOid{CRYPT_RDN_ATTR_OID_GROUP_ID, "2.5.4.13", L"Description"},
    NamedOid{CRYPT_RDN_ATTR_OID_GROUP_ID, "2.5.4.16", L"PostalAddress"},
    NamedOid{CRYPT_RDN_ATTR_OID_GROUP_ID, "2.5.4.17", L"PostalCode"},
    NamedOid{CRYPT_RDN_ATTR_OID_GROUP_ID, "2.5.4.20", L"Phone"},
    NamedOid{CRYPT_RDN_ATTR_OID_GROUP_ID, "2.5.4.42", L"G"},
    NamedOid{CRYPT_RDN_ATTR_OID_GROUP_ID, "2.5.4.43", L"I"},
    NamedOid{CRYPT_RDN_ATTR_OID_GROUP_ID, "2.5.4.46", L"dnQualifier"},
    NamedOid{CRYPT_RDN_ATTR_OID_GROUP_ID, "2.5.4.65", L"Pseudonym"},
    NamedOid{CRYPT_RDN_ATTR_OID_GROUP_ID, "0.9.2342.19200300.100.1.1", L"UID"},
    NamedOid{CRYPT_RDN_ATTR_OID_GROUP_ID, "0.9.2342.19200300.100.1.25", L"DC"},
    NamedOid{CRYPT_RDN_ATTR_OID_GROUP_ID, "1.2.840.113549.1.9.1", L"E"},
    NamedOid{CRYPT_RDN_ATTR_OID_GROUP_ID, "1.2.840.113549.1.9.2", L"unstructuredName"},
    NamedOid{CRYPT_RDN_ATTR_OID_GROUP_ID, "1.2.643.3.131.1.1", L"INN"},
    NamedOid{CRYPT_RDN_ATTR_OID_GROUP_ID, "1.2.643.100.1", L"OGRN"},
    NamedOid{CRYPT_RDN_ATTR_OID_GROUP_ID, "1.2.643.100.3", L"SNILS"},
    NamedOid{CRYPT_RDN_ATTR_OID_GROUP_ID, "1.2.643.100.4", L"INNLE"},
    NamedOid{CRYPT_RDN_ATTR_OID_GROUP_ID, "1.2.643.100.5", L"OGRNIP"},

    NamedOid{CRYPT_EXT_OR_ATTR_OID_GROUP_ID, "2.5.29.14", L"Идентификатор ключа субъекта"},
    NamedOid{CRYPT_EXT_OR_ATTR_OID_GROUP_ID, "2.5.29.15", L"Использование ключа"},
    NamedOid{CRYPT_EXT_OR_ATTR_OID_GROUP_ID, "2.5.29.16", L"Срок использования закрытого ключа"},
    NamedOid{CRYPT_EXT_OR_ATTR_OID_GROUP_ID, "2.5.29.17", L"Дополнительное имя субъекта"},
    NamedOid{CRYPT_EXT_OR_ATTR_OID_GROUP_ID, "2.5.29.18", L"Дополнительное имя издателя"},
    NamedOid{CRYPT_EXT_OR_ATTR_OID_GROUP_ID, "2.5.29.19", L"Основные ограничения"},
    NamedOid{CRYPT_EXT_OR_ATTR_OID_GROUP_ID, "2.5.29.30", L"Ограничения имени"},
    NamedOid{CRYPT_EXT_OR_ATTR_OID_GROUP_ID, "2.5.29.31", L"Точки распространения списков отзыва"},
    NamedOid{CRYPT_EXT_OR_ATTR_OID_GROUP_ID, "2.5.29.32", L"Политики сертификата"},
    NamedOid{CRYPT_EXT_OR_ATTR_OID_GROUP_ID, "2.5.29.35", L"Идентификатор ключа центра сертификации"},
    NamedOid{CRYPT_EXT_OR_ATTR_OID_GROUP_ID, "2.5.29.36", L"Ограничения политики"},
    NamedOid{CRYPT_EXT_OR_ATTR_OID_GROUP_ID, "2.5.29.37", L"Улучшенный ключ"},
    NamedOid{CRYPT_EXT_OR_ATTR_OID_GROUP_ID, "1.3.6.1.5.5.7.1.1", L"Доступ к сведениям центра сертификации"},
    NamedOid{CRYPT_EXT_OR_ATTR_OID_GROUP_ID, "1.2.643.100.111", L"Средство электронной подписи владельца"},
    NamedOid{CRYPT_EXT_OR_ATTR_OID_GROUP_ID, "1.2.643.100.112", L"Средство электронной подписи издателя"},
    NamedOid{CRYPT_EXT_OR_ATTR_OID_GROUP_ID, "1.2.643.100.114", L"Тип идентификации"},
    NamedOid{CRYPT_EXT_OR_ATTR_OID_GROUP_ID, "1.2.840.113549.1.9.3", L"Тип содержимого"},
    NamedOid{CRYPT_EXT_OR_ATTR_OID_GROUP_ID, "1.2.840.113549.1.9.4", L"Хеш сообщения"},
    NamedOid{CRYPT_EXT_OR_ATTR_OID_GROUP_ID, "1.2.840.113549.1.9.5", L"Время подписи"},
    NamedOid{CRYPT_EXT_OR_ATTR_OID_GROUP_ID, "1.2.840.113549.1.9.14", L"Расширения сертификатов"},
    NamedOid{CRYPT_EXT_OR_ATTR_OID_GROUP_ID, "1.2.840.113549.1.9.16.2.14", L"Штамп времени подписи"},
    NamedOid{CRYPT_EXT_OR_ATTR_OID_GROUP_ID, "1.2.840.113549.1.9.16.2.47", L"Сертификат подписи v2"},
    NamedOid{CRYPT_EXT_OR_ATTR_OID_GROUP_ID, "1.3.6.1.4.1.311.13.2.1", L"Пара имя-значение заявки"},
    NamedOid{CRYPT_EXT_OR_ATTR_OID_GROUP_ID, "1.3.6.1.4.1.311.13.2.2", L"Криптопровайдер заявки"},
    NamedOid{CRYPT_EXT_OR_ATTR_OID_GROUP_ID, "1.3.6.1.4.1.311.13.2.3", L"Версия ОС"},
    NamedOid{CRYPT_EXT_OR_ATTR_OID_GROUP_ID, "1.3.6.1.4.1.311.21.20", L"Сведения о клиенте"},

    NamedOid{CRYPT_ENHKEY_USAGE_OID_GROUP_ID, "2.5.29.37.0", L"Любая цель"},
    NamedOid{CRYPT_ENHKEY_USAGE_OID_GROUP_ID, "1.3.6.1.5.5.7.3.1", L"Проверка подлинности сервера"},
    NamedOid{CRYPT_ENHKEY_USAGE_OID_GROUP_ID, "1.3.6.1.5.5.7.3.2", L"Проверка подлинности клиента"},
    NamedOid{CRYPT_ENHKEY_USAGE_OID_GROUP_ID, "1.3.6.1.5.5.7.3.3", L"Подписывание кода"},
    NamedOid{CRYPT_ENHKEY_USAGE_OID_GROUP_ID, "1.3.6.1.5.5.7.3.4", L"Защищённая электронная почта"},
    NamedOid{CRYPT_ENHKEY_USAGE_OID_GROUP_ID, "1.3.6.1.5.5.7.3.8", L"Установка штампов времени"},
    NamedOid{CRYPT_ENHKEY_USAGE_OID_GROUP_ID, "1.3.6.1.5.5.7.3.9", L"Подписывание ответов OCSP"},
    NamedOid{CRYPT_ENHKEY_USAGE_OID_GROUP_ID, "1.3.6.1.4.1.311.20.2.2", L"Вход со смарт-картой"},
};

const NamedOid* findNamed(DWORD group, std::string_view oid) {
    const auto* const found =
        std::ranges::find_if(namedOids, [&](const NamedOid& row) { return row.group == group && row.oid == oid; });
    return found == namedOids.end() ? nullptr : found;
}

/// The entries, with the zero-terminated texts that they point to.
class OidTable {
public:
    OidTable() {
        for (const DigestAlgorithm& digest : digestAlgorithms()) {
            add(CRYPT_HASH_ALG_OID_GROUP_ID, digest.oid, digest.id, digest.cngName, {});
        }
        for (const KeyAlgorithm& key : keyAlgorithms()) {
            addKey(key);
        }
        for (const SignatureAlgorithm& signature : signatureAlgorithms()) {
            addSignature(signature);
        }
        for (const NamedOid& row : namedOids) {
            const bool isAlgorithm = row.group <= CRYPT_SIGN_ALG_OID_GROUP_ID;
            if (!isAlgorithm) {
                add(row.group, row.oid, 0, {}, {});
            }
        }
    }

    template <class Predicate>
    [[nodiscard]] const CRYPT_OID_INFO* find(DWORD group, Predicate predicate) const {
        const auto found = std::ranges::find_if(entries_, [&](const CRYPT_OID_INFO& entry) {
            return (group == 0 || entry.dwGroupId == group) && predicate(entry);
        });
        return found == entries_.end() ? nullptr : &*found;
    }

private:
    CRYPT_OID_INFO& add(DWORD group, std::string_view oid, ALG_ID id, std::wstring_view cng,
                        std::wstring_view cngExtra) {
        const NamedOid* const named = findNamed(group, oid);
        CRYPT_OID_INFO& entry = entries_.emplace_back();
        entry.cbSize = sizeof entry;
        entry.pszOID = oids_.emplace_back(oid).c_str();
        entry.pwszName = text(named == nullptr ? std::wstring(oid.begin(), oid.end()) : std::wstring(named->name));
        entry.dwGroupId = group;
        entry.u.Algid = id;
        entry.pwszCNGAlgid = text(std::wstring(cng));
        entry.pwszCNGExtraAlgid = text(std::wstring(cngExtra));
        return entry;
    }

    /// The OID of an RSA key means the exchange key, as elsewhere in the CryptoAPI; a GOST key has an OID for each.
    void addKey(const KeyAlgorithm& key) {
        const auto group = CRYPT_PUBKEY_ALG_OID_GROUP_ID;
        const bool ownExchangeOid = !key.agreeOid.empty();
        add(group, key.oid, ownExchangeOid ? key.signId : key.exchangeId, key.cngName, {});
        add(group, ownExchangeOid ? key.agreeOid : key.oid, ownExchangeOid ? key.exchangeId : key.signId, key.cngName,
            {});
    }

    void addSignature(const SignatureAlgorithm& signature) {
        const DigestAlgorithm* const digest = findDigest(signature.digestOid);
        const KeyAlgorithm* const key = findKey(signature.keyOid);
        // A key's own OID standing for a signature with any digest tells nothing that the key's entry does not.
        if (digest == nullptr || key == nullptr) {
            return;
        }
        CRYPT_OID_INFO& entry =
            add(CRYPT_SIGN_ALG_OID_GROUP_ID, signature.oid, digest->id, digest->cngName, key->cngName);
        DWORD& keyId = keyIds_.emplace_back(key->gost ? key->signId : key->exchangeId);
        entry.ExtraInfo = {sizeof keyId, reinterpret_cast<BYTE*>(&keyId)};
    }

    const wchar_t* text(std::wstring value) { return texts_.emplace_back(std::move(value)).c_str(); }

    // Deques, because the entries point into them while they grow.
    std::deque<CRYPT_OID_INFO> entries_;
    std::deque<std::string> oids_;
    std::deque<std::wstring> texts_;
    std::deque<DWORD> keyIds_;
};

const OidTable& table() {
    static const OidTable table;
    return table;
}

bool isReal(ALG_ID id) {
    return id != 0 && id != CALG_OID_INFO_PARAMETERS;
}

wchar_t lower(wchar_t character) {
    return character >= L'A' && character <= L'Z' ? static_cast<wchar_t>(character - L'A' + L'a') : character;
}

bool sameName(std::wstring_view a, std::wstring_view b) {
    return std::ranges::equal(a, b, {}, lower, lower);
}

} // namespace

const CRYPT_OID_INFO* findOidInfo(std::string_view oid, DWORD group) {
    return table().find(group, [&](const CRYPT_OID_INFO& entry) { return entry.pszOID == oid; });
}

const CRYPT_OID_INFO* findOidInfo(std::wstring_view name, DWORD group) {
    return table().find(group, [&](const CRYPT_OID_INFO& entry) { return sameName(entry.pwszName, name); });
}

const CRYPT_OID_INFO* findOidInfo(ALG_ID id, DWORD group) {
    return table().find(group, [&](const CRYPT_OID_INFO& entry) { return isReal(id) && entry.u.Algid == id; });
}

const CRYPT_OID_INFO* findOidInfo(ALG_ID hash, ALG_ID key, DWORD group) {
    return table().find(group, [&](const CRYPT_OID_INFO& entry) {
        return entry.dwGroupId == CRYPT_SIGN_ALG_OID_GROUP_ID && isReal(hash) && entry.u.Algid == hash &&
               findKey(*reinterpret_cast<const DWORD*>(entry.ExtraInfo.pbData)) == findKey(key);
    });
}

} // namespace klunortredi::csp
