// Registry reading for POSIX: the local-machine hive (and the other predefined
// hives) comes from a text file in the Windows .reg export format, read afresh
// every time a key is opened. An open key owns a copy of its values.
#include "handles.h"

#include <windows.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <mutex>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace hmcompat {
namespace {

// Files larger than this are refused rather than read.
constexpr size_t kMaxRegistryFileBytes = 1024 * 1024;

constexpr std::string_view kHeader = "Windows Registry Editor Version 5.00";
constexpr std::string_view kUtf8Bom = "\xEF\xBB\xBF";

struct RegValue {
    std::string name;
    DWORD type;
    std::vector<BYTE> data;
};

struct RegKey : Object {
    RegKey() : Object(Kind::RegKey) {}
    std::string path; // full path, hive name first, no trailing backslash
    std::vector<RegValue> values;
};

char lowerAscii(char c) {
    return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c;
}

bool equalsNoCase(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) {
        return false;
    }
    for (size_t i = 0; i < a.size(); ++i) {
        if (lowerAscii(a[i]) != lowerAscii(b[i])) {
            return false;
        }
    }
    return true;
}

bool isBlank(char c) {
    return c == ' ' || c == '\t';
}

std::string_view trim(std::string_view s) {
    while (!s.empty() && isBlank(s.front())) {
        s.remove_prefix(1);
    }
    while (!s.empty() && (isBlank(s.back()) || s.back() == '\r')) {
        s.remove_suffix(1);
    }
    return s;
}

std::string_view stripTrailingBackslashes(std::string_view s) {
    while (!s.empty() && s.back() == '\\') {
        s.remove_suffix(1);
    }
    return s;
}

const char* hiveName(HKEY h) {
    if (h == HKEY_CLASSES_ROOT) {
        return "HKEY_CLASSES_ROOT";
    }
    if (h == HKEY_CURRENT_USER) {
        return "HKEY_CURRENT_USER";
    }
    if (h == HKEY_LOCAL_MACHINE) {
        return "HKEY_LOCAL_MACHINE";
    }
    if (h == HKEY_USERS) {
        return "HKEY_USERS";
    }
    return nullptr;
}

// Why a registry file may not be trusted, or an empty text when it may: it
// names the agent's configuration and trace files, so only root or the user the
// agent runs as may own it, and nobody else may write to it.
std::string registryFileProblem(const struct stat& st, uid_t euid) {
    char text[160];
    if ((st.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
        std::snprintf(
            text, sizeof text,
            "group or others may write to it (mode %04o); allow writing to its owner only (chmod go-w)",
            static_cast<unsigned>(st.st_mode & 07777));
        return text;
    }
    if (st.st_uid != 0 && st.st_uid != euid) {
        std::snprintf(text, sizeof text,
                      "it belongs to uid %u, neither root nor the user the agent runs as (uid %u)",
                      static_cast<unsigned>(st.st_uid), static_cast<unsigned>(euid));
        return text;
    }
    return std::string();
}

// Says once on standard error why a registry file is refused: the same refusal
// again (every RegOpenKeyExA reads the file) is not repeated until a read of the
// file has succeeded in between. An empty problem records such a success.
void noteRegistryFile(const char* path, const std::string& problem) {
    static std::mutex lock;
    static std::string last;
    std::lock_guard<std::mutex> guard(lock);
    if (problem.empty()) {
        last.clear();
        return;
    }
    const std::string message =
        std::string("hmcompat: registry file ") + path + " refused: " + problem + "\n";
    if (message == last) {
        return;
    }
    last = message;
    std::fputs(message.c_str(), stderr);
}

// Reads the whole registry file, bounded in size.
LONG readRegistryFile(std::string& out) {
    const char* path = std::getenv(HM_COMPAT_REGISTRY_ENV);
    if (path == nullptr || path[0] == '\0') {
        path = HM_COMPAT_REGISTRY_DEFAULT;
    }
    int fd = ::open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0) {
        if (errno == EACCES || errno == EPERM) {
            return ERROR_ACCESS_DENIED;
        }
        return ERROR_FILE_NOT_FOUND;
    }
    struct stat st;
    if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode) ||
        static_cast<size_t>(st.st_size) > kMaxRegistryFileBytes) {
        ::close(fd);
        return ERROR_BADDB;
    }
    // Checked on the open file, so that what is checked is what is read; as on
    // Windows when the key's security denies reading, the open fails.
    const std::string problem = registryFileProblem(st, ::geteuid());
    noteRegistryFile(path, problem);
    if (!problem.empty()) {
        ::close(fd);
        return ERROR_ACCESS_DENIED;
    }
    out.clear();
    out.resize(kMaxRegistryFileBytes + 1);
    size_t got = 0;
    while (got < out.size()) {
        ssize_t n = ::read(fd, &out[got], out.size() - got);
        if (n < 0) {
            if (errno == EINTR) {
                continue;
            }
            ::close(fd);
            return ERROR_CANTREAD;
        }
        if (n == 0) {
            break;
        }
        got += static_cast<size_t>(n);
    }
    ::close(fd);
    if (got > kMaxRegistryFileBytes) { // the file grew past the limit while being read
        return ERROR_BADDB;
    }
    out.resize(got);
    return ERROR_SUCCESS;
}

