#include "data/results/RowsetQueryInfo.h"

#include <algorithm>
#include <cstring>

#include "platform/Text.h"

namespace quorbel {

std::size_t ResultStream<std::uint8_t>::RowsetQueryInfo::Read(std::uint8_t* buffer, std::size_t count) {
    try {
        return CopyOut(buffer, count);
    } catch (const std::bad_alloc&) {
        Fail(E_OUTOFMEMORY);
    }
}

std::size_t ResultStream<std::uint8_t>::RowsetQueryInfo::CopyOut(std::uint8_t* buffer, std::size_t count) {
    std::size_t copied = 0;
    while (copied != count) {
        if (m_taken == pending.size()) {
            if (ended) break;
            Render();
        }
        const std::size_t size = std::min(count - copied, pending.size() - m_taken);
        std::memcpy(buffer + copied, pending.data() + m_taken, size);
        copied += size;
        m_taken += size;
    }
    return copied;
}

void ResultStream<std::uint8_t>::RowsetQueryInfo::Render() {
    m_text.clear();
    if (!std::exchange(headerDone, true)) {
        m_text = Header();
    } else if (const HRESULT result = RenderRow(); result != S_OK) {
        Fail(result);
    }
    pending = ToUtf8(m_text);
    m_taken = 0;
}

HRESULT ResultStream<std::uint8_t>::RowsetQueryInfo::RenderRow() {
    const HRESULT result = Row(m_text);
    if (result != DB_S_ENDOFROWSET) return result;
    m_text = Footer();
    ended = true;
    return Close();
}

HRESULT ResultStream<std::uint8_t>::RowsetQueryInfo::FetchColumns(
    const std::function<void(std::size_t column)>& append) {
    return Fetch([&] {
        if (m_order.empty()) {
            if (const HRESULT result = OrderColumns(); result != S_OK) return result;
        }
        for (const std::size_t column : m_order) append(column);
        return S_OK;
    });
}

HRESULT ResultStream<std::uint8_t>::RowsetQueryInfo::OrderColumns() {
    const bool hasBookmark = FindColumn(std::size_t{0}) != kNoColumn;
    const std::size_t count = Columns().size() - (hasBookmark ? 1 : 0);
    std::vector<std::size_t> order;
    for (std::size_t ordinal = 1; ordinal <= count; ++ordinal) {
        order.push_back(FindColumn(ordinal));
        if (order.back() == kNoColumn) return E_FAIL;
    }
    m_order = std::move(order);
    return S_OK;
}

}  // namespace quorbel
