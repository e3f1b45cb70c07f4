// Scratch folders, whole-file reads and writes, and trace texts for the tests.
#ifndef HM_TESTS_SUPPORT_FILES_H
#define HM_TESTS_SUPPORT_FILES_H

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <regex>
#include <sstream>
#include <string>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>

namespace hmtest {

// A fresh folder for one test, removed with its files at the end.
class TempDir {
public:
    TempDir() {
        std::string pattern = ::testing::TempDir() + "hmtest-XXXXXX";
        std::vector<char> buffer(pattern.begin(), pattern.end());
        buffer.push_back('\0');
        if (mkdtemp(buffer.data()) != nullptr) {
            m_path = buffer.data();
        }
    }
    ~TempDir() {
        if (!m_path.empty() && system(("rm -rf '" + m_path + "'").c_str()) != 0) {
            fprintf(stderr, "could not remove %s\n", m_path.c_str());
        }
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    std::string file(const std::string& name) const { return m_path + "/" + name; }
    const std::string& path() const { return m_path; }

private:
    std::string m_path;
};

inline void writeFile(const std::string& path, const std::string& content) {
    std::ofstream out(path, std::ios::binary);
    out << content;
}

inline bool fileExists(const std::string& path) {
    return access(path.c_str(), F_OK) == 0;
}

inline std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
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

#endif
