#include "components/display/module/Appearance.h"

#include <algorithm>
#include <cmath>
#include <sys/select.h>

#include "components/display/module/Toolkit.h"

namespace quorbel {

namespace {

int textPixels = 12;  // of the thread that shows windows

/// Moves back to the beginning of the character that `end` is within.
std::size_t CharacterStart(const std::string& text, std::size_t end) {
    while (end > 0 && end < text.size() && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80) --end;
    return end;
}

double WidthOf(const std::string& text, std::size_t length) {
    return fl_width(text.data(), static_cast<int>(length));
}

}  // namespace

void SetAppearance() {
    Fl::scheme("gtk+");
    Fl::background(0xF3, 0xF5, 0xF8);
    Fl::background2(0xFF, 0xFF, 0xFF);
    Fl::foreground(0x1B, 0x23, 0x2D);
    Fl::set_color(FL_SELECTION_COLOR, 0x2C, 0x5F, 0x8A);
    Fl::set_boxtype(
        kFramedBox,
        [](int left, int top, int width, int height, Fl_Color colour) {
            fl_rectf(left, top, width, height, colour);
            fl_rect(left, top, width, height, kLine);
        },
        1, 1, 2, 2);
    Fl::visible_focus(1);
    Fl::scrollbar_size(14);
}

int FontPixels(int points) {
    constexpr double kPixelsPerPoint = 96.0 / 72.0;
    constexpr int kLeast = 12;  // smaller ones are hard to read
    return std::max(kLeast, static_cast<int>(std::lround(points * kPixelsPerPoint)));
}

int TextPixels() {
    return textPixels;
}

void SetTextPixels(int pixels) {
    textPixels = pixels;
}

bool CanWatch(int descriptor) {
    return descriptor < FD_SETSIZE;
}

bool IsEnterPressed() {
    return Fl::event_key() == FL_Enter || Fl::event_key() == FL_KP_Enter;
}

CRowColours ColoursOf(ActivitySeverity severity) {
    switch (severity) {
        case ActivitySeverity::Success: return {kPaper, kInk, 0x4B9B6C00};
        case ActivitySeverity::Informational: return {0xEFF5FC00, kInk, 0x2F75C000};
        case ActivitySeverity::Warning: return {0xFFF3D900, 0x5C3B0000, 0xD58A0000};
        case ActivitySeverity::Error: return {0xFDE6E400, 0x86140F00, 0xC9302800};
    }
    return {kPaper, kInk, kInk};
}

std::string Elide(const std::string& text, int width) {
    constexpr const char* kEllipsis = "\u2026";
    constexpr std::size_t kMostMeasured = 2000;  // no line is longer, and measuring takes time
    if (text.size() <= kMostMeasured && WidthOf(text, text.size()) <= width) return text;
    const double room = width - fl_width(kEllipsis);
    if (room <= 0) return {};
    std::size_t fits = 0;
    std::size_t tooLong = std::min(text.size(), kMostMeasured) + 1;
    while (tooLong - fits > 1) {
        const std::size_t middle = fits + (tooLong - fits) / 2;
        (WidthOf(text, CharacterStart(text, middle)) <= room ? fits : tooLong) = middle;
    }
    return text.substr(0, CharacterStart(text, fits)) + kEllipsis;
}

void DrawLine(const std::string& text, int left, int top, int width, int height, Fl_Align align) {
    if (width <= 0) return;
    const std::string line = Elide(text, width);
    const int baseline = top + (height + fl_height()) / 2 - fl_descent();
    const int start = align & FL_ALIGN_RIGHT ? left + width - static_cast<int>(fl_width(line.c_str())) : left;
    fl_draw(line.data(), static_cast<int>(line.size()), start, baseline);
}

}  // namespace quorbel
