target_sources(klunortredi_csp_core PRIVATE
    src/chains/chain_builder.cpp
    src/chains/chain_context.cpp
    src/chains/chain_policy.cpp
    src/chains/chain_sources.cpp
    src/chains/trust_status.cpp
)
