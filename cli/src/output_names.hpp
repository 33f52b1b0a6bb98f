#pragma once

/// The names of a batch's outputs, compared before any work is done.

#include <cstdint>
#include <string>
#include <unordered_set>
#include <vector>

namespace klunortredi::cli {

/// Finds names that stand for one file, in a list that may be longer than memory has room for: keeps eight octets for
/// each name. Names are added in two rounds, the same ones in the same order; the second is needed only when
/// suspicious() says so.
class OutputNames {
public:
    /// First round.
    void add(const std::string& path);
    /// Ends the first round: whether two of the names may be those of one file.
    bool suspicious();
    /// Second round: whether the name stands for a file that was added before.
    bool repeats(const std::string& path);

private:
    const std::string& resolved(const std::string& path);

    std::vector<std::uint64_t> hashes_; ///< after suspicious(): those that occur several times, in order
    std::unordered_set<std::string> seen_;
    std::string folder_; ///< the last one, as it was written
    std::string canonicalFolder_;
    std::string path_;
};

} // namespace klunortredi::cli
