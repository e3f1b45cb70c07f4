#include "fuzz/fuzzSupport.h"

#include <dirent.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <stdexcept>

#include "kelvarn/Platform.h"
#include "kelvarn/PlatformFile.h"
#include "pickmere/ResultStatus.h"

namespace hmfuzz {

namespace {

std::string g_scratch;

void removeScratch() {
    if (g_scratch.empty()) {
        return;
    }
    if (DIR* dir = opendir(g_scratch.c_str())) {
        while (const dirent* entry = readdir(dir)) {
            const std::string name = entry->d_name;
            if (name != "." && name != "..") {
                unlink((g_scratch + "/" + name).c_str());
            }
        }
        closedir(dir);
    }
    rmdir(g_scratch.c_str());
}

} // namespace

const std::string& scratchDir() {
    if (g_scratch.empty()) {
        const char* base = std::getenv("TMPDIR");
        std::string pattern =
            std::string(base != nullptr && *base != '\0' ? base : "/tmp") + "/hm-fuzz-XXXXXX";
        if (mkdtemp(&pattern[0]) == nullptr) {
            std::perror("mkdtemp");
            std::abort();
        }
        g_scratch = pattern;
        std::atexit(removeScratch);
    }
    return g_scratch;
}

std::string writeScratch(const std::string& name, const void* data, size_t size) {
    const std::string path = scratchDir() + "/" + name;
    FILE* file = std::fopen(path.c_str(), "wb");
    if (file == nullptr) {
        std::perror(path.c_str());
        std::abort();
    }
    if (size != 0 && std::fwrite(data, 1, size, file) != size) {
        std::perror(path.c_str());
        std::abort();
    }
    std::fclose(file);
    return path;
}

void TextResponder::answer(const std::string& path, const std::vector<kelvarn::PathSegment>&,
                           const kelvarn::Parameters&, uint8_t, kelvarn::ResultMap& out) {
    if (m_texts.empty()) {
        return;
    }
    const std::string& own = m_texts[m_next++ % m_texts.size()];
    if (!own.empty() && own[0] == '!') {
        RStatus status;
        status.Operation = 1;
        const unsigned low = own.size() > 1 ? static_cast<uint8_t>(own[1]) : 0;
        const unsigned high = own.size() > 2 ? static_cast<uint8_t>(own[2]) : 0;
        status.Code = static_cast<uint16_t>(low | (high << 8));
        status.Message = own.substr(1);
        status.Path = path;
        throw ResultStatus(status);
    }
    _XNode node;
    node.Values.push_back(own);
    out[path] = node;
    for (size_t i = 0; i < m_texts.size(); ++i) {
        const std::string& text = m_texts[i];
        const size_t equals = text.find('=');
        if ((text[0] == '@' || text[0] == '%') && equals != std::string::npos) {
            // An entry of its own: "@KEY=V1|V2" (values) or "%KEY=P1|P2" (child paths).
            _XNode entry;
            entry.NodeType = text[0] == '%' ? 1 : 0;
            size_t start = equals + 1;
            for (;;) {
                const size_t bar = text.find('|', start);
                entry.Values.push_back(
                    text.substr(start, bar == std::string::npos ? std::string::npos : bar - start));
                if (bar == std::string::npos) {
                    break;
                }
                start = bar + 1;
            }
            out[text.substr(1, equals - 1)] = entry;
            continue;
        }
        _XNode entry;
        entry.NodeType = (text.size() > 1 && text[0] == '#') ? 1 : 0;
        entry.Values.push_back(text);
        out[path + "[" + std::to_string(i) + "]"] = entry;
    }
}

std::shared_ptr<kelvarn::Responder> demoResponder() {
    auto source = std::make_shared<kelvarn::SimulatedSource>(
        "demo", kelvarn::parsePlatform(kelvarn::demoPlatformText(), "built-in demo platform"));
    return kelvarn::makePlatformResponder(source);
}

} // namespace hmfuzz
