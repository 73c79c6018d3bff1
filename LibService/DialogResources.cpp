#include "LibService/DialogResources.h"

#include <algorithm>
#include <cmath>
#include <span>

#include "LibService/WinService.h"
#include "components/display/Display.h"

namespace quorbel {

namespace {

using Kind = CDialogItem::Kind;

constexpr const wchar_t* kFont = L"MS Shell Dlg";
constexpr int kPoints = 8;

struct CPoint {
    double x;
    double y;
};

/// The icon's line, in a square of side 1: a quiet stretch, a beat, and quiet again.
constexpr CPoint kBeat[] = {{0.14, 0.55}, {0.33, 0.55}, {0.43, 0.25},
                            {0.57, 0.78}, {0.66, 0.55}, {0.86, 0.55}};
constexpr double kLineWidth = 0.085;
constexpr double kCorner = 0.22;  // radius of the square's corners
constexpr std::uint32_t kTop = 0x2C5F8A;
constexpr std::uint32_t kBottom = 0x173552;
constexpr std::uint32_t kLine = 0x8FE3B0;

double DistanceToLine(CPoint point, CPoint from, CPoint to) {
    const CPoint along{to.x - from.x, to.y - from.y};
    const double length = along.x * along.x + along.y * along.y;
    const double part = ((point.x - from.x) * along.x + (point.y - from.y) * along.y) / length;
    const double nearest = std::clamp(part, 0.0, 1.0);
    return std::hypot(point.x - from.x - nearest * along.x, point.y - from.y - nearest * along.y);
}

double DistanceToBeat(CPoint point) {
    double nearest = 1;
    for (std::size_t i = 1; i < std::size(kBeat); ++i)
        nearest = std::min(nearest, DistanceToLine(point, kBeat[i - 1], kBeat[i]));
    return nearest;
}

/// How far a point is outside the rounded square; negative inside.
double DistanceToSquare(CPoint point) {
    const double x = std::abs(point.x - 0.5) - (0.5 - kCorner);
    const double y = std::abs(point.y - 0.5) - (0.5 - kCorner);
    return std::hypot(std::max(x, 0.0), std::max(y, 0.0)) + std::min(std::max(x, y), 0.0) - kCorner;
}

/// `share` of one colour, the rest of the other, channel by channel.
std::uint32_t Mix(std::uint32_t other, std::uint32_t one, double share) {
    std::uint32_t mixed = 0;
    for (int shift = 0; shift < 24; shift += 8) {
        const double value = (one >> shift & 0xFF) * share + (other >> shift & 0xFF) * (1 - share);
        mixed |= static_cast<std::uint32_t>(std::lround(value)) << shift;
    }
    return mixed;
}

/// How much of a pixel lies within a shape whose edge is `distance` away.
double Coverage(double distance, int size) {
    return std::clamp(0.5 - distance * size, 0.0, 1.0);
}

}  // namespace

CDialogTemplate ServiceDialogTemplate() {
    return {kServiceDialog,
            L"Activity Display",
            {600, 370},
            kFont,
            kPoints,
            true,
            {{Kind::Control, kActivityControl, {0, 0, 600, 344}, {}, kActivityDisplayClass},
             {Kind::PushButton, kDialogOk, {544, 350, 50, 14}, L"OK", {}}}};
}

CDialogTemplate InvalidParameterTemplate() {
    return {kInvalidParameterDialog,
            L"Invalid Parameter",
            {261, 122},
            kFont,
            kPoints,
            false,
            {{Kind::StaticText, kInvalidParameterText, {23, 19, 231, 67}, InvalidParameterText(L"%s"), {}},
             {Kind::PushButton, kDialogOk, {204, 101, 50, 14}, L"OK", {}}}};
}

CIcon DrawServiceIcon(int size) {
    CIcon icon{size, {}};
    icon.pixels.reserve(static_cast<std::size_t>(size) * size);
    for (int row = 0; row < size; ++row) {
        for (int column = 0; column < size; ++column) {
            const CPoint point{(column + 0.5) / size, (row + 0.5) / size};
            const std::uint32_t ground = Mix(kTop, kBottom, point.y);
            const double line = Coverage(DistanceToBeat(point) - kLineWidth / 2, size);
            const double inside = Coverage(DistanceToSquare(point), size);
            const auto alpha = static_cast<std::uint32_t>(std::lround(255 * inside));
            icon.pixels.push_back(alpha << 24 | Mix(ground, kLine, line));
        }
    }
    return icon;
}

}  // namespace quorbel
