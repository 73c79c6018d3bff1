#pragma once

#include <concepts>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <type_traits>
#include <variant>

namespace quorbel {

/// The interface of every object that writes trace records.
class CTraceLoggable {
 public:
    virtual ~CTraceLoggable() = default;
    /// The object's name, the same for every object of its kind, for example "HTTP Server".
    virtual const char* TraceName() const = 0;
};

/// An argument of a record, as the caller has it: an integer of any type, a double or a text, which must live
/// as long as the call. Its encoding follows from the identifier's text.
class TraceArgument {
 public:
    using Value = std::variant<std::int64_t, std::uint64_t, double, std::string_view, std::wstring_view>;

    template <std::integral T>
    TraceArgument(T number) noexcept  // NOLINT: implicit, like the others
        : m_value(static_cast<std::conditional_t<std::is_signed_v<T>, std::int64_t, std::uint64_t>>(number)) {
    }
    TraceArgument(double number) noexcept : m_value(number) {}                               // NOLINT
    TraceArgument(const char* text) noexcept : TraceArgument(std::string_view(text)) {}      // NOLINT
    TraceArgument(const wchar_t* text) noexcept : TraceArgument(std::wstring_view(text)) {}  // NOLINT
    TraceArgument(std::string_view text) noexcept : m_value(text) {}                         // NOLINT
    TraceArgument(std::wstring_view text) noexcept : m_value(text) {}                        // NOLINT
    TraceArgument(const std::string& text) noexcept : m_value(std::string_view(text)) {}     // NOLINT
    TraceArgument(const std::wstring& text) noexcept : m_value(std::wstring_view(text)) {}   // NOLINT

    const Value& Get() const noexcept { return m_value; }

 private:
    Value m_value;
};

/// Which records are kept and which force saving. For a record, the selector is its category (bits 19-16)
/// shifted left by 4 times its severity (bits 31-30).
class CTraceLevelMask {
 public:
    static constexpr std::uint32_t kDefault = 0xF000FF0F;
    explicit constexpr CTraceLevelMask(std::uint32_t mask = kDefault) noexcept : m_mask(mask) {}

    constexpr bool Keeps(std::uint32_t id) const noexcept { return (m_mask & Selector(id)) != 0; }
    constexpr bool ForcesSaving(std::uint32_t id) const noexcept {
        return (m_mask & Selector(id) << 16) != 0;
    }

 private:
    static constexpr std::uint32_t Selector(std::uint32_t id) noexcept {
        return (id >> 16 & 0xF) << 4 * (id >> 30);
    }
    std::uint32_t m_mask;
};

/// Records activity as an identifier, the object that wrote it and a list of arguments; no text. Both
/// operations may be called from any thread and never fail visibly: a record that cannot be kept is dropped.
/// Arguments stand in the order of the insert numbers of the identifier's text.
class CTraceLogger {
 public:
    virtual ~CTraceLogger() = default;
    /// May force the recent records to disk, as the level mask says.
    virtual void Trace(const CTraceLoggable& object, std::uint32_t id,
                       std::initializer_list<TraceArgument> arguments = {}) = 0;
    virtual void TraceNoSave(const CTraceLoggable& object, std::uint32_t id,
                             std::initializer_list<TraceArgument> arguments = {}) = 0;
};

}  // namespace quorbel
