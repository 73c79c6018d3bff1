#pragma once

#include <cpprest/astreambuf.h>
#include <stdexcept>

#include "data/results/ResultStream.h"
#include "platform/fault/Faults.h"

namespace quorbel {

/// A query's result as a response body of the HTTP library: read in pieces, one after the other, and in no
/// other way. Closing it cancels the query.
class ResultStream<std::uint8_t>::BasicBuffer final
    : public concurrency::streams::details::streambuf_state_manager<std::uint8_t> {
 public:
    explicit BasicBuffer(std::shared_ptr<QueryInfo> query)
        : streambuf_state_manager(std::ios_base::in), m_query(std::move(query)) {}

    bool can_seek() const override { return false; }
    bool has_size() const override { return false; }
    bool is_eof() const override { return m_query->IsAtEnd() || streambuf_state_manager::is_eof(); }
    utility::size64_t size() const override { Unimplemented("size"); }
    size_t buffer_size(std::ios_base::openmode) const override { Unimplemented("buffer_size"); }
    void set_buffer_size(size_t, std::ios_base::openmode) override { Unimplemented("set_buffer_size"); }
    size_t in_avail() const override { Unimplemented("in_avail"); }
    pos_type getpos(std::ios_base::openmode) const override { Unimplemented("getpos"); }
    pos_type seekpos(pos_type, std::ios_base::openmode) override { Unimplemented("seekpos"); }
    pos_type seekoff(off_type, std::ios_base::seekdir, std::ios_base::openmode) override {
        Unimplemented("seekoff");
    }
    bool acquire(std::uint8_t*&, size_t&) override { Unimplemented("acquire"); }
    void release(std::uint8_t*, size_t) override { Unimplemented("release"); }

 protected:
    pplx::task<int_type> _putc(std::uint8_t) override { Unimplemented("_putc"); }
    pplx::task<size_t> _putn(const std::uint8_t*, size_t) override { Unimplemented("_putn"); }
    pplx::task<int_type> _bumpc() override { Unimplemented("_bumpc"); }
    int_type _sbumpc() override { Unimplemented("_sbumpc"); }
    pplx::task<int_type> _getc() override { Unimplemented("_getc"); }
    int_type _sgetc() override { Unimplemented("_sgetc"); }
    pplx::task<int_type> _nextc() override { Unimplemented("_nextc"); }
    pplx::task<int_type> _ungetc() override { Unimplemented("_ungetc"); }
    size_t _scopy(std::uint8_t*, size_t) override { Unimplemented("_scopy"); }
    pplx::task<bool> _sync() override { Unimplemented("_sync"); }
    std::uint8_t* _alloc(size_t) override { Unimplemented("_alloc"); }
    void _commit(size_t) override { Unimplemented("_commit"); }

    pplx::task<size_t> _getn(std::uint8_t* buffer, size_t count) override {
        try {
            return pplx::task_from_result(FaultAsError([&] { return m_query->Read(buffer, count); }));
        } catch (...) {
            return pplx::task_from_exception<size_t>(std::current_exception());
        }
    }
    pplx::task<void> _close_read() override {
        m_query->Cancel();
        return streambuf_state_manager::_close_read();
    }

 private:
    [[noreturn]] static void Unimplemented(const char* operation) {
        throw std::runtime_error(std::string("Unimplemented method BasicBuffer::") + operation + "()");
    }

    const std::shared_ptr<QueryInfo> m_query;
};

}  // namespace quorbel
