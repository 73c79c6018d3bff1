#include "components/display/activity/ActivityCursor.h"

namespace quorbel {
namespace {

constexpr std::uint32_t kSuccess = 0x00010001;
constexpr std::uint32_t kInformation = 0x40010001;
constexpr std::uint32_t kWarning = 0x80010001;
constexpr std::uint32_t kError = 0xC0010001;

CActivityRow Row(std::uint64_t number, std::uint32_t id = kSuccess, std::string object = "Object",
                 std::string text = "text") {
    CActivityRow row;
    row.number = number;
    row.id = id;
    row.object = std::move(object);
    row.text = std::move(text);
    return row;
}

void AddNumbers(CActivityModel& model, std::uint64_t first, std::uint64_t end) {
    std::vector<CActivityRow> rows;
    for (std::uint64_t number = first; number < end; ++number) rows.push_back(Row(number));
    model.Add(std::move(rows));
}

std::vector<std::uint64_t> ShownNumbers(const CActivityModel& model) {
    std::vector<std::uint64_t> numbers;
    for (std::size_t i = 0; i < model.ShownCount(); ++i) numbers.push_back(model.Shown(i).number);
    return numbers;
}

using Numbers = std::vector<std::uint64_t>;

TEST(ActivityModel, ShowsWhatPassesTheWholeFilterWhetherItCameBeforeOrAfterIt) {
    const std::vector<CActivityRow> rows = {
        Row(0, kSuccess, "HTTP Server", "GET /A"), Row(1, kInformation, "HTTP Server", "GET /b"),
        Row(2, kWarning, "Authenticator", "get /a"), Row(3, kError, "HTTP server", "\u00C4rger"),
        Row(4, kError, "", "")};
    const std::pair<CActivityFilter, Numbers> cases[] = {
        {{}, {0, 1, 2, 3, 4}},
        {{"get", "", ActivitySeverity::Success}, {0, 1, 2}},
        {{"/a", "", ActivitySeverity::Success}, {0, 2}},
        {{"", "server", ActivitySeverity::Success}, {0, 1, 3}},
        {{"", "", ActivitySeverity::Informational}, {1, 2, 3, 4}},
        {{"", "", ActivitySeverity::Error}, {3, 4}},
        {{"\u00E4RGER", "http", ActivitySeverity::Warning}, {3}},
        {{"nothing", "", ActivitySeverity::Success}, {}},
    };
    CActivityModel kept;
    kept.Add(rows);
    for (const auto& [filter, numbers] : cases) {
        kept.SetFilter(filter);
        EXPECT_EQ(ShownNumbers(kept), numbers) << filter.text;
        CActivityModel filtered;
        filtered.SetFilter(filter);
        filtered.Add(rows);
        EXPECT_EQ(ShownNumbers(filtered), numbers) << filter.text;
        EXPECT_EQ(filtered.KeptCount(), rows.size());
    }
}

TEST(ActivityModel, LetsTheOldestRowsGoAtEitherLimit) {
    CActivityModel byRows({3, 1 << 20});
    byRows.SetFilter({"", "", ActivitySeverity::Error});
    byRows.Add({Row(0, kError), Row(1), Row(2, kError), Row(3, kError), Row(4)});
    EXPECT_EQ(ShownNumbers(byRows), (Numbers{2, 3}));
    EXPECT_EQ(byRows.KeptCount(), 3U);
    byRows.SetFilter({});
    EXPECT_EQ(ShownNumbers(byRows), (Numbers{2, 3, 4}));

    const std::string large(1000, 'x');
    CActivityModel byBytes({100, 3500});
    for (std::uint64_t number = 0; number < 10; ++number)
        byBytes.Add({Row(number, kSuccess, "Object", large)});
    EXPECT_EQ(byBytes.KeptCount(), 3500 / Row(0, kSuccess, "Object", large).Bytes());
    EXPECT_EQ(byBytes.Shown(byBytes.ShownCount() - 1).number, 9U);
    byBytes.Add({Row(10, kSuccess, "Object", std::string(5000, 'x'))});  // too large by itself
    EXPECT_EQ(ShownNumbers(byBytes), Numbers{10});
}

TEST(ActivityModel, HoldsBackWhatComesDuringAPauseWithinTheLimits) {
    CActivityModel model({4, 1 << 20});
    AddNumbers(model, 0, 3);
    model.Pause();
    AddNumbers(model, 3, 5);
    EXPECT_EQ(ShownNumbers(model), (Numbers{0, 1, 2}));
    EXPECT_EQ(model.NewCount(), 2U);
    AddNumbers(model, 5, 10);
    EXPECT_EQ(ShownNumbers(model), (Numbers{0, 1, 2}));
    EXPECT_EQ(model.NewCount(), 7U);
    model.Resume();
    EXPECT_EQ(ShownNumbers(model), (Numbers{6, 7, 8, 9}));
    EXPECT_EQ(model.NewCount(), 0U);
    AddNumbers(model, 10, 11);
    EXPECT_EQ(ShownNumbers(model), (Numbers{7, 8, 9, 10}));
}

TEST(ActivityModel, ForgetsEverythingWhenItIsClearedButGoesOn) {
    CActivityModel model;
    AddNumbers(model, 0, 3);
    model.Pause();
    AddNumbers(model, 3, 5);
    model.Clear();
    EXPECT_EQ(model.ShownCount() + model.KeptCount() + model.NewCount(), 0U);
    EXPECT_TRUE(model.IsPaused());
    model.Resume();
    AddNumbers(model, 5, 6);
    EXPECT_EQ(ShownNumbers(model), Numbers{5});
    EXPECT_EQ(model.Find(0), nullptr);
}

/// A cursor over rows 0 to 19 of which 5 are in view.
class ActivityCursorTest : public ::testing::Test {
 protected:
    ActivityCursorTest() {
        AddNumbers(m_model, 0, 20);
        m_cursor.SetHeight(5);
    }
    void Add(std::uint64_t first, std::uint64_t end) {
        AddNumbers(m_model, first, end);
        m_cursor.Refresh();
    }
    std::uint64_t TopNumber() const { return m_model.Shown(m_cursor.Top()).number; }

