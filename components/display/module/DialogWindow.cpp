#include "components/display/module/DialogWindow.h"

#include <algorithm>
#include <cmath>

#include "components/display/module/Appearance.h"
#include "components/display/module/Toolkit.h"
#include "platform/Text.h"
#include "platform/VisibleText.h"

namespace quorbel {

namespace {

constexpr CSize kLeastSize{320, 200};

/// A text on several lines, wrapped, drawn as it is.
class CStaticText final : public Fl_Widget {
 public:
    CStaticText() : Fl_Widget(0, 0, 0, 0) {}
    void SetText(std::string text) {
        m_text = std::move(text);
        redraw();
    }

 protected:
    void draw() override {
        fl_push_clip(x(), y(), w(), h());
        fl_color(kGround);
        fl_rectf(x(), y(), w(), h());
        fl_color(kInk);
        fl_font(FL_HELVETICA, TextPixels());
        constexpr int kWithoutSymbols = 0;
        fl_draw(m_text.c_str(), x(), y(), w(), h(), FL_ALIGN_TOP_LEFT | FL_ALIGN_INSIDE | FL_ALIGN_WRAP,
                nullptr, kWithoutSymbols);
        fl_pop_clip();
    }

 private:
    std::string m_text;
};

/// A push button, which Enter presses as well as the space bar.
class CPushButton final : public Fl_Button {
 public:
    explicit CPushButton(bool isDefault) : Fl_Button(0, 0, 0, 0) {
        labelsize(TextPixels());
        labelfont(isDefault ? FL_HELVETICA_BOLD : FL_HELVETICA);
    }
    int handle(int event) override {
        if (event != FL_KEYBOARD || !IsEnterPressed()) return Fl_Button::handle(event);
        do_callback();
        return 1;
    }
};

/// Of a control that is missing: its place stays empty.
class CEmptyPlace final : public Fl_Widget {
 public:
    CEmptyPlace() : Fl_Widget(0, 0, 0, 0) {}