// Parses a quoted .reg string starting at s[pos] == '"'. Only \\ and \" are
// escapes. On success stores the text and moves pos past the closing quote.
bool parseQuoted(std::string_view s, size_t& pos, std::string& out) {
    out.clear();
    size_t i = pos + 1;
    while (i < s.size()) {
        char c = s[i];
        if (c == '"') {
            pos = i + 1;
            return true;
        }
        if (c == '\\') {
            if (i + 1 >= s.size() || (s[i + 1] != '\\' && s[i + 1] != '"')) {
                return false;
            }
            out.push_back(s[i + 1]);
            i += 2;
            continue;
        }
        out.push_back(c);
        ++i;
    }
    return false; // unterminated
}

int hexDigit(char c) {
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    c = lowerAscii(c);
    if (c >= 'a' && c <= 'f') {
        return c - 'a' + 10;
    }
    return -1;
}

enum class LineResult { Value, Delete, Malformed };

// Parses one value line: "Name"=<data> or @=<data>, where <data> is a quoted
// string, dword:<1 to 8 hex digits> or "-" (delete the value).
LineResult parseValueLine(std::string_view line, RegValue& v) {
    size_t pos = 0;
    if (line[0] == '@') {
        v.name.clear();
        pos = 1;
    } else if (!parseQuoted(line, pos, v.name)) {
        return LineResult::Malformed;
    }
    while (pos < line.size() && isBlank(line[pos])) {
        ++pos;
    }
    if (pos >= line.size() || line[pos] != '=') {
        return LineResult::Malformed;
    }
    std::string_view data = trim(line.substr(pos + 1));
    if (data == "-") {
        return LineResult::Delete;
    }
    if (!data.empty() && data[0] == '"') {
        std::string text;
        size_t p = 0;
        if (!parseQuoted(data, p, text) || p != data.size()) {
            return LineResult::Malformed;
        }
        v.type = REG_SZ;
        v.data.assign(text.begin(), text.end());
        v.data.push_back(0);
        return LineResult::Value;
    }
    constexpr std::string_view kDword = "dword:";
    if (data.size() > kDword.size() && equalsNoCase(data.substr(0, kDword.size()), kDword)) {
        std::string_view digits = data.substr(kDword.size());
        if (digits.size() > 8) {
            return LineResult::Malformed;
        }
        uint32_t value = 0;
        for (char c : digits) {
            int d = hexDigit(c);
            if (d < 0) {
                return LineResult::Malformed;
            }
            value = (value << 4) | static_cast<uint32_t>(d);
        }
        v.type = REG_DWORD;
        v.data = {static_cast<BYTE>(value), static_cast<BYTE>(value >> 8), static_cast<BYTE>(value >> 16),
                  static_cast<BYTE>(value >> 24)};
        return LineResult::Value;
    }
    return LineResult::Malformed; // hex:, hex(n): and anything else
}

void storeValue(std::vector<RegValue>& values, RegValue&& v) {
    for (RegValue& old : values) {
        if (equalsNoCase(old.name, v.name)) {
            old = std::move(v);
            return;
        }
    }
    values.push_back(std::move(v));
}

void deleteValue(std::vector<RegValue>& values, std::string_view name) {
    for (auto it = values.begin(); it != values.end(); ++it) {
        if (equalsNoCase(it->name, name)) {
            values.erase(it);
            return;
        }
    }
}

