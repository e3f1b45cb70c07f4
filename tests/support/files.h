// Files of the tests: reading and writing one whole, a temporary folder removed with
// everything in it when the test ends (also when a check fails), and trace texts.
#pragma once

#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace hmtest {

inline std::string readFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::stringstream text;
    text << file.rdbuf();
    return text.str();
}

inline void writeFile(const std::string& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
}

// A folder made under /tmp ("/tmp/<prefix>XXXXXX", mode 0700 unless `mode` says
// otherwise); the destructor gives the owner back every right inside it and removes it.
class TempDir {
public:
    explicit TempDir(const std::string& prefix = "hmtest", mode_t mode = 0700) {
        std::string name = "/tmp/" + prefix + "XXXXXX";
        if (mkdtemp(name.data()) != nullptr) {
            m_path = name;
            chmod(m_path.c_str(), mode);
        }
    }
    ~TempDir() {
        if (m_path.empty())
            return;
        std::error_code error;
        for (auto it = std::filesystem::recursive_directory_iterator(m_path, error);
             it != std::filesystem::recursive_directory_iterator(); it.increment(error))
            if (it->is_directory(error) && !it->is_symlink(error))
                chmod(it->path().c_str(), 0700);
        std::filesystem::remove_all(m_path, error);
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    bool made() const { return !m_path.empty(); }
    const std::string& path() const { return m_path; }
    // The path of `name` inside the folder.
    std::string operator/(const std::string& name) const { return m_path + "/" + name; }
    std::string file(const std::string& name) const { return m_path + "/" + name; }

private:
    std::string m_path;
};

inline bool fileExists(const std::string& path) {
    return access(path.c_str(), F_OK) == 0;
}

// A trace with every "hh:mm:ss: (thread) " line prefix removed.
inline std::string withoutPrefixes(const std::string& trace) {
    static const std::regex prefix(R"(\d\d:\d\d:\d\d: \(\d+\) )");
    return std::regex_replace(trace, prefix, "");
}

// True when the texts occur in `trace` in the given order, without overlapping.
inline ::testing::AssertionResult containsInOrder(const std::string& trace,
                                                  const std::vector<std::string>& texts) {
    size_t from = 0;
    for (const std::string& text : texts) {
        size_t at = trace.find(text, from);
        if (at == std::string::npos) {
            return ::testing::AssertionFailure() << "missing (in this order) \"" << text << "\" in trace:\n"
                                                 << trace;
        }
        from = at + text.size();
    }
    return ::testing::AssertionSuccess();
}

} // namespace hmtest
