#include "components/display/module/RowsView.h"

#include <limits>

#include "components/display/module/Appearance.h"
#include "components/display/module/Toolkit.h"

namespace quorbel {

namespace {

constexpr int kColumnGap = 12;  // between columns
constexpr int kRowMargin = 8;   // left of the first one
constexpr int kBadge = 4;       // the coloured stripe at the left edge
constexpr int kLeastText = 160;

int WidthOfText(const std::string& text) {
    return static_cast<int>(fl_width(text.c_str())) + kColumnGap;
}

int ToInt(std::size_t number) {
    return static_cast<int>(std::min<std::size_t>(number, std::numeric_limits<int>::max()));
}

}  // namespace

CRowsView::CRowsView(const CActivityModel& model)
    : Fl_Group(0, 0, 0, 0), m_model(model), m_cursor(model), m_scrollbar(0, 0, 0, 0) {
    end();
    box(FL_NO_BOX);
    resizable(nullptr);
    m_scrollbar.visible_focus(0);
    m_scrollbar.callback(
        [](Fl_Widget* bar, void* self) {
            auto& view = *static_cast<CRowsView*>(self);
            view.m_cursor.ScrollTo(static_cast<std::size_t>(static_cast<Fl_Scrollbar*>(bar)->value()));
            view.Changed();
        },
        this);
}

int CRowsView::RowHeight() const {
    return TextPixels() + 7;
}

void CRowsView::Layout() {
    const int rows = (y() + h() - 1 - RowsTop()) / RowHeight();
    m_cursor.SetHeight(static_cast<std::size_t>(std::max(rows, 1)));
    const int bar = Fl::scrollbar_size();
    m_scrollbar.resize(x() + w() - bar - 1, RowsTop() - 1, bar, std::max(y() + h() - RowsTop(), 0));
    Changed();
}

void CRowsView::resize(int left, int top, int width, int height) {
    Fl_Widget::resize(left, top, width, height);
    Layout();
}

void CRowsView::Refresh() {
    m_cursor.Refresh();
    Changed();
}

void CRowsView::Changed() {
    const int rows = ToInt(m_cursor.Height());
    m_scrollbar.value(ToInt(m_cursor.Top()), rows, 0, std::max(ToInt(m_model.ShownCount()), rows));
    m_scrollbar.linesize(1);
    redraw();
}

CRowsView::CColumns CRowsView::Columns() const {
    const std::uint64_t highest =
        m_model.ShownCount() == 0 ? 0 : m_model.Shown(m_model.ShownCount() - 1).number;
    CColumns columns{
        WidthOfText(std::max<std::string>("Number", std::string(std::to_string(highest).size(), '0'))),
        WidthOfText("00:00:00.000"), WidthOfText("Information"), WidthOfText("Mmmmmmmm mmmmm"), 0};
    const int room = w() - m_scrollbar.w() - kRowMargin - 2;
    const auto left = [&] {
        return room - columns.number - columns.time - columns.severity - columns.object;
    };
    // The colour tells the severity, and the details all the rest.
    for (int* column : {&columns.number, &columns.severity, &columns.object, &columns.time})
        if (left() < kLeastText) *column = 0;
    columns.text = std::max(left(), 0);
    return columns;
}

void CRowsView::draw() {
    const CColumns columns = [this] {
        fl_font(FL_HELVETICA, TextPixels());
        return Columns();
    }();
    fl_push_clip(x(), y(), w(), h());
    fl_color(kPaper);
    fl_rectf(x(), y(), w(), h());
    DrawHeader(columns);
    fl_push_clip(x(), RowsTop(), w() - m_scrollbar.w() - 1, y() + h() - RowsTop());
    fl_font(FL_HELVETICA, TextPixels());
    if (m_model.ShownCount() == 0) DrawEmpty();
    const std::size_t end = std::min(m_cursor.Top() + m_cursor.Height(), m_model.ShownCount());
    for (std::size_t i = m_cursor.Top(); i < end; ++i)
        DrawRow(i, RowsTop() + static_cast<int>(i - m_cursor.Top()) * RowHeight(), columns);
    fl_pop_clip();
    fl_color(Fl::focus() == this ? kSelected : kLine);
    fl_rect(x(), y(), w(), h());
    fl_pop_clip();
    draw_child(m_scrollbar);
}

void CRowsView::DrawHeader(const CColumns& columns) const {
    const int height = RowsTop() - y();
    fl_color(kHeader);
    fl_rectf(x(), y(), w(), height);
    fl_color(kLine);
    fl_line(x(), y() + height - 1, x() + w(), y() + height - 1);
    fl_color(kFaintInk);
    fl_font(FL_HELVETICA_BOLD, TextPixels() - 1);
    int left = x() + kRowMargin + kBadge;
    const auto column = [&](const char* name, int width, Fl_Align align = FL_ALIGN_LEFT) {
        DrawLine(name, left, y(), width - kColumnGap, height, align);
        left += width;
    };
    column("Number", columns.number, FL_ALIGN_RIGHT);
    column("Time", columns.time);
    column("Severity", columns.severity);
    column("Object", columns.object);
    column("Text", columns.text);
}

void CRowsView::DrawRow(std::size_t index, int top, const CColumns& columns) const {
    const CActivityRow& row = m_model.Shown(index);
    const bool isSelected = m_cursor.Selected() == index;
    const bool hasFocus = Fl::focus() == this;
    const CRowColours colours = ColoursOf(row.Severity());
    const Fl_Color selectedGround = hasFocus ? kSelected : kSelectedUnfocused;
    const Fl_Color text = isSelected && hasFocus ? kPaper : colours.text;
    fl_color(isSelected ? selectedGround : colours.ground);
    fl_rectf(x(), top, w(), RowHeight());
    fl_color(colours.badge);
    fl_rectf(x() + 1, top, kBadge, RowHeight() - 1);

    const Fl_Color faint = isSelected ? text : kFaintInk;
    int left = x() + kRowMargin + kBadge;
    const auto column = [&](const std::string& value, int width, Fl_Color colour,
                            Fl_Align align = FL_ALIGN_LEFT) {
        fl_color(colour);
        DrawLine(value, left, top, width - kColumnGap, RowHeight(), align);
        left += width;
    };
    column(std::to_string(row.number), columns.number, faint, FL_ALIGN_RIGHT);
    column(TimeOfDay(row.time), columns.time, faint);
    column(NameOf(row.Severity()), columns.severity, text);
    column(row.object, columns.object, text);
    column(row.text, columns.text, text);
}

void CRowsView::DrawEmpty() const {
    fl_color(kFaintInk);
    const bool isFiltered = m_model.KeptCount() != 0;
    DrawLine(isFiltered ? "No record passes the filter." : "No records yet.", x() + kRowMargin + kBadge,
             RowsTop() + 4, w() - 2 * kRowMargin, RowHeight());
}

int CRowsView::handle(int event) {
    switch (event) {
        case FL_FOCUS:
        case FL_UNFOCUS: redraw(); return 1;
        case FL_KEYBOARD: return HandleKey(Fl::event_key()) ? 1 : 0;
        case FL_MOUSEWHEEL:
            if (!Fl::event_inside(this)) return 0;
            m_cursor.ScrollBy(Fl::event_dy() * 3);
            Changed();
            return 1;
        case FL_PUSH:
            if (Fl::event_inside(&m_scrollbar)) break;
            take_focus();
            return HandlePush() ? 1 : 0;
        case FL_DRAG:
        case FL_RELEASE: return 1;
        default: break;  // the toolkit has dozens of other events
    }
    return Fl_Group::handle(event);
}

bool CRowsView::HandleKey(int key) {
    using Move = CActivityCursor::Move;
    static constexpr std::pair<int, Move> kMoves[] = {
        {FL_Up, Move::Up},          {FL_Down, Move::Down},
        {FL_Page_Up, Move::PageUp}, {FL_Page_Down, Move::PageDown},
        {FL_Home, Move::First},     {FL_End, Move::Last},
    };
    for (const auto& [moveKey, move] : kMoves) {
        if (moveKey != key) continue;
        m_cursor.MoveSelection(move);
        Changed();
        if (onSelected) onSelected();
        return true;
    }
    return false;
}

bool CRowsView::HandlePush() {
    const int row = (Fl::event_y() - RowsTop()) / RowHeight();
    if (Fl::event_y() < RowsTop()) return true;
    m_cursor.Select(m_cursor.Top() + static_cast<std::size_t>(row));
    Changed();
    if (onSelected) onSelected();
    return true;
}

}  // namespace quorbel
