// Helpers of the SMBIOS tests: building structures, tables and dump files the
// way "dmidecode --dump-bin" writes them, and reading dmidecode's own decoding.
#ifndef HM_TESTS_SERVICE_SMBIOS_UTIL_H
#define HM_TESTS_SERVICE_SMBIOS_UTIL_H

#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "kelvarn/Platform.h"

using kelvarn::Bytes;

// One structure: header (type, length, handle), the formatted bytes after the
// header, then the string set.
inline Bytes smbiosStructure(uint8_t type, uint16_t handle, const Bytes& body,
                             const std::vector<std::string>& strings = {}) {
    Bytes s = {type, uint8_t(4 + body.size()), uint8_t(handle & 0xFF), uint8_t(handle >> 8)};
    s.insert(s.end(), body.begin(), body.end());
    if (strings.empty()) {
        s.push_back(0);
        s.push_back(0);
        return s;
    }
    for (const std::string& t : strings) {
        s.insert(s.end(), t.begin(), t.end());
        s.push_back(0);
    }
    s.push_back(0);
    return s;
}

inline Bytes endOfTable() {
    return {127, 4, 0xFF, 0xFF, 0, 0};
}

inline void putLittle(Bytes& b, size_t offset, uint64_t v, size_t width) {
    for (size_t i = 0; i < width; ++i)
        b[offset + i] = uint8_t(v >> (8 * i));
}

inline void fixChecksum(Bytes& b, size_t at, size_t from, size_t length) {
    b[at] = 0;
    uint8_t sum = 0;
    for (size_t i = from; i < from + length; ++i)
        sum = uint8_t(sum + b[i]);
    b[at] = uint8_t(-sum);
}

// A 64-bit ("_SM3_") entry point as dmidecode's dump writes it, padded to 32
// bytes, with the table at file offset 32.
inline Bytes entryPoint3(size_t tableLength, uint8_t major = 3, uint8_t minor = 0) {
    Bytes e(32, 0);
    const char anchor[] = "_SM3_";
    std::copy(anchor, anchor + 5, e.begin());
    e[6] = 0x18;
    e[7] = major;
    e[8] = minor;
    e[10] = 1;
    putLittle(e, 0x0C, tableLength, 4);
    putLittle(e, 0x10, 32, 8);
    fixChecksum(e, 5, 0, 0x18);
    return e;
}

// A 32-bit ("_SM_") entry point with its "_DMI_" part, table at offset 32.
inline Bytes entryPoint2(size_t tableLength, uint16_t count, uint8_t major = 2, uint8_t minor = 7) {
    Bytes e(32, 0);
    const char anchor[] = "_SM_", dmi[] = "_DMI_";
    std::copy(anchor, anchor + 4, e.begin());
    e[5] = 0x1F;
    e[6] = major;
    e[7] = minor;
    std::copy(dmi, dmi + 5, e.begin() + 0x10);
    putLittle(e, 0x16, tableLength, 2);
    putLittle(e, 0x18, 32, 4);
    putLittle(e, 0x1C, count, 2);
    e[0x1E] = uint8_t(major << 4 | minor);
    fixChecksum(e, 0x15, 0x10, 0x0F);
    fixChecksum(e, 4, 0, 0x1F);
    return e;
}

inline Bytes dumpOf(const Bytes& table, bool withEnd = true) {
    Bytes t = table;
    if (withEnd) {
        Bytes end = endOfTable();
        t.insert(t.end(), end.begin(), end.end());
    }
    Bytes file = entryPoint3(t.size());
    file.insert(file.end(), t.begin(), t.end());
    return file;
}

inline Bytes readBytes(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return Bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

inline void writeBytes(const std::string& path, const Bytes& b) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(b.data()), std::streamsize(b.size()));
}

inline bool haveDmidecode() {
    return access("/usr/sbin/dmidecode", X_OK) == 0 || access("/usr/bin/dmidecode", X_OK) == 0;
}

// dmidecode's decoding of the structures of one type in a dump file: one map
// of "Field" to "value" (as printed, blanks kept) per structure, in order,
// with "Handle" holding the structure's handle ("0x001B").
inline std::vector<std::map<std::string, std::string>> dmidecodeOf(const std::string& file, int type) {
    std::vector<std::map<std::string, std::string>> out;
    std::string cmd =
        "PATH=/usr/sbin:/sbin:$PATH dmidecode --from-dump '" + file + "' -t " + std::to_string(type);
    FILE* p = popen(cmd.c_str(), "r");
    if (!p)
        return out;
    char line[4096];
    const std::string handleMark = "Handle ", typeMark = ", DMI type " + std::to_string(type) + ",";
    bool inside = false;
    while (fgets(line, sizeof line, p)) {
        std::string l(line);
        if (!l.empty() && l.back() == '\n')
            l.pop_back();
        if (l.compare(0, handleMark.size(), handleMark) == 0) {
            inside = l.find(typeMark) != std::string::npos;
            if (inside)
                out.push_back({{"Handle", l.substr(handleMark.size(), l.find(',') - handleMark.size())}});
            continue;
        }
        if (!inside || l.size() < 2 || l[0] != '\t' || l[1] == '\t')
            continue;
        size_t colon = l.find(':');
        if (colon == std::string::npos)
            continue;
        std::string key = l.substr(1, colon - 1);
        std::string value = colon + 2 <= l.size() ? l.substr(colon + 2) : "";
        out.back()[key] = value;
    }
    pclose(p);
    return out;
}

#endif
