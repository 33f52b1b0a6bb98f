#pragma once

#include <iosfwd>
#include <map>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace interop {

/// Cells that ask for something that their maker or their judge does not do. Rows and columns are patterns of
/// fnmatch(3).
struct NotOffered {
    const char* row;
    const char* column;
    const char* why;
};

/// What two systems make of each other's messages. Each cell is right, wrong or not offered; the list of the last is
/// given, so that a cell cannot become one of them unnoticed.
class Table {
public:
    Table(std::string title, std::vector<std::string> columns, std::span<const NotOffered> notOffered);

    /// Adds the row, when it is new, and says whether the cell is to be tried.
    [[nodiscard]] bool offered(const std::string& row, const std::string& column);
    /// The outcome of a cell; once wrong, it stays wrong.
    void set(const std::string& row, const std::string& column, bool right);

    /// A line for each row, and one for each reason of what is not offered. Every line begins with "interop: ".
    void print(std::ostream& out) const;
    /// The cells that are wrong, and those that were to be tried and have no outcome.
    [[nodiscard]] std::vector<std::string> wrong() const;
    /// Reasons that no cell has.
    [[nodiscard]] std::vector<std::string> unused() const;

private:
    [[nodiscard]] const NotOffered* reason(const std::string& row, const std::string& column) const;
    [[nodiscard]] bool isUsed(const NotOffered& entry) const;
    [[nodiscard]] const char* text(const std::string& row, const std::string& column) const;

    std::string title_;
    std::vector<std::string> columns_;
    std::span<const NotOffered> notOffered_;
    std::vector<std::string> rows_;
    std::map<std::pair<std::string, std::string>, bool> cells_;
};

} // namespace interop
