#pragma once

#include <algorithm>
#include <openssl/crypto.h>
#include <string>
#include <string_view>

namespace quorbel {

/// Overwrites everything that the text holds, with its spare room, and leaves it empty.
template <class Text>
void Wipe(Text& text) noexcept {
    text.resize(text.capacity());  // within its room: nothing is allocated
    ::OPENSSL_cleanse(text.data(), text.size() * sizeof(typename Text::value_type));
    text.clear();
}

/// A text that leaves nothing of itself in memory when it ends, is overwritten or is moved from.
template <class Character>
class CBasicSecret {
 public:
    using Text = std::basic_string<Character>;
    using View = std::basic_string_view<Character>;

    CBasicSecret() = default;
    explicit CBasicSecret(View text) { Assign(text); }
    explicit CBasicSecret(const Character* text) { Assign(text); }
    /// Wipes the text that it is given.
    explicit CBasicSecret(Text&& text) {
        Assign(text);
        Wipe(text);
    }
    CBasicSecret(const CBasicSecret& other) { Assign(other.m_text); }
    CBasicSecret(CBasicSecret&& other) noexcept { m_text.swap(other.m_text); }
    CBasicSecret& operator=(CBasicSecret other) noexcept {
        m_text.swap(other.m_text);
        return *this;
    }
    ~CBasicSecret() { Wipe(m_text); }

    View Get() const noexcept { return m_text; }
    bool IsEmpty() const noexcept { return m_text.empty(); }

 private:
    /// On the heap, however short: a string that holds its characters itself leaves copies on the stack when
    /// it is moved.
    void Assign(View text) {
        if (text.empty()) return;
        m_text.reserve(std::max<std::size_t>(text.size(), kMoreThanFitsInside));
        m_text = text;
    }
    static constexpr std::size_t kMoreThanFitsInside = 32;
    Text m_text;
};

using CSecretBytes = CBasicSecret<char>;
using CSecretText = CBasicSecret<wchar_t>;

/// As ToUtf8, without leaving a copy of the text behind.
CSecretBytes ToSecretUtf8(std::wstring_view text);

}  // namespace quorbel
