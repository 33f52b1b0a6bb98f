#include "corpora/manifest.hpp"

#include "support/temp_folder.hpp"

#include <cstdlib>
#include <filesystem>
#include <set>
#include <sstream>
#include <stdexcept>

namespace corpora {

bool judgedByChain(const Case& row) {
    static const std::set<std::string> rows{"xmlsec-aleksey-xmldsig-01__enveloping-expired-cert",
                                            "xmlsec-aleksey-xmldsig-01__enveloped-x509-same-subj-cert-2",
                                            "xmlsec-aleksey-xmldsig-01__enveloped-x509-missing-cert-3",
                                            "xmlsec-aleksey-xmldsig-01__enveloped-x509-missing-cert-5"};
    return rows.contains(row.id);
}

std::vector<std::string> split(const std::string& text, char separator) {
    std::vector<std::string> parts;
    std::istringstream stream(text);
    for (std::string part; std::getline(stream, part, separator);) {
        parts.push_back(part);
    }
    return parts;
}

std::string Case::text(const std::string& key) const {
    const auto found = args.find(key);
    return found == args.end() ? "" : found->second;
}

std::vector<std::string> Case::paths(const std::string& key) const {
    std::vector<std::string> files = split(text(key), '|');
    for (std::string& file : files) {
        file = folder + "/" + file;
    }
    return files;
}

std::optional<std::string> root() {
    const char* given = std::getenv("KLUNORTREDI_CORPORA");
    const std::filesystem::path path(given == nullptr ? CORPORA_DEFAULT : given);
    return std::filesystem::is_directory(path) ? std::optional(std::filesystem::absolute(path).string()) : std::nullopt;
}

std::vector<Case> cases(const std::string& root, const std::string& folder) {
    std::istringstream lines(test_support::readFile(root + "/" + folder + "/MANIFEST.tsv"));
    std::vector<Case> result;
    std::string line;
    std::getline(lines, line); // column names
    while (std::getline(lines, line)) {
        const auto fields = split(line, '\t');
        if (fields.size() < 5) {
            throw std::runtime_error(folder + ": a row of the manifest is too short: " + line);
        }
        Case row{
            root + "/" + folder, fields[0], fields[1], fields[2], {}, fields[4], fields.size() > 7 ? fields[7] : ""};
        for (const std::string& pair : split(fields[3], ';')) {
            const auto equals = pair.find('=');
            row.args[pair.substr(0, equals)] = equals == std::string::npos ? "" : pair.substr(equals + 1);
        }
        result.push_back(std::move(row));
    }
    return result;
}

} // namespace corpora
