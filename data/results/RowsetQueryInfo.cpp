#include "data/results/RowsetQueryInfo.h"

#include <algorithm>
#include <cstring>

#include "platform/Text.h"

namespace quorbel {

std::size_t ResultStream<std::uint8_t>::RowsetQueryInfo::Read(std::uint8_t* buffer, std::size_t count) {
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
    } else {
        RenderRow();
    }
    pending = ToUtf8(m_text);
    m_taken = 0;
}

void ResultStream<std::uint8_t>::RowsetQueryInfo::RenderRow() {
    HRESULT result = Row(m_text);
    if (result == DB_S_ENDOFROWSET) {
        m_text = Footer();
        result = Close();
        ended = true;
    }
    if (result != S_OK) throw ToSystemError(result);
}

}  // namespace quorbel
