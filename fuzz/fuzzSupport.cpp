#include "fuzz/fuzzSupport.h"

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "kelvarn/Platform.h"
#include "kelvarn/PlatformFile.h"
#include "pickmere/ResultStatus.h"

namespace hmfuzz {

std::string writeScratch(const std::string& name, const std::string& content) {
    static std::string g_scratch;
    if (g_scratch.empty()) {
        std::string pattern = std::filesystem::temp_directory_path() / "hm-fuzz-XXXXXX";
        if (mkdtemp(&pattern[0]) == nullptr)
            std::abort();
        g_scratch = pattern;
        std::atexit([] { std::filesystem::remove_all(g_scratch); });
    }
    const std::string path = g_scratch + "/" + name;
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    if (!file.write(content.data(), static_cast<std::streamsize>(content.size())).flush())
        std::abort();
    return path;
}

void TextResponder::answer(const std::string& path, const std::vector<kelvarn::PathSegment>&,
                           const kelvarn::Parameters&, uint8_t, kelvarn::ResultMap& out) {
    if (m_texts.empty())
        return;
    const std::string& own = m_texts[m_next++ % m_texts.size()];
    if (!own.empty() && own[0] == '!') {
        const unsigned low = own.size() > 1 ? static_cast<uint8_t>(own[1]) : 0;
        const unsigned high = own.size() > 2 ? static_cast<uint8_t>(own[2]) : 0;
        throw ResultStatus(RStatus{0, static_cast<uint16_t>(low | (high << 8)), own.substr(1), path, 1});
    }
    out[path] = _XNode{0, {own}, ""};
    for (size_t i = 0; i < m_texts.size(); ++i) {
        const std::string& text = m_texts[i];
        const size_t equals = text.find('=');
        _XNode entry;
        if ((text[0] == '@' || text[0] == '%') && equals != std::string::npos) {
            // An entry of its own: "@KEY=V1|V2" (values) or "%KEY=P1|P2" (child paths).
            entry.NodeType = text[0] == '%' ? 1 : 0;
            entry.Values.emplace_back();
            for (const char c : text.substr(equals + 1))
                c == '|' ? entry.Values.emplace_back() : entry.Values.back() += c;
            out[text.substr(1, equals - 1)] = entry;
        } else {
            entry.NodeType = (text.size() > 1 && text[0] == '#') ? 1 : 0;
            entry.Values.push_back(text);
            out[path + "[" + std::to_string(i) + "]"] = entry;
        }
    }
}

std::shared_ptr<kelvarn::Responder> demoResponder() {
    return kelvarn::makePlatformResponder(std::make_shared<kelvarn::SimulatedSource>(
        "demo", kelvarn::parsePlatform(kelvarn::demoPlatformText(), "built-in demo platform")));
}

} // namespace hmfuzz
