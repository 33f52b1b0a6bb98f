#include "core/output.hpp"
#include "crypto/digest.hpp"
#include "exports/argument.hpp"
#include "exports/export.hpp"
#include "keys/hash_object.hpp"

namespace klunortredi::csp::exports {

BOOL CryptCreateHash(unsigned long hProv, ALG_ID Algid, unsigned long hKey, DWORD dwFlags, unsigned long* phHash) {
    return guarded([&] {
        require(phHash != nullptr);
        auto context = providerContext(hProv);
        requireNoFlags(dwFlags);
        if (hKey != 0) { // only keyed hashes take a key, and there are none
            fail(capi::NTE_BAD_KEY);
        }
        *phHash = addHash(std::make_shared<HashObject>(std::move(context), Algid));
    });
}

BOOL CryptHashData(unsigned long hHash, const BYTE* pbData, DWORD dwDataLen, DWORD dwFlags) {
    return guarded([&] {
        const ByteView data = input(pbData, dwDataLen);
        const auto hash = hashObject(hHash);
        requireNoFlags(dwFlags);
        hash->update(data);
    });
}

BOOL CryptGetHashParam(unsigned long hHash, DWORD dwParam, BYTE* pbData, DWORD* pdwDataLen, DWORD dwFlags) {
    return guarded([&] {
        require(pdwDataLen != nullptr);
        const auto hash = hashObject(hHash);
        requireNoFlags(dwFlags);
        hash->param(dwParam, pbData, pdwDataLen);
    });
}

BOOL CryptDestroyHash(unsigned long hHash) {
    return guarded([&] { destroyHash(hHash); });
}

BOOL CryptSignHashW(unsigned long hHash, DWORD dwKeySpec, const char* szDescription, DWORD dwFlags, BYTE* pbSignature,
                    DWORD* pdwSigLen) {
    return guarded([&] {
        require(pdwSigLen != nullptr && szDescription == nullptr);
        const auto hash = hashObject(hHash);
        requireNoFlags(dwFlags);
        hash->sign(dwKeySpec, pbSignature, pdwSigLen);
    });
}

BOOL CryptVerifySignatureW(unsigned long hHash, const BYTE* pbSignature, DWORD dwSigLen, unsigned long hPubKey,
                           const char* szDescription, DWORD dwFlags) {
    return guarded([&] {
        require(szDescription == nullptr);
        const ByteView signature = input(pbSignature, dwSigLen);
        const auto hash = hashObject(hHash);
        const auto key = keyObject(hPubKey);
        requireNoFlags(dwFlags);
        hash->verify(signature, *key);
    });
}

BOOL CryptHashCertificate(unsigned long hCryptProv, ALG_ID Algid, DWORD dwFlags, const BYTE* pbEncoded, DWORD cbEncoded,
                          BYTE* pbComputedHash, DWORD* pcbComputedHash) {
    return guarded([&] {
        require(pcbComputedHash != nullptr);
        const ByteView encoded = input(pbEncoded, cbEncoded);
        if (hCryptProv != 0) { // 0: any provider will do
            providerContext(hCryptProv);
        }
        requireNoFlags(dwFlags);
        const DigestAlgorithm* const algorithm = findDigest(Algid == 0 ? capi::CALG_SHA1 : Algid);
        if (algorithm == nullptr) {
            fail(capi::NTE_BAD_ALGID);
        }
        give(Digest::of(*algorithm, encoded), pbComputedHash, pcbComputedHash);
    });
}

} // namespace klunortredi::csp::exports
