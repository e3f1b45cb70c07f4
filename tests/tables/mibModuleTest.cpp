// The MIB module mibs/HM-SUBAGENT-MIB.txt: it passes smilint without errors, every
// object it defines sits at the OID, with the access and type, of the agent's variable of
// the same position, and every trap the agent can send has its notification (RFC 3584
// form: enterprise E, specific S -> E.0.S).
#include <gtest/gtest.h>

#include <regex>
#include <string>
#include <vector>

#include "agent/mibTypes.h"
#include "events/eventOids.h"
#include "support/e2e.h"
#include "support/oids.h"

namespace {

const std::string kModule = std::string(HM_SOURCE_DIR) + "/mibs/HM-SUBAGENT-MIB.txt";
const std::string kModuleDir = std::string(HM_SOURCE_DIR) + "/mibs";
// Stand-ins of the IETF base modules, looked at after the system's own MIB folders.
const std::string kBaseModuleDir = std::string(HM_SOURCE_DIR) + "/mibs/ietf";

// The object definitions of the module, in file order: name, syntax, access.
std::vector<std::vector<std::string>> objectDefinitions(const std::string& text) {
    std::vector<std::vector<std::string>> list;
    std::regex object(
        R"(\n(\w+) OBJECT-TYPE\n\s+SYNTAX\s+([^\n]+)\n(?:\s+UNITS[^\n]*\n)?\s+MAX-ACCESS\s+(read-only|read-write))");
    for (std::sregex_iterator it(text.begin(), text.end(), object), end; it != end; ++it)
        list.push_back({(*it)[1], (*it)[2], (*it)[3]});
    return list;
}

// snmptranslate's answers, one a line: its notices (such as the "Created directory" of a first
// run on a new machine) go to standard error and would shift the lines.
std::vector<std::string> translate(const std::string& arguments) {
    return hmtest::linesOf(hmtest::runCommand("{ MIBS= snmptranslate -M +" + kModuleDir + ":" +
                                              kBaseModuleDir + " -m HM-SUBAGENT-MIB " + arguments +
                                              " 2>/dev/null; }")
                               .output);
}

TEST(MibModule, SmilintReportsNoError) {
    if (!hmtest::haveProgram("smilint"))
        GTEST_SKIP() << "smilint is not installed";
    // The agent's module, and the stand-ins of the modules naming hmagentd's entity tables.
    for (const std::string& module :
         {kModule, kBaseModuleDir + "/ENTITY-MIB", kBaseModuleDir + "/ENTITY-SENSOR-MIB"}) {
        const hmtest::Result report =
            hmtest::runCommand("SMIPATH=:" + kBaseModuleDir + " smilint -l 6 " + module);
        for (const std::string& line : hmtest::linesOf(report.output))
            EXPECT_NE(std::string::npos, line.find(": warning: ")) << report.output;
        EXPECT_EQ(0, report.status) << report.output;
    }
}

TEST(MibModule, EveryVariableOfTheAgentHasItsObject) {
    if (!hmtest::haveProgram("snmptranslate"))
        GTEST_SKIP() << "snmptranslate is not installed";
    const std::vector<std::vector<std::string>> variables = objectDefinitions(hmtest::readFile(kModule));
    ASSERT_EQ(static_cast<size_t>(MIB_ROW_COUNT), variables.size());
    std::string names;
    for (const auto& d : variables)
        names += " HM-SUBAGENT-MIB::" + d[0];
    const std::vector<std::string> translated = translate("-On" + names);
    ASSERT_EQ(variables.size(), translated.size());
    mibLoadStaticTable();
    for (int i = 0; i < MIB_ROW_COUNT; ++i) {
        const MIB_VAR_TYPE& row = hmSubagentMib[i];
        const std::vector<std::string>& d = variables[static_cast<size_t>(i)];
        SCOPED_TRACE("attribute " + std::to_string(row.HMAttribute) + " " + d[0]);
        const OID_SUBTREE& subtree = OidSubTrees[row.SubTreeIndex];
        // Scalars are published as name.0: the object's OID drops the instance arc.
        size_t relative = subtree.isTable ? row.Oid.idLength : row.Oid.idLength - 1;
        std::string expected = "." + dotted(subtree.baseOid) + "." + dotted(row.Oid, relative);
        EXPECT_EQ(expected, translated[static_cast<size_t>(i)]);
        EXPECT_EQ(row.access == MIB_ACCESS_READWRITE ? "read-write" : "read-only", d[2]);
        EXPECT_EQ(row.asnType == ASN_OCTETSTRING, d[1].rfind("DisplayString", 0) == 0) << d[1];
    }
}

TEST(MibModule, EveryTrapHasItsNotification) {
    if (!hmtest::haveProgram("snmptranslate"))
        GTEST_SKIP() << "snmptranslate is not installed";
    const std::string text = hmtest::readFile(kModule);
    size_t count = 0;
    const EventOidRule* rules = eventOidRules(&count);
    ASSERT_GT(count, 0u);
    std::string oids;
    for (size_t i = 0; i < count; ++i)
        oids += " .1.3.6.1.4.1.64999.2.10.3.5.1000." + std::to_string(rules[i].family) + ".0." +
                std::to_string(rules[i].specific);
    const std::vector<std::string> translated = translate(oids);
    ASSERT_EQ(count, translated.size());
    for (size_t i = 0; i < count; ++i) {
        const std::string& line = translated[i];
        SCOPED_TRACE(line);
        ASSERT_EQ(0u, line.rfind("HM-SUBAGENT-MIB::", 0));
        EXPECT_NE(std::string::npos, text.find("\n" + line.substr(17) + " NOTIFICATION-TYPE\n"))
            << "family " << rules[i].family << " trap " << rules[i].specific;
    }
    // The event objects resolve to the OIDs the traps name.
    EXPECT_EQ(translate("-On HM-SUBAGENT-MIB::hmEventDescription HM-SUBAGENT-MIB::hmEventDeviceId"),
              (std::vector<std::string>{".1.3.6.1.4.1.64999.2.10.3.5.1000.10.1",
                                        ".1.3.6.1.4.1.64999.2.10.3.5.1000.10.4"}));
}

} // namespace
