#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace quorbel {

/// A pattern for one file name: "*" stands for any text, "?" for any one character. Several "*" in a row
/// count as one; with more than kMaximumStars of them, "*" and "?" stand for themselves. Matching takes no
/// more than the product of the two lengths, whatever the pattern.
class CWildcardPattern {
 public:
    static constexpr std::size_t kMaximumStars = 8;

    /// With `kind`, a name must go on with it where `segment` ends, without regard to case, then with
    /// anything.
    CWildcardPattern(std::wstring_view segment, std::wstring_view kind);

    bool Matches(std::wstring_view name) const noexcept;

    /// What every matching name begins with, in UTF-8.
    const std::string& Prefix() const noexcept { return m_prefix; }

    /// The bytes that no matching name has less of, in UTF-8.
    std::size_t LeastBytes() const noexcept { return m_leastBytes; }

 private:
    enum class Accepts { Same, SameNoCase, AnyOne, AnyText };
    struct CStep {
        Accepts accepts;
        wchar_t character;
    };
    static bool Takes(const CStep& step, wchar_t character) noexcept;

    std::vector<CStep> m_steps;
    std::string m_prefix;
    std::size_t m_leastBytes = 0;
};

}  // namespace quorbel
