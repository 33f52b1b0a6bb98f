#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace corpora {

/// One row of a folder's MANIFEST.tsv.
struct Case {
    std::string folder; ///< absolute
    std::string id;
    std::string op;
    std::string input;                       ///< relative to the folder
    std::map<std::string, std::string> args; ///< "key=value;key=value"
    std::string expected;
    std::string why;

    [[nodiscard]] bool has(const std::string& key) const { return args.contains(key); }
    /// Absolute path of a file that an argument names.
    [[nodiscard]] std::string path(const std::string& key) const { return folder + "/" + args.at(key); }
};

/// Where the published cases lie: KLUNORTREDI_CORPORA, else beside the checkout. None when the folder is absent.
std::optional<std::string> root();

/// The rows of one folder; throws when its manifest cannot be read.
std::vector<Case> cases(const std::string& root, const std::string& folder);

/// What came of a folder, as a line of a table.
struct Tally {
    int right = 0;
    int notOffered = 0;
    std::vector<std::string> wrong; ///< ids with what happened
};
void print(const std::string& folder, const Tally& tally);

} // namespace corpora
