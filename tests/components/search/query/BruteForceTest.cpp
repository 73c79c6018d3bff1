#include <map>
#include <random>
#include <set>

#include "platform/Text.h"
#include "tests/components/search/query/SearchFixture.h"

namespace quorbel {
namespace {

/// A word as it may be written, and what it is without case and accents.
struct CWord {
    std::vector<std::string> written;
    std::string folded;
    bool isAlone = false;  ///< written without blanks
};

const std::vector<CWord> kWords = {
    {{"fox", "Fox", "FOX"}, "fox"},
    {{"foxes", "Foxes"}, "foxes"},
    {{"forest"}, "forest"},
    {{"müller", "Mueller", "MÜLLER", "Muller"}, "muller"},
    {{"Émile", "emile", "ÉMILE"}, "emile"},
    {{"straße", "STRASSE", "Strasse"}, "strasse"},
    {{"лиса", "Лиса", "ЛИСА"}, "лиса"},
    {{"лисица"}, "лисица"},
    {{"αλεπού", "ΑΛΕΠΟΎ", "αλεπου"}, "αλεπου"},
    {{"2024"}, "2024"},
    {{"שלום"}, "שלום"},
    {{"نور"}, "نور"},
    {{"北"}, "北", true},
    {{"京"}, "京", true},
    {{"狐"}, "狐", true},
    {{"東"}, "東", true},
    {{"か"}, "か", true},
    {{"여"}, "여", true},
};
/// Written otherwise than the others, it is another word.
constexpr std::size_t kMueller = 3;

using Text = std::vector<std::size_t>;  // places in kWords

struct CDocument {
    Text content;
    Text title;
    Text author;
};

/// A query and what must be found.
struct CQuery {
    enum class Kind { Phrase, Prefix, And, Or, Not };
    Kind kind;
    std::string column = {};  // of Phrase and Prefix, as users name it; empty for all
    Text words = {};
    std::string beginning = {};
    std::vector<CQuery> parts = {};
};

class CGenerator {
 public:
    std::size_t Below(std::size_t bound) { return m_random() % bound; }

    Text MakeText(std::size_t most) {
        Text text(Below(most + 1));
        for (std::size_t& word : text) word = Below(kWords.size());
        return text;
    }

    /// Writes words so that their order and borders are what they are.
    std::string Write(const Text& text) {
        static constexpr const char* kBorders[] = {" ", ", ", "-", "\n", " (", ". "};
        std::string written;
        for (std::size_t place = 0; place != text.size(); ++place) {
            const bool isTogether =
                place != 0 && kWords[text[place]].isAlone && kWords[text[place - 1]].isAlone;
            if (place != 0 && !(isTogether && Below(2) == 0)) written += kBorders[Below(std::size(kBorders))];
            written += WriteWord(text[place]);
        }
        return written;
    }

    std::string WriteWord(std::size_t word) {
        std::size_t form = 0;
        do {
            form = Below(kWords[word].written.size());
        } while (word == kMueller && form == 1);
        return kWords[word].written[form];
    }

    CQuery MakeQuery(int depth) {
        static constexpr const char* kColumns[] = {"", "", "", "title", "author", "content"};
        const std::size_t choice = Below(depth == 0 ? 5 : 10);
        CQuery query{CQuery::Kind::Phrase};
        if (choice < 5) {
            query.column = kColumns[Below(std::size(kColumns))];
            query.words = {Below(kWords.size())};
            if (choice == 0) query.words.push_back(Below(kWords.size()));
            if (choice == 1 && !kWords[query.words[0]].isAlone) {
                query.kind = CQuery::Kind::Prefix;
                query.beginning = Beginning(kWords[query.words[0]].folded);
            }
            return query;
        }
        query.kind = choice == 9 ? CQuery::Kind::Not : choice > 6 ? CQuery::Kind::Or : CQuery::Kind::And;
        const std::size_t count = query.kind == CQuery::Kind::Not ? 1 : 2 + Below(2);
        for (std::size_t part = 0; part != count; ++part) query.parts.push_back(MakeQuery(depth - 1));
        return query;
    }

