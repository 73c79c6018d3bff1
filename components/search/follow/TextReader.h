#pragma once

#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "components/search/index/IndexWriter.h"
#include "components/search/text/TextWorker.h"
#include "platform/Event.h"
#include "platform/Lock.h"

namespace quorbel {

/// Reads the texts of files that need the worker process, one after the other, on a thread of its own.
class CTextReader {
 public:
    struct CFile {
        std::string folder;  ///< path
        std::string name;
        CDocumentStamp stamp;
    };
    struct CRead {
        CFile file;
        CExtractedText text;
    };

    /// `read` is set when a text has been read.
    static CResult<std::unique_ptr<CTextReader>> Start(CTextWorker::Options options,
                                                       std::shared_ptr<CEvent> read);
    ~CTextReader();
    CTextReader(const CTextReader&) = delete;
    CTextReader& operator=(const CTextReader&) = delete;

    enum class Place { First, Last };
    /// A file that waits already is read once, as it was added last, at the better of its places.
    void Add(CFile file, Place place);
    std::vector<CRead> Take();
    /// Drops what has not been read yet.
    void Clear();

 private:
    CTextReader(CTextWorker::Options options, std::shared_ptr<CEvent> read, std::shared_ptr<CEvent> wake,
                std::shared_ptr<CEvent> stop)
        : m_read(std::move(read)),
          m_wake(std::move(wake)),
          m_stop(std::move(stop)),
          m_worker(std::move(options)) {}
    void Run();
    bool ReadNext();
    /// None when it cannot be read right now.
    std::optional<CExtractedText> Read(const CFile& file);

    const std::shared_ptr<CEvent> m_read;
    const std::shared_ptr<CEvent> m_wake;
    const std::shared_ptr<CEvent> m_stop;
    CTextWorker m_worker;  // used by the thread
    std::thread m_thread;

    CMutex m_lock{LockRank::Innermost};  // guards:
    std::deque<std::string> m_order;     // paths; one that is not in m_files has been read
    std::map<std::string, CFile> m_files;
    std::vector<CRead> m_results;
};

}  // namespace quorbel
