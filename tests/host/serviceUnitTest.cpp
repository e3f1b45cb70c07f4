// The systemd unit of hmagentd: every hardening setting the daemon relies on is
// there with its value, and systemd itself accepts the unit (systemd-analyze
// verify, and its exposure score from systemd-analyze security, when the tool is
// installed).
#include <algorithm>
#include <cstdlib>

#include <gtest/gtest.h>

#include "support/e2e.h"

namespace {

TEST(ServiceUnit, HardeningSettings) {
    const std::string unit = hmtest::readFile(HM_UNIT_FILE);
    const std::string service = unit.substr(unit.find("\n[Service]\n"));
    const std::vector<std::string> lines = hmtest::linesOf(service.substr(0, service.find("\n[", 1)));
    // What the daemon needs to run (the hardening itself is scored by AcceptedBySystemd).
    const std::string settings =
        "ExecStart=/usr/sbin/hmagentd -c /etc/hmsubagent/hmagentd.conf\nUMask=0077\nNoNewPrivileges=yes\n"
        "StateDirectory=hmsubagent\nLogsDirectory=hmsubagent\nCacheDirectory=hmsubagent\nPrivateDevices=no\n"
        "DeviceAllow=/dev/ipmi0 rw\nDeviceAllow=/dev/ipmi/0 rw\nDeviceAllow=/dev/ipmidev/0 rw\n"
        "CapabilityBoundingSet=CAP_NET_BIND_SERVICE CAP_SETUID CAP_SETGID CAP_CHOWN CAP_DAC_READ_SEARCH\n"
        "AmbientCapabilities=\nRestrictAddressFamilies=AF_INET AF_INET6 AF_UNIX\n"
        "Environment=SNMP_PERSISTENT_DIR=/var/lib/hmsubagent\n";
    for (const std::string& expected : hmtest::linesOf(settings)) {
        const std::string key = expected.substr(0, expected.find('=') + 1);
        // The setting is there once with this value (DeviceAllow: these three, in this order).
        std::vector<std::string> found;
        for (const std::string& line : lines)
            if (line.rfind(key, 0) == 0)
                found.push_back(line);
        EXPECT_NE(std::find(found.begin(), found.end(), expected), found.end()) << expected;
        EXPECT_EQ(found.size(), key == "DeviceAllow=" ? 3u : 1u) << expected;
    }
    // The daemon is started as root and drops by itself: no User= of systemd's.
    EXPECT_EQ(service.find("\nUser="), std::string::npos);
}

TEST(ServiceUnit, AcceptedBySystemd) {
    if (hmtest::runCommand("command -v systemd-analyze").status != 0)
        GTEST_SKIP() << "systemd-analyze is not installed";
    const hmtest::TempDir dir("hmunit");
    ASSERT_TRUE(dir.made());
    // The unit as installed by this build: ExecStart names the built daemon.
    std::string unit = hmtest::readFile(HM_UNIT_FILE);
    const std::string installed = "/usr/sbin/hmagentd";
    ASSERT_NE(unit.find(installed), std::string::npos);
    hmtest::writeFile(dir / "hmagentd.service",
                      unit.replace(unit.find(installed), installed.size(), HM_AGENTD));
    const hmtest::Result verify =
        hmtest::runCommand("cd " + dir.path() + " && systemd-analyze verify hmagentd.service");
    EXPECT_EQ(verify.status, 0) << verify.output;
    EXPECT_EQ(verify.output, "");
    // "Overall exposure level for hmagentd.service: 2.7 OK": at most 3.0 (the unit
    // without hardening scores 9.6, UNSAFE).
    const hmtest::Result security = hmtest::runCommand(
        "cd " + dir.path() + " && systemd-analyze security --offline=yes hmagentd.service");
    const std::string marker = "Overall exposure level for hmagentd.service: ";
    const size_t at = security.output.find(marker);
    if (at == std::string::npos)
        GTEST_SKIP() << "this systemd-analyze cannot score a unit file offline: " << security.output;
    EXPECT_LE(std::atof(security.output.c_str() + at + marker.size()), 3.0) << security.output;
}

} // namespace
