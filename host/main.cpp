// hmagentd: hosts the hardware-monitoring extension agent in net-snmp, as an
// SNMP master agent of its own or as an AgentX subagent of a running snmpd.
//
// Usage: hmagentd [-c FILE]
#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "host/agentHost.h"
#include "host/entityTables.h"
#include "host/hostConfig.h"
#include "host/netSnmp.h"
#include "host/privilege.h"

// Access control (communities, users, views) from net-snmp's MIB module library;
// it ships no header for them.
extern "C" void init_vacm_vars(void);
extern "C" void init_vacm_conf(void);
extern "C" void init_snmpEngine(void);
extern "C" void init_snmpMPDStats(void);
extern "C" void init_usmStats(void);
extern "C" void init_usmUser(void);

namespace {

const char kApp[] = "hmagentd";
const char kDefaultTransport[] = "udp:127.0.0.1:1161";
const int kDefaultPingInterval = 5;

volatile sig_atomic_t g_stopRequested = 0;
int g_signalPipe[2] = {-1, -1};

void onSignal(int) {
    g_stopRequested = 1;
    const char byte = 0;
    [[maybe_unused]] ssize_t written = write(g_signalPipe[1], &byte, 1);
}

void onSignalPipe(int fd, void*) {
    char bytes[16];
    while (read(fd, bytes, sizeof bytes) > 0) {
    }
}

// Configuration problems net-snmp's parser reports while reading the file
// (unknown directives, bad values): the first one is kept.
struct ConfigWatch {
    bool watching = false;
    std::string problem;
};
ConfigWatch g_watch;

int onLogMessage(int, int, void* serverArg, void*) {
    const auto* message = static_cast<const snmp_log_message*>(serverArg);
    if (!g_watch.watching || message == nullptr || message->msg == nullptr || !g_watch.problem.empty())
        return 0;
    const std::string text = message->msg;
    if (text.find("Unknown token") != std::string::npos || text.find(": Error: ") != std::string::npos) {
        std::string problem = text.substr(0, text.find_last_not_of("\r\n") + 1);
        for (const char* level : {"Warning: ", "Error: "}) {
            const size_t at = problem.find(level);
            if (at != std::string::npos)
                problem.erase(at, std::strlen(level));
        }
        g_watch.problem = problem;
    }
    return 0;
}

int fail(const std::string& message, bool started) {
    std::fprintf(stderr, "%s: error: %s\n", kApp, message.c_str());
    if (started)
        snmp_shutdown(kApp);
    return 1;
}

void usage(FILE* out) {
    std::fprintf(out,
                 "usage: %s [-c FILE]\n"
                 "  -c FILE  configuration file (default %s)\n"
                 "Runs in the foreground; SIGTERM or SIGINT stops it.\n",
                 kApp, HM_DEFAULT_CONFIG);
}

} // namespace

