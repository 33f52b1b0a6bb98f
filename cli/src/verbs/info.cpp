#include "verbs/verbs.hpp"

#include "console.hpp"
#include "installed.hpp"
#include "orvik/plugin/path_registry.hpp"
#include "orvik/plugin/version_registry.hpp"
#include "text.hpp"

#include <boost/filesystem/operations.hpp>
#include <nlohmann/json.hpp>

#include <cstdlib>
#include <filesystem>
#include <pwd.h>
#include <unistd.h>

namespace klunortredi::cli {

namespace {

using Json = nlohmann::ordered_json;
using orvik::plugin::PathRegistry;

/// The libraries of the service that this process is bound to: ViPNet CSP's when it is there, else CryptoPro's slot.
std::vector<std::string> libraries() {
    std::vector<std::string> found;
    const auto add = [&found](const boost::filesystem::path& path) {
        boost::system::error_code ignored;
        if (boost::filesystem::exists(path, ignored)) {
            found.push_back(path.string());
        }
    };
    add(PathRegistry::vipNetResourceFile());
    add(found.empty() ? PathRegistry::cryptoProResourceFile() : PathRegistry::kernel32ResourceFile());
    return found;
}

std::string variable(const char* name) {
    const char* value = ::secure_getenv(name);
    return value == nullptr ? "" : value;
}

std::string homeOfUser() {
    if (std::string home = variable("HOME"); !home.empty()) {
        return home;
    }
    const passwd* const user = ::getpwuid(::getuid());
    return user == nullptr ? "" : user->pw_dir;
}

/// Where the embedded service keeps its data; it goes by the same rules.
std::string dataDirectory() {
    if (const std::string home = variable("KLUNORTREDI_HOME"); !home.empty()) {
        return std::filesystem::absolute(home).string();
    }
    const std::string data = variable("XDG_DATA_HOME");
    return (data.starts_with('/') ? data : homeOfUser() + "/.local/share") + "/klunortredi";
}

struct Row {
    std::string name;
    unsigned type;
    std::string version;
};

std::vector<Row> rows() {
    std::vector<Row> result;
    for (const auto& provider : installedProviders()) {
        result.push_back({text::utf8(provider->name()), static_cast<unsigned>(provider->type()),
                          text::utf8(provider->version().value_or(L""))});
    }
    return result;
}

Json toJson(const std::vector<Row>& providers) {
    Json list = Json::array();
    for (const Row& row : providers) {
        // The process is bound to one service, and every provider listed is one of that service's.
        list.push_back({{"type", row.type}, {"name", row.name}, {"version", row.version}, {"selected", true}});
    }
    return list;
}

void print(std::ostream& out, const std::vector<Row>& providers, const char* indent) {
    for (const Row& row : providers) {
        out << indent << row.type << "  " << row.name << (row.version.empty() ? "" : "  " + row.version) << '\n';
    }
}

} // namespace

ExitCode info(Session& session) {
    const std::string version = orvik::plugin::VersionRegistry::product();
    const auto files = libraries();
    const auto found = files.empty() ? std::vector<Row>{} : rows();
    const Json document = {{"version", version},
                           {"service", files.empty() ? std::string{} : files.front()},
                           {"libraries", files},
                           {"data_directory", dataDirectory()},
                           {"providers", toJson(found)}};
    session.console.result(document, [&](std::ostream& out) {
        out << "klunortredi " << version << '\n';
        out << "service    " << (files.empty() ? "none found" : text::joined(files)) << '\n';
        out << "data       " << dataDirectory() << '\n';
        out << "providers" << (found.empty() ? "  none" : "") << '\n';
        print(out, found, "  ");
    });
    return ExitCode::done;
}

ExitCode providers(Session& session) {
    const auto found = rows();
    session.console.result({{"providers", toJson(found)}}, [&](std::ostream& out) { print(out, found, ""); });
    return ExitCode::done;
}

} // namespace klunortredi::cli
