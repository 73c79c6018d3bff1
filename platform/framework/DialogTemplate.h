#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/com/Com.h"

namespace quorbel {

struct CSize {
    int width = 0;
    int height = 0;
    bool operator==(const CSize&) const = default;
};

struct CRectangle {
    int left = 0;
    int top = 0;
    int width = 0;
    int height = 0;
    int Right() const noexcept { return left + width; }
    int Bottom() const noexcept { return top + height; }
    bool operator==(const CRectangle&) const = default;
};

/// What closes a dialog: the button's id, or kDialogCancelled when the user closed the window otherwise.
inline constexpr int kDialogOk = 1;
inline constexpr int kDialogCancelled = 2;

/// A part of a dialog.
struct CDialogItem {
    enum class Kind {
        StaticText,
        PushButton,
        Control,  ///< a component's window, found by its class identifier
    };

    Kind kind = Kind::StaticText;
    int id = 0;
    CRectangle rectangle;  ///< in dialog units
    std::wstring text;     ///< of a text or a button
    GUID control{};        ///< class of a control
};

/// What a dialog looks like at first. Dialog units follow the font: a quarter of its characters' average
/// width and an eighth of their height.
struct CDialogTemplate {
    int id = 0;
    std::wstring caption;
    CSize size;  ///< of the client area, in dialog units
    std::wstring font;
    int points = 8;  ///< size of the font
    bool isResizable = false;
    std::vector<CDialogItem> items;
};

/// A square picture; each pixel is 0xAARRGGBB, row by row from the top.
struct CIcon {
    int size = 0;
    std::vector<std::uint32_t> pixels;
};

}  // namespace quorbel
