#include "components/display/activity/ActivityCursor.h"

#include <algorithm>

namespace quorbel {

std::size_t CActivityCursor::LastTop() const noexcept {
    return m_model.ShownCount() - std::min(m_model.ShownCount(), m_height);
}

void CActivityCursor::SetHeight(std::size_t rows) {
    m_height = std::max<std::size_t>(rows, 1);
    Refresh();
}

void CActivityCursor::Refresh() {
    m_top = std::min(m_follows ? LastTop() : m_model.IndexFrom(m_topPlace), LastTop());
    // What was in view may have gone: the place of what came into view instead is remembered.
    if (m_top < m_model.ShownCount()) m_topPlace = m_model.ShownPlace(m_top);
}

void CActivityCursor::SetTop(std::size_t top) {
    m_top = std::min(top, LastTop());
    m_follows = m_top == LastTop();
    if (m_top < m_model.ShownCount()) m_topPlace = m_model.ShownPlace(m_top);
}

void CActivityCursor::ScrollTo(std::size_t top) {
    SetTop(top);
}

void CActivityCursor::ScrollBy(std::ptrdiff_t rows) {
    const auto top = static_cast<std::ptrdiff_t>(m_top) + rows;
    SetTop(static_cast<std::size_t>(std::max<std::ptrdiff_t>(top, 0)));
}

void CActivityCursor::Select(std::size_t index) {
    if (index >= m_model.ShownCount()) return;
    m_selected = m_model.ShownPlace(index);
    Reveal(index);
    // A row that is being read must not be scrolled away.
    m_follows = index + 1 == m_model.ShownCount();
}

void CActivityCursor::Reveal(std::size_t index) {
    if (index < m_top) SetTop(index);
    if (index >= m_top + m_height) SetTop(index - m_height + 1);
}

void CActivityCursor::MoveSelection(Move move) {
    const std::size_t count = m_model.ShownCount();
    if (count == 0) return;
    const std::size_t last = count - 1;
    const auto selected = Selected();
    // Without a selection a step begins at the end of the view that it leads away from.
    const std::size_t bottom = std::min(m_top + m_height - 1, last);
    const auto up = [&](std::size_t step) {
        return selected ? *selected - std::min(step, *selected) : bottom;
    };
    const auto down = [&](std::size_t step) { return selected ? std::min(*selected + step, last) : m_top; };
    switch (move) {
        case Move::Up: return Select(up(1));
        case Move::Down: return Select(down(1));
        case Move::PageUp: return Select(up(m_height));
        case Move::PageDown: return Select(down(m_height));
        case Move::First: return Select(0);
        case Move::Last: return Select(last);
    }
}

std::optional<std::size_t> CActivityCursor::Selected() const {
    if (!m_selected) return std::nullopt;
    const std::size_t index = m_model.IndexFrom(*m_selected);
    if (index == m_model.ShownCount() || m_model.ShownPlace(index) != *m_selected) return std::nullopt;
    return index;
}

const CActivityRow* CActivityCursor::SelectedRow() const {
    return m_selected ? m_model.Find(*m_selected) : nullptr;
}

}  // namespace quorbel
