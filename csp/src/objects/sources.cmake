target_sources(klunortredi_csp_core PRIVATE src/objects/time.cpp)
