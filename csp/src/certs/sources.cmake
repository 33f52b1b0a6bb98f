target_sources(klunortredi_csp_core PRIVATE
    src/certs/cert_info.cpp
    src/certs/certificate.cpp
    src/certs/compare_keys.cpp
    src/certs/context.cpp
    src/certs/context_properties.cpp
    src/certs/crl.cpp
    src/certs/enhanced_key_usage.cpp
    src/certs/find.cpp
    src/certs/hex.cpp
    src/certs/memory_store.cpp
    src/certs/open_store.cpp
    src/certs/properties.cpp
    src/certs/store.cpp
    src/certs/store_file.cpp
    src/certs/subject_text.cpp
    src/certs/system_store.cpp
)