int main(int argc, char** argv) {
    std::string configFile = HM_DEFAULT_CONFIG;
    int option = 0;
    while ((option = getopt(argc, argv, "c:h")) != -1) {
        switch (option) {
        case 'c':
            configFile = optarg;
            break;
        case 'h':
            usage(stdout);
            return 0;
        default:
            usage(stderr);
            return 2;
        }
    }
    if (optind != argc) {
        usage(stderr);
        return 2;
    }

    hmhost::HostSettings settings;
    settings.library = HM_DEFAULT_LIBRARY;
    std::string error;
    if (!hmhost::readRole(configFile, settings.role, error))
        return fail(error, false);
    const bool master = settings.role == hmhost::Role::Master;

    // Only the given file is read, as with snmpd -C -c FILE, and then what the daemon
    // itself saved at its last stop (the SNMPv3 engine ID and boots counter, users
    // created at run time), as snmpd reads its persistent file.
    netsnmp_ds_set_boolean(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_DONT_READ_CONFIGS, 1);
    const std::string configFiles = hmhost::configurationFiles(configFile, get_persistent_directory(), kApp);
    netsnmp_ds_set_string(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_OPTIONALCONFIG, configFiles.c_str());
    netsnmp_ds_set_boolean(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_ROLE, master ? 0 : 1);
    netsnmp_ds_set_boolean(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_DONT_LOG_TCPWRAPPERS_CONNECTS, 1);
    // The daemon names no MIB objects: skip loading the MIB files unless asked to.
    setenv("MIBS", "", 0);
    snmp_enable_stderrlog();
    snmp_register_callback(SNMP_CALLBACK_LIBRARY, SNMP_CALLBACK_LOGGING, onLogMessage, nullptr);
    netsnmp_register_loghandler(NETSNMP_LOGHANDLER_CALLBACK, LOG_WARNING);

    // net-snmp's agent library would also listen for SMUX peers on TCP port 199
    // of every interface when started as root; the daemon has none.
    static char noSmux[] = "-smux";
    add_to_init_list(noSmux);
    init_agent(kApp);
    // The agent library sets its own defaults in init_agent; agentXPingInterval in
    // the file still overrides this one.
    netsnmp_ds_set_int(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_AGENTX_PING_INTERVAL,
                       kDefaultPingInterval);
    if (master) {
        init_vacm_vars();
        init_vacm_conf();
        // The SNMPv3 objects snmpd serves: the engine's ID, boots and time, the
        // message-processing and USM counters, and the USM user table (users a
        // manager creates are saved with the engine state).
        init_snmpEngine();
        init_snmpMPDStats();
        init_usmStats();
        init_usmUser();
    }
    hmhost::registerDirectives(kApp, settings);
    g_watch.watching = true;
    init_snmp(kApp);
    g_watch.watching = false;
    if (!g_watch.problem.empty())
        return fail(g_watch.problem, true);

    hmhost::EntryPoints entries;
    if (!hmhost::loadEntryPoints(settings.library, entries, error))
        return fail(error, true);

    if (master) {
        if (netsnmp_ds_get_string(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_PORTS) == nullptr)
            netsnmp_ds_set_string(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_PORTS, kDefaultTransport);
        const std::string ports = netsnmp_ds_get_string(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_PORTS);
        if (init_master_agent() != 0)
            return fail("cannot listen on " + ports + " (address in use or not available)", true);
    }

    // The agent reads its registry file from HMSUBAGENT_REGISTRY: the configured one,
    // else the one in the environment, else the one installed beside this file.
    if (!settings.registry.empty())
        setenv("HMSUBAGENT_REGISTRY", settings.registry.c_str(), 1);
    else
        setenv("HMSUBAGENT_REGISTRY", HM_DEFAULT_REGISTRY, 0);
    hmhost::NetSnmpLibrary snmp;
    hmhost::ExtensionAgent agent(entries);
    hmhost::AgentHost host(snmp, agent);
    if (!host.start("hmSubagent", static_cast<uint32_t>(netsnmp_get_agent_uptime()), error)) {
        host.stop();
        return fail(error, true);
    }
    hmhost::EntityTables entity;
    if (settings.entityTables && !entity.start(error)) {
        entity.stop();
        host.stop();
        return fail(error, true);
    }
    // Everything that needs root is open now: the transports or the AgentX
    // connection, the agent's registry, configuration, trace and devices.
    if (!hmhost::dropConfiguredPrivileges(kApp, error)) {
        entity.stop();
        host.stop();
        return fail(error, true);
    }

    if (pipe2(g_signalPipe, O_NONBLOCK | O_CLOEXEC) != 0) {
        entity.stop();
        host.stop();
        return fail("cannot create the signal pipe", true);
    }
    register_readfd(g_signalPipe[0], onSignalPipe, nullptr);
    struct sigaction action {};
    action.sa_handler = onSignal;
    sigemptyset(&action.sa_mask);
    sigaction(SIGTERM, &action, nullptr);
    sigaction(SIGINT, &action, nullptr);
    signal(SIGPIPE, SIG_IGN);

    snmp_log(LOG_INFO, "%s: %s, serving %zu regions of %s%s\n", kApp,
             master ? netsnmp_ds_get_string(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_PORTS)
                    : "AgentX subagent",
             host.regions().size(), settings.library.c_str(),
             settings.entityTables ? " and the entity tables" : "");

    while (!g_stopRequested)
        agent_check_and_process(1);

    snmp_log(LOG_INFO, "%s: stopping\n", kApp);
    unregister_readfd(g_signalPipe[0]);
    entity.stop();
    host.stop();
    snmp_shutdown(kApp);
    close(g_signalPipe[0]);
    close(g_signalPipe[1]);
    return 0;
}
