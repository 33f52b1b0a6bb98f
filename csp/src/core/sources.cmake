target_sources(klunortredi_csp_core PRIVATE
    src/core/error.cpp
    src/core/files.cpp
    src/core/folder.cpp
    src/core/hex.cpp
    src/core/home.cpp
    src/core/output.cpp
    src/core/secret.cpp
    src/core/skipped.cpp
    src/core/trusted.cpp
    src/core/warning.cpp
)
