#pragma once

#include <string>

#include "components/display/activity/ActivityRow.h"
#include "components/display/module/Toolkit.h"

namespace quorbel {

/// How everything looks: set once, before the first window.
void SetAppearance();

/// Pixels of a font's size.
int FontPixels(int points);
/// Of ordinary texts; what SetFontPixels said last.
int TextPixels();
void SetTextPixels(int pixels);

/// Whether the toolkit can wait for this descriptor: it knows low ones only, and others would overwrite
/// memory.
bool CanWatch(int descriptor);

/// Whether the event that is being handled comes from one of the two Enter keys.
bool IsEnterPressed();

/// What rows of a severity look like.
struct CRowColours {
    Fl_Color ground;
    Fl_Color text;
    Fl_Color badge;  ///< of the severity
};
CRowColours ColoursOf(ActivitySeverity severity);

/// A filled box with a thin line around it.
inline constexpr Fl_Boxtype kFramedBox = FL_FREE_BOXTYPE;

inline constexpr Fl_Color kGround = 0xF3F5F800;
inline constexpr Fl_Color kPaper = 0xFFFFFF00;
inline constexpr Fl_Color kInk = 0x1B232D00;
inline constexpr Fl_Color kFaintInk = 0x5A677500;
inline constexpr Fl_Color kLine = 0xD5DBE200;
inline constexpr Fl_Color kHeader = 0xE8ECF100;
inline constexpr Fl_Color kSelected = 0x2C5F8A00;
inline constexpr Fl_Color kSelectedUnfocused = 0xCBD9E600;

/// The text, or as much of its beginning as fits into `width` pixels of the current font, and an ellipsis.
std::string Elide(const std::string& text, int width);
/// Draws one line of text within a rectangle in the current font and colour, elided; no character means
/// anything but itself.
void DrawLine(const std::string& text, int left, int top, int width, int height,
              Fl_Align align = FL_ALIGN_LEFT);

}  // namespace quorbel
