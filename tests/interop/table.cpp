#include "interop/table.hpp"

#include <fnmatch.h>

#include <algorithm>
#include <iomanip>
#include <ostream>
#include <string_view>

namespace interop {

namespace {

constexpr const char* prefix = "interop: ";
constexpr const char* wrongCell = "WRONG";
constexpr int rowWidth = 51;
constexpr int gap = 2;

bool matches(const char* pattern, const std::string& text) {
    return ::fnmatch(pattern, text.c_str(), 0) == 0;
}

} // namespace

Table::Table(std::string title, std::vector<std::string> columns, std::span<const NotOffered> notOffered)
    : title_(std::move(title)), columns_(std::move(columns)), notOffered_(notOffered) {}

const NotOffered* Table::reason(const std::string& row, const std::string& column) const {
    const auto found = std::ranges::find_if(
        notOffered_, [&](const NotOffered& entry) { return matches(entry.row, row) && matches(entry.column, column); });
    return found == notOffered_.end() ? nullptr : &*found;
}

bool Table::offered(const std::string& row, const std::string& column) {
    if (std::ranges::find(rows_, row) == rows_.end()) {
        rows_.push_back(row);
    }
    return reason(row, column) == nullptr;
}

void Table::set(const std::string& row, const std::string& column, bool right) {
    const auto [cell, added] = cells_.try_emplace({row, column}, right);
    cell->second = cell->second && right;
}

const char* Table::text(const std::string& row, const std::string& column) const {
    if (reason(row, column) != nullptr) {
        return "n/o";
    }
    const auto cell = cells_.find({row, column});
    return cell != cells_.end() && cell->second ? "ok" : wrongCell;
}

void Table::print(std::ostream& out) const {
    const auto line = [&](const std::string& first, const auto& cellOf) {
        out << prefix << std::left << std::setw(rowWidth) << first;
        for (const std::string& column : columns_) {
            const auto width = std::max(column.size(), std::string_view(wrongCell).size());
            out << std::setw(static_cast<int>(width) + gap) << cellOf(column);
        }
        out << "\n";
    };
    line(title_, [](const std::string& column) { return column; });
    for (const std::string& row : rows_) {
        line(row, [&](const std::string& column) { return text(row, column); });
    }
    for (const NotOffered& entry : notOffered_) {
        if (!isUsed(entry)) {
            continue;
        }
        out << prefix << "n/o (not offered): " << entry.row << " | " << entry.column << ": " << entry.why << "\n";
    }
}

std::vector<std::string> Table::wrong() const {
    std::vector<std::string> cells;
    for (const std::string& row : rows_) {
        for (const std::string& column : columns_) {
            if (text(row, column) == wrongCell) {
                cells.push_back(row + " | " + column);
            }
        }
    }
    return cells;
}

bool Table::isUsed(const NotOffered& entry) const {
    return std::ranges::any_of(rows_, [&](const std::string& row) {
        return std::ranges::any_of(columns_, [&](const std::string& column) { return reason(row, column) == &entry; });
    });
}

std::vector<std::string> Table::unused() const {
    std::vector<std::string> reasons;
    for (const NotOffered& entry : notOffered_) {
        if (!isUsed(entry)) {
            reasons.emplace_back(entry.why);
        }
    }
    return reasons;
}

} // namespace interop
