// The agent's wide-text holder.
#include "platform/CString.h"

#include <cstring>
#include <utility>

namespace {

size_t wideLength(const char16_t* text) {
    size_t n = 0;
    while (text[n] != u'\0') {
        ++n;
    }
    return n;
}

} // namespace

CString::CString(const char* text) {
    assign(text);
}

CString::CString(const char* text, size_t length) {
    if (text == nullptr || length == 0) {
        return;
    }
    m_pText = new char16_t[length + 1];
    for (size_t i = 0; i < length; ++i) {
        m_pText[i] = static_cast<char16_t>(static_cast<unsigned char>(text[i]));
    }
    m_pText[length] = u'\0';
    m_nLength = length;
}

CString::CString(const char16_t* text) {
    if (text == nullptr) {
        return;
    }
    const size_t length = wideLength(text);
    if (length == 0) {
        return;
    }
    m_pText = new char16_t[length + 1];
    std::memcpy(m_pText, text, (length + 1) * sizeof(char16_t));
    m_nLength = length;
}

CString::CString(const CString& other) {
    if (other.m_nLength == 0) {
        return;
    }
    m_pText = new char16_t[other.m_nLength + 1];
    std::memcpy(m_pText, other.m_pText, (other.m_nLength + 1) * sizeof(char16_t));
    m_nLength = other.m_nLength;
}

CString::CString(CString&& other) noexcept
    : m_pText(std::exchange(other.m_pText, nullptr)), m_nLength(std::exchange(other.m_nLength, 0)) {}

CString& CString::operator=(const CString& other) {
    if (this != &other) {
        CString copy(other);
        std::swap(m_pText, copy.m_pText);
        std::swap(m_nLength, copy.m_nLength);
    }
    return *this;
}

CString& CString::operator=(CString&& other) noexcept {
    if (this != &other) {
        reset();
        m_pText = std::exchange(other.m_pText, nullptr);
        m_nLength = std::exchange(other.m_nLength, 0);
    }
    return *this;
}

CString::~CString() {
    reset();
}

void CString::reset() {
    delete[] m_pText;
    m_pText = nullptr;
    m_nLength = 0;
}

void CString::assign(const char* text) {
    CString widened(text, text == nullptr ? 0 : std::strlen(text));
    *this = std::move(widened);
}

size_t CString::Narrow(char* out, size_t outSize, size_t maxChars) const {
    if (out == nullptr || outSize == 0) {
        return 0;
    }
    size_t n = m_nLength;
    if (n > maxChars) {
        n = maxChars;
    }
    if (n > outSize - 1) {
        n = outSize - 1;
    }
    for (size_t i = 0; i < n; ++i) {
        out[i] = static_cast<char>(m_pText[i] & 0xFF);
    }
    out[n] = '\0';
    return n;
}

const char* CString::NarrowForLog(char (&out)[kLogBufferSize]) const {
    Narrow(out, kLogBufferSize, kLogBufferSize - 1);
    return out;
}

bool CString::operator==(const CString& other) const {
    return m_nLength == other.m_nLength &&
           (m_nLength == 0 || std::memcmp(m_pText, other.m_pText, m_nLength * sizeof(char16_t)) == 0);
}

bool CString::Equals(const char* text) const {
    const size_t length = text == nullptr ? 0 : std::strlen(text);
    if (length != m_nLength) {
        return false;
    }
    for (size_t i = 0; i < length; ++i) {
        if (m_pText[i] != static_cast<char16_t>(static_cast<unsigned char>(text[i]))) {
            return false;
        }
    }
    return true;
}
