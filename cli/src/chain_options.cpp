#include "chain_options.hpp"

#include "chain_files.hpp"
#include "chain_material.hpp"
#include "failure.hpp"
#include "signer_usage.hpp"

#include <boost/date_time/gregorian/gregorian_types.hpp>
#include <boost/date_time/posix_time/posix_time_types.hpp>

#include <regex>
#include <stdexcept>

namespace klunortredi::cli {

namespace {

constexpr int firstYear = 1601; // of a FILETIME

/// RFC 3339 in UTC, or a date alone, which is its first moment.
boost::posix_time::ptime timeOf(const std::string& text) {
    static const std::regex form(
        R"((\d{4})-(\d{2})-(\d{2})(?:[Tt ](\d{2}):(\d{2}):(\d{2})(?:\.\d+)?(?:[Zz]|[+-]00:00))?)");
    std::smatch parts;
    if (std::regex_match(text, parts, form)) {
        const auto number = [&parts](std::size_t i) { return parts[i].matched ? std::stoi(parts[i].str()) : 0; };
        constexpr int hours = 24;
        constexpr int sixty = 60;
        try {
            const boost::gregorian::date day(static_cast<unsigned short>(number(1)),
                                             static_cast<unsigned short>(number(2)),
                                             static_cast<unsigned short>(number(3)));
            if (number(1) >= firstYear && number(4) < hours && number(5) < sixty && number(6) < sixty) {
                return {day, boost::posix_time::time_duration(number(4), number(5), number(6))};
            }
        } catch (const std::out_of_range&) { // 30 February
        }
    }
    throw Failure(ExitCode::usage, "cannot use --at " + text, "this is not a time",
                  "write it in UTC, as 2026-11-20T12:00:00Z or 2026-11-20");
}

} // namespace

ChainQuery chainQuery(const ChainOptions& options) {
    ChainQuery query;
    if (!options.at.empty() && !options.atSigningTime() && !options.atTimestamp()) {
        query.time = timeOf(options.at);
    }
    query.usage = options.usage.empty() ? std::string{} : usageOid("--usage", options.usage);
    query.requireRevocation = options.requireRevocation;
    query.offline = options.offline;
    query.beginRetrieval();
    ChainFiles files;
    for (const std::string& path : options.with) {
        readChainFile(path, files);
    }
    if (!options.anchors.empty()) {
        requireEmbeddedService("--anchor");
        ChainFiles anchors;
        for (const std::string& path : options.anchors) {
            readChainFile(path, anchors);
        }
        if (anchors.certificates.empty()) {
            throw Failure(ExitCode::input, "cannot use --anchor", "its files hold no certificate");
        }
        query.anchors = std::move(anchors.certificates);
        files.crls.insert(files.crls.end(), anchors.crls.begin(), anchors.crls.end());
    }
    query.certificates = std::move(files.certificates);
    query.crls = std::move(files.crls);
    return query;
}

} // namespace klunortredi::cli
