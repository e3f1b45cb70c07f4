// The registry file reader. Input: the key path on the first line, the value name
// on the second, the .reg file after them.
#include <windows.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "fuzz/fuzzSupport.h"

namespace {

// Reads one value three ways: size only, into an exact buffer, into one too short.
void readValue(HKEY key, const std::string& name) {
    DWORD type = REG_NONE;
    DWORD size = 0;
    if (RegQueryValueExA(key, name.c_str(), nullptr, &type, nullptr, &size) != ERROR_SUCCESS) {
        return;
    }
    std::vector<BYTE> buffer(size + 1, 0xAA);
    DWORD got = size;
    if (RegQueryValueExA(key, name.c_str(), nullptr, &type, buffer.data(), &got) == ERROR_SUCCESS) {
        if (got > size || buffer[size] != 0xAA) {
            std::abort(); // written past the size the caller gave
        }
    }
    if (size > 0) {
        std::vector<BYTE> shorter(size - 1);
        DWORD small = size - 1;
        RegQueryValueExA(key, name.c_str(), nullptr, &type, shorter.empty() ? nullptr : shorter.data(),
                         &small);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    hmfuzz::Input input(data, size);
    const std::string keyPath = input.line();
    const std::string valueName = input.line();
    const std::string file = input.rest();
    const std::string path = hmfuzz::writeScratch("registry.reg", file.data(), file.size());
    setenv(HM_COMPAT_REGISTRY_ENV, path.c_str(), 1);

    HKEY key = nullptr;
    if (RegOpenKeyExA(HKEY_LOCAL_MACHINE, keyPath.c_str(), 0, KEY_READ, &key) == ERROR_SUCCESS) {
        readValue(key, valueName);
        readValue(key, "ConfigFile");
        readValue(key, "bInverseLinearization");
        RegCloseKey(key);
    }
    return 0;
}
