target_sources(klunortredi_csp PRIVATE src/exports/last_error.cpp)