    using Move = CActivityCursor::Move;
    CActivityModel m_model{{30, 1 << 20}};
    CActivityCursor m_cursor{m_model};
};

TEST_F(ActivityCursorTest, FollowsTheEndUntilItIsScrolledAwayAndAgainWhenItIsBack) {
    EXPECT_EQ(TopNumber(), 15U);
    Add(20, 22);
    EXPECT_EQ(TopNumber(), 17U);
    m_cursor.ScrollBy(-3);
    Add(22, 25);
    EXPECT_EQ(TopNumber(), 14U);
    EXPECT_FALSE(m_cursor.Follows());
    m_cursor.ScrollBy(100);
    EXPECT_EQ(TopNumber(), 20U);
    Add(25, 26);
    EXPECT_EQ(TopNumber(), 21U);
    m_cursor.ScrollBy(-100);
    EXPECT_EQ(TopNumber(), 0U);
}

TEST_F(ActivityCursorTest, StaysOnItsRowsWhileOlderOnesGo) {
    m_cursor.ScrollTo(12);
    m_cursor.Select(14);
    Add(20, 40);  // 0 to 9 have gone
    EXPECT_EQ(TopNumber(), 12U);
    ASSERT_TRUE(m_cursor.Selected().has_value());
    EXPECT_EQ(m_model.Shown(*m_cursor.Selected()).number, 14U);
    Add(40, 60);  // and now those in view
    EXPECT_EQ(TopNumber(), 30U);
    EXPECT_EQ(m_cursor.Selected(), std::nullopt);
    EXPECT_EQ(m_cursor.SelectedRow(), nullptr);
}

TEST_F(ActivityCursorTest, MovesTheSelectionWithTheKeysAndKeepsItInView) {
    struct CStep {
        Move move;
        std::uint64_t selected;
        std::uint64_t top;
    };
    const CStep steps[] = {
        {Move::Up, 19, 15},     {Move::Up, 18, 15},   {Move::PageUp, 13, 13}, {Move::PageUp, 8, 8},
        {Move::PageUp, 3, 3},   {Move::PageUp, 0, 0}, {Move::Up, 0, 0},       {Move::Down, 1, 0},
        {Move::PageDown, 6, 2}, {Move::Last, 19, 15}, {Move::Down, 19, 15},   {Move::First, 0, 0},
        {Move::PageDown, 5, 1},
    };
    for (const CStep& step : steps) {
        m_cursor.MoveSelection(step.move);
        EXPECT_EQ(m_cursor.SelectedRow()->number, step.selected);
        EXPECT_EQ(TopNumber(), step.top) << step.selected;
    }
    EXPECT_FALSE(m_cursor.Follows());
    m_cursor.MoveSelection(Move::Last);
    EXPECT_TRUE(m_cursor.Follows());
}

TEST_F(ActivityCursorTest, KeepsTheSelectedRowWhenAFilterHidesIt) {
    m_model.Add({Row(20, kError)});
    m_cursor.Refresh();
    m_cursor.Select(10);
    m_model.SetFilter({"", "", ActivitySeverity::Error});
    m_cursor.Refresh();
    EXPECT_EQ(m_cursor.Selected(), std::nullopt);
    EXPECT_EQ(m_cursor.SelectedRow()->number, 10U);
    EXPECT_EQ(m_cursor.Top(), 0U);
    m_model.SetFilter({"no such text", "", ActivitySeverity::Error});
    m_cursor.Refresh();
    m_cursor.MoveSelection(Move::Down);  // nothing to move to
    m_cursor.ScrollBy(3);
    EXPECT_EQ(m_cursor.Top(), 0U);
    m_model.SetFilter({});
    m_cursor.Refresh();
    EXPECT_EQ(m_model.Shown(m_cursor.Selected().value()).number, 10U);
}

}  // namespace
}  // namespace quorbel
