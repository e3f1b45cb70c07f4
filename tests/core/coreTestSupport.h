// Registry files for the core tests; scratch folders and traces come from tests/support.
#ifndef HM_TESTS_CORE_CORETESTSUPPORT_H
#define HM_TESTS_CORE_CORETESTSUPPORT_H

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <regex>
#include <sstream>
#include <string>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>

#include "support/files.h"

namespace hmtest {

using ScratchDir = TempDir;

// A registry file in the .reg format holding the agent's parameters key.
inline std::string registryText(const std::string& values) {
    return "Windows Registry Editor Version 5.00\n\n"
           "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Arveni\\FleetwatchSNMP\\Parameters]\n" +
           values;
}

} // namespace hmtest

#endif
