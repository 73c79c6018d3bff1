#include "components/search/index/Excerpt.h"

#include <algorithm>
#include <memory>

#include "components/search/index/Fts5.h"
#include "components/search/index/WordBreaker.h"
#include "platform/Error.h"

namespace quorbel {

namespace {

constexpr std::size_t kPieceBytes = 16 << 10;
constexpr std::string_view kCut = "…";
constexpr std::string_view kBlanks = " \t\r\n\f\v";

/// One occurrence of a phrase: the bytes of the text.
struct COccurrence {
    std::size_t phrase;
    std::size_t begin;
    std::size_t end;
};

/// Some bytes of the text.
struct CSpan {
    std::size_t begin = 0;
    std::size_t end = 0;
};

/// Finds one phrase in a row of words.
class CPhraseFinder {
 public:
    explicit CPhraseFinder(const CSoughtPhrase& phrase) : m_phrase(phrase) {}

    /// True when the word completes the phrase, which begins at Begin.
    bool Take(std::string_view word, std::size_t begin) {
        m_started.push_back({0, begin});
        std::erase_if(m_started, [&](CStart& start) { return !Fits(word, start.words++); });
        if (m_started.empty() || m_started.front().words != m_phrase.words.size()) return false;
        m_begin = m_started.front().begin;
        m_started.clear();
        return true;
    }
    std::size_t Begin() const noexcept { return m_begin; }

 private:
    /// A place at which the phrase may have begun.
    struct CStart {
        std::size_t words;  ///< that fit
        std::size_t begin;
    };
    bool Fits(std::string_view word, std::size_t place) const {
        const bool mayGoOn = m_phrase.isPrefix && place + 1 == m_phrase.words.size();
        return mayGoOn ? word.starts_with(m_phrase.words[place]) : word == m_phrase.words[place];
    }

    const CSoughtPhrase& m_phrase;
    std::vector<CStart> m_started;  // the oldest first
    std::size_t m_begin = 0;
};

/// Where the phrases are in a text, from its beginning on.
class CSearch {
 public:
    CSearch(const std::vector<CSoughtPhrase>& phrases, std::size_t size)
        : m_finders(phrases.begin(), phrases.end()), m_size(size) {}

    enum class Until { NothingBetter, End };
    /// Looks through the part of the text that begins at `from`; false once nothing better can come.
    bool Look(std::string_view text, std::size_t from, Until until = Until::NothingBetter) {
        bool isOpen = true;
        BreakWords(text.substr(from), [&](std::string_view word, std::size_t begin, std::size_t end) {
            for (std::size_t phrase = 0; phrase != m_finders.size(); ++phrase) {
                if (m_finders[phrase].Take(word, from + begin)) {
                    m_found.push_back({phrase, m_finders[phrase].Begin(), from + end});
                    isOpen = !BestHasAll() && isOpen;
                }
            }
            return isOpen || until == Until::End;
        });
        return isOpen;
    }
    const std::vector<COccurrence>& Found() const noexcept { return m_found; }
    /// The bytes that hold most of the phrases; none when none was found.
    CSpan Best() const noexcept { return m_best; }

 private:
    /// Takes in the last occurrence: the window that ends with it may be the best one.
    bool BestHasAll() {
        std::vector<std::size_t> times(m_finders.size());
        for (std::size_t place = m_first; place != m_found.size(); ++place) ++times[m_found[place].phrase];
        // What comes again, or is too far away, need not be shown.
        for (; m_first + 1 != m_found.size(); ++m_first) {
            const COccurrence& first = m_found[m_first];
            const bool isFar = m_found.back().end - first.begin > m_size;
            if (!isFar && times[first.phrase] == 1) break;
            --times[first.phrase];
        }
        const std::size_t phrases = times.size() - static_cast<std::size_t>(std::ranges::count(times, 0U));
        if (phrases > m_mostPhrases) {
            m_mostPhrases = phrases;
            m_best = {m_found[m_first].begin, m_found.back().end};
        }
        return m_mostPhrases == m_finders.size();
    }

