// The wide-text holder: widening, narrowing, ownership.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <utility>

#include "platform/CString.h"

namespace {

TEST(CString, EmptyTextHoldsNoBufferAndNarrowTextIsWidened) {
    const CString none;
    const CString fromNull(static_cast<const char*>(nullptr));
    const CString fromEmpty("");
    const CString fromWideEmpty(u"");
    for (const CString* s : {&none, &fromNull, &fromEmpty, &fromWideEmpty}) {
        EXPECT_EQ(s->GetBuffer(), nullptr);
        EXPECT_EQ(s->GetLength(), 0u);
        EXPECT_TRUE(s->IsEmpty());
    }
    // Narrow text is widened byte by byte, zero-extended.
    const char narrow[] = {'T', 'e', 'm', 'p', '\xB0', 'C', '\xFF', '\0'};
    const CString s(narrow);
    ASSERT_EQ(s.GetLength(), 7u);
    EXPECT_EQ(std::u16string(s.GetBuffer(), 8), std::u16string(u"Temp\u00B0C\u00FF", 8));
    EXPECT_TRUE(s.Equals(narrow));
    EXPECT_FALSE(s.Equals("Temp"));
    EXPECT_FALSE(CString("READING_UNAVAILABLE").Equals("READING_UNAVAILABLe"));
}

TEST(CString, NarrowingKeepsTheLowByteOfEachCharacterWithinItsBounds) {
    const char16_t wide[] = {u'A', 0x0142, 0x20AC, u'z', 0};
    char out[8];
    EXPECT_EQ(CString(wide).Narrow(out, sizeof(out), 100), 4u);
    EXPECT_EQ(std::string(out), std::string("A\x42\xACz"));
    // Bounded by the count and by the buffer.
    const CString s(std::string(300, 'd').c_str());
    char big[1024];
    EXPECT_EQ(s.Narrow(big, sizeof(big), 128), 128u);
    EXPECT_EQ(std::strlen(big), 128u);
    char small[10];
    EXPECT_EQ(s.Narrow(small, sizeof(small), 128), 9u);
    EXPECT_EQ(std::string(small), std::string(9, 'd'));
    char one[1] = {'x'};
    EXPECT_EQ(s.Narrow(one, sizeof(one), 128), 0u);
    EXPECT_EQ(one[0], '\0');
    EXPECT_EQ(s.Narrow(nullptr, 5, 5), 0u);
    // For the trace: at most 127 characters.
    char buffer[CString::kLogBufferSize];
    EXPECT_EQ(std::string(CString(std::string(200, 'n').c_str()).NarrowForLog(buffer)),
              std::string(127, 'n'));
    EXPECT_STREQ(CString("Fan 1").NarrowForLog(buffer), "Fan 1");
    EXPECT_STREQ(CString().NarrowForLog(buffer), "");
}

TEST(CString, CopiesAreDeepAndMovesTransferOwnership) {
    CString a("CPU 1 Temp");
    CString b(a);
    EXPECT_EQ(a, b);
    b.assign("Other");
    EXPECT_TRUE(a.Equals("CPU 1 Temp"));
    EXPECT_TRUE(b.Equals("Other"));

    CString c;
    c = a;
    EXPECT_EQ(c, a);
    c = c; // self-assignment keeps the text
    EXPECT_TRUE(c.Equals("CPU 1 Temp"));

    const char16_t* buffer = a.GetBuffer();
    CString d(std::move(a));
    EXPECT_EQ(d.GetBuffer(), buffer);
    EXPECT_EQ(a.GetBuffer(), nullptr);
    EXPECT_EQ(a.GetLength(), 0u);
    a = std::move(d);
    EXPECT_EQ(a.GetBuffer(), buffer);
    EXPECT_NE(a, d);

    c = CString();
    EXPECT_EQ(c.GetBuffer(), nullptr);
}

} // namespace
