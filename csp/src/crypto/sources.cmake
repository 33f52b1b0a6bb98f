target_sources(klunortredi_csp_core PRIVATE
    src/crypto/algorithms.cpp
    src/crypto/broken_key.cpp
    src/crypto/content_cipher.cpp
    src/crypto/content_cipher_evp.cpp
    src/crypto/content_cipher_gost.cpp
    src/crypto/digest.cpp
    src/crypto/engine.cpp
    src/crypto/gost28147.cpp
    src/crypto/gost28147_wrap.cpp
    src/crypto/gost_cfb.cpp
    src/crypto/gost_modes.cpp
    src/crypto/gost_params.cpp
    src/crypto/key_pair.cpp
    src/crypto/key_wrapping.cpp
    src/crypto/key_wrapping_gost.cpp
    src/crypto/key_wrapping_rsa.cpp
    src/crypto/kuznyechik.cpp
    src/crypto/public_key_info.cpp
    src/crypto/random.cpp
    src/crypto/rsa_public_key.cpp
    src/crypto/sha.cpp
    src/crypto/signature.cpp
    src/crypto/vko.cpp
)
# The engine interface is deprecated in OpenSSL 3, but it is the only way to the GOST algorithms there; so are the
# functions that read the numbers of a key that the engine made, and those that hash without a provider.
set_source_files_properties(src/crypto/engine.cpp src/crypto/sha.cpp src/crypto/vko.cpp PROPERTIES
    COMPILE_DEFINITIONS OPENSSL_SUPPRESS_DEPRECATED SKIP_PRECOMPILE_HEADERS ON)
