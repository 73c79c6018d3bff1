#pragma once

#include "components/display/activity/ActivityReader.h"
#include "components/display/module/RowsView.h"
#include "components/display/module/Toolkit.h"

namespace quorbel {

/// One line of text that is drawn as it is, with a coloured dot before it.
class CStatusLine : public Fl_Widget {
 public:
    CStatusLine() : Fl_Widget(0, 0, 0, 0) {}
    void Show(std::string state, std::string counts, Fl_Color dot);

 protected:
    void draw() override;

 private:
    std::string m_state;
    std::string m_counts;
    Fl_Color m_dot = FL_FOREGROUND_COLOR;
};

/// The activity display: filter line, rows, details of the selected one, status. What the reader brings is
/// shown at most kUpdatesPerSecond times a second, so that no flood of records keeps the window from its
/// user.
class CActivityPanel : public Fl_Group {
 public:
    static constexpr double kUpdatesPerSecond = 20;

    CActivityPanel();
    ~CActivityPanel() override;

    /// `reader` must outlive the panel, or be taken away by null first.
    void SetReader(CActivityReader* reader, std::string serviceName);

    int handle(int event) override;
    void resize(int left, int top, int width, int height) override;

 private:
    void Layout();
    void LayoutFilter(int width, int height);
    void WatchReader();
    void StopWatching();
    void TakeNews();
    static void OnTimeout(void* self) { static_cast<CActivityPanel*>(self)->WatchReader(); }
    void ApplyFilter();
    void TogglePause();
    void ClearRows();
    void ShowAll();
    void ShowSelected();
    void ShowStatus();

    CActivityReader* m_reader = nullptr;
    std::string m_serviceName;
    bool m_isConnected = false;
    std::uint64_t m_missed = 0;
    CActivityModel m_model;
    /// Number and time of the record whose details are shown.
    std::optional<std::pair<std::uint64_t, std::uint64_t>> m_detailed;

    Fl_Input m_text;
    Fl_Input m_object;
    Fl_Choice m_severity;
    Fl_Button m_pause;
    Fl_Button m_clear;
    CRowsView m_rows;
    Fl_Text_Buffer m_detailsText;
    Fl_Text_Display m_details;
    CStatusLine m_status;
};

}  // namespace quorbel
