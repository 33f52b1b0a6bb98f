target_sources(klunortredi_csp_core PRIVATE
    src/messages/attribute_rules.cpp
    src/messages/cms_types.cpp
    src/messages/content_hasher.cpp
    src/messages/handles.cpp
    src/messages/other_signatures.cpp
    src/messages/signature_check.cpp
    src/messages/signed_data_reader.cpp
    src/messages/signed_data_writer.cpp
    src/messages/signed_decoder.cpp
    src/messages/signed_encoder.cpp
    src/messages/signed_params.cpp
    src/messages/signer_builder.cpp
    src/messages/signer_info.cpp
    src/messages/signer_match.cpp
)
