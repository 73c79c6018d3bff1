#pragma once

#include <algorithm>
#include <cpprest/astreambuf.h>
#include <memory>
#include <stdexcept>
#include <vector>

#include "platform/FileRange.h"
#include "platform/fault/Faults.h"

namespace Concurrency::streams::details {

/// A read-only stream buffer over one byte range of a file: reads begin at the range's first byte and end
/// after its last. Positions are those of the file, as in the library's own file buffer; size() is the
/// range's. A file that turns out shorter than the range, or that cannot be read, fails the read: a body
/// never ends early unnoticed.
template <class CharType>
class basic_file_range_buffer final : public streambuf_state_manager<CharType>, public quorbel::IFileRange {
    static_assert(sizeof(CharType) == 1, "ranges are counted in bytes");
    using Base = streambuf_state_manager<CharType>;

 public:
    using typename Base::int_type;
    using typename Base::off_type;
    using typename Base::pos_type;
    using typename Base::traits;

    /// Shows `length` bytes of the file from `offset` on. The file stays open until the buffer is closed.
    basic_file_range_buffer(std::shared_ptr<const quorbel::CFile> file, std::uint64_t offset,
                            std::uint64_t length)
        : Base(std::ios_base::in),
          m_file(std::move(file)),
          m_begin(offset),
          m_end(offset + length),
          m_position(offset) {}

    std::shared_ptr<const quorbel::CFile> File() const override { return m_file; }
    std::uint64_t Offset() const noexcept override { return m_begin; }
    std::uint64_t Length() const noexcept override { return m_end - m_begin; }

    bool can_seek() const override { return this->is_open(); }
    bool has_size() const override { return this->is_open(); }
    utility::size64_t size() const override { return Length(); }
    size_t buffer_size(std::ios_base::openmode) const override { return kBufferSize; }
    void set_buffer_size(size_t, std::ios_base::openmode) override {}
    size_t in_avail() const override {
        return m_buffered.size() - std::min(m_buffered.size(), BufferOffset());
    }

    pos_type getpos(std::ios_base::openmode direction) const override {
        return direction & std::ios_base::in ? static_cast<pos_type>(m_position) : Eof();
    }
    pos_type seekpos(pos_type position, std::ios_base::openmode direction) override {
        const auto target = static_cast<std::uint64_t>(static_cast<off_type>(position));
        if (!(direction & std::ios_base::in) || target < m_begin || target > m_end) return Eof();
        m_position = target;
        return position;
    }
    pos_type seekoff(off_type offset, std::ios_base::seekdir way,
                     std::ios_base::openmode direction) override {
        const std::uint64_t origin = way == std::ios_base::beg   ? m_begin
                                     : way == std::ios_base::cur ? m_position
                                                                 : m_end;
        return seekpos(static_cast<pos_type>(static_cast<off_type>(origin) + offset), direction);
    }

    bool acquire(CharType*& pointer, size_t& count) override {
        pointer = nullptr;
        count = 0;
        return false;
    }
    void release(CharType*, size_t) override {}

 protected:
    pplx::task<int_type> _putc(CharType) override { return pplx::task_from_result<int_type>(traits::eof()); }
    pplx::task<size_t> _putn(const CharType*, size_t) override { return pplx::task_from_result<size_t>(0); }
    pplx::task<bool> _sync() override { return pplx::task_from_result(true); }
    CharType* _alloc(size_t) override { return nullptr; }
    void _commit(size_t) override {}

    pplx::task<size_t> _getn(CharType* pointer, size_t count) override {
        return AsTask<size_t>([=, this] {
            const size_t read = ReadAt(m_position, reinterpret_cast<std::uint8_t*>(pointer), count);
            m_position += read;
            return read;
        });
    }
    size_t _scopy(CharType* pointer, size_t count) override {
        return ReadAt(m_position, reinterpret_cast<std::uint8_t*>(pointer), count);
    }
    pplx::task<int_type> _bumpc() override {
        return AsTask<int_type>([this] { return _sbumpc(); });
    }
    int_type _sbumpc() override {
        const int_type byte = Peek();
        if (byte != traits::eof()) ++m_position;
        return byte;
    }
    pplx::task<int_type> _getc() override {
        return AsTask<int_type>([this] { return Peek(); });
    }
    int_type _sgetc() override { return Peek(); }
    pplx::task<int_type> _nextc() override {
        return AsTask<int_type>([this] {
            if (m_position < m_end) ++m_position;
            return Peek();
        });
    }
    pplx::task<int_type> _ungetc() override {
        return AsTask<int_type>([this] {
            if (m_position == m_begin) return static_cast<int_type>(traits::eof());
            --m_position;
            return Peek();
        });
    }
    pplx::task<void> _close_read() override {
        m_file.reset();
        return Base::_close_read();
    }

 private:
    static constexpr size_t kBufferSize = 4096;  // for reads of single bytes; larger ones go past it

    static pos_type Eof() { return static_cast<pos_type>(traits::eof()); }
    size_t BufferOffset() const { return static_cast<size_t>(m_position - m_bufferedAt); }

    template <class Result, class Function>
    static pplx::task<Result> AsTask(Function&& function) {
        try {
            return pplx::task_from_result<Result>(quorbel::FaultAsError(function));
        } catch (...) {
            return pplx::task_from_exception<Result>(std::current_exception());
        }
    }

    /// Reads within the range; 0 only at its end.
    size_t ReadAt(std::uint64_t position, std::uint8_t* pointer, size_t count) const {
        const auto wanted = static_cast<size_t>(std::min<std::uint64_t>(count, m_end - position));
        if (wanted == 0) return 0;
        if (!m_file) throw std::runtime_error("the file range is closed");
        const auto read = m_file->Read(position, {pointer, wanted});
        if (!read.IsOk()) throw std::runtime_error("the file cannot be read");
        if (read.Value() == 0) throw std::runtime_error("the file became shorter while it was read");
        return read.Value();
    }

    int_type Peek() {
        if (m_position >= m_end) return traits::eof();
        if (m_position < m_bufferedAt || BufferOffset() >= m_buffered.size()) {
            m_buffered.resize(kBufferSize);
            m_bufferedAt = m_position;
            m_buffered.resize(ReadAt(m_position, m_buffered.data(), kBufferSize));
        }
        return static_cast<int_type>(m_buffered[BufferOffset()]);
    }

    std::shared_ptr<const quorbel::CFile> m_file;
    const std::uint64_t m_begin;
    const std::uint64_t m_end;
    std::uint64_t m_position;
    std::uint64_t m_bufferedAt = 0;
    std::vector<std::uint8_t> m_buffered;
};

}  // namespace Concurrency::streams::details
