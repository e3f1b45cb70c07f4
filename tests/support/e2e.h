// Helpers of the end-to-end tests that start servers (hmagentd, snmptrapd, snmpd)
// and run net-snmp's command-line tools: free loopback ports, server processes in
// their own process group that are stopped when the test ends (also when a check
// fails), and file and output reading.
#pragma once

#include <arpa/inet.h>
#include <dirent.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <memory>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "support/files.h"

namespace hmtest {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

// The non-empty lines of `text`.
inline std::vector<std::string> linesOf(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);)
        if (!line.empty())
            lines.push_back(line);
    return lines;
}

inline bool haveProgram(const char* name) {
    for (const char* dir : {"/usr/bin/", "/usr/sbin/", "/bin/", "/sbin/", "/usr/local/bin/"})
        if (access((std::string(dir) + name).c_str(), X_OK) == 0)
            return true;
    return false;
}

// A port the kernel has just handed out on 127.0.0.1.
inline unsigned freeLoopbackPort(int type) {
    int fd = socket(AF_INET, type, 0);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t len = sizeof a;
    unsigned port = 0;
    if (fd >= 0 && bind(fd, reinterpret_cast<sockaddr*>(&a), sizeof a) == 0 &&
        getsockname(fd, reinterpret_cast<sockaddr*>(&a), &len) == 0)
        port = ntohs(a.sin_port);
    if (fd >= 0)
        close(fd);
    return port;
}

// A free UDP port on the loopback interface.
inline int freePort() {
    return static_cast<int>(freeLoopbackPort(SOCK_DGRAM));
}

// The last non-empty line of `text`.
inline std::string lastLineOf(const std::string& text) {
    const std::vector<std::string> lines = linesOf(text);
    return lines.empty() ? "" : lines.back();
}

// How often `text` occurs in the file at `path`.
inline size_t countIn(const std::string& path, const std::string& text) {
    const std::string whole = readFile(path);
    size_t n = 0;
    for (size_t at = whole.find(text); at != std::string::npos; at = whole.find(text, at + text.size()))
        ++n;
    return n;
}

// The agent's registry file naming its configuration file and its trace file.
inline void writeRegistryFile(const std::string& path, const std::string& config, const std::string& log) {
    std::ofstream(path) << "Windows Registry Editor Version 5.00\r\n\r\n"
                           "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Arveni\\FleetwatchSNMP\\Parameters]\r\n"
                           "\"ConfigFile\"=\""
                        << config << "\"\r\n\"LogFile\"=\"" << log << "\"\r\n";
}

// snmptrapd's configuration that logs every trap on one line: "V1 enterprise
// generic specific time-stamp|bindings" or "V2 |bindings", each binding
// "|OID = TYPE: value".
inline const char* trapReceiverConfig() {
    return "authCommunity log public\n"
           "format1 V1 %N %w %q %T|%V|%v\\n\n"
           "format2 V2 %V|%v\\n\n";
}

// The trap lines of a snmptrapd log written with trapReceiverConfig().
inline std::vector<std::string> trapLines(const std::string& path) {
    std::vector<std::string> traps;
    for (const std::string& line : linesOf(readFile(path)))
        if (line.rfind("V1 ", 0) == 0 || line.rfind("V2 ", 0) == 0)
            traps.push_back(line);
    return traps;
}

// The probe named in an agent's SNMPv1 temperature trap (event OID under
// ...3.5.1000.70), from its binding ...3.5.600.40.1.3.N = STRING: "NAME"; "" for
// any other line.
inline std::string temperatureTrapSensor(const std::string& line) {
    const std::string tables = ".1.3.6.1.4.1.64999.2.10.3.5";
    if (line.rfind("V1 " + tables + ".1000.70 6 ", 0) != 0)
        return "";
    const size_t at = line.find(tables + ".600.40.1.3.");
    const size_t open = at == std::string::npos ? at : line.find("STRING: \"", at);
    const size_t close = open == std::string::npos ? open : line.find('"', open + 9);
    return close == std::string::npos ? "" : line.substr(open + 9, close - open - 9);
}

// Resident set size (kB) and open descriptors of a running process; -1 when unknown.
inline long residentKb(pid_t pid) {
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    for (std::string line; std::getline(status, line);)
        if (line.rfind("VmRSS:", 0) == 0)
            return std::stol(line.substr(6));
    return -1;
}
inline long openFds(pid_t pid) {
    const std::string dir = "/proc/" + std::to_string(pid) + "/fd";
    long n = -1;
    if (DIR* d = opendir(dir.c_str())) {
        n = 0;
        while (const dirent* entry = readdir(d))
            n += entry->d_name[0] != '.';
        closedir(d);
    }
    return n;
}

inline bool waitForText(const std::string& path, const std::string& text, std::chrono::milliseconds limit) {
    const auto deadline = Clock::now() + limit;
    while (Clock::now() < deadline) {
        if (readFile(path).find(text) != std::string::npos)
            return true;
        std::this_thread::sleep_for(50ms);
    }
    return false;
}

