// The MIB module mibs/HM-SUBAGENT-MIB.txt: it passes smilint without errors, every
// object it defines sits at the OID, with the access and type, of the agent's variable of
// the same position, and every trap the agent can send has its notification (RFC 3584
// form: enterprise E, specific S -> E.0.S).
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "agent/mibTypes.h"
#include "events/eventOids.h"
#include "support/oids.h"

namespace {

const std::string kModule = std::string(HM_SOURCE_DIR) + "/mibs/HM-SUBAGENT-MIB.txt";
const std::string kModuleDir = std::string(HM_SOURCE_DIR) + "/mibs";
// Stand-ins of the IETF base modules, looked at after the system's own MIB folders.
const std::string kBaseModuleDir = std::string(HM_SOURCE_DIR) + "/mibs/ietf";

bool toolPresent(const char* tool) {
    std::string command = std::string("command -v ") + tool + " >/dev/null 2>&1";
    return std::system(command.c_str()) == 0;
}

// Runs `command`, returns its standard output, and its standard error unless `errors` is false.
std::string run(const std::string& command, int* status = nullptr, bool errors = true) {
    std::string output;
    FILE* pipe = popen((command + (errors ? " 2>&1" : " 2>/dev/null")).c_str(), "r");
    if (pipe == nullptr)
        return output;
    char buffer[4096];
    size_t n;
    while ((n = fread(buffer, 1, sizeof buffer, pipe)) > 0)
        output.append(buffer, n);
    int rc = pclose(pipe);
    if (status != nullptr)
        *status = rc;
    return output;
}

std::string readModule() {
    std::ifstream in(kModule);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

// One object definition of the module, in file order.
struct Definition {
    std::string name;
    std::string syntax;
    std::string access;
};

std::vector<Definition> objectDefinitions(const std::string& text) {
    std::vector<Definition> list;
    std::regex object(
        R"(\n(\w+) OBJECT-TYPE\n\s+SYNTAX\s+([^\n]+)\n(?:\s+UNITS[^\n]*\n)?\s+MAX-ACCESS\s+([\w-]+))");
    for (std::sregex_iterator it(text.begin(), text.end(), object), end; it != end; ++it)
        list.push_back({(*it)[1], (*it)[2], (*it)[3]});
    return list;
}

std::set<std::string> notificationNames(const std::string& text) {
    std::set<std::string> names;
    std::regex notification(R"(\n(\w+) NOTIFICATION-TYPE\n)");
    for (std::sregex_iterator it(text.begin(), text.end(), notification), end; it != end; ++it)
        names.insert((*it)[1]);
    return names;
}

// Only snmptranslate's answers: its notices (such as the "Created directory" of a first run on a new
// machine) go to standard error and would shift the lines.
std::string translate(const std::string& arguments) {
    return run("MIBS= snmptranslate -M +" + kModuleDir + ":" + kBaseModuleDir + " -m HM-SUBAGENT-MIB " +
                   arguments,
               nullptr, false);
}

// The next non-empty line (snmptranslate separates its answers with blank lines).
bool nextLine(std::istream& in, std::string& line) {
    while (std::getline(in, line))
        if (!line.empty())
            return true;
    return false;
}

TEST(MibModule, SmilintReportsNoError) {
    if (!toolPresent("smilint"))
        GTEST_SKIP() << "smilint is not installed";
    // The agent's module, and the stand-ins of the modules naming hmagentd's entity tables.
    for (const std::string& module :
         {kModule, kBaseModuleDir + "/ENTITY-MIB", kBaseModuleDir + "/ENTITY-SENSOR-MIB"}) {
        int status = 0;
        std::string report = run("SMIPATH=:" + kBaseModuleDir + " smilint -l 6 " + module, &status);
        std::istringstream lines(report);
        std::string line;
        std::vector<std::string> errors;
        while (std::getline(lines, line))
            if (!line.empty() && line.find(": warning: ") == std::string::npos)
                errors.push_back(line);
        EXPECT_TRUE(errors.empty()) << report;
        EXPECT_EQ(0, status) << report;
    }
}

TEST(MibModule, EveryVariableOfTheAgentHasItsObject) {
    if (!toolPresent("snmptranslate"))
        GTEST_SKIP() << "snmptranslate is not installed";
    std::vector<Definition> all = objectDefinitions(readModule());
    std::vector<Definition> variables;
    for (const Definition& d : all)
        if (d.access == "read-only" || d.access == "read-write")
            variables.push_back(d);
    ASSERT_EQ(static_cast<size_t>(MIB_ROW_COUNT), variables.size());

    std::string names;
    for (const Definition& d : variables)
        names += " HM-SUBAGENT-MIB::" + d.name;
    std::istringstream translated(translate("-On" + names));

    mibLoadStaticTable();
    for (int i = 0; i < MIB_ROW_COUNT; ++i) {
        const MIB_VAR_TYPE& row = hmSubagentMib[i];
        const Definition& d = variables[static_cast<size_t>(i)];
        SCOPED_TRACE("attribute " + std::to_string(row.HMAttribute) + " " + d.name);
        const OID_SUBTREE& subtree = OidSubTrees[row.SubTreeIndex];
        // Scalars are published as name.0: the object's OID drops the instance arc.
        size_t relative = subtree.isTable ? row.Oid.idLength : row.Oid.idLength - 1;
        std::string expected = "." + dotted(subtree.baseOid) + "." + dotted(row.Oid, relative);
        std::string line;
        ASSERT_TRUE(nextLine(translated, line));
        EXPECT_EQ(expected, line);
        EXPECT_EQ(row.access == MIB_ACCESS_READWRITE ? "read-write" : "read-only", d.access);
        EXPECT_EQ(row.asnType == ASN_OCTETSTRING, d.syntax.rfind("DisplayString", 0) == 0) << d.syntax;
    }
}

TEST(MibModule, EveryTrapHasItsNotification) {
    if (!toolPresent("snmptranslate"))
        GTEST_SKIP() << "snmptranslate is not installed";
    std::set<std::string> notifications = notificationNames(readModule());
    size_t count = 0;
    const EventOidRule* rules = eventOidRules(&count);
    ASSERT_GT(count, 0u);
    std::set<std::string> used;
    std::string oids;
    for (size_t i = 0; i < count; ++i)
        oids += " .1.3.6.1.4.1.64999.2.10.3.5.1000." + std::to_string(rules[i].family) + ".0." +
                std::to_string(rules[i].specific);
    std::istringstream translated(translate(oids));
    for (size_t i = 0; i < count; ++i) {
        std::string line;
        ASSERT_TRUE(nextLine(translated, line));
        SCOPED_TRACE(line);
        const std::string prefix = "HM-SUBAGENT-MIB::";
        ASSERT_EQ(0u, line.rfind(prefix, 0));
        std::string name = line.substr(prefix.size());
        EXPECT_EQ(1u, notifications.count(name))
            << "family " << rules[i].family << " trap " << rules[i].specific;
        used.insert(name);
    }
    // The event objects resolve to the OIDs the traps name.
    std::istringstream objects(
        translate("-On HM-SUBAGENT-MIB::hmEventDescription HM-SUBAGENT-MIB::hmEventDeviceId"));
    std::string line;
    ASSERT_TRUE(nextLine(objects, line));
    EXPECT_EQ(".1.3.6.1.4.1.64999.2.10.3.5.1000.10.1", line);
    ASSERT_TRUE(nextLine(objects, line));
    EXPECT_EQ(".1.3.6.1.4.1.64999.2.10.3.5.1000.10.4", line);
}

} // namespace
