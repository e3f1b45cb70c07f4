// Directive handlers for net-snmp's configuration parser.
#include "host/hostConfig.h"

#include <strings.h>
#include <unistd.h>

#include <fstream>
#include <sstream>

#include "host/netSnmp.h"

namespace hmhost {

namespace {

HostSettings* g_settings = nullptr;

bool parseRole(const std::string& word, Role& role) {
    if (strcasecmp(word.c_str(), "master") == 0) {
        role = Role::Master;
        return true;
    }
    if (strcasecmp(word.c_str(), "subagent") == 0) {
        role = Role::Subagent;
        return true;
    }
    return false;
}

// The rest of the line, blanks trimmed on both ends.
std::string argumentOf(const char* line) {
    std::string text = line == nullptr ? "" : line;
    const size_t first = text.find_first_not_of(" \t\r\n");
    if (first == std::string::npos)
        return "";
    const size_t last = text.find_last_not_of(" \t\r\n");
    return text.substr(first, last - first + 1);
}

void parsePath(std::string& target, const char* token, const char* line) {
    const std::string path = argumentOf(line);
    if (path.empty()) {
        config_perror((std::string(token) + " needs a path").c_str());
        return;
    }
    target = path;
}

void parseLibrary(const char* token, char* line) {
    parsePath(g_settings->library, token, line);
}

void parseRegistry(const char* token, char* line) {
    parsePath(g_settings->registry, token, line);
}

void parseRoleDirective(const char* /*token*/, char* line) {
    Role role = Role::Master;
    if (!parseRole(argumentOf(line), role)) {
        config_perror("agentRole must be master or subagent");
        return;
    }
    g_settings->role = role;
}

void parseEntityTables(const char* /*token*/, char* line) {
    const std::string word = argumentOf(line);
    if (strcasecmp(word.c_str(), "yes") == 0 || strcasecmp(word.c_str(), "on") == 0)
        g_settings->entityTables = true;
    else if (strcasecmp(word.c_str(), "no") == 0 || strcasecmp(word.c_str(), "off") == 0)
        g_settings->entityTables = false;
    else
        config_perror("entityTables must be yes or no");
}

} // namespace

std::string configurationFiles(const std::string& configFile, const std::string& persistentDir,
                               const std::string& app) {
    const std::string saved = persistentDir + "/" + app + ".conf";
    return access(saved.c_str(), R_OK) == 0 ? configFile + "," + saved : configFile;
}

bool readRole(const std::string& path, Role& role, std::string& error) {
    std::ifstream file(path);
    if (!file) {
        error = "configuration file " + path + " cannot be read";
        return false;
    }
    role = Role::Master;
    std::string line;
    for (int number = 1; std::getline(file, line); ++number) {
        std::istringstream words(line);
        std::string token;
        std::string value;
        if (!(words >> token) || strcasecmp(token.c_str(), "agentRole") != 0)
            continue;
        words >> value;
        if (!parseRole(value, role)) {
            error = path + ": line " + std::to_string(number) + ": agentRole must be master or subagent";
            return false;
        }
    }
    return true;
}

void registerDirectives(const char* app, HostSettings& settings) {
    g_settings = &settings;
    register_config_handler(app, "agentLibrary", parseLibrary, nullptr,
                            "path of the extension agent library");
    register_config_handler(app, "agentRegistry", parseRegistry, nullptr,
                            "path of the agent's registry file");
    register_config_handler(app, "agentRole", parseRoleDirective, nullptr, "master|subagent");
    register_config_handler(app, "entityTables", parseEntityTables, nullptr, "yes|no");
}

} // namespace hmhost
