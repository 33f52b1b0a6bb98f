#include "corpora/tally.hpp"

#include "support/temp_folder.hpp"

#include <iostream>
#include <set>
#include <sstream>
#include <stdexcept>

namespace corpora {

namespace {

/// The words of a table's cell that stand between backquotes.
std::vector<std::string> quoted(const std::string& cell) {
    std::vector<std::string> words;
    const auto parts = split(cell, '`');
    for (std::size_t i = 1; i < parts.size(); i += 2) {
        words.push_back(parts[i]);
    }
    return words;
}

/// Rows "| `id` `id` ... | wrong | why |" and "| `id` ... | not offered | why |" of the document.
std::map<std::string, Explained> explanations() {
    std::istringstream lines(test_support::readFile(PUBLISHED_CASES));
    std::map<std::string, Explained> found;
    for (std::string line; std::getline(lines, line);) {
        const auto cells = split(line, '|');
        if (!line.starts_with("| `") || cells.size() < 4) {
            continue;
        }
        const bool wrong = cells[2] == " wrong ";
        if ((!wrong && cells[2] != " not offered ") || cells[3].find_first_not_of(' ') == std::string::npos) {
            throw std::runtime_error("neither wrong nor not offered, or without a reason: " + line);
        }
        for (const std::string& id : quoted(cells[1])) {
            if (!found.emplace(id, wrong ? Explained::wrong : Explained::notOffered).second) {
                throw std::runtime_error("explained twice: " + id);
            }
        }
    }
    return found;
}

bool isRight(const std::string& expected, const std::string& got) {
    const std::set<std::string> clean{"VALID", "INVALID", "OK", "FAIL"};
    return expected == "EITHER" || expected == "NOCRASH" ? clean.contains(got) : got == expected;
}

} // namespace

Tally::Tally(std::string name) : name_(std::move(name)), explained_(explanations()) {}

bool Tally::offered(const Case& row) {
    const auto explained = explained_.find(row.id);
    if (explained == explained_.end() || explained->second != Explained::notOffered) {
        return true;
    }
    ++notOffered_;
    return false;
}

void Tally::note(const Case& row, const std::string& got) {
    const bool explained = explained_.contains(row.id);
    if (isRight(row.expected, got)) {
        ++right_;
        if (explained) {
            surprises_.push_back(row.id + " is right, but explained as wrong");
        }
        return;
    }
    wrong_.push_back(row.id + ": " + got + " instead of " + row.expected + " (" + row.why + ")");
    if (!explained) {
        surprises_.push_back(wrong_.back());
    }
}

std::vector<std::string> Tally::explained() const {
    std::vector<std::string> ids;
    for (const auto& [id, kind] : explained_) {
        ids.push_back(id);
    }
    return ids;
}

void Tally::print() const {
    std::cout << "corpora: " << name_ << ' ' << right_ << '/'
              << static_cast<std::size_t>(right_ + notOffered_) + wrong_.size() << ", " << notOffered_
              << " not offered, " << wrong_.size() << " wrong\n";
    for (const std::string& line : wrong_) {
        std::cout << "  wrong: " << line << '\n';
    }
}

} // namespace corpora
