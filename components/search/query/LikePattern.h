#pragma once

#include <string_view>

namespace quorbel {

/// Whether every "[" of a pattern is closed.
bool IsLikePattern(std::wstring_view pattern) noexcept;

/// Whether a text is as a pattern says, without regard to case: "%" stands for any characters, "_" for one,
/// "[abc]", "[a-z]" and "[^abc]" for one that is, or is not, in the set; "[%]" is a "%". Takes time
/// proportional to the product of the lengths at most.
bool IsLike(std::wstring_view text, std::wstring_view pattern) noexcept;

}  // namespace quorbel