// Collects the values of the key at keyPath (hive name first). Returns
// ERROR_SUCCESS when the key exists: it has a section of its own, or is the
// parent of one.
LONG parseRegistryText(std::string_view text, std::string_view keyPath, std::vector<RegValue>& values) {
    if (text.substr(0, kUtf8Bom.size()) == kUtf8Bom) {
        text.remove_prefix(kUtf8Bom.size());
    }
    bool found = false;
    bool inKey = false;
    bool first = true;
    while (!text.empty()) {
        size_t nl = text.find('\n');
        std::string_view raw = text.substr(0, nl);
        text.remove_prefix(nl == std::string_view::npos ? text.size() : nl + 1);
        std::string_view line = trim(raw);
        if (first) {
            if (line != kHeader) {
                return ERROR_BADDB;
            }
            first = false;
            continue;
        }
        if (line.empty() || line[0] == ';') {
            continue;
        }
        bool hasNul = line.find('\0') != std::string_view::npos;
        if (line[0] == '[') {
            inKey = false; // a broken section header attaches what follows to no key
            if (hasNul || line.back() != ']') {
                continue;
            }
            std::string_view name = stripTrailingBackslashes(line.substr(1, line.size() - 2));
            if (!name.empty() && name[0] == '-') {
                continue; // key deletion: not applied
            }
            if (equalsNoCase(name, keyPath)) {
                inKey = true;
                found = true;
            } else if (name.size() > keyPath.size() && name[keyPath.size()] == '\\' &&
                       equalsNoCase(name.substr(0, keyPath.size()), keyPath)) {
                found = true; // a subkey exists, so this key does too
            }
            continue;
        }
        if (!inKey || hasNul || (line[0] != '"' && line[0] != '@')) {
            continue;
        }
        RegValue v;
        switch (parseValueLine(line, v)) {
        case LineResult::Value:
            storeValue(values, std::move(v));
            break;
        case LineResult::Delete:
            deleteValue(values, v.name);
            break;
        case LineResult::Malformed:
            break;
        }
    }
    if (first) {
        return ERROR_BADDB; // empty file: no header
    }
    return found ? ERROR_SUCCESS : ERROR_FILE_NOT_FOUND;
}

// Resolves hKey to the path of the key it names.
LONG basePath(HKEY hKey, std::string& path) {
    if (const char* hive = hiveName(hKey)) {
        path = hive;
        return ERROR_SUCCESS;
    }
    auto key = lookupAs<RegKey>(hKey, Kind::RegKey);
    if (!key) {
        return ERROR_INVALID_HANDLE;
    }
    path = key->path;
    return ERROR_SUCCESS;
}

LONG loadKey(const std::string& path, RegKey& key) {
    std::string text;
    LONG rc = readRegistryFile(text);
    if (rc != ERROR_SUCCESS) {
        return rc;
    }
    key.path = path;
    return parseRegistryText(text, path, key.values);
}

} // namespace
} // namespace hmcompat

using namespace hmcompat;

extern "C" {

HM_COMPAT_API LONG WINAPI RegOpenKeyExA(HKEY hKey, LPCSTR lpSubKey, DWORD /*ulOptions*/,
                                        REGSAM /*samDesired*/, PHKEY phkResult) {
    if (phkResult == nullptr) {
        return ERROR_INVALID_PARAMETER;
    }
    std::string path;
    LONG rc = basePath(hKey, path);
    if (rc != ERROR_SUCCESS) {
        return rc;
    }
    std::string_view sub = lpSubKey != nullptr ? stripTrailingBackslashes(lpSubKey) : std::string_view();
    if (!sub.empty()) {
        path.push_back('\\');
        path.append(sub);
    }
    auto key = std::make_shared<RegKey>();
    rc = loadKey(path, *key);
    if (rc != ERROR_SUCCESS) {
        return rc;
    }
    *phkResult = static_cast<HKEY>(registerObject(std::move(key)));
    return ERROR_SUCCESS;
}

HM_COMPAT_API LONG WINAPI RegQueryValueExA(HKEY hKey, LPCSTR lpValueName, LPDWORD lpReserved, LPDWORD lpType,
                                           LPBYTE lpData, LPDWORD lpcbData) {
    if (lpReserved != nullptr || (lpData != nullptr && lpcbData == nullptr)) {
        return ERROR_INVALID_PARAMETER;
    }
    std::shared_ptr<RegKey> key;
    if (const char* hive = hiveName(hKey)) {
        key = std::make_shared<RegKey>();
        LONG rc = loadKey(hive, *key);
        if (rc != ERROR_SUCCESS) {
            return rc;
        }
    } else {
        key = lookupAs<RegKey>(hKey, Kind::RegKey);
        if (!key) {
            return ERROR_INVALID_HANDLE;
        }
    }
    std::string_view name = lpValueName != nullptr ? lpValueName : "";
    for (const RegValue& v : key->values) {
        if (!equalsNoCase(v.name, name)) {
            continue;
        }
        if (lpType != nullptr) {
            *lpType = v.type;
        }
        if (lpcbData == nullptr) {
            return ERROR_SUCCESS;
        }
        DWORD need = static_cast<DWORD>(v.data.size());
        if (lpData != nullptr) {
            if (*lpcbData < need) {
                *lpcbData = need;
                return ERROR_MORE_DATA;
            }
            if (need != 0) {
                std::memcpy(lpData, v.data.data(), need);
            }
        }
        *lpcbData = need;
        return ERROR_SUCCESS;
    }
    return ERROR_FILE_NOT_FOUND;
}

HM_COMPAT_API LONG WINAPI RegCloseKey(HKEY hKey) {
    if (hiveName(hKey) != nullptr) {
        return ERROR_SUCCESS;
    }
    return unregisterObject(hKey, kindBit(Kind::RegKey)) ? ERROR_SUCCESS : ERROR_INVALID_HANDLE;
}

} // extern "C"
