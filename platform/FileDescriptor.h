#pragma once

#include <unistd.h>
#include <utility>

namespace quorbel {

/// Owns a file descriptor and closes it.
class CFileDescriptor {
 public:
    CFileDescriptor() noexcept = default;
    explicit CFileDescriptor(int descriptor) noexcept : m_descriptor(descriptor) {}
    CFileDescriptor(CFileDescriptor&& other) noexcept : m_descriptor(std::exchange(other.m_descriptor, -1)) {}
    CFileDescriptor& operator=(CFileDescriptor&& other) noexcept {
        std::swap(m_descriptor, other.m_descriptor);
        return *this;
    }
    ~CFileDescriptor() {
        if (m_descriptor >= 0) ::close(m_descriptor);
    }

    bool IsOpen() const noexcept { return m_descriptor >= 0; }
    int Get() const noexcept { return m_descriptor; }
    /// Gives it up to another owner.
    int Release() noexcept { return std::exchange(m_descriptor, -1); }

 private:
    int m_descriptor = -1;
};

}  // namespace quorbel
