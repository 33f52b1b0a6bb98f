target_sources(klunortredi_csp_core PRIVATE
    src/stores/certificate_key.cpp
    src/stores/context.cpp
    src/stores/context_properties.cpp
    src/stores/crl_files.cpp
    src/stores/find.cpp
    src/stores/memory_store.cpp
    src/stores/search_keys.cpp
    src/stores/store.cpp
    src/stores/store_file.cpp
    src/stores/store_index.cpp
    src/stores/store_list.cpp
    src/stores/system_store.cpp
)
