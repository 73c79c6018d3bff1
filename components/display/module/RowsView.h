#pragma once

#include <functional>

#include "components/display/activity/ActivityCursor.h"
#include "components/display/module/Toolkit.h"

namespace quorbel {

/// The list of rows with its header and scroll bar. Draws only what is in view.
class CRowsView : public Fl_Group {
 public:
    explicit CRowsView(const CActivityModel& model);

    /// Called when another row was selected.
    std::function<void()> onSelected;

    /// To be called after any change of the model.
    void Refresh();
    const CActivityCursor& Cursor() const noexcept { return m_cursor; }

    int handle(int event) override;
    void resize(int left, int top, int width, int height) override;

 protected:
    void draw() override;

 private:
    /// The columns from left to right; those that are left out when there is little room have no width.
    struct CColumns {
        int number = 0;
        int time = 0;
        int severity = 0;
        int object = 0;
        int text = 0;
    };

    int RowHeight() const;
    int RowsTop() const { return y() + RowHeight() + 2; }
    CColumns Columns() const;
    void DrawHeader(const CColumns& columns) const;
    void DrawRow(std::size_t index, int top, const CColumns& columns) const;
    void DrawEmpty() const;
    bool HandleKey(int key);
    bool HandlePush();
    void Layout();
    void Changed();

    const CActivityModel& m_model;
    CActivityCursor m_cursor;
    Fl_Scrollbar m_scrollbar;
};

}  // namespace quorbel
