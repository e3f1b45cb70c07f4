// OpenIPMI's BMC simulator for the end-to-end tests: started on free loopback
// ports from the project's command file in a temporary state folder, stopped
// and removed by the destructor.
#ifndef HM_TESTS_SERVICE_IPMI_SIM_GUARD_H
#define HM_TESTS_SERVICE_IPMI_SIM_GUARD_H

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "support/e2e.h"

namespace hmtest {

inline int connectLoopback(unsigned port) {
    int fd = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    a.sin_port = htons(uint16_t(port));
    if (fd >= 0 && connect(fd, reinterpret_cast<sockaddr*>(&a), sizeof a) == 0)
        return fd;
    if (fd >= 0)
        close(fd);
    return -1;
}

// One row of "ipmitool sensor list": name, value, unit, status, then the
// thresholds lnr, lcr, lnc, unc, ucr, unr.
inline std::map<std::string, std::vector<std::string>> sensorList(const std::string& text) {
    std::map<std::string, std::vector<std::string>> rows;
    std::istringstream in(text);
    std::string line;
    while (std::getline(in, line)) {
        std::vector<std::string> cells;
        std::istringstream cellsIn(line);
        std::string cell;
        while (std::getline(cellsIn, cell, '|')) {
            size_t a = cell.find_first_not_of(' '), b = cell.find_last_not_of(' ');
            cells.push_back(a == std::string::npos ? "" : cell.substr(a, b - a + 1));
        }
        if (cells.size() >= 10)
            rows[cells[0]] = std::vector<std::string>(cells.begin() + 1, cells.end());
    }
    return rows;
}

// The query service's configuration in `dir` for ipmi_sim's user on 127.0.0.1:`port`
// (the password in bmc.pass, the SDR cached), SMBIOS facts from the demo server;
// `extra`: further "key=value\n" lines.
inline void writeBmcConfig(const std::string& dir, unsigned port, const std::string& extra) {
    writeFile(dir + "/bmc.pass", "test\n");
    chmod((dir + "/bmc.pass").c_str(), 0600);
    writeFile(dir + "/kelvarn.conf",
              "bmc=ipmi-lan\nipmi-host=127.0.0.1\nipmi-port=" + std::to_string(port) +
                  "\nipmi-user=ipmiusr\nipmi-password-file=bmc.pass\n"
                  "ipmi-workarounds=opensesspriv\nipmi-sdr-cache=cache\nsmbios=demo\n" +
                  extra);
}

class IpmiSimGuard {
public:
    // `emu`: the command file under tests/data/ipmi.
    explicit IpmiSimGuard(const std::string& emu = "bmc.emu") : m_emu(emu) {
        m_port = freeLoopbackPort(SOCK_DGRAM);
        m_console = freeLoopbackPort(SOCK_STREAM);
        std::string conf = readFile(std::string(HM_TEST_DATA_DIR) + "/ipmi/lan.conf.in");
        replace(conf, "@PORT@", std::to_string(m_port));
        replace(conf, "@CONSOLE@", std::to_string(m_console));
        std::ofstream(m_dir + "/lan.conf") << conf;
    }
    ~IpmiSimGuard() { stop(); }
    IpmiSimGuard(const IpmiSimGuard&) = delete;
    IpmiSimGuard& operator=(const IpmiSimGuard&) = delete;

    // Starts the simulator from an empty state folder; true once its console answers.
    bool start() {
        stop();
        const std::string state = m_dir + "/state" + std::to_string(++m_runs);
        mkdir(state.c_str(), 0700);
        const std::string conf = m_dir + "/lan.conf", emu = std::string(HM_TEST_DATA_DIR) + "/ipmi/" + m_emu,
                          log = m_dir + "/ipmi_sim.log";
        m_pid = fork();
        if (m_pid == 0) {
            int in = open("/dev/null", O_RDONLY);
            if (in >= 0)
                dup2(in, 0);
            int fd = open(log.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
            if (fd >= 0) {
                dup2(fd, 1);
                dup2(fd, 2);
            }
            execlp("ipmi_sim", "ipmi_sim", "-c", conf.c_str(), "-f", emu.c_str(), "-s", state.c_str(), "-n",
                   static_cast<char*>(nullptr));
            _exit(127);
        }
        // Ready once the console greets. The simulator dies of SIGPIPE when a
        // console connection closes before it has written its greeting, so
        // the greeting is always read before closing.
        for (int i = 0; i < 100; ++i) {
            int fd = connectLoopback(m_console);
            if (fd >= 0) {
                bool greeted = readPrompt(fd).find("> ") != std::string::npos;
                close(fd);
                if (greeted)
                    return true;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
        return false;
    }

    void stop() {
        if (m_pid <= 0)
            return;
        kill(m_pid, SIGTERM);
        for (int i = 0; i < 40; ++i) {
            if (waitpid(m_pid, nullptr, WNOHANG) == m_pid) {
                m_pid = -1;
                return;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
        kill(m_pid, SIGKILL);
        waitpid(m_pid, nullptr, 0);
        m_pid = -1;
    }

    // Runs one command on the simulator's console; returns what it printed.
    std::string console(const std::string& command) {
        int fd = connectLoopback(m_console);
        if (fd < 0)
            return "";
        readPrompt(fd);
        std::string line = command + "\n", out;
        if (write(fd, line.data(), line.size()) == ssize_t(line.size()))
            out = readPrompt(fd);
        close(fd);
        return out;
    }

    // An ipmitool command against the simulator; its standard output.
    std::string ipmitool(const std::string& args) const {
        const std::string cmd = "ipmitool -I lanplus -H 127.0.0.1 -p " + std::to_string(m_port) +
                                " -U ipmiusr -P test -C 3 " + args + " 2>/dev/null";
        std::string out;
        FILE* p = popen(cmd.c_str(), "r");
        if (!p)
            return out;
        char buf[4096];
        size_t n;
        while ((n = fread(buf, 1, sizeof buf, p)) > 0)
            out.append(buf, n);
        pclose(p);
        return out;
    }

    unsigned port() const { return m_port; }
    const std::string& dir() const { return m_dir; }

private:
    // Reads until the console's "> " prompt, or 10 s (a loaded machine can be slow to answer).
    static std::string readPrompt(int fd) {
        timeval tv{0, 100000};
        setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof tv);
        std::string out;
        char buf[1024];
        for (int i = 0; i < 100; ++i) {
            ssize_t n = read(fd, buf, sizeof buf);
            if (n > 0)
                out.append(buf, size_t(n));
            if (n == 0 || (out.size() >= 2 && out.compare(out.size() - 2, 2, "> ") == 0))
                break;
        }
        return out;
    }

    static void replace(std::string& s, const std::string& what, const std::string& with) {
        for (size_t at = s.find(what); at != std::string::npos; at = s.find(what, at + with.size()))
            s.replace(at, what.size(), with);
    }

    std::string m_emu;
    TempDir m_tmp{"hm-ipmisim-"};
    std::string m_dir = m_tmp.path();
    unsigned m_port = 0, m_console = 0;
    pid_t m_pid = -1;
    int m_runs = 0;
};

#endif

} // namespace hmtest
