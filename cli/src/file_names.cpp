#include "file_names.hpp"

#include "failure.hpp"
#include "input.hpp"
#include "spool.hpp"

#include <algorithm>
#include <climits>
#include <istream>

namespace klunortredi::cli {

namespace {

constexpr std::size_t longestName = PATH_MAX - 1; // octets; the system opens no longer path
constexpr int endOfList = std::istream::traits_type::eof();

} // namespace

void NamedFiles::check(const std::string& what) const {
    const auto refuse = [&what](const std::string& why, const std::string& next = {}) {
        throw Failure(ExitCode::usage, what, why, next);
    };
    if (files.empty() && from.empty()) {
        refuse("no file is named", "name files, or a list of them with --files-from");
    }
    if (!files.empty() && !from.empty()) {
        refuse("files are named on the command line and with --files-from", "put all of them into the list");
    }
    if (zeroEnds && from.empty()) {
        refuse("-0 is for the list of --files-from");
    }
    if (std::count(files.begin(), files.end(), "-") > 1) {
        refuse("standard input can be read only once");
    }
}

FileNames::FileNames(const NamedFiles& named) : named_(named) {
    if (!named.from.empty()) {
        list_ = std::make_unique<Input>(named.from);
    }
}

FileNames::~FileNames() = default;

void FileNames::keep() {
    if (!list_) {
        return;
    }
    auto spool = std::make_unique<Spool>("the list of files");
    std::streambuf& octets = *list_->raw().rdbuf();
    std::string piece(std::size_t{64} * 1024, '\0');
    for (auto got = octets.sgetn(piece.data(), static_cast<std::streamsize>(piece.size())); got > 0;
         got = octets.sgetn(piece.data(), static_cast<std::streamsize>(piece.size()))) {
        spool->write(std::string_view(piece).substr(0, static_cast<std::size_t>(got)));
    }
    list_->check();
    spool_ = std::move(spool);
    list_.reset();
    rewind();
}

void FileNames::rewind() {
    count_ = 0;
    piece_ = {};
    if (spool_) {
        spool_->rewind();
    }
}

/// The list's next octet, or endOfList.
int FileNames::octet() {
    if (list_) {
        return list_->raw().rdbuf()->sbumpc();
    }
    if (piece_.empty()) {
        piece_ = spool_->next();
    }
    if (piece_.empty()) {
        return endOfList;
    }
    const auto first = static_cast<unsigned char>(piece_.front());
    piece_.remove_prefix(1);
    return first;
}

std::optional<FileName> FileNames::next() {
    if (named_.from.empty()) {
        return count_ < named_.files.size() ? std::optional(FileName{named_.files[count_++], {}}) : std::nullopt;
    }
    const unsigned char end = named_.zeroEnds ? '\0' : '\n';
    std::string octets;
    bool tooLong = false;
    int c = octet();
    if (c == endOfList) {
        if (list_) {
            list_->check();
        }
        return std::nullopt;
    }
    for (; c != endOfList && c != end; c = octet()) {
        tooLong = tooLong || octets.size() == longestName;
        if (!tooLong) {
            octets.push_back(static_cast<char>(c));
        }
    }
    ++count_;
    return listed(std::move(octets), tooLong);
}

FileName FileNames::listed(std::string octets, bool tooLong) const {
    std::string trouble;
    if (octets.empty()) {
        trouble = "it is empty";
    } else if (tooLong) {
        trouble = "it is longer than any path";
    } else if (octets.find('\0') != std::string::npos) {
        trouble = "it holds a zero octet; -0 reads lists whose names end with one";
    }
    if (!trouble.empty()) {
        const std::string list = named_.from == "-" ? "standard input" : named_.from;
        return {"name " + std::to_string(count_) + " of " + list, trouble};
    }
    return {octets == "-" ? "./-" : std::move(octets), {}};
}

} // namespace klunortredi::cli
