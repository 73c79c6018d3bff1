#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace quorbel {

/// One item of CBOR (RFC 8949), decoded and immutable: a handle that is cheap to copy. For one thread at a
/// time, also where handles share an item.
class CCborItem {
 public:
    using TextMap = std::map<std::string, CCborItem, std::less<>>;
    using IntegerMap = std::map<std::int64_t, CCborItem>;

    static constexpr std::size_t kMostBytes = 64 * 1024;  ///< of an input
    static constexpr std::size_t kMostNesting = 16;       ///< arrays and maps in one another

    /// Decodes the one item that `bytes` begin with and says in `used` how many of them it takes. None when
    /// they are no complete item, hold a text that is no UTF-8 or exceed the bounds above; none also for what
    /// an authenticator never sends (CTAP2 canonical form): tags and indefinite lengths.
    static std::optional<CCborItem> Decode(std::string_view bytes, std::size_t& used);

    /// The item's content; none when it is of another kind.
    /// @{
    std::optional<std::int64_t> Integer() const;
    std::optional<std::string> Bytes() const;
    std::optional<std::string> Text() const;
    std::optional<std::vector<CCborItem>> Array() const;
    /// A map whose keys are all texts, or all integers; none also when a key is there twice.
    std::optional<TextMap> MapOfTexts() const;
    std::optional<IntegerMap> MapOfIntegers() const;
    /// @}

 private:
    explicit CCborItem(std::shared_ptr<void> item) noexcept : m_item(std::move(item)) {}

    std::shared_ptr<void> m_item;  ///< the library's item
};

}  // namespace quorbel
