#include "pickmere/ResultStatus.h"

#include <utility>

ResultStatus::ResultStatus() = default;
ResultStatus::ResultStatus(RStatus status) {
    m_statuses.push_back(std::move(status));
}
ResultStatus::ResultStatus(std::vector<RStatus> statuses) : m_statuses(std::move(statuses)) {}
ResultStatus::ResultStatus(const ResultStatus&) = default;
ResultStatus& ResultStatus::operator=(const ResultStatus&) = default;
ResultStatus::~ResultStatus() = default;

const std::vector<RStatus>& ResultStatus::Get() const {
    return m_statuses;
}

void ResultStatus::Add(RStatus status) {
    m_statuses.push_back(std::move(status));
}
