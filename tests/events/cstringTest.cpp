// The wide-text holder: widening, narrowing, ownership.
#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "platform/CString.h"

namespace {

TEST(CString, NarrowTextIsWidenedByteByByteAndNarrowedToTheLowByteWithinItsBounds) {
    for (const CString& s :
         {CString(), CString(static_cast<const char*>(nullptr)), CString(""), CString(u"")}) {
        EXPECT_EQ(s.GetBuffer(), nullptr);
        EXPECT_TRUE(s.IsEmpty());
    }
    const char narrow[] = {'T', 'e', 'm', 'p', '\xB0', 'C', '\xFF', '\0'};
    const CString s(narrow);
    ASSERT_EQ(s.GetLength(), 7u);
    EXPECT_EQ(std::u16string(s.GetBuffer(), 8), std::u16string(u"Temp\u00B0C\u00FF", 8));
    EXPECT_TRUE(s.Equals(narrow));
    EXPECT_FALSE(s.Equals("Temp"));
    const char16_t wide[] = {u'A', 0x0142, 0x20AC, u'z', 0};
    char out[1024];
    EXPECT_EQ(CString(wide).Narrow(out, sizeof(out), 100), 4u);
    EXPECT_EQ(std::string(out), std::string("A\x42\xACz"));
    const CString d(std::string(300, 'd').c_str());
    EXPECT_EQ(d.Narrow(out, sizeof(out), 128), 128u); // bounded by the count
    EXPECT_EQ(std::string(out), std::string(128, 'd'));
    EXPECT_EQ(d.Narrow(out, 10, 128), 9u); // and by the buffer
    EXPECT_EQ(std::string(out), std::string(9, 'd'));
    EXPECT_EQ(d.Narrow(out, 1, 128), 0u);
    EXPECT_EQ(out[0], '\0');
    EXPECT_EQ(d.Narrow(nullptr, 5, 5), 0u);
    char buffer[CString::kLogBufferSize]; // for the trace: at most 127 characters
    EXPECT_EQ(std::string(d.NarrowForLog(buffer)), std::string(127, 'd'));
    EXPECT_STREQ(CString().NarrowForLog(buffer), "");
}

TEST(CString, CopiesAreDeepAndMovesTransferOwnership) {
    CString a("CPU 1 Temp");
    CString b(a);
    b.assign("Other");
    EXPECT_TRUE(a.Equals("CPU 1 Temp"));
    CString c;
    c = a;
    c = c; // self-assignment keeps the text
    EXPECT_EQ(c, a);
    const char16_t* buffer = a.GetBuffer();
    CString d(std::move(a));
    EXPECT_EQ(d.GetBuffer(), buffer);
    EXPECT_EQ(a.GetBuffer(), nullptr);
    a = std::move(d);
    EXPECT_EQ(a.GetBuffer(), buffer);
    EXPECT_NE(a, d);
}

} // namespace
