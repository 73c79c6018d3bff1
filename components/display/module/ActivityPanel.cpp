#include "components/display/module/ActivityPanel.h"

#include "components/display/module/Appearance.h"
#include "components/display/module/Toolkit.h"

namespace quorbel {

namespace {

constexpr int kMargin = 8;
constexpr int kGap = 6;
constexpr Fl_Color kGood = 0x3C9A5F00;
constexpr Fl_Color kBusy = 0xD58A0000;
constexpr Fl_Color kHalted = 0x2F75C000;

/// What the filter of severities is called, in their order.
constexpr const char* kLeastSeverities[] = {"All records", "Information and worse", "Warnings and errors",
                                            "Errors"};

int LabelWidth(const char* label) {
    fl_font(FL_HELVETICA, TextPixels());
    return static_cast<int>(fl_width(label)) + kGap;
}

void SetFonts(Fl_Widget& widget) {
    widget.labelfont(FL_HELVETICA);
    widget.labelsize(TextPixels());
    widget.labelcolor(kInk);
}

void SetUpInput(Fl_Input& input, const char* tooltip) {
    SetFonts(input);
    input.textfont(FL_HELVETICA);
    input.textsize(TextPixels());
    input.align(FL_ALIGN_LEFT);
    input.tooltip(tooltip);
    // Enter must not press the dialog's button while somebody types.
    input.when(FL_WHEN_CHANGED | FL_WHEN_ENTER_KEY_ALWAYS);
}

/// A number with its thousands set apart.
std::string Grouped(std::uint64_t number) {
    std::string digits = std::to_string(number);
    for (auto place = static_cast<std::ptrdiff_t>(digits.size()) - 3; place > 0; place -= 3)
        digits.insert(static_cast<std::size_t>(place), ",");
    return digits;
}

}  // namespace

void CStatusLine::Show(std::string state, std::string counts, Fl_Color dot) {
    if (state == m_state && counts == m_counts && dot == m_dot) return;
    m_state = std::move(state);
    m_counts = std::move(counts);
    m_dot = dot;
    redraw();
}

void CStatusLine::draw() {
    fl_push_clip(x(), y(), w(), h());
    fl_color(kGround);
    fl_rectf(x(), y(), w(), h());
    const int dot = TextPixels() - 4;
    fl_color(m_dot);
    fl_pie(x(), y() + (h() - dot) / 2, dot, dot, 0, 360);
    fl_font(FL_HELVETICA, TextPixels());
    fl_color(kFaintInk);
    const int counts = std::min(static_cast<int>(fl_width(m_counts.c_str())), w() / 2);
    DrawLine(m_counts, x() + w() - counts, y(), counts + 1, h());
    fl_color(kInk);
    DrawLine(m_state, x() + dot + kGap, y(), w() - counts - dot - 3 * kGap, h());
    fl_pop_clip();
}

CActivityPanel::CActivityPanel()
    : Fl_Group(0, 0, 0, 0),
      m_text(0, 0, 0, 0, "Text"),
      m_object(0, 0, 0, 0, "Object"),
      m_severity(0, 0, 0, 0, "Show"),
      m_pause(0, 0, 0, 0, "Pause"),
      m_clear(0, 0, 0, 0, "Clear"),
      m_rows(m_model),
      m_details(0, 0, 0, 0) {
    end();
    box(FL_FLAT_BOX);
    color(kGround);
    resizable(nullptr);

    SetUpInput(m_text, "Show only records whose text contains this (Ctrl-F)");
    SetUpInput(m_object, "Show only records of objects whose name contains this");
    const auto changed = [](Fl_Widget*, void* self) {
        auto& panel = *static_cast<CActivityPanel*>(self);
        panel.ApplyFilter();
        if (Fl::event() == FL_KEYBOARD && IsEnterPressed()) panel.m_rows.take_focus();
    };
    m_text.callback(changed, this);
    m_object.callback(changed, this);

    SetFonts(m_severity);
    m_severity.textfont(FL_HELVETICA);
    m_severity.textsize(TextPixels());
    m_severity.tooltip("Show only records at least as serious");
    for (const char* const least : kLeastSeverities) m_severity.add(least);
    m_severity.value(0);
    m_severity.callback([](Fl_Widget*, void* self) { static_cast<CActivityPanel*>(self)->ApplyFilter(); },
                        this);

    SetFonts(m_pause);
    m_pause.tooltip("Hold new records back, or show them (Space)");
    m_pause.callback([](Fl_Widget*, void* self) { static_cast<CActivityPanel*>(self)->TogglePause(); }, this);
    SetFonts(m_clear);
    m_clear.tooltip("Forget the records shown so far");
    m_clear.callback([](Fl_Widget*, void* self) { static_cast<CActivityPanel*>(self)->ClearRows(); }, this);

    m_rows.onSelected = [this] { ShowSelected(); };
    m_details.buffer(m_detailsText);
    m_details.box(kFramedBox);
    m_details.color(kPaper);
    m_details.textfont(FL_COURIER);
    m_details.textsize(TextPixels());
    m_details.textcolor(kInk);
    m_details.wrap_mode(Fl_Text_Display::WRAP_AT_BOUNDS, 0);
    m_details.scrollbar_width(Fl::scrollbar_size());
    ShowAll();
}

CActivityPanel::~CActivityPanel() {
    StopWatching();
    m_details.buffer(nullptr);
}

void CActivityPanel::SetReader(CActivityReader* reader, std::string serviceName) {
    StopWatching();
    m_reader = reader;
    m_serviceName = std::move(serviceName);
    m_isConnected = false;
    WatchReader();
    ShowStatus();
}

void CActivityPanel::WatchReader() {
    if (!m_reader) return;
    Fl::add_fd(
        m_reader->HasNews().Descriptor(), FL_READ,
        [](int, void* self) { static_cast<CActivityPanel*>(self)->TakeNews(); }, this);
}

void CActivityPanel::StopWatching() {
    if (m_reader) Fl::remove_fd(m_reader->HasNews().Descriptor());
    Fl::remove_timeout(&CActivityPanel::OnTimeout, this);
}

void CActivityPanel::TakeNews() {
    StopWatching();
    CActivityNews news = m_reader->Take();
    m_isConnected = news.isConnected;
    m_missed += news.missed;
    m_model.Add(std::move(news.rows));
    ShowAll();
    Fl::add_timeout(1 / kUpdatesPerSecond, &CActivityPanel::OnTimeout, this);
}

void CActivityPanel::ApplyFilter() {
    const CActivityFilter filter{m_text.value(), m_object.value(),
                                 static_cast<ActivitySeverity>(std::max(m_severity.value(), 0))};
    if (filter == m_model.Filter()) return;
    m_model.SetFilter(filter);
    ShowAll();
}

void CActivityPanel::TogglePause() {
    if (m_model.IsPaused()) {
        m_model.Resume();
    } else {
        m_model.Pause();
    }
    m_pause.label(m_model.IsPaused() ? "Resume" : "Pause");
    ShowAll();
}

void CActivityPanel::ClearRows() {
    m_model.Clear();
    m_missed = 0;
    ShowAll();
}

void CActivityPanel::ShowAll() {
    m_rows.Refresh();
    ShowSelected();
    ShowStatus();
}

void CActivityPanel::ShowSelected() {
    const CActivityRow* const row = m_rows.Cursor().SelectedRow();
    const auto shown = row ? std::optional(std::pair(row->number, row->time)) : std::nullopt;
    // Text that somebody marks to copy it stays marked while records come.
    if (shown && shown == m_detailed) return;
    m_detailed = shown;
    m_detailsText.text(row ? Details(*row).c_str() : "Select a record to see all of it here.");
    m_details.textcolor(row ? kInk : kFaintInk);
    m_details.scroll(0, 0);
    m_details.redraw();
}

void CActivityPanel::ShowStatus() {
    std::string counts = Grouped(m_model.ShownCount());
    if (m_model.ShownCount() != m_model.KeptCount()) counts += " of " + Grouped(m_model.KeptCount());
    counts += " records";
    if (m_missed != 0) counts += ", " + Grouped(m_missed) + " missed";
    if (m_model.IsPaused()) {
        m_status.Show("Paused, " + Grouped(m_model.NewCount()) + " new", std::move(counts), kHalted);
    } else if (!m_reader) {
        m_status.Show("Not connected", std::move(counts), kBusy);
    } else if (m_isConnected) {
        m_status.Show("Connected to " + m_serviceName, std::move(counts), kGood);
    } else {
        m_status.Show("Waiting for the service " + m_serviceName, std::move(counts), kBusy);
    }
}

void CActivityPanel::resize(int left, int top, int width, int height) {
    Fl_Widget::resize(left, top, width, height);
    Layout();
    redraw();
}

void CActivityPanel::Layout() {
    constexpr int kLeastForDetails = 240;
    const int line = TextPixels() + 12;
    const int width = std::max(w() - 2 * kMargin, 0);
    LayoutFilter(width, line);
    const int top = y() + 2 * kMargin + line - 2;
    const int bottom = std::max(y() + h() - line, top);
    m_status.resize(x() + kMargin, bottom, width, line);
    const bool hasDetails = h() >= kLeastForDetails;
    const int details =
        hasDetails ? std::clamp((bottom - top) * 3 / 10, 5 * line / 2, 9 * TextPixels() * 3 / 2) : 0;
    if (hasDetails) {
        m_details.show();
    } else {
        m_details.hide();
    }
    m_rows.resize(x() + kMargin, top, width, std::max(bottom - top - details - (hasDetails ? kGap : 0), 0));
    m_details.resize(x() + kMargin, bottom - details, width, details);
}

void CActivityPanel::LayoutFilter(int width, int height) {
    const int button = LabelWidth("Resume") + 4 * kGap;
    const int severity = LabelWidth(kLeastSeverities[1]) + 5 * kGap;
    const int object = 12 * TextPixels();
    const int top = y() + kMargin;
    int right = x() + kMargin + width;
    const int kLeastText = 100;
    // From the right; what does not fit beside a text field of some width is left out, and the rest shrinks.
    int room = width - LabelWidth("Text") - kLeastText;
    const auto place = [&](Fl_Widget& widget, int wide, const char* label) {
        const int whole = wide + (label ? LabelWidth(label) + kGap : 0) + kGap;
        if (whole > room) return widget.hide();
        room -= whole;
        widget.resize(right - wide, top, wide, height);
        widget.show();
        right -= whole;
    };
    place(m_clear, button, nullptr);
    place(m_pause, button, nullptr);
    place(m_severity, severity, "Show");
    place(m_object, object, "Object");
    const int text = x() + kMargin + LabelWidth("Text");
    m_text.resize(text, top, std::max(right - text, 0), height);
}

int CActivityPanel::handle(int event) {
    if (event == FL_FOCUS) return m_rows.take_focus();
    if (event == FL_SHORTCUT && Fl::event_state(FL_CTRL) && Fl::event_key() == 'f') {
        m_text.take_focus();
        m_text.position(m_text.size(), 0);
        return 1;
    }
    if (event == FL_SHORTCUT && Fl::event_key() == ' ') {
        TogglePause();
        return 1;
    }
    return Fl_Group::handle(event);
}

}  // namespace quorbel
