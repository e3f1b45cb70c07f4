// The agent library in this process, timed with Google Benchmark: GET and GETNEXT
// through SnmpExtensionQueryEx over every variable of a simulated server, and the
// start-up (load, SnmpExtensionInit, SnmpExtensionInitEx for every region) of
// servers of several sizes, each in a fresh process.
//
// Usage:
//   hm-query-bench --platform=FILE [--startup=FILE ...] [--startup-runs=N]
//                  [--library=PATH] [benchmark flags]
// FILE is a platform file of the simulated query service (bench/gen-platform.py
// writes them). The agent's trace is off and traps are enabled, as in production.
// Requests are made the way hmagentd makes them: one binding per call, in a list
// allocated with SnmpUtilMemAlloc and freed with SnmpUtilVarBindListFree.
#include <dlfcn.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include <windows.h>
#include <snmp.h>

extern char** environ;

namespace {

using Clock = std::chrono::steady_clock;
using Arcs = std::vector<UINT>;

std::string g_library = HM_SUBAGENT_LIBRARY;
std::string g_self;

// The structures of snmp.h are packed: their pointer members are read and
// written through memcpy rather than by reference.
Arcs arcsOf(const AsnObjectIdentifier& oid) {
    UINT* ids = nullptr;
    std::memcpy(&ids, reinterpret_cast<const char*>(&oid) + offsetof(AsnObjectIdentifier, ids), sizeof ids);
    return ids == nullptr ? Arcs{} : Arcs(ids, ids + oid.idLength);
}

SnmpVarBind* bindingOf(const SnmpVarBindList& list) {
    SnmpVarBind* binding = nullptr;
    std::memcpy(&binding, reinterpret_cast<const char*>(&list) + offsetof(SnmpVarBindList, list),
                sizeof binding);
    return binding;
}

// A temporary folder holding the agent's registry file, its configuration and the
// query service's configuration for one platform file; removed on destruction.
class AgentFiles {
public:
    explicit AgentFiles(const std::string& platform) {
        char dir[] = "/tmp/hmbenchXXXXXX";
        if (mkdtemp(dir) == nullptr)
            throw std::runtime_error("cannot create a temporary folder");
        m_dir = dir;
        write("agent.conf", "platformdescription = Benchmark server\nplatformid = 1\ntrapsenabled = 1\n"
                            "setsenabled = 0\ndebugenabled = 0\n");
        write("registry.reg", "Windows Registry Editor Version 5.00\r\n\r\n"
                              "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Arveni\\FleetwatchSNMP\\Parameters]\r\n"
                              "\"ConfigFile\"=\"" +
                                  m_dir + "/agent.conf\"\r\n\"LogFile\"=\"" + m_dir + "/agent.log\"\r\n");
        write("kelvarn.conf", "source=simulated\nplatform=" + platform + "\njournal=" + m_dir + "/journal\n");
        setenv("HMSUBAGENT_REGISTRY", (m_dir + "/registry.reg").c_str(), 1);
        setenv("KELVARN_CONFIG", (m_dir + "/kelvarn.conf").c_str(), 1);
    }
    ~AgentFiles() {
        for (const char* name : {"agent.conf", "registry.reg", "kelvarn.conf", "journal", "agent.log"})
            std::remove((m_dir + "/" + name).c_str());
        rmdir(m_dir.c_str());
    }
    AgentFiles(const AgentFiles&) = delete;
    AgentFiles& operator=(const AgentFiles&) = delete;

private:
    void write(const std::string& name, const std::string& text) const {
        std::ofstream(m_dir + "/" + name) << text;
    }
    std::string m_dir;
};

// The loaded and started agent, and (once collected) the names of all its
// variables in walk order.
class Agent {
public:
    explicit Agent(const std::string& platform) : m_files(platform) {
        m_library = dlopen(g_library.c_str(), RTLD_NOW | RTLD_LOCAL);
        if (m_library == nullptr)
            throw std::runtime_error(std::string("cannot load the agent: ") + dlerror());
        auto init = reinterpret_cast<PFNSNMPEXTENSIONINIT>(dlsym(m_library, "SnmpExtensionInit"));
        auto initEx = reinterpret_cast<PFNSNMPEXTENSIONINITEX>(dlsym(m_library, "SnmpExtensionInitEx"));
        m_query = reinterpret_cast<PFNSNMPEXTENSIONQUERYEX>(dlsym(m_library, "SnmpExtensionQueryEx"));
        if (init == nullptr || initEx == nullptr || m_query == nullptr)
            throw std::runtime_error("the agent library lacks an entry point");
        HANDLE event = nullptr;
        AsnObjectIdentifier region{0, nullptr};
        if (!init(0, &event, &region))
            throw std::runtime_error("SnmpExtensionInit failed");
        m_regions.push_back(arcsOf(region));
        AsnObjectIdentifier next{0, nullptr};
        while (initEx(&next))
            m_regions.push_back(arcsOf(next));
    }
    // The library stays loaded: its event poller thread is never stopped.
    Agent(const Agent&) = delete;
    Agent& operator=(const Agent&) = delete;

