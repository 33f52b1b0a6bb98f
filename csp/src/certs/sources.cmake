target_sources(klunortredi_csp_core PRIVATE
    src/certs/cert_info.cpp
)
