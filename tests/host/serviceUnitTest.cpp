// The systemd unit of hmagentd: every hardening setting the daemon relies on is
// there with its value, and systemd itself accepts the unit (systemd-analyze
// verify, and its exposure score from systemd-analyze security, when the tool is
// installed).
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/e2e.h"

namespace {

// Every value of every setting of the [Service] section, in order.
std::multimap<std::string, std::string> serviceSettings(const std::string& text) {
    std::multimap<std::string, std::string> settings;
    std::istringstream lines(text);
    bool inService = false;
    for (std::string line; std::getline(lines, line);) {
        if (line.empty() || line[0] == '#')
            continue;
        if (line[0] == '[') {
            inService = line == "[Service]";
            continue;
        }
        const size_t equals = line.find('=');
        if (inService && equals != std::string::npos)
            settings.emplace(line.substr(0, equals), line.substr(equals + 1));
    }
    return settings;
}

std::vector<std::string> valuesOf(const std::multimap<std::string, std::string>& settings,
                                  const std::string& name) {
    std::vector<std::string> values;
    const auto range = settings.equal_range(name);
    for (auto it = range.first; it != range.second; ++it)
        values.push_back(it->second);
    return values;
}

TEST(ServiceUnit, HardeningSettings) {
    const auto settings = serviceSettings(hmtest::readFile(HM_UNIT_FILE));
    const std::pair<const char*, std::vector<std::string>> expected[] = {
        {"ExecStart", {"/usr/sbin/hmagentd -c /etc/hmsubagent/hmagentd.conf"}},
        {"UMask", {"0077"}},
        {"NoNewPrivileges", {"yes"}},
        {"ProtectSystem", {"strict"}},
        {"StateDirectory", {"hmsubagent"}},
        {"LogsDirectory", {"hmsubagent"}},
        {"CacheDirectory", {"hmsubagent"}},
        {"ProtectHome", {"yes"}},
        {"PrivateTmp", {"yes"}},
        {"PrivateDevices", {"no"}},
        {"DevicePolicy", {"closed"}},
        {"DeviceAllow", {"/dev/ipmi0 rw", "/dev/ipmi/0 rw", "/dev/ipmidev/0 rw"}},
        {"CapabilityBoundingSet",
         {"CAP_NET_BIND_SERVICE CAP_SETUID CAP_SETGID CAP_CHOWN CAP_DAC_READ_SEARCH"}},
        {"AmbientCapabilities", {""}},
        {"RestrictAddressFamilies", {"AF_INET AF_INET6 AF_UNIX"}},
        {"ProtectKernelTunables", {"yes"}},
        {"ProtectKernelModules", {"yes"}},
        {"ProtectControlGroups", {"yes"}},
        {"RestrictNamespaces", {"yes"}},
        {"LockPersonality", {"yes"}},
        {"MemoryDenyWriteExecute", {"yes"}},
        {"RestrictRealtime", {"yes"}},
        {"RestrictSUIDSGID", {"yes"}},
        {"SystemCallArchitectures", {"native"}},
        {"Environment", {"SNMP_PERSISTENT_DIR=/var/lib/hmsubagent"}},
    };
    for (const auto& e : expected)
        EXPECT_EQ(valuesOf(settings, e.first), e.second) << e.first;
    // The daemon is started as root and drops by itself: no User= of systemd's.
    EXPECT_TRUE(valuesOf(settings, "User").empty());
}

TEST(ServiceUnit, AcceptedBySystemd) {
    if (hmtest::runCommand("command -v systemd-analyze").status != 0)
        GTEST_SKIP() << "systemd-analyze is not installed";
    const hmtest::TempDir tmp("hmunit");
    const std::string& dir = tmp.path();
    ASSERT_TRUE(tmp.made());
    // The unit as installed by this build: ExecStart names the built daemon.
    std::string unit = hmtest::readFile(HM_UNIT_FILE);
    const std::string installed = "/usr/sbin/hmagentd";
    ASSERT_NE(unit.find(installed), std::string::npos);
    unit.replace(unit.find(installed), installed.size(), HM_AGENTD);
    const std::string path = dir + "/hmagentd.service";
    std::ofstream(path) << unit;

    const hmtest::Result verify =
        hmtest::runCommand("cd " + dir + " && systemd-analyze verify hmagentd.service");
    EXPECT_EQ(verify.status, 0) << verify.output;
    EXPECT_EQ(verify.output, "");

    // "Overall exposure level for hmagentd.service: 2.7 OK": at most 3.0 (the
    // unit without hardening scores 9.6, UNSAFE).
    const hmtest::Result security =
        hmtest::runCommand("cd " + dir + " && systemd-analyze security --offline=yes hmagentd.service");
    const std::string marker = "Overall exposure level for hmagentd.service: ";
    const size_t at = security.output.find(marker);
    if (at == std::string::npos)
        GTEST_SKIP() << "this systemd-analyze cannot score a unit file offline: " << security.output;
    const double score = std::atof(security.output.c_str() + at + marker.size());
    EXPECT_LE(score, 3.0) << security.output;
}

} // namespace
