target_sources(klunortredi_csp_core PRIVATE
    src/text/binary_text.cpp
    src/text/messages.cpp
    src/text/unicode.cpp
)