    // One request of one binding, as hmagentd makes it; returns the error status
    // and, when `answer` is given, the name the agent answered with.
    AsnInteger32 query(UINT type, const Arcs& name, Arcs* answer = nullptr) const {
        SnmpVarBindList list{nullptr, 1};
        auto* binding = static_cast<SnmpVarBind*>(SnmpUtilMemAlloc(sizeof(SnmpVarBind)));
        std::memset(binding, 0, sizeof *binding);
        std::memcpy(reinterpret_cast<char*>(&list) + offsetof(SnmpVarBindList, list), &binding,
                    sizeof binding);
        AsnObjectIdentifier source{static_cast<UINT>(name.size()), const_cast<UINT*>(name.data())};
        SnmpUtilOidCpy(&bindingOf(list)->name, &source);
        AsnInteger32 status = 0;
        AsnInteger32 index = 0;
        m_query(type, 0, &list, nullptr, &status, &index);
        if (answer != nullptr)
            *answer = arcsOf(bindingOf(list)->name);
        SnmpUtilVarBindListFree(&list);
        return status;
    }
    const std::vector<Arcs>& names() const { return m_names; }

    // Collects the names by walking each region from its root as the SNMP service
    // does: an answer outside the region ends it.
    void collectNames() {
        for (const Arcs& root : m_regions) {
            Arcs current = root;
            for (;;) {
                Arcs next;
                if (query(SNMP_EXTENSION_GET_NEXT, current, &next) != 0 || next.size() < root.size() ||
                    !std::equal(root.begin(), root.end(), next.begin()) || !(current < next))
                    break;
                m_names.push_back(next);
                current = next;
            }
        }
        if (m_names.empty())
            throw std::runtime_error("the agent answered no variable");
    }

private:
    AgentFiles m_files;
    void* m_library = nullptr;
    PFNSNMPEXTENSIONQUERYEX m_query = nullptr;
    std::vector<Arcs> m_regions;
    std::vector<Arcs> m_names;
};

std::string g_platform;
std::unique_ptr<Agent> g_agent;
double g_loadSeconds = 0; // the start-up of g_agent (load, init, every region)

// The agent is loaded when the first request benchmark starts, after every
// start-up child has run, so no agent thread runs in this process while they
// are spawned.
bool loadAgent(benchmark::State& state) {
    if (g_agent == nullptr) {
        try {
            const auto started = Clock::now();
            g_agent = std::make_unique<Agent>(g_platform);
            const std::chrono::duration<double> took = Clock::now() - started;
            g_loadSeconds = took.count();
            g_agent->collectNames();
        } catch (const std::exception& error) {
            state.SkipWithError(error.what());
            return false;
        }
    }
    return true;
}

// Every variable in turn, one request per iteration.
void requestEach(benchmark::State& state, UINT type) {
    if (!loadAgent(state))
        return;
    const std::vector<Arcs>& names = g_agent->names();
    size_t at = 0;
    int64_t failures = 0;
    for (auto _ : state) {
        failures += g_agent->query(type, names[at]) != 0;
        at = at + 1 == names.size() ? 0 : at + 1;
    }
    state.SetItemsProcessed(state.iterations());
    state.counters["variables"] = static_cast<double>(names.size());
    state.counters["startup_s"] = g_loadSeconds;
    if (failures != 0)
        state.SkipWithError("a request failed");
}

// One variable over and over: the first of the tree and the last, which shows
// what the position of a variable in the chain costs.
void requestOne(benchmark::State& state, bool last) {
    if (!loadAgent(state))
        return;
    const Arcs& name = last ? g_agent->names().back() : g_agent->names().front();
    for (auto _ : state) {
        if (g_agent->query(SNMP_EXTENSION_GET, name) != 0) {
            state.SkipWithError("a request failed");
            break;
        }
    }
    state.SetItemsProcessed(state.iterations());
}

// The start-up of one server in a fresh process (this program in child mode),
// timed by the child from before dlopen to the last region.
void startup(benchmark::State& state, const std::string& platform) {
    for (auto _ : state) {
        int fds[2];
        if (pipe(fds) != 0) {
            state.SkipWithError("pipe failed");
            return;
        }
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, fds[1], 1);
        posix_spawn_file_actions_addclose(&actions, fds[0]);
        const std::string flag = "--startup-child=" + platform;
        const std::string library = "--library=" + g_library;
        char* argv[] = {const_cast<char*>(g_self.c_str()), const_cast<char*>(flag.c_str()),
                        const_cast<char*>(library.c_str()), nullptr};
        pid_t child = 0;
        const int spawned = posix_spawn(&child, g_self.c_str(), &actions, nullptr, argv, environ);
        posix_spawn_file_actions_destroy(&actions);
        close(fds[1]);
        std::string text;
        char buffer[256];
        ssize_t got = 0;
        while (spawned == 0 && (got = read(fds[0], buffer, sizeof buffer)) > 0)
            text.append(buffer, static_cast<size_t>(got));
        close(fds[0]);
        int status = 0;
        if (spawned != 0 || waitpid(child, &status, 0) != child || !WIFEXITED(status) ||
            WEXITSTATUS(status) != 0 || text.empty()) {
            state.SkipWithError("the start-up child failed");
            return;
        }
        state.SetIterationTime(std::strtod(text.c_str(), nullptr));
    }
}

