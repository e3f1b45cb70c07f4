// Shared by the inventory table tests: serving a platform file of tests/data/inventory
// (or a scripted answer set) as the process's query source, a fresh trace per test, and
// reading a table's columns as plain values.
#ifndef HM_TESTS_TABLES_INVENTORYTESTSUPPORT_H
#define HM_TESTS_TABLES_INVENTORYTESTSUPPORT_H

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "tables/BaseAccessor.h"
#include "tests/platform/sensorTestSupport.h"

namespace inventorytest {

inline std::string dataFile(const std::string& name) {
    return std::string(HM_TEST_DATA_DIR) + "/inventory/" + name;
}

using sensortest::serveModel;

// Serves tests/data/inventory/<name>.
inline void servePlatformFile(const std::string& name) {
    serveModel(kelvarn::loadPlatformFile(dataFile(name)));
}

// Serves platform text given by the test.
inline void servePlatformText(const std::string& text) {
    serveModel(kelvarn::parsePlatform(text, "test platform"));
}

// A fresh trace file per test; the query source is dropped after each test.
using InventoryTest = sensortest::TracedTest;

// One column read: the result code and the value.
struct IntRead {
    uint32_t code;
    int32_t value;
};

struct StrRead {
    uint32_t code;
    std::string value;
    bool null;
};

enum class Getter { IntInfo, IntData, StrInfo, StrData };

inline IntRead readInt(BaseAccessor& table, Getter getter, int attribute, int index) {
    IntRead r{0, 12345};
    r.code = getter == Getter::IntInfo ? table.getIntInfo(attribute, index, &r.value)
                                       : table.getIntData(attribute, index, &r.value);
    return r;
}

inline StrRead readStr(BaseAccessor& table, Getter getter, int attribute, int index) {
    char* text = reinterpret_cast<char*>(1);
    StrRead r{0, "", false};
    r.code = getter == Getter::StrInfo ? table.getStrInfo(attribute, index, &text)
                                       : table.getStrData(attribute, index, &text);
    r.null = text == nullptr;
    r.value = text != nullptr ? text : "";
    free(text);
    return r;
}

// An expected integer or text column of one row.
struct Column {
    int attribute;
    Getter getter;
    int32_t number;   // for IntInfo / IntData
    const char* text; // for StrInfo / StrData
};

inline Column I(int attribute, int32_t value) {
    return {attribute, Getter::IntInfo, value, nullptr};
}
inline Column IL(int attribute, int32_t value) {
    return {attribute, Getter::IntData, value, nullptr};
}
inline Column S(int attribute, const char* value) {
    return {attribute, Getter::StrInfo, 0, value};
}
inline Column SL(int attribute, const char* value) {
    return {attribute, Getter::StrData, 0, value};
}

// Checks every listed column of row `index`.
inline void expectRow(BaseAccessor& table, int index, const std::vector<Column>& columns) {
    for (const Column& c : columns) {
        SCOPED_TRACE("row " + std::to_string(index) + " attribute " + std::to_string(c.attribute));
        const bool number = c.getter == Getter::IntInfo || c.getter == Getter::IntData;
        const IntRead i = number ? readInt(table, c.getter, c.attribute, index) : IntRead{};
        const StrRead s = number ? StrRead{} : readStr(table, c.getter, c.attribute, index);
        EXPECT_EQ(CLIENT_SUCCESS, number ? i.code : s.code);
        if (number)
            EXPECT_EQ(c.number, i.value);
        else
            EXPECT_EQ(std::string(c.text), s.value);
    }
}

} // namespace inventorytest

#endif