// net-snmp's daemons live in /usr/sbin, which is not on every user's PATH.
inline std::string daemonPath(const std::string& name) {
    const std::string installed = "/usr/sbin/" + name;
    return access(installed.c_str(), X_OK) == 0 ? installed : name;
}

struct Result {
    int status;
    std::string output;
};

// Runs a shell command; its standard output and error together.
inline Result runCommand(const std::string& command) {
    const std::string full = command + " 2>&1";
    FILE* pipe = popen(full.c_str(), "r");
    if (pipe == nullptr)
        return {-1, ""};
    std::string output;
    char buffer[4096];
    size_t got = 0;
    while ((got = fread(buffer, 1, sizeof buffer, pipe)) > 0)
        output.append(buffer, got);
    const int status = pclose(pipe);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, output};
}

// A server process in its own process group, output to a file; the destructor
// stops the whole group.
class Process {
public:
    Process(const std::vector<std::string>& argv, const std::string& output) : m_output(output) {
        // Everything the child needs is prepared before fork: other threads may hold
        // the allocator's locks at that moment.
        std::vector<char*> args;
        for (const std::string& arg : argv)
            args.push_back(const_cast<char*>(arg.c_str()));
        args.push_back(nullptr);
        const int fd = ::open(output.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
        m_pid = fork();
        if (m_pid == 0) {
            setpgid(0, 0);
            dup2(fd, 1);
            dup2(fd, 2);
            execvp(args[0], args.data());
            std::perror("exec");
            _exit(127);
        }
        if (m_pid > 0)
            setpgid(m_pid, m_pid);
        if (fd >= 0)
            ::close(fd);
    }
    ~Process() { stop(SIGKILL); }
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    // Sends `signal` to the group and waits (at most 10 s, then SIGKILL). Returns
    // the exit status, or 128 + signal number when killed, or -1 when not running.
    int stop(int signal = SIGTERM) {
        if (m_pid <= 0)
            return m_status;
        kill(-m_pid, signal);
        const auto deadline = Clock::now() + 10s;
        int status = 0;
        while (waitpid(m_pid, &status, WNOHANG) == 0) {
            if (Clock::now() > deadline) {
                kill(-m_pid, SIGKILL);
                waitpid(m_pid, &status, 0);
                break;
            }
            std::this_thread::sleep_for(20ms);
        }
        kill(-m_pid, SIGKILL); // anything the process left behind in its group
        m_pid = -1;
        m_status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        return m_status;
    }
    // Waits for the process to end by itself (at most `limit`, then it is killed).
    int wait(std::chrono::milliseconds limit) {
        const auto deadline = Clock::now() + limit;
        int status = 0;
        while (m_pid > 0 && waitpid(m_pid, &status, WNOHANG) == 0) {
            if (Clock::now() > deadline)
                return stop(SIGKILL);
            std::this_thread::sleep_for(20ms);
        }
        if (m_pid > 0) {
            m_pid = -1;
            m_status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        }
        return m_status;
    }
    bool running() const { return m_pid > 0 && waitpid(m_pid, nullptr, WNOHANG) == 0; }
    pid_t pid() const { return m_pid; }
    std::string output() const { return readFile(m_output); }
    // Waits until the output contains `text`.
    bool waitFor(const std::string& text, std::chrono::milliseconds limit) const {
        return waitForText(m_output, text, limit);
    }

private:
    pid_t m_pid = -1;
    int m_status = -1;
    std::string m_output;
};

// The fixture of the tests that start hmagentd: a folder of their own (`mode`),
// removed after every process the test keeps in a member has stopped, with
// net-snmp's persistent state in its "state" folder and the daemon's port.
class DaemonTest : public ::testing::Test {
protected:
    explicit DaemonTest(const char* prefix, mode_t mode = 0700) : m_tmp(prefix, mode) {}
    void SetUp() override {
        ASSERT_TRUE(m_tmp.made());
        mkdir((m_dir + "/state").c_str(), 0700);
        setenv("SNMP_PERSISTENT_DIR", (m_dir + "/state").c_str(), 1);
        m_port = freePort();
    }
    void TearDown() override { unsetenv("KELVARN_CONFIG"); }
    void write(const std::string& name, const std::string& text) const {
        writeFile(m_dir + "/" + name, text);
    }
    std::string endpoint() const { return "127.0.0.1:" + std::to_string(m_port); }
    // snmptrapd on 127.0.0.1:`port`, logging to traps.log as trapReceiverConfig() says.
    std::unique_ptr<Process> launchTrapReceiver(int port) const {
        write("snmptrapd.conf", trapReceiverConfig());
        auto receiver = std::make_unique<Process>(
            std::vector<std::string>{daemonPath("snmptrapd"), "-f", "-C", "-c", m_dir + "/snmptrapd.conf",
                                     "-Lf", m_dir + "/traps.log", "-On",
                                     "udp:127.0.0.1:" + std::to_string(port)},
            m_dir + "/snmptrapd.out");
        EXPECT_TRUE(waitForText(m_dir + "/traps.log", "NET-SNMP version", 10s)) << receiver->output();
        return receiver;
    }

    TempDir m_tmp;
    std::string m_dir = m_tmp.path();
    int m_port = 0;
};

} // namespace hmtest