    std::vector<CPhraseFinder> m_finders;
    const std::size_t m_size;
    std::vector<COccurrence> m_found;
    std::size_t m_first = 0;  // of the window that ends with the last
    CSpan m_best;
    std::size_t m_mostPhrases = 0;
};

/// The place of the next blank at or behind `from`, or the text's end.
std::size_t WordEnd(std::string_view text, std::size_t from) {
    const std::size_t blank = text.find_first_of(kBlanks, from);
    if (blank != text.npos) return blank;
    return text.size();
}

bool IsContinuation(char byte) {
    return (static_cast<unsigned char>(byte) & 0xC0) == 0x80;
}

/// Where the last character begins.
std::size_t LastCharacter(std::string_view text) {
    std::size_t at = text.size() - 1;
    while (at != 0 && IsContinuation(text[at])) --at;
    return at;
}

/// Moves a cut to a boundary of words, when there is one near, else of characters.
std::size_t CutBefore(std::string_view text, std::size_t at) {
    constexpr std::size_t kNear = 40;
    const std::size_t blank = WordEnd(text, at);
    if (at == 0 || at >= text.size()) return std::min(at, text.size());
    if (blank - at <= kNear) return blank;
    while (at != text.size() && IsContinuation(text[at])) ++at;
    return at;
}

/// Writes a part of the text with its marks, and single blanks in place of whatever is not to be seen.
std::string Show(std::string_view text, std::size_t begin, std::size_t end,
                 const std::vector<COccurrence>& found) {
    std::string shown(begin == 0 ? "" : kCut);
    begin = std::min(text.find_first_not_of(kBlanks, begin), end);
    auto next = found.begin();
    bool isMarked = false;
    std::size_t markEnd = 0;
    bool wasBlank = true;
    for (std::size_t at = begin; at != end; ++at) {
        if (isMarked && at >= markEnd) {
            shown += kMarkEnd;
            isMarked = false;
        }
        while (next != found.end() && next->begin < at) ++next;
        for (; next != found.end() && next->begin == at; ++next) {
            markEnd = std::max(isMarked ? markEnd : 0, std::min(next->end, end));
            if (!isMarked) shown += kMarkBegin;
            isMarked = true;
        }
        const bool isBlank = static_cast<unsigned char>(text[at]) <= ' ';
        if (!isBlank) shown += text[at];
        if (isBlank && !wasBlank) shown += ' ';
        wasBlank = isBlank;
    }
    if (isMarked) shown += kMarkEnd;
    while (shown.ends_with(' ')) shown.pop_back();
    if (end != text.size()) shown += kCut;
    return shown;
}

}  // namespace

std::vector<CSoughtPhrase> SoughtPhrases(std::string_view expression) {
    std::vector<CSoughtPhrase> phrases;
    for (std::size_t at = expression.find('"'); at != expression.npos; at = expression.find('"', at)) {
        std::string text;
        for (++at; at != expression.size(); ++at) {
            if (expression[at] == '"') {
                if (at + 1 == expression.size() || expression[at + 1] != '"') break;
                ++at;
            }
            text += expression[at];
        }
        at = std::min(at + 1, expression.size());
        CSoughtPhrase phrase;
        BreakWords(text, [&](std::string_view word, std::size_t, std::size_t) {
            phrase.words.emplace_back(word);
            return true;
        });
        const std::size_t behind = expression.find_first_not_of(' ', at);
        phrase.isPrefix = behind != expression.npos && expression[behind] == '*';
        if (!phrase.words.empty()) phrases.push_back(std::move(phrase));
        if (at == expression.size()) break;
    }
    return phrases;
}

std::string Excerpt(const TextPieces& text, const std::vector<CSoughtPhrase>& phrases, std::size_t size) {
    CSearch search(phrases, size);
    std::string read;
    bool isEnd = false;
    const auto readOn = [&] {
        const std::string_view piece = text();
        isEnd = piece.empty();
        read += piece;
        return !isEnd;
    };
    // Words are looked for up to the last blank that is there, so that none is cut.
    std::size_t searched = 0;
    bool isOpen = !phrases.empty();
    while (isOpen && read.size() < kSearchedText) {
        const std::size_t before = read.size();
        if (!readOn()) break;
        const std::size_t blank = read.find_last_of(kBlanks);
        const bool hasBlank = blank != read.npos && blank >= before && blank > searched;
        // Texts without blanks have words of one character, or none that would be missed.
        if (!hasBlank && read.size() - searched < kPieceBytes) continue;
        const std::size_t end = hasBlank ? blank : LastCharacter(read);
        isOpen = search.Look(std::string_view(read).substr(0, end), searched);
        searched = end;
    }
    if (isOpen && isEnd) Ignore(search.Look(read, searched));
    const CSpan best = search.Best();
    const std::size_t room = size - std::min(best.end - best.begin, size);
    const std::size_t before = std::min(room / 2, size / 4);
    const std::size_t first =
        best.begin <= before ? 0 : std::min(CutBefore(read, best.begin - before), best.begin);
    while (!isEnd && read.size() < first + 2 * size) readOn();
    if (!isEnd) read.resize(LastCharacter(read));  // it may have been cut
    const std::size_t end = CutBefore(read, std::min(first + size, read.size()));
    CSearch shown(phrases, size);
    Ignore(shown.Look(std::string_view(read).substr(0, end), first, CSearch::Until::End));
    return Show(read, first, end, shown.Found());
}

namespace {

/// The text of a document, read from the index as it is needed.
class CStoredText {
 public:
    explicit CStoredText(sqlite3_blob* blob) : m_blob(blob), m_size(::sqlite3_blob_bytes(blob)) {}
    std::string_view Next() {
        const int count = std::min<int>(kPieceBytes, m_size - m_at);
        m_piece.resize(static_cast<std::size_t>(count));
        if (count == 0 || ::sqlite3_blob_read(m_blob, m_piece.data(), count, m_at) != SQLITE_OK) return {};
        m_at += count;
        return m_piece;
    }

