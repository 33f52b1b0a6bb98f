target_sources(klunortredi_csp_core PRIVATE
    src/crypto/algorithms.cpp
    src/crypto/digest.cpp
    src/crypto/engine.cpp
    src/crypto/gost_params.cpp
    src/crypto/key_pair.cpp
    src/crypto/public_key_info.cpp
    src/crypto/random.cpp
    src/crypto/signature.cpp
)
# The engine interface is deprecated in OpenSSL 3, but it is the only way to the GOST algorithms there.
set_source_files_properties(src/crypto/engine.cpp PROPERTIES
    COMPILE_DEFINITIONS OPENSSL_SUPPRESS_DEPRECATED SKIP_PRECOMPILE_HEADERS ON)
