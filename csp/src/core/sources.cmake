target_sources(klunortredi_csp_core PRIVATE src/core/error.cpp src/core/output.cpp)
