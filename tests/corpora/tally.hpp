#pragma once

/// How a folder of published cases fares, compared with what docs/published-cases.md explains.

#include "corpora/manifest.hpp"

#include <map>
#include <string>
#include <vector>

namespace corpora {

/// What the document says of a row that does not get its publisher's verdict.
enum class Explained { wrong, notOffered };

class Tally {
public:
    /// `name` stands in the table: a folder, and what is asked of its rows.
    explicit Tally(std::string name);

    /// Whether the row is judged. One that the document calls not offered is counted as such.
    bool offered(const Case& row);
    /// Takes the verdict on an offered row: right when it is the one expected; EITHER and NOCRASH take any of
    /// VALID, INVALID, OK and FAIL.
    void note(const Case& row, const std::string& got);

    /// "corpora: NAME right/total, n not offered, n wrong", with a line for each wrong row.
    void print() const;
    /// Wrong rows that are not explained, and rows explained as wrong that are right. Empty for a true document.
    [[nodiscard]] const std::vector<std::string>& surprises() const { return surprises_; }
    /// Ids of all rows that the document explains.
    [[nodiscard]] std::vector<std::string> explained() const;
    [[nodiscard]] int right() const { return right_; }

private:
    std::string name_;
    std::map<std::string, Explained> explained_;
    int right_ = 0;
    int notOffered_ = 0;
    std::vector<std::string> wrong_;
    std::vector<std::string> surprises_;
};

} // namespace corpora