    std::string Write(const CQuery& query) {
        switch (query.kind) {
            case CQuery::Kind::Phrase: {
                const std::string text = Write(query.words);
                const bool needsQuotes = query.words.size() > 1;
                return Column(query) + (needsQuotes ? "\"" + text + "\"" : text);
            }
            case CQuery::Kind::Prefix: return Column(query) + query.beginning + "*";
            case CQuery::Kind::Not: return "-(" + Write(query.parts.front()) + ")";
            case CQuery::Kind::And:
            case CQuery::Kind::Or: break;
        }
        std::string joined;
        for (const CQuery& part : query.parts) {
            if (!joined.empty()) joined += query.kind == CQuery::Kind::Or ? " OR " : Below(2) ? " AND " : " ";
            joined += "(" + Write(part) + ")";
        }
        return joined;
    }

 private:
    static std::string Column(const CQuery& query) { return query.column.empty() ? "" : query.column + ":"; }
    static std::string Beginning(const std::string& word) {
        const std::wstring wide = FromUtf8(word);
        return ToUtf8(wide.substr(0, (wide.size() + 1) / 2));
    }

    std::mt19937 m_random{20261123};
};

bool Has(const Text& text, const CQuery& query) {
    for (std::size_t at = 0; at < text.size(); ++at) {
        if (query.kind == CQuery::Kind::Prefix) {
            if (kWords[text[at]].folded.starts_with(query.beginning)) return true;
            continue;
        }
        const bool fits =
            at + query.words.size() <= text.size() &&
            std::equal(query.words.begin(), query.words.end(), text.begin() + static_cast<int>(at));
        if (fits) return true;
    }
    return false;
}

bool Holds(const CDocument& document, const CQuery& query) {
    const auto holds = [&](const CQuery& part) { return Holds(document, part); };
    switch (query.kind) {
        case CQuery::Kind::And: return std::ranges::all_of(query.parts, holds);
        case CQuery::Kind::Or: return std::ranges::any_of(query.parts, holds);
        case CQuery::Kind::Not: return !holds(query.parts.front());
        case CQuery::Kind::Phrase:
        case CQuery::Kind::Prefix: break;
    }
    const std::pair<std::string, const Text*> columns[] = {
        {"content", &document.content}, {"title", &document.title}, {"author", &document.author}};
    return std::ranges::any_of(columns, [&](const auto& column) {
        return (query.column.empty() || query.column == column.first) && Has(*column.second, query);
    });
}

TEST_F(CSearchFixture, FindsExactlyWhatLookingThroughAllTextsFinds) {
    CGenerator generator;
    std::map<std::wstring, CDocument> documents;
    std::vector<CSearchFile> files;
    for (int number = 0; number != 200; ++number) {
        CDocument document{generator.MakeText(12), generator.MakeText(2), generator.MakeText(2)};
        const std::string folder = number % 3 == 0 ? "/in/deep" : number % 3 == 1 ? "/in" : "/in-out";
        const std::string name = "q" + std::to_string(number);
        files.push_back({folder, name, generator.Write(document.content), generator.Write(document.title),
                         generator.Write(document.author)});
        documents[FromUtf8(folder + "/" + name)] = std::move(document);
    }
    Put(files);

    const auto helper = MakeQueryHelper();
    ASSERT_EQ(helper->put_QuerySelectColumns(L"System.ItemPathDisplay"), S_OK);
    std::size_t most = 0;
    for (int round = 0; round != 400; ++round) {
        const bool isScoped = round % 2 == 0;
        ASSERT_EQ(helper->put_QueryWhereRestrictions(isScoped ? L"AND SCOPE = 'file:/in'" : L""), S_OK);
        const CQuery query = generator.MakeQuery(round % 4);
        const std::string text = generator.Write(query);
        std::set<std::wstring> expected;
        for (const auto& [path, document] : documents) {
            if (Holds(document, query) && (!isScoped || path.starts_with(L"/in/"))) expected.insert(path);
        }
        const std::wstring command = CommandFor(helper, FromUtf8(text));
        const auto answer = RunSearch(command);
        ASSERT_EQ(answer.problem, L"") << text;
        ASSERT_EQ(std::set<std::wstring>(answer.rows.begin(), answer.rows.end()), expected)
            << text << "\n"
            << ToUtf8(command);
        ASSERT_EQ(answer.rows.size(), expected.size()) << "each once: " << text;
        if (expected.size() != documents.size()) most = std::max(most, expected.size());
    }
    EXPECT_GT(most, 50U) << "the queries ask for nothing";
}

}  // namespace
}  // namespace quorbel
