#include "components/display/activity/ActivityModel.h"

#include <algorithm>

#include "platform/Text.h"

namespace quorbel {

namespace {

bool Contains(const std::string& text, const std::wstring& foldedPart) {
    return foldedPart.empty() || FoldCase(FromUtf8(text)).find(foldedPart) != std::wstring::npos;
}

}  // namespace

void CActivityModel::CRows::PutLast(CActivityRow row) {
    bytes += row.Bytes();
    rows.push_back(std::move(row));
}

void CActivityModel::CRows::DropFirst() {
    bytes -= rows.front().Bytes();
    rows.pop_front();
}

void CActivityModel::Add(std::vector<CActivityRow> rows) {
    for (CActivityRow& row : rows) {
        if (!m_isPaused) {
            Append(std::move(row));
            continue;
        }
        ++m_newCount;
        m_held.PutLast(std::move(row));
        while (m_held.Exceeds(m_limits)) m_held.DropFirst();
    }
}

void CActivityModel::Append(CActivityRow row) {
    if (Passes(row)) m_shown.push_back(m_first + m_kept.rows.size());
    m_kept.PutLast(std::move(row));
    while (m_kept.Exceeds(m_limits)) {
        m_kept.DropFirst();
        if (!m_shown.empty() && m_shown.front() == m_first) m_shown.pop_front();
        ++m_first;
    }
}

void CActivityModel::Resume() {
    m_isPaused = false;
    m_newCount = 0;
    for (CActivityRow& row : std::exchange(m_held, {}).rows) Append(std::move(row));
}

void CActivityModel::Clear() {
    m_first += m_kept.rows.size();
    m_kept = {};
    m_shown.clear();
    m_held = {};
    m_newCount = 0;
}

void CActivityModel::SetFilter(const CActivityFilter& filter) {
    m_filter = filter;
    m_foldedText = FoldCase(FromUtf8(filter.text));
    m_foldedObject = FoldCase(FromUtf8(filter.object));
    m_shown.clear();
    for (std::size_t i = 0; i < m_kept.rows.size(); ++i)
        if (Passes(m_kept.rows[i])) m_shown.push_back(m_first + i);
}

bool CActivityModel::Passes(const CActivityRow& row) const {
    return row.Severity() >= m_filter.least && Contains(row.object, m_foldedObject) &&
           Contains(row.text, m_foldedText);
}

std::size_t CActivityModel::IndexFrom(Place place) const {
    return static_cast<std::size_t>(std::lower_bound(m_shown.begin(), m_shown.end(), place) -
                                    m_shown.begin());
}

const CActivityRow* CActivityModel::Find(Place place) const {
    return place < m_first || place - m_first >= m_kept.rows.size() ? nullptr : &RowAt(place);
}

}  // namespace quorbel
