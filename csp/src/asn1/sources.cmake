target_sources(klunortredi_csp_core PRIVATE
    src/asn1/definite.cpp
    src/asn1/der.cpp
    src/asn1/tlv_parser.cpp
)
