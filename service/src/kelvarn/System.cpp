#include "kelvarn/System.h"

#include <exception>
#include <functional>
#include <new>
#include <utility>

#include "kelvarn/Errors.h"
#include "kelvarn/Path.h"
#include "kelvarn/Responder.h"

namespace kelvarn {

Responder::~Responder() = default;

namespace {

RStatus makeStatus(uint16_t code, const std::string& message, const std::string& path, Operation op,
                   uint16_t facility) {
    RStatus s;
    s.Facility = facility;
    s.Code = code;
    s.Message = message;
    // A failing path is reported as given, cut to the service's path limit.
    s.Path = path.size() > kMaxPathLength ? path.substr(0, kMaxPathLength) + "..." : path;
    s.Operation = op;
    return s;
}

// Runs one query and turns every failure into RStatus entries appended to `failures`.
void runOne(const std::function<std::shared_ptr<Responder>()>& responder, const std::string& path,
            const Parameters& params, uint8_t flags, ResultMap& out, Operation op,
            std::vector<RStatus>& failures) {
    try {
        std::vector<PathSegment> segments = parsePath(path);
        std::shared_ptr<Responder> r = responder();
        if (!r)
            throw QueryError(kSourceUnavailable, "no data source is configured", kFacilitySource);
        r->answer(path, segments, params, flags, out);
    } catch (const QueryError& e) {
        failures.push_back(makeStatus(e.code(), e.what(), path, op, e.facility()));
    } catch (const ResultStatus& e) {
        for (const RStatus& s : e.Get())
            failures.push_back(s);
    } catch (const std::bad_alloc&) {
        failures.push_back(makeStatus(kInternalError, "out of memory", path, op, kFacilityQuery));
    } catch (const std::exception& e) {
        failures.push_back(
            makeStatus(kInternalError, std::string("internal error: ") + e.what(), path, op, kFacilityQuery));
    } catch (...) {
        failures.push_back(makeStatus(kInternalError, "internal error", path, op, kFacilityQuery));
    }
}

void merge(ResultMap& answer, std::map<std::string, _XNode>& result) {
    for (auto& entry : answer)
        result[entry.first] = std::move(entry.second);
}

} // namespace
} // namespace kelvarn

namespace SDK {

using namespace kelvarn;

System::System() = default;
System::System(std::shared_ptr<kelvarn::Responder> responder) : m_fixed(std::move(responder)) {}
System::~System() = default;

void System::SetFlags(uint8_t flags) {
    std::lock_guard<std::mutex> guard(m_lock);
    m_flags = flags;
}

uint8_t System::Flags() const {
    std::lock_guard<std::mutex> guard(m_lock);
    return m_flags;
}

std::shared_ptr<kelvarn::Responder> System::responder() const {
    if (m_fixed)
        return m_fixed;
    return processResponder();
}

void System::Get(std::string path, std::map<std::string, _XNode>& result) {
    std::vector<RStatus> failures;
    try {
        std::lock_guard<std::mutex> guard(m_lock);
        ResultMap answer;
        runOne([this] { return responder(); }, path, {}, m_flags, answer, kOpGetPath, failures);
        if (failures.empty()) {
            merge(answer, result);
            return;
        }
    } catch (...) { // out of memory while merging the answer
        failures.push_back(makeStatus(kInternalError, "out of memory", path, kOpGetPath, kFacilityQuery));
    }
    throw ResultStatus(std::move(failures));
}

void System::Get(std::map<std::string, std::map<std::string, std::string>>& request,
                 std::map<std::string, _XNode>& result) {
    std::vector<RStatus> failures;
    try {
        std::lock_guard<std::mutex> guard(m_lock);
        if (request.empty())
            failures.push_back(
                makeStatus(kEmptyRequest, "the request holds no query", "", kOpGetRequest, kFacilityQuery));
        ResultMap answer;
        for (const auto& query : request)
            runOne([this] { return responder(); }, query.first, query.second, m_flags, answer, kOpGetRequest,
                   failures);
        if (failures.empty()) {
            merge(answer, result);
            return;
        }
    } catch (...) {
        failures.push_back(makeStatus(kInternalError, "out of memory", "", kOpGetRequest, kFacilityQuery));
    }
    throw ResultStatus(std::move(failures));
}

} // namespace SDK
