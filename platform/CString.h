// The agent's own wide-text holder: an owned, NUL-terminated array of 16-bit
// characters. An empty text holds no array at all.
#ifndef HM_PLATFORM_CSTRING_H
#define HM_PLATFORM_CSTRING_H

#include <cstddef>

#include "platform/hmVocabulary.h"

// Exported with the event sink, whose event wrapper carries texts of this type.
class HM_EXPORT CString {
public:
    // Size of the buffer a text is narrowed into for the trace.
    static constexpr size_t kLogBufferSize = 128;

    CString() = default;
    // Widens narrow text byte by byte (each byte zero-extended); null gives an empty text.
    explicit CString(const char* text);
    CString(const char* text, size_t length);
    // Copies wide text up to its NUL; null gives an empty text.
    explicit CString(const char16_t* text);
    CString(const CString& other);
    CString(CString&& other) noexcept;
    CString& operator=(const CString& other);
    CString& operator=(CString&& other) noexcept;
    virtual ~CString();

    // Replaces the content with narrow text, widened.
    void assign(const char* text);

    // Number of characters, without the NUL.
    size_t GetLength() const { return m_nLength; }
    bool IsEmpty() const { return m_nLength == 0; }
    // The characters, NUL-terminated; null when the text is empty.
    const char16_t* GetBuffer() const { return m_pText; }

    // Writes the low byte of each character, at most maxChars of them and never
    // more than outSize - 1, followed by a NUL; returns the number written.
    size_t Narrow(char* out, size_t outSize, size_t maxChars) const;
    // Narrows at most 127 characters into a 128-byte buffer, for the trace.
    const char* NarrowForLog(char (&out)[kLogBufferSize]) const;

    bool operator==(const CString& other) const;
    bool operator!=(const CString& other) const { return !(*this == other); }
    // True when the text equals the narrow text widened.
    bool Equals(const char* text) const;

private:
    void reset();

    char16_t* m_pText = nullptr;
    size_t m_nLength = 0;
};

#endif
