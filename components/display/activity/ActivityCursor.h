#pragma once

#include <optional>

#include "components/display/activity/ActivityModel.h"

namespace quorbel {

/// Which part of the shown rows is in view, and which row is selected. Both stay on their rows when rows come
/// and go; while the last row is in view and none is selected but that, the view follows the end. For one
/// thread.
class CActivityCursor {
 public:
    enum class Move { Up, Down, PageUp, PageDown, First, Last };

    explicit CActivityCursor(const CActivityModel& model) : m_model(model) {}

    /// How many rows fit into the view.
    void SetHeight(std::size_t rows);
    /// To be called after any change of the model.
    void Refresh();
    /// Moves the selection and keeps it in view; Last also follows the end from then on.
    void MoveSelection(Move move);
    void Select(std::size_t index);
    /// Scrolls without moving the selection, as far as there are rows.
    void ScrollTo(std::size_t top);
    void ScrollBy(std::ptrdiff_t rows);

    std::size_t Top() const noexcept { return m_top; }
    /// Highest Top.
    std::size_t LastTop() const noexcept;
    std::size_t Height() const noexcept { return m_height; }
    /// None when the row has gone or is not shown.
    std::optional<std::size_t> Selected() const;
    /// The selected row, shown or not; null when there is none or it has gone.
    const CActivityRow* SelectedRow() const;
    bool Follows() const noexcept { return m_follows; }

 private:
    void SetTop(std::size_t top);
    void Reveal(std::size_t index);

    const CActivityModel& m_model;
    std::size_t m_height = 1;
    std::size_t m_top = 0;                 // index of the first row in view
    CActivityModel::Place m_topPlace = 0;  // and its place, by which it is found again
    std::optional<CActivityModel::Place> m_selected;
    bool m_follows = true;
};

}  // namespace quorbel
