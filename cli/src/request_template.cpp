#include "request_template.hpp"

#include "failure.hpp"
#include "input.hpp"
#include "printable.hpp"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>
#include <string_view>

namespace klunortredi::cli {

namespace {

using Json = nlohmann::ordered_json;

constexpr std::size_t largestTemplate = 64 * 1024; // octets; some hundred names fit
constexpr std::uint64_t mostKeyDays = 36500;       // as on the command line

struct Text {
    std::string_view name;
    std::string RequestArguments::*option;
};
constexpr std::array texts{Text{"container", &RequestArguments::container},
                           Text{"subject", &RequestArguments::subject},
                           Text{"provider", &RequestArguments::provider},
                           Text{"param_set", &RequestArguments::paramSet},
                           Text{"key_usage", &RequestArguments::keyUsage},
                           Text{"upn", &RequestArguments::userPrincipalName},
                           Text{"identification", &RequestArguments::identification},
                           Text{"out", &RequestArguments::out}};

struct List {
    std::string_view name;
    std::vector<std::string> RequestArguments::*option;
};
constexpr std::array lists{List{"eku", &RequestArguments::enhancedKeyUsage},
                           List{"policy", &RequestArguments::policies}, List{"dns", &RequestArguments::dnsNames},
                           List{"email", &RequestArguments::emailNames}};

struct Flag {
    std::string_view name;
    bool RequestArguments::*option;
};
constexpr std::array flags{Flag{"exportable", &RequestArguments::exportable},
                           Flag{"no_client_info", &RequestArguments::withoutMachineInfo}};

template <class Rows>
const auto* rowOf(const Rows& rows, const std::string& name) {
    const auto* const row = std::ranges::find_if(rows, [&](const auto& one) { return one.name == name; });
    return row == rows.end() ? nullptr : row;
}

/// One member of the file after another, each checked, whether the command line overrides it or not.
class Template {
public:
    Template(const RequestArguments& given, RequestArguments& result) : given_(given), result_(result) {}

    void take(const std::string& name, const Json& value) {
        if (const auto* const text = rowOf(texts, name)) {
            const std::string said = textOf(name, value);
            if ((given_.*text->option).empty()) {
                result_.*text->option = said;
            }
        } else if (const auto* const list = rowOf(lists, name)) {
            const auto said = listOf(name, value);
            if ((given_.*list->option).empty()) {
                result_.*list->option = said;
            }
        } else if (const auto* const flag = rowOf(flags, name)) {
            require(value.is_boolean(), name, "is not true or false");
            result_.*flag->option = given_.*flag->option || value.get<bool>();
        } else {
            require(name == "key_days", name, "is not an option of 'request'");
            takeDays(name, value);
        }
    }

    [[noreturn]] void refuse(const std::string& why) const {
        throw Failure(ExitCode::input, "cannot use the template " + printable(given_.templateFile), why,
                      "docs/command.md lists the members of a template");
    }

private:
    void require(bool condition, const std::string& name, const std::string& why) const {
        if (!condition) {
            refuse("'" + printable(name) + "' " + why);
        }
    }

    [[nodiscard]] std::string textOf(const std::string& name, const Json& value) const {
        require(value.is_string(), name, "is not a text");
        auto text = value.get<std::string>();
        require(!text.empty(), name, "is empty");
        require(std::ranges::none_of(text, [](unsigned char octet) { return octet < 0x20 || octet == 0x7F; }), name,
                "has a control character");
        return text;
    }

    [[nodiscard]] std::vector<std::string> listOf(const std::string& name, const Json& value) const {
        std::vector<std::string> list;
        for (const Json& one : value.is_array() ? value : Json::array({value})) {
            list.push_back(textOf(name, one));
        }
        return list;
    }

    void takeDays(const std::string& name, const Json& value) {
        require(value.is_number_unsigned() && value.get<std::uint64_t>() >= 1 &&
                    value.get<std::uint64_t>() <= mostKeyDays,
                name, "is not a number from 1 to " + std::to_string(mostKeyDays));
        if (given_.keyDays == 0) {
            result_.keyDays = value.get<unsigned>();
        }
    }

    const RequestArguments& given_;
    RequestArguments& result_;
};

std::string contentOf(const std::string& path, const Template& reading) {
    Input input(path);
    std::string octets(largestTemplate + 1, '\0');
    input.raw().read(octets.data(), static_cast<std::streamsize>(octets.size()));
    octets.resize(static_cast<std::size_t>(input.raw().gcount()));
    input.check();
    if (octets.size() > largestTemplate) {
        reading.refuse("it is longer than " + std::to_string(largestTemplate) + " octets");
    }
    return octets;
}

} // namespace

RequestArguments withTemplate(RequestArguments arguments) {
    if (arguments.templateFile.empty()) {
        return arguments;
    }
    RequestArguments result = arguments;
    Template reading(arguments, result);
    const auto document = Json::parse(contentOf(arguments.templateFile, reading), nullptr, false);
    if (!document.is_object()) {
        reading.refuse("it is not a JSON object");
    }
    for (const auto& [name, value] : document.items()) {
        reading.take(name, value);
    }
    return result;
}

} // namespace klunortredi::cli
