#pragma once

#include <mutex>
#include <string>
#include <vector>

namespace quorbel {

/// Sentences that threads hand over.
class CSentences {
 public:
    void Add(const std::wstring& sentence) {
        const std::lock_guard lock(m_lock);
        m_sentences.push_back(sentence);
    }
    std::vector<std::wstring> All() const {
        const std::lock_guard lock(m_lock);
        return m_sentences;
    }

 private:
    mutable std::mutex m_lock;
    std::vector<std::wstring> m_sentences;
};

}  // namespace quorbel
