target_sources(klunortredi_csp_core PRIVATE
    src/objects/attributes.cpp
    src/objects/certificates.cpp
    src/objects/codec.cpp
    src/objects/extensions.cpp
    src/objects/name_text.cpp
    src/objects/names.cpp
    src/objects/oid_info.cpp
    src/objects/parts.cpp
    src/objects/sign_and_encode.cpp
    src/objects/string_value.cpp
    src/objects/time.cpp
    src/objects/timestamps.cpp
    src/objects/utf8_argument.cpp
    src/objects/values.cpp
)
