#include "auth/passkeys/Cbor.h"

#include <array>
#include <cbor.h>
#include <limits>

namespace quorbel {

namespace {

/// Major types (RFC 8949, section 3.1).
enum class Major : std::uint8_t {
    Unsigned = 0,
    Negative = 1,
    Bytes = 2,
    Text = 3,
    Array = 4,
    Map = 5,
    Tag = 6,
    Simple = 7
};

/// Walks over an item's structure, and over nothing that the input is too short for: the library allocates
/// what a length declares before it looks whether so much is there.
class CWalk {
 public:
    explicit CWalk(std::string_view bytes) noexcept : m_bytes(bytes) {}

    /// The bytes that the first item takes; none when it is incomplete or out of bounds.
    std::optional<std::size_t> Measure() {
        do {
            if (!TakeItem()) return std::nullopt;
        } while (m_depth > 0);
        return m_at;
    }

 private:
    std::size_t Left() const noexcept { return m_bytes.size() - m_at; }

    /// Takes an item's head or, without content of its own, the whole of it.
    bool TakeItem() {
        std::uint64_t value = 0;
        Major major{};
        if (!TakeHead(major, value)) return false;
        switch (major) {
            case Major::Unsigned:
            case Major::Negative:
            case Major::Simple: return Close();
            case Major::Bytes:
            case Major::Text:
                if (value > Left()) return false;
                m_at += static_cast<std::size_t>(value);
                return Close();
            case Major::Array: return Open(value);
            case Major::Map: return value <= Left() && Open(2 * value);
            case Major::Tag: return false;
        }
        return false;
    }

    bool TakeHead(Major& major, std::uint64_t& value) {
        constexpr unsigned kLargestOwnValue = 23;
        constexpr unsigned kLargestWidth = 27;  // 24 to 27: a value of 1, 2, 4 or 8 bytes follows
        if (Left() == 0) return false;
        const auto first = static_cast<std::uint8_t>(m_bytes[m_at++]);
        major = static_cast<Major>(first >> 5);
        value = first & 0x1F;
        if (value <= kLargestOwnValue) return true;
        if (value > kLargestWidth) return false;
        const std::size_t width = std::size_t{1} << (value - kLargestOwnValue - 1);
        if (width > Left()) return false;
        value = 0;
        for (std::size_t i = 0; i < width; ++i)
            value = value << 8 | static_cast<std::uint8_t>(m_bytes[m_at++]);
        return true;
    }

    bool Open(std::uint64_t items) {
        if (items == 0) return Close();
        // Every item takes a byte at least.
        if (items > Left() || m_depth == m_open.size()) return false;
        m_open[m_depth++] = items;
        return true;
    }

    /// An item has ended, and with it perhaps those that it is the last part of.
    bool Close() {
        while (m_depth > 0 && --m_open[m_depth - 1] == 0) --m_depth;
        return true;
    }

    const std::string_view m_bytes;
    std::size_t m_at = 0;
    std::array<std::uint64_t, CCborItem::kMostNesting> m_open{};  ///< items still to come of each open one
    std::size_t m_depth = 0;
};

std::shared_ptr<void> Own(cbor_item_t* item) {
    return {item, [](void* owned) {
                auto last = static_cast<cbor_item_t*>(owned);
                cbor_decref(&last);
            }};
}

std::shared_ptr<void> Share(cbor_item_t* item) {
    return Own(cbor_incref(item));
}

cbor_item_t* Get(const std::shared_ptr<void>& item) noexcept {
    return static_cast<cbor_item_t*>(item.get());
}

}  // namespace

std::optional<CCborItem> CCborItem::Decode(std::string_view bytes, std::size_t& used) {
    if (bytes.size() > kMostBytes) return std::nullopt;
    const auto size = CWalk(bytes).Measure();
    if (!size) return std::nullopt;
    cbor_load_result result{};
    cbor_item_t* const item = cbor_load(reinterpret_cast<cbor_data>(bytes.data()), *size, &result);
    if (item == nullptr) return std::nullopt;
    CCborItem decoded(Own(item));
    if (result.read != *size) return std::nullopt;
    used = *size;
    return decoded;
}

std::optional<std::int64_t> CCborItem::Integer() const {
    const cbor_item_t* const item = Get(m_item);
    if (!cbor_is_int(item)) return std::nullopt;
    const std::uint64_t value = cbor_get_int(item);
    if (value > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) return std::nullopt;
    return cbor_isa_uint(item) ? static_cast<std::int64_t>(value) : -1 - static_cast<std::int64_t>(value);
}

std::optional<std::string> CCborItem::Bytes() const {
    const cbor_item_t* const item = Get(m_item);
    if (!cbor_isa_bytestring(item)) return std::nullopt;
    return std::string(reinterpret_cast<const char*>(cbor_bytestring_handle(item)),
                       cbor_bytestring_length(item));
}

std::optional<std::string> CCborItem::Text() const {
    const cbor_item_t* const item = Get(m_item);
    if (!cbor_isa_string(item)) return std::nullopt;
    return std::string(reinterpret_cast<const char*>(cbor_string_handle(item)), cbor_string_length(item));
}

std::optional<std::vector<CCborItem>> CCborItem::Array() const {
    const cbor_item_t* const item = Get(m_item);
    if (!cbor_isa_array(item)) return std::nullopt;
    std::vector<CCborItem> items;
    for (std::size_t i = 0; i < cbor_array_size(item); ++i)
        items.push_back(CCborItem(Share(cbor_array_handle(item)[i])));
    return items;
}

namespace {

/// `key` reads a key as the map's kind of it.
template <class Map, class Key, class MakeItem>
std::optional<Map> ReadMap(const cbor_item_t* item, Key key, MakeItem makeItem) {
    if (!cbor_isa_map(item)) return std::nullopt;
    Map map;
    for (std::size_t i = 0; i < cbor_map_size(item); ++i) {
        const cbor_pair& pair = cbor_map_handle(item)[i];
        const auto name = key(makeItem(pair.key));
        if (!name || !map.emplace(*name, makeItem(pair.value)).second) return std::nullopt;
    }
    return map;
}

}  // namespace

std::optional<CCborItem::TextMap> CCborItem::MapOfTexts() const {
    return ReadMap<TextMap>(
        Get(m_item), [](const CCborItem& key) { return key.Text(); },
        [](cbor_item_t* item) { return CCborItem(Share(item)); });
}

std::optional<CCborItem::IntegerMap> CCborItem::MapOfIntegers() const {
    return ReadMap<IntegerMap>(
        Get(m_item), [](const CCborItem& key) { return key.Integer(); },
        [](cbor_item_t* item) { return CCborItem(Share(item)); });
}

}  // namespace quorbel
