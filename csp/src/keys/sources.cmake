target_sources(klunortredi_csp_core PRIVATE
    src/keys/algorithm_list.cpp
    src/keys/certificate_argument.cpp
    src/keys/container.cpp
    src/keys/container_attempt.cpp
    src/keys/container_meta.cpp
    src/keys/container_name.cpp
    src/keys/container_place.cpp
    src/keys/container_set.cpp
    src/keys/context.cpp
    src/keys/enumeration.cpp
    src/keys/generate_request.cpp
    src/keys/hash_object.cpp
    src/keys/key_access.cpp
    src/keys/key_file.cpp
    src/keys/key_object.cpp
    src/keys/provider_context.cpp
    src/keys/provider_params.cpp
    src/keys/providers.cpp
    src/keys/public_key_structure.cpp
)
# PP_VERSION tells the project's version.
target_compile_definitions(klunortredi_csp_core PUBLIC
    KLUNORTREDI_VERSION_MAJOR=${PROJECT_VERSION_MAJOR}u KLUNORTREDI_VERSION_MINOR=${PROJECT_VERSION_MINOR}u)
