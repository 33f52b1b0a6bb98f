target_sources(klunortredi_csp PRIVATE
    src/exports/last_error.cpp src/exports/object.cpp src/exports/oid.cpp src/exports/text.cpp
    src/exports/text_name.cpp src/exports/time.cpp)
target_sources(klunortredi_csp PRIVATE src/exports/message.cpp)
target_sources(klunortredi_csp PRIVATE
    src/exports/context.cpp src/exports/hash.cpp src/exports/keys.cpp src/exports/random.cpp)
target_sources(klunortredi_csp PRIVATE src/exports/cert_context.cpp src/exports/cert_key.cpp src/exports/cert_store.cpp src/exports/chain.cpp)
