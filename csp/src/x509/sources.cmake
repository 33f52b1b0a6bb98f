target_sources(klunortredi_csp_core PRIVATE
    src/x509/cert_info.cpp
    src/x509/certificate.cpp
    src/x509/certificate_fields.cpp
    src/x509/compare_keys.cpp
    src/x509/crl.cpp
    src/x509/enhanced_key_usage.cpp
    src/x509/properties.cpp
    src/x509/subject_text.cpp
)