 private:
    sqlite3_blob* const m_blob;
    const int m_size;
    int m_at = 0;
    std::string m_piece;
};

struct CCloseBlob {
    void operator()(sqlite3_blob* blob) const noexcept { Ignore(::sqlite3_blob_close(blob)); }
};

void ExcerptFunction(sqlite3_context* context, int, sqlite3_value** arguments) {
    sqlite3_blob* opened = nullptr;
    const int result = ::sqlite3_blob_open(::sqlite3_context_db_handle(context), "main", "texts", "text",
                                           ::sqlite3_value_int64(arguments[0]), 0, &opened);
    const std::unique_ptr<sqlite3_blob, CCloseBlob> blob(opened);
    // Without a text there is no row, which is reported as an error.
    if (result == SQLITE_ERROR) return;
    if (result != SQLITE_OK) return ::sqlite3_result_error_code(context, result);
    try {
        const auto* const query = ::sqlite3_value_text(arguments[1]);
        const auto size = static_cast<std::size_t>(std::clamp(::sqlite3_value_int(arguments[2]), 20, 10'000));
        CStoredText text(blob.get());
        const auto phrases = SoughtPhrases(query ? reinterpret_cast<const char*>(query) : "");
        const std::string excerpt = Excerpt([&text] { return text.Next(); }, phrases, size);
        ::sqlite3_result_text64(context, excerpt.data(), excerpt.size(), SQLITE_TRANSIENT, SQLITE_UTF8);
    } catch (const std::bad_alloc&) {
        ::sqlite3_result_error_nomem(context);
    }
}

}  // namespace

int RegisterExcerpt(sqlite3* connection) {
    return ::sqlite3_create_function_v2(connection, "excerpt", 3, SQLITE_UTF8, nullptr, ExcerptFunction,
                                        nullptr, nullptr, nullptr);
}

}  // namespace quorbel
