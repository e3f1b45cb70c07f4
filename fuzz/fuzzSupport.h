// Shared by the fuzz targets: the entry point, a reader over the fuzzer's bytes, a
// scratch folder for inputs that the code under test reads as files, a query
// responder that answers every path with texts taken from the input, and (in
// hm_fuzz_agent) the agent started as the SNMP service starts it.
#ifndef HM_FUZZ_FUZZSUPPORT_H
#define HM_FUZZ_FUZZSUPPORT_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "kelvarn/Responder.h"

namespace hmfuzz {

// Reads the fuzzer's bytes front to back; past the end every read gives zeros.
class Input {
public:
    Input(const uint8_t* data, size_t size) : m_data(data), m_size(size) {}
    size_t size() const { return m_size; }
    bool empty() const { return m_pos >= m_size; }
    uint8_t byte() { return empty() ? 0 : m_data[m_pos++]; }
    uint32_t u32() {
        uint32_t value = 0;
        for (int i = 0; i < 4; ++i)
            value = (value << 8) | byte();
        return value;
    }
    // Up to the next '\n' (dropped) or the end.
    std::string line() {
        std::string text;
        for (char c; !empty() && (c = static_cast<char>(m_data[m_pos++])) != '\n';)
            text.push_back(c);
        return text;
    }
    std::vector<std::string> lines() {
        std::vector<std::string> all;
        while (!empty())
            all.push_back(line());
        return all;
    }
    std::string rest() {
        std::string text(reinterpret_cast<const char*>(m_data) + m_pos, m_size - m_pos);
        m_pos = m_size;
        return text;
    }

private:
    const uint8_t* m_data;
    size_t m_size;
    size_t m_pos = 0;
};

// Runs `body`, ignoring the exception of type E that the code under test may throw.
template <class E, class F> void ignoring(F body) {
    try {
        body();
    } catch (const E&) {
    }
}

// Writes `content` to a file of that name in a private folder under TMPDIR (or /tmp),
// removed with its files when the process exits; returns its path.
std::string writeScratch(const std::string& name, const std::string& content);

// Answers every query from a list of texts. A path gets its own entry, valued with
// the next text in turn, and one entry "<path>[i]" per text (the shape of a scan's
// answer). A text starting with '!' makes the query fail with that text as the
// message and the next two characters as the code, low byte first. A text
// starting with '#' makes its scan entry a container rather than a value; one
// written "@KEY=V1|V2" (a value entry) or "%KEY=P1|P2" (a container listing child
// paths) is added to every answer under KEY instead.
class TextResponder : public kelvarn::Responder {
public:
    explicit TextResponder(std::vector<std::string> texts) : m_texts(std::move(texts)) {}
    void answer(const std::string& path, const std::vector<kelvarn::PathSegment>& segments,
                const kelvarn::Parameters& params, uint8_t flags, kelvarn::ResultMap& out) override;

private:
    std::vector<std::string> m_texts;
    size_t m_next = 0;
};

// A responder serving the built-in demo platform.
std::shared_ptr<kelvarn::Responder> demoResponder();

// hm_fuzz_agent: starts the agent once per process with a quiet configuration in a scratch
// registry (`trapsEnabled` is its trapsenabled), the built-in demo platform, every region
// handed out and the event poller parked at its first sleep (the targets poll themselves);
// released with SnmpExtensionClose when the process exits. Aborts when SnmpExtensionInit
// refuses. HM_FUZZ_TRACE=FILE turns the agent's trace on, to see why an input fails.
void startAgent(bool trapsEnabled);
// The responder the agent was started with (the demo platform).
const std::shared_ptr<kelvarn::Responder>& agentResponder();

} // namespace hmfuzz

// Defines the libFuzzer entry point: the body reads `input` (an hmfuzz::Input).
#define HM_FUZZ_TARGET(input)                                                                                \
    static void hmFuzzOne(hmfuzz::Input&& input);                                                            \
    extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {                                \
        hmFuzzOne(hmfuzz::Input(data, size));                                                                \
        return 0;                                                                                            \
    }                                                                                                        \
    static void hmFuzzOne(hmfuzz::Input&& input)

#endif