 protected:
    void draw() override {
        fl_color(kPaper);
        fl_rectf(x(), y(), w(), h());
        fl_color(kLine);
        fl_rect(x(), y(), w(), h());
    }
};

/// Each line made visible by itself, as the line ends are meant.
std::string VisibleLines(const std::wstring& text) {
    std::string lines;
    for (std::size_t start = 0; start <= text.size();) {
        const std::size_t end = std::min(text.find(L'\n', start), text.size());
        if (start != 0) lines += '\n';
        lines += ToVisibleUtf8(std::wstring_view(text).substr(start, end - start));
        start = end + 1;
    }
    return lines;
}

/// The picture in the order of bytes that the toolkit wants: red, green, blue, alpha.
std::vector<unsigned char> ToBytes(const CIcon& icon) {
    std::vector<unsigned char> bytes;
    bytes.reserve(icon.pixels.size() * 4);
    for (const std::uint32_t pixel : icon.pixels)
        for (int shift : {16, 8, 0, 24}) bytes.push_back(static_cast<unsigned char>(pixel >> shift));
    return bytes;
}

}  // namespace

CDialogWindow::CDialogWindow(const CDialogTemplate& layout, const CHostedControls& controls,
                             IDialogEvents& events)
    : Fl_Double_Window(1, 1), m_events(events) {
    end();
    SetTextPixels(FontPixels(layout.points));
    fl_font(FL_HELVETICA, TextPixels());
    constexpr const char* kLetters = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
    m_unitWidth = fl_width(kLetters) / 52 / 4;
    m_unitHeight = fl_height() / 8.0;

    copy_label(ToVisibleUtf8(layout.caption).c_str());
    xclass("Quorbel");
    color(kGround);
    resizable(nullptr);
    callback([](Fl_Widget* window, void*) { static_cast<CDialogWindow*>(window)->Close(kDialogCancelled); });
    const CRectangle client = Pixels({0, 0, layout.size.width, layout.size.height});
    size(client.width, client.height);
    for (const CDialogItem& item : layout.items) Add(item, controls);
    if (layout.isResizable) size_range(kLeastSize.width, kLeastSize.height);
}

CDialogWindow::~CDialogWindow() {
    hide();
    for (auto& [id, item] : m_items) {
        if (!item.control) continue;
        remove(item.shown);
        item.control->DestroyWidget();
    }
}

void CDialogWindow::Add(const CDialogItem& item, const CHostedControls& controls) {
    CItem& added = m_items[item.id];
    switch (item.kind) {
        case CDialogItem::Kind::StaticText: added.widget = std::make_unique<CStaticText>(); break;
        case CDialogItem::Kind::PushButton: {
            auto button = std::make_unique<CPushButton>(item.id == kDialogOk);
            button->callback([](Fl_Widget* pressed, void* self) {
                auto& window = *static_cast<CDialogWindow*>(self);
                window.m_events.OnPressed(window.m_buttons.at(pressed));
            });
            button->user_data(this);
            m_buttons[button.get()] = item.id;
            added.widget = std::move(button);
            break;
        }
        case CDialogItem::Kind::Control: {
            const auto control = controls.find(item.id);
            if (control != controls.end() && Succeeded(control->second.QueryInterface(added.control)))
                added.shown = added.control->CreateWidget();
            if (!added.shown) {
                added.control = nullptr;
                added.widget = std::make_unique<CEmptyPlace>();
            }
            break;
        }
    }
    if (added.widget) added.shown = added.widget.get();
    add(added.shown);
    MoveItem(item.id, Pixels(item.rectangle));
    SetItemText(item.id, item.text);
}

CRectangle CDialogWindow::Pixels(const CRectangle& units) const {
    const auto across = [this](int value) { return static_cast<int>(std::lround(value * m_unitWidth)); };
    const auto down = [this](int value) { return static_cast<int>(std::lround(value * m_unitHeight)); };
    return {across(units.left), down(units.top), across(units.Right()) - across(units.left),
            down(units.Bottom()) - down(units.top)};
}

const CDialogWindow::CItem* CDialogWindow::Find(int id) const {
    const auto found = m_items.find(id);
    return found == m_items.end() ? nullptr : &found->second;
}

void CDialogWindow::Open() {
    m_events.OnOpened(*this);
    int left = 0;
    int top = 0;
    int width = 0;
    int height = 0;
    Fl::screen_work_area(left, top, width, height);
    const int wide = std::min(w(), width);
    const int high = std::min(h(), height);
    resize(left + (width - wide) / 2, top + (height - high) / 2, wide, high);
    show();
    // What the user would use first: the control, else the button.
    for (const auto& [id, item] : m_items)
        if (item.control && item.shown->take_focus()) return;
    if (const CItem* const ok = Find(kDialogOk)) ok->shown->take_focus();
}

void CDialogWindow::resize(int left, int top, int width, int height) {
    const bool isOther = width != w() || height != h();
    Fl_Double_Window::resize(left, top, width, height);
    if (!isOther) return;
    m_events.OnResized({width, height});
    redraw();
}

bool CDialogWindow::PressDefault() {
    const CItem* const ok = Find(kDialogOk);
    if (ok) ok->shown->do_callback();
    return ok != nullptr;
}

void CDialogWindow::draw() {
    if (IsMinimised()) {
        fl_color(kGround);
        fl_rectf(0, 0, w(), h());
    }
    if (!m_events.OnPainting()) Fl_Double_Window::draw();
}

CRectangle CDialogWindow::ItemRectangle(int id) const {
    const CItem* const item = Find(id);
    if (!item) return {};
    return {item->shown->x(), item->shown->y(), item->shown->w(), item->shown->h()};
}

void CDialogWindow::MoveItem(int id, const CRectangle& rectangle) {
    if (const CItem* const item = Find(id))
        item->shown->resize(rectangle.left, rectangle.top, rectangle.width, rectangle.height);
}

std::wstring CDialogWindow::ItemText(int id) const {
    const CItem* const item = Find(id);
    return item ? item->text : std::wstring();
}

void CDialogWindow::SetItemText(int id, const std::wstring& text) {
    const auto found = m_items.find(id);
    if (found == m_items.end()) return;
    found->second.text = text;
    if (auto* const label = dynamic_cast<CStaticText*>(found->second.widget.get()))
        label->SetText(VisibleLines(text));
    if (auto* const button = dynamic_cast<CPushButton*>(found->second.widget.get()))
        button->copy_label(ToVisibleUtf8(text).c_str());
}

void CDialogWindow::SetIcons(const CIcon& big, const CIcon& small) {
    const auto bigBytes = ToBytes(big);
    const auto smallBytes = ToBytes(small);
    const Fl_RGB_Image bigImage(bigBytes.data(), big.size, big.size, 4);
    const Fl_RGB_Image smallImage(smallBytes.data(), small.size, small.size, 4);
    const Fl_RGB_Image* images[] = {&bigImage, &smallImage};
    icons(images, 2);  // it copies them
}

bool CDialogWindow::IsMinimised() const {
    return const_cast<CDialogWindow*>(this)->shown() && !visible();
}

void CDialogWindow::DrawIcon(const CIcon& icon, int left, int top) {
    const auto bytes = ToBytes(icon);
    Fl_RGB_Image(bytes.data(), icon.size, icon.size, 4).draw(left, top);
}

}  // namespace quorbel
