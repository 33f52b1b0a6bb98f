#include "orvik/plugin/crypto/weak_algorithms.hpp"

#include "oids.hpp"

#include <boost/date_time/gregorian/parsers.hpp>

#include <algorithm>
#include <array>
#include <iterator>
#include <limits>

namespace orvik::plugin::crypto {

namespace {

enum class When { always, afterDate };

/// Sizes of a key in bits, both included.
struct Sizes {
    unsigned least;
    unsigned most;
};

constexpr Sizes anySize = {0, std::numeric_limits<unsigned>::max()};

/// An algorithm under each of its names, or a kind of key of some sizes.
struct Row {
    Weakness weakness;
    When when;
    Sizes sizes;
    std::array<std::string_view, 7> oids; ///< unused places are empty
};

// Digests: RFC 1319, RFC 1320, RFC 1321, RFC 3174; signature algorithms that name them: RFC 8017 (RSA),
// RFC 3279 (DSA, ECDSA), and the older names of the OIW. GOST: RFC 4357, RFC 4491.
constexpr Row rows[] = {
    {{"MD2 digest", "attacks that find other contents with the same digest are known", "2011-03-07",
      WeaknessLevel::never},
     When::always,
     anySize,
     {"1.2.840.113549.2.2", "1.2.840.113549.1.1.2", "1.3.14.7.2.2.1", "1.3.14.7.2.3.1"}},
    {{"MD4 digest", "collisions can be computed by hand", "2011-03-07", WeaknessLevel::never},
     When::always,
     anySize,
     {"1.2.840.113549.2.4", "1.2.840.113549.1.1.3", "1.3.14.3.2.2", "1.3.14.3.2.4"}},
    {{"MD5 digest", "collisions can be computed in seconds, and certificates were forged with them", "2008-12-30",
      WeaknessLevel::never},
     When::always,
     anySize,
     {"1.2.840.113549.2.5", "1.2.840.113549.1.1.4", "1.3.14.3.2.3", "1.3.14.3.2.25"}},
    {{"SHA-1 digest", "collisions can be computed", "2017-02-23", WeaknessLevel::weak},
     When::always,
     anySize,
     {oids::sha1, "1.2.840.113549.1.1.5", "1.3.14.3.2.29", "1.3.14.3.2.15", "1.2.840.10045.4.1", "1.2.840.10040.4.3",
      "1.3.14.3.2.27"}},
    {{"GOST R 34.11-94 digest", "the standard was replaced, and new signatures with it are not permitted", "2019-12-31",
      WeaknessLevel::weak},
     When::afterDate,
     anySize,
     {oids::hashGost94, oids::signGost2001, "1.2.643.2.2.4", "1.2.643.2.2.30.1"}},
    {{"RSA key under 1024 bits", "keys of this size were factored", "2009-12-12", WeaknessLevel::never},
     When::always,
     {1, 1023},
     {oids::rsa, "1.2.840.113549.1.1.10", "1.2.840.113549.1.1.7", "2.5.8.1.1"}},
    {{"RSA key under 2048 bits", "the key is too short to resist factoring, and is not permitted for signatures",
      "2013-12-31", WeaknessLevel::weak},
     When::always,
     {1024, 2047},
     {oids::rsa, "1.2.840.113549.1.1.10", "1.2.840.113549.1.1.7", "2.5.8.1.1"}},
    {{"EC key under 160 bits", "discrete logarithms on curves of this size were computed", "2009-07-08",
      WeaknessLevel::never},
     When::always,
     {1, 159},
     {oids::ecPublicKey}},
    {{"EC key under 224 bits", "the key is too short to resist, and is not permitted for signatures", "2013-12-31",
      WeaknessLevel::weak},
     When::always,
     {160, 223},
     {oids::ecPublicKey}},
    {{"GOST R 34.10-2001 key", "the standard was replaced, and new signatures with it are not permitted", "2019-12-31",
      WeaknessLevel::weak},
     When::afterDate,
     anySize,
     {oids::gost2001, oids::gost2001Agreement, "1.2.643.2.2.20"}},
};

bool names(const Row& row, std::string_view oid) {
    return !oid.empty() && std::find(row.oids.begin(), row.oids.end(), oid) != row.oids.end();
}

/// A row about a digest or an algorithm needs the name alone; a row about sizes needs a key of a known size.
bool isMet(const Row& row, const UsedAlgorithms& used) {
    const bool fits = used.keyBits >= row.sizes.least && used.keyBits <= row.sizes.most;
    return fits && (names(row, used.publicKey) || (row.sizes.least == 0 && names(row, used.digest)));
}

bool hasCome(const Row& row, const boost::posix_time::ptime& time) {
    return row.when == When::always || time.is_special() ||
           time.date() > boost::gregorian::from_simple_string(row.weakness.date);
}

} // namespace

std::vector<Weakness> weaknesses(const UsedAlgorithms& used, const boost::posix_time::ptime& time) {
    std::vector<Weakness> found;
    for (const Row& row : rows) {
        if (isMet(row, used) && hasCome(row, time)) {
            found.push_back(row.weakness);
        }
    }
    return found;
}

std::vector<Weakness> allWeaknesses() {
    std::vector<Weakness> all;
    std::transform(std::begin(rows), std::end(rows), std::back_inserter(all),
                   [](const Row& row) { return row.weakness; });
    return all;
}

} // namespace orvik::plugin::crypto
