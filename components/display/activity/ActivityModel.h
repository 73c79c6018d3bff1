#pragma once

#include <cstddef>
#include <deque>
#include <optional>
#include <string>
#include <vector>

#include "components/display/activity/ActivityRow.h"

namespace quorbel {

/// Which rows are shown. Texts match any part, without regard to case; empty ones match everything.
struct CActivityFilter {
    std::string text;
    std::string object;
    ActivitySeverity least = ActivitySeverity::Success;
    bool operator==(const CActivityFilter&) const = default;
};

/// How much is kept; of more, the oldest rows go.
struct CActivityLimits {
    std::size_t rows = 100'000;
    std::size_t bytes = std::size_t{64} << 20;
};

/// The rows that the display has, and those of them that it shows. Each row has a place, counted from 0 since
/// the beginning, which it keeps: a row is still found when older ones have gone. For one thread.
class CActivityModel {
 public:
    using Place = std::uint64_t;

    explicit CActivityModel(CActivityLimits limits = {}) : m_limits(limits) {}

    void Add(std::vector<CActivityRow> rows);
    void SetFilter(const CActivityFilter& filter);
    /// While paused, what comes is held back, within the limits, until Resume.
    void Pause() { m_isPaused = true; }
    void Resume();
    bool IsPaused() const noexcept { return m_isPaused; }
    /// Forgets every row, those held back as well.
    void Clear();

    /// Rows shown, the oldest first.
    std::size_t ShownCount() const noexcept { return m_shown.size(); }
    const CActivityRow& Shown(std::size_t index) const { return RowAt(m_shown[index]); }
    Place ShownPlace(std::size_t index) const { return m_shown[index]; }
    /// The index of the first row shown at this place or behind it; ShownCount when there is none.
    std::size_t IndexFrom(Place place) const;
    /// The row at this place; null when it has gone.
    const CActivityRow* Find(Place place) const;

    std::size_t KeptCount() const noexcept { return m_kept.rows.size(); }
    /// Rows that came since the pause began.
    std::uint64_t NewCount() const noexcept { return m_newCount; }
    const CActivityFilter& Filter() const noexcept { return m_filter; }

 private:
    /// Rows in the order in which they came, and what they take.
    struct CRows {
        std::deque<CActivityRow> rows;
        std::size_t bytes = 0;
        bool Exceeds(const CActivityLimits& limits) const noexcept {
            return rows.size() > limits.rows || (bytes > limits.bytes && rows.size() > 1);
        }
        void PutLast(CActivityRow row);
        void DropFirst();
    };

    const CActivityRow& RowAt(Place place) const {
        return m_kept.rows[static_cast<std::size_t>(place - m_first)];
    }
    void Append(CActivityRow row);
    bool Passes(const CActivityRow& row) const;

    const CActivityLimits m_limits;
    CRows m_kept;
    Place m_first = 0;          // place of the oldest row
    std::deque<Place> m_shown;  // ascending
    CActivityFilter m_filter;
    std::wstring m_foldedText;
    std::wstring m_foldedObject;

    bool m_isPaused = false;
    CRows m_held;
    std::uint64_t m_newCount = 0;
};

}  // namespace quorbel
