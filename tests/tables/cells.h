// A row of any table or group read as one line of text, to compare with a line written by hand.
#ifndef HM_TESTS_TABLES_CELLS_H
#define HM_TESTS_TABLES_CELLS_H

#include <cstdlib>
#include <string>

#include "tables/BaseAccessor.h"

namespace hmtest {

// Columns first, first + 1, ... of row `index`, joined by '|'. `kinds` names the getter of
// each: i getIntInfo, s getStrInfo, I getIntData, S getStrData, '.' skipped. An absent live
// number (NO_VALUE) reads "-"; a refused read "!<code>", followed by "+" when it did not hand
// out its "nothing" (-1, or a null text).
inline std::string cells(BaseAccessor& t, int index, int first, const char* kinds) {
    std::string out;
    for (int a = first; *kinds != '\0'; ++a, ++kinds) {
        if (*kinds == '.')
            continue;
        int32_t n = 12345;
        char* const unset = reinterpret_cast<char*>(&n);
        char* text = unset;
        const bool isText = *kinds == 's' || *kinds == 'S', live = *kinds == 'I' || *kinds == 'S';
        const uint32_t code = isText ? (live ? t.getStrData(a, index, &text) : t.getStrInfo(a, index, &text))
                                     : (live ? t.getIntData(a, index, &n) : t.getIntInfo(a, index, &n));
        std::string cell;
        if (code != CLIENT_SUCCESS)
            cell = "!" + std::to_string(code) + ((isText ? text != nullptr : n != -1) ? "+" : "");
        else if (isText)
            cell = text == unset ? "(unset)" : text != nullptr ? text : "(null)";
        else
            cell = n == NO_VALUE && live ? "-" : std::to_string(n);
        if (isText && code == CLIENT_SUCCESS && text != unset)
            free(text);
        out += (out.empty() ? "" : "|") + cell;
    }
    return out;
}

} // namespace hmtest

#endif
