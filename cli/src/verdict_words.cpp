#include "verdict_words.hpp"

#include "printable.hpp"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <iterator>

namespace klunortredi::cli {

namespace {

using Json = nlohmann::ordered_json;
using orvik::plugin::wincrypt::tools::SignatureVerdict;

struct Words {
    const char* forPrograms;
    const char* forPeople;
};

constexpr Words wordsOf(SignatureVerdict verdict) {
    switch (verdict) {
    case SignatureVerdict::valid:
        return {"valid", "valid"};
    case SignatureVerdict::invalid:
        return {"invalid", "INVALID"};
    default:
        return {"unknown", "not judged"};
    }
}

} // namespace

const char* jsonWord(SignatureVerdict verdict) {
    return wordsOf(verdict).forPrograms;
}

const char* spokenWord(SignatureVerdict verdict) {
    return wordsOf(verdict).forPeople;
}

std::string headline(SignatureVerdict verdict, const std::string& reason) {
    return (verdict == SignatureVerdict::invalid ? "INVALID: " : "UNKNOWN: ") + printable(reason);
}

Json truth(SignatureVerdict verdict) {
    return verdict == SignatureVerdict::unknown ? Json(nullptr) : Json(verdict == SignatureVerdict::valid);
}

Json weakList(const std::vector<Weakness>& found) {
    Json list = Json::array();
    std::ranges::transform(found, std::back_inserter(list), describe);
    return list;
}

} // namespace klunortredi::cli