// Child mode: start the agent on `platform`, print the seconds it took, end.
int startupChild(const std::string& platform) {
    try {
        const auto started = Clock::now();
        Agent agent(platform);
        const std::chrono::duration<double> took = Clock::now() - started;
        std::printf("%.9f\n", took.count());
    } catch (const std::exception& error) {
        std::fprintf(stderr, "hm-query-bench: %s\n", error.what());
        return 1;
    }
    // The agent's poller thread is never stopped.
    std::fflush(nullptr);
    _exit(0);
}

std::string valueOf(const char* arg, const char* flag) {
    const size_t length = std::strlen(flag);
    return std::strncmp(arg, flag, length) == 0 ? std::string(arg + length) : std::string();
}

std::string sizeLabel(const std::string& platform) {
    const size_t slash = platform.find_last_of('/');
    return slash == std::string::npos ? platform : platform.substr(slash + 1);
}

} // namespace

int main(int argc, char** argv) {
    g_self = argv[0];
    std::string platform;
    std::string child;
    std::vector<std::string> startups;
    int startupRuns = 3;
    std::vector<char*> rest{argv[0]};
    for (int i = 1; i < argc; ++i) {
        if (std::string v = valueOf(argv[i], "--platform="); !v.empty())
            platform = v;
        else if (std::string s = valueOf(argv[i], "--startup="); !s.empty())
            startups.push_back(s);
        else if (std::string c = valueOf(argv[i], "--startup-child="); !c.empty())
            child = c;
        else if (std::string r = valueOf(argv[i], "--startup-runs="); !r.empty())
            startupRuns = std::max(1, std::atoi(r.c_str()));
        else if (std::string l = valueOf(argv[i], "--library="); !l.empty())
            g_library = l;
        else
            rest.push_back(argv[i]);
    }
    if (!child.empty())
        return startupChild(child);
    if (platform.empty() && startups.empty()) {
        std::fprintf(stderr,
                     "usage: %s --platform=FILE [--startup=FILE ...] [--startup-runs=N] "
                     "[--library=PATH] [benchmark flags]\n",
                     argv[0]);
        return 2;
    }
    int restCount = static_cast<int>(rest.size());
    benchmark::Initialize(&restCount, rest.data());
    if (benchmark::ReportUnrecognizedArguments(restCount, rest.data()))
        return 2;

    for (const std::string& file : startups)
        benchmark::RegisterBenchmark(("Startup/" + sizeLabel(file)).c_str(),
                                     [file](benchmark::State& state) { startup(state, file); })
            ->UseManualTime()
            ->Iterations(startupRuns)
            ->Unit(benchmark::kMillisecond);
    g_platform = platform;
    if (!platform.empty()) {
        // Registered after the start-up benchmarks, so they run after them.
        benchmark::RegisterBenchmark("Get/EveryVariable", requestEach, UINT{SNMP_EXTENSION_GET})
            ->Unit(benchmark::kMicrosecond);
        benchmark::RegisterBenchmark("GetNext/EveryVariable", requestEach, UINT{SNMP_EXTENSION_GET_NEXT})
            ->Unit(benchmark::kMicrosecond);
        benchmark::RegisterBenchmark("Get/FirstVariable", requestOne, false)->Unit(benchmark::kMicrosecond);
        benchmark::RegisterBenchmark("Get/LastVariable", requestOne, true)->Unit(benchmark::kMicrosecond);
    }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    // Removes the agent's temporary files; the library itself stays loaded.
    g_agent.reset();
    // The agent's poller thread is never stopped: end without running the
    // library's static destructors under it.
    std::fflush(nullptr);
    _exit(0);
}
