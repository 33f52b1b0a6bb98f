target_sources(klunortredi_csp_exports PRIVATE
    src/exports/cert_context.cpp
    src/exports/cert_key.cpp
    src/exports/cert_store.cpp
    src/exports/chain.cpp
    src/exports/context.cpp
    src/exports/hash.cpp
    src/exports/keys.cpp
    src/exports/last_error.cpp
    src/exports/message.cpp
    src/exports/object.cpp
    src/exports/oid.cpp
    src/exports/open_store.cpp
    src/exports/random.cpp
    src/exports/text.cpp
    src/exports/text_name.cpp
    src/exports/time.cpp
)
