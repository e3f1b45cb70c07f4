// The registry file reader. Input: the key path on the first line, the value name
// on the second, the .reg file after them.
#include <windows.h>

#include <cstdlib>

#include "fuzz/fuzzSupport.h"

HM_FUZZ_TARGET(input) {
    const std::string keyPath = input.line();
    const std::string valueName = input.line();
    setenv(HM_COMPAT_REGISTRY_ENV, hmfuzz::writeScratch("registry.reg", input.rest()).c_str(), 1);
    HKEY key = nullptr;
    if (RegOpenKeyExA(HKEY_LOCAL_MACHINE, keyPath.c_str(), 0, KEY_READ, &key) != ERROR_SUCCESS)
        return;
    // Each value is read three ways: size only, into an exact buffer, into one too short.
    for (const std::string& name :
         {valueName, std::string("ConfigFile"), std::string("bInverseLinearization")}) {
        DWORD type = REG_NONE;
        DWORD size = 0;
        if (RegQueryValueExA(key, name.c_str(), nullptr, &type, nullptr, &size) != ERROR_SUCCESS)
            continue;
        std::vector<BYTE> buffer(size + 1, 0xAA);
        DWORD got = size;
        if (RegQueryValueExA(key, name.c_str(), nullptr, &type, buffer.data(), &got) == ERROR_SUCCESS &&
            (got > size || buffer[size] != 0xAA))
            std::abort(); // written past the size the caller gave
        std::vector<BYTE> shorter(size > 0 ? size - 1 : 0);
        DWORD small = static_cast<DWORD>(shorter.size());
        if (size > 0)
            RegQueryValueExA(key, name.c_str(), nullptr, &type, shorter.empty() ? nullptr : shorter.data(),
                             &small);
    }
    RegCloseKey(key);
}
