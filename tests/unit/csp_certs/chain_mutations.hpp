#pragma once

/// What can be different about a chain, one row each. Rows are combined at random to generate chains.

#include "chain_draft.hpp"

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace chain_mutations {

struct Mutation {
    const char* name;
    std::function<void(chain_draft::Draft&)> apply;
};

const std::vector<Mutation>& all();

/// A chain and the names of the mutations that made it.
struct Generated {
    std::vector<std::string> names;
    chain_draft::Draft draft;
};

/// Each mutation alone, then `pairs` pairs drawn from `seed`.
std::vector<Generated> generate(std::size_t pairs, std::uint32_t seed);

} // namespace chain_mutations
