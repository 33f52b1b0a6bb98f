#pragma once

/// Rows of the folders of published cases, and where they lie.

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
    std::string expected;                    ///< VALID, INVALID, OK, FAIL, EITHER or NOCRASH
    std::string why;

    [[nodiscard]] bool has(const std::string& key) const { return args.contains(key); }
    /// The argument's text; empty when the row does not have it.
    [[nodiscard]] std::string text(const std::string& key) const;
    /// Absolute path of a file that an argument names.
    [[nodiscard]] std::string path(const std::string& key) const { return folder + "/" + args.at(key); }
    /// Absolute paths of the files that an argument lists; empty when the row does not have it.
    [[nodiscard]] std::vector<std::string> paths(const std::string& key) const;
    /// Absolute path of the input.
    [[nodiscard]] std::string inputPath() const { return folder + "/" + input; }
};

/// Folder of the published cases: KLUNORTREDI_CORPORA, else beside the checkout; nullopt when it is absent.
std::optional<std::string> root();

/// The rows of one folder; throws std::runtime_error when its manifest cannot be read.
std::vector<Case> cases(const std::string& root, const std::string& folder);

/// Whether the row is a document whose signature is valid, and whose verdict is about the signer's chain.
bool judgedByChain(const Case& row);

/// The parts of `text` between separators.
std::vector<std::string> split(const std::string& text, char separator);

} // namespace corpora
